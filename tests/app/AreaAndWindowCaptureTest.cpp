#include "AppHarness.h"

#include "capture/SelectionOverlay.h"
#include "capture/WindowPicker.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

QImage onlyCapture(AppHarness &h)
{
    const auto entries = h.app->history()->entries();
    return entries.size() == 1 ? QImage(entries.front().path) : QImage();
}

TEST(AreaCaptureTest, DeliversTheFrozenPixelsUnderTheSelectionAtTheDisplaysScale)
{
    AppHarness h;
    const DisplayInfo left = h.fake.screens.displayList[0];   // scale 2 at (0, 0)
    const DisplayInfo right = h.fake.screens.displayList[1];  // scale 1 at (800, 0)
    const QImage frozenRight = h.fake.screens.captureDisplay(right);

    h.app->startRegionCapture();
    ASSERT_NE(h.app->regionController(), nullptr);
    EXPECT_EQ(h.fake.desktop.overlays.size(), 2);
    // What happens on screen after the shortcut does not show in the capture.
    h.fake.screens.displayImages[right.id] = AppHarness::image(640, 480, qRgb(9, 9, 9));

    h.app->regionController()->finish(QRectF(810, 20, 100, 50), &right);
    const QImage captured = onlyCapture(h);
    ASSERT_EQ(captured.size(), QSize(100, 50));
    EXPECT_EQ(captured.convertToFormat(QImage::Format_RGB32), frozenRight.copy(10, 20, 100, 50));
    EXPECT_EQ(qRound(captured.dotsPerMeterX() * 0.0254), 72);
    EXPECT_FALSE(h.app->captureFlowActive());
    EXPECT_EQ(h.app->regionController(), nullptr);

    AppHarness second;
    second.app->startRegionCapture();
    second.app->regionController()->finish(QRectF(10.5, 20, 100, 50), &left);
    EXPECT_EQ(onlyCapture(second).size(), QSize(200, 100));
    EXPECT_EQ(qRound(onlyCapture(second).dotsPerMeterX() * 0.0254), 144);
}

TEST(AreaCaptureTest, ACancelledSelectionEndsTheFlowAndOtherCommandsWaitForIt)
{
    AppHarness h;
    h.app->startRegionCapture();
    const int snapshots = h.fake.screens.displayCaptureCount;
    h.app->startFullScreenCapture();
    h.app->startWindowCapture();
    h.app->startRegionCapture();
    EXPECT_EQ(h.fake.screens.displayCaptureCount, snapshots) << "commands during a flow are dropped";
    EXPECT_EQ(h.fake.desktop.overlays.size(), 2);

    h.app->regionController()->finish(std::nullopt, nullptr);
    EXPECT_FALSE(h.app->captureFlowActive());
    EXPECT_TRUE(h.app->history()->entries().empty());
    h.app->startFullScreenCapture();
    EXPECT_EQ(h.app->history()->entries().size(), 2u) << "the next command starts at once";
}

TEST(AreaCaptureTest, AFailedSnapshotShowsTheErrorAndOpensNothing)
{
    AppHarness h;
    h.fake.screens.beforeDisplayCapture = [](const DisplayInfo &) { throw Error(QStringLiteral("Display gone.")); };
    h.app->startRegionCapture();
    EXPECT_EQ(h.app->regionController(), nullptr);
    EXPECT_TRUE(h.fake.desktop.overlays.isEmpty());
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(h.fake.dialogs.alerts[0].informative, QStringLiteral("Display gone."));
    EXPECT_FALSE(h.app->captureFlowActive());
}

class WindowCaptureTest : public ::testing::Test {
protected:
    AppHarness h;
    WindowInfo window{7, QRect(100, 100, 300, 200), QStringLiteral("notes.txt"), QStringLiteral("Editor"), 4242, 0, true, false};

    void SetUp() override
    {
        h.fake.screens.windowList = {window};
        h.fake.screens.windowImages[window.id] = AppHarness::image(300, 200, qRgb(200, 30, 30));
    }

    void pickAndWait(const std::optional<WindowInfo> &picked)
    {
        h.app->startWindowCapture();
        ASSERT_NE(h.app->windowPicker(), nullptr);
        h.app->windowPicker()->finish(picked);
        EXPECT_EQ(h.app->windowPicker(), nullptr);
        EXPECT_TRUE(QTest::qWaitFor([&] { return !h.app->captureFlowActive(); }, 2000));
    }
};

TEST_F(WindowCaptureTest, ThePickedWindowIsCapturedLaterWithTheShadowSetting)
{
    h.app->startWindowCapture();
    h.app->windowPicker()->finish(window);
    EXPECT_TRUE(h.app->captureFlowActive()) << "the capture waits for the picker to leave the screen";
    EXPECT_TRUE(h.app->history()->entries().empty());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !h.app->captureFlowActive(); }, 2000));
    // At scale 2 the window is 600 x 400 pixels with an 80-pixel shadow margin.
    EXPECT_EQ(onlyCapture(h).size(), QSize(760, 560));

    AppHarness plain;
    plain.fake.screens.windowList = {window};
    plain.fake.screens.windowImages[window.id] = AppHarness::image(300, 200, qRgb(200, 30, 30));
    plain.app->settings().setWindowShadow(false);
    plain.app->startWindowCapture();
    plain.app->windowPicker()->finish(window);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !plain.app->captureFlowActive(); }, 2000));
    const QImage captured = onlyCapture(plain);
    ASSERT_EQ(captured.size(), QSize(600, 400));
    EXPECT_EQ(captured.pixel(300, 200), qRgb(200, 30, 30));
}

TEST_F(WindowCaptureTest, AWindowThatClosedBeforeTheCaptureGivesTheErrorAndNothingElse)
{
    h.fake.screens.windowImages.clear();
    pickAndWait(window);
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(h.fake.dialogs.alerts[0].message, QStringLiteral("Could Not Capture the Screen"));
    EXPECT_TRUE(h.app->history()->entries().empty());
    EXPECT_EQ(h.fake.clipboard.writeCount, 0);
}

TEST_F(WindowCaptureTest, CancellingThePickerEndsTheFlowAtOnce)
{
    pickAndWait(std::nullopt);
    EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty());
    EXPECT_TRUE(h.app->history()->entries().empty());
}

} // namespace
