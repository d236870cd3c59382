#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace pixmora;

TEST(CommandLineTest, BadArgumentsAreInvalidWithAReasonAndAPathKeepsItsSpaces)
{
    for (const QStringList &arguments : QList<QStringList>{{"snap"}, {"capture", "everything"}, {"capture", "screen", "now"},
                                                           {"save-to", ""}, {"--help", "capture"}}) {
        const CommandLine command = parseCommandLine(arguments);
        EXPECT_EQ(command.kind, CommandLine::Kind::invalid) << arguments.join(' ').toStdString();
        EXPECT_FALSE(command.argument.isEmpty()) << arguments.join(' ').toStdString();
    }
    EXPECT_EQ(parseCommandLine({"save-to", "/tmp/shots dir"}).argument, "/tmp/shots dir");
}

// What reaches a terminal can neither steer it nor split a path over lines,
// and a printed text maps back to exactly one original.
TEST(CommandLineTest, PrintableTextEscapesControlAndFormatCharactersAndBackslashes)
{
    const QList<std::pair<QString, QString>> cases{
        {"/home/ann/My Shots/é 📷", "/home/ann/My Shots/é 📷"},
        {"a\nb\tc\rd", "a\\nb\\tc\\rd"},
        {"\x1b[31mred\x07", "\\x1b[31mred\\x07"},
        {"C:\\n", "C:\\\\n"},
        {QString::fromUtf8("evil\u202Egnp.exe"), "evil\\u202egnp.exe"},
        {QString(QChar(0xd800)) + "x", "\\ud800x"},
    };
    for (const auto &[text, printed] : cases)
        EXPECT_EQ(printable(text), printed) << text.toStdString();
}
