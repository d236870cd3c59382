#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace pixmora;

TEST(CommandLineTest, BadArgumentsAreInvalidWithAReasonAndGoodOnesKeepTheirArgument)
{
    for (const QStringList &arguments : QList<QStringList>{{"snap"}, {"capture"}, {"capture", "everything"},
                                                           {"capture", "screen", "now"}, {"save-to", "a", "b"},
                                                           {"save-to", ""}, {"--help", "capture"}, {"--verbose"}}) {
        const CommandLine command = parseCommandLine(arguments);
        EXPECT_EQ(command.kind, CommandLine::Kind::invalid) << arguments.join(' ').toStdString();
        EXPECT_FALSE(command.argument.isEmpty()) << arguments.join(' ').toStdString();
    }
    EXPECT_EQ(parseCommandLine({"save-to", "/tmp/shots dir"}).argument, "/tmp/shots dir");
    EXPECT_EQ(parseCommandLine({"save-to"}).kind, CommandLine::Kind::showSaveFolder);
    EXPECT_EQ(parseCommandLine({"capture", "scrolling"}).argument, "scrolling");
    EXPECT_TRUE(usageText().contains("capture scrolling"));
}
