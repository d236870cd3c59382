#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace pixmora;
using Kind = Command::Kind;

TEST(CommandLineTest, RecognisesEveryCommand)
{
    EXPECT_EQ(parseCommandLine({}).kind, Kind::runApp);
    EXPECT_EQ(parseCommandLine({QStringLiteral("--help")}).kind, Kind::help);
    EXPECT_EQ(parseCommandLine({QStringLiteral("--version")}).kind, Kind::version);
    for (const QString &kind : {QStringLiteral("area"), QStringLiteral("window"), QStringLiteral("screen")}) {
        const Command capture = parseCommandLine({QStringLiteral("capture"), kind});
        EXPECT_EQ(capture.kind, Kind::capture);
        EXPECT_EQ(capture.argument, kind);
    }
    const Command saveTo = parseCommandLine({QStringLiteral("save-to"), QStringLiteral("/tmp/shots dir")});
    EXPECT_EQ(saveTo.kind, Kind::setSaveFolder);
    EXPECT_EQ(saveTo.argument, QStringLiteral("/tmp/shots dir"));
    EXPECT_EQ(parseCommandLine({QStringLiteral("save-to")}).kind, Kind::showSaveFolder);
}

TEST(CommandLineTest, BadArgumentsAreInvalidWithAReason)
{
    const QList<QStringList> bad{
        {QStringLiteral("snap")},
        {QStringLiteral("capture")},
        {QStringLiteral("capture"), QStringLiteral("everything")},
        {QStringLiteral("capture"), QStringLiteral("screen"), QStringLiteral("now")},
        {QStringLiteral("save-to"), QStringLiteral("a"), QStringLiteral("b")},
        {QStringLiteral("save-to"), QString()},
        {QStringLiteral("--help"), QStringLiteral("capture")},
        {QStringLiteral("--verbose")},
    };
    for (const QStringList &arguments : bad) {
        const Command command = parseCommandLine(arguments);
        EXPECT_EQ(command.kind, Kind::invalid) << arguments.join(' ').toStdString();
        EXPECT_FALSE(command.argument.isEmpty()) << arguments.join(' ').toStdString();
    }
}
