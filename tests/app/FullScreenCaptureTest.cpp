#include "AppHarness.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

TEST(FullScreenCaptureTest, DeliversOneImagePerDisplayInOrderWithItsScale)
{
    AppHarness h;
    const QString folder = h.makeSaveFolder();
    h.app->startFullScreenCapture();
    const QStringList files = h.filesIn(folder);
    ASSERT_EQ(files.size(), 2);
    const QString secondName = files.filter(QStringLiteral(" (2).png")).value(0);
    ASSERT_FALSE(secondName.isEmpty());
    const QImage first(QDir(folder).filePath(files[0] == secondName ? files[1] : files[0]));
    const QImage second(QDir(folder).filePath(secondName));
    EXPECT_EQ(first.size(), QSize(1600, 1200));
    EXPECT_EQ(qRound(first.dotsPerMeterX() * 0.0254), 144);
    EXPECT_EQ(second.size(), QSize(640, 480));
    EXPECT_EQ(qRound(second.dotsPerMeterX() * 0.0254), 72);
    EXPECT_FALSE(h.app->captureFlowActive());
}

TEST(FullScreenCaptureTest, AFailingDisplayDeliversNothingAndShowsTheError)
{
    AppHarness h;
    h.fake.screens.beforeDisplayCapture = [](const DisplayInfo &display) {
        if (display.id == 2)
            throw Error(QStringLiteral("The display went away."));
    };
    h.app->startFullScreenCapture();
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(h.fake.dialogs.alerts[0].message, QStringLiteral("Could Not Capture the Screen"));
    EXPECT_EQ(h.fake.dialogs.alerts[0].informative, QStringLiteral("The display went away."));
    EXPECT_EQ(h.fake.clipboard.writeCount, 0);
    EXPECT_TRUE(h.app->history()->entries().empty());
    EXPECT_FALSE(h.app->captureFlowActive());
}

TEST(FullScreenCaptureTest, NoDisplayAtAllIsReported)
{
    AppHarness h;
    h.fake.screens.displayList.clear();
    h.app->startFullScreenCapture();
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(h.fake.dialogs.alerts[0].informative, QStringLiteral("No display found to capture."));
    EXPECT_FALSE(h.app->captureFlowActive());
}

TEST(FullScreenCaptureTest, ACommandDuringAFlowIsDropped)
{
    AppHarness h;
    int nestedStarts = 0;
    h.fake.screens.beforeDisplayCapture = [&](const DisplayInfo &) {
        const int before = h.fake.screens.displayCaptureCount;
        h.app->startFullScreenCapture();  // arrives while the flow is active
        nestedStarts += h.fake.screens.displayCaptureCount - before;
    };
    h.app->startFullScreenCapture();
    EXPECT_EQ(nestedStarts, 0);
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 2);
    EXPECT_FALSE(h.app->captureFlowActive());
    h.fake.screens.beforeDisplayCapture = nullptr;
    h.app->startFullScreenCapture();
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 4) << "the next command after the flow starts normally";
}

TEST(FullScreenCaptureTest, MenuCommandWaitsAndTheHotKeyDoesNot)
{
    AppHarness h;
    h.app->applicationDidFinishLaunching();
    h.app->settings().setDidAskLaunchAtLogin(true);
    QElapsedTimer clock;
    clock.start();
    h.app->captureFullScreenFromMenu();
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return h.fake.screens.displayCaptureCount == 2; }, 3000));
    EXPECT_GE(clock.elapsed(), AppDelegate::fullScreenMenuDelayMs - 20);

    h.fake.hotKeys.press(3);  // Control-Shift-3
    QCoreApplication::processEvents();
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 4);
}

} // namespace
