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
    return entries.size() == 1 ? QImage(entries.front().path).convertToFormat(QImage::Format_RGB32) : QImage();
}

TEST(CaptureFlowTest, AFailedSnapshotSaysWhyDeliversNothingAndEndsTheFlow)
{
    for (const auto &[start, noDisplays, reason] : QList<std::tuple<void (AppDelegate::*)(), bool, QString>>{
             {&AppDelegate::startFullScreenCapture, false, "The display went away."},
             {&AppDelegate::startFullScreenCapture, true, "No display found to capture."},
             {&AppDelegate::startWindowCapture, false, "The display went away."}}) {
        AppHarness h;
        if (noDisplays)
            h.fake.screens.displayList.clear();
        h.fake.screens.beforeDisplayCapture = [](const DisplayInfo &display) {
            if (display.id == 2)
                throw Error("The display went away.");
        };
        (h.app.get()->*start)();
        ASSERT_EQ(h.fake.dialogs.alerts.size(), 1) << reason.toStdString();
        EXPECT_EQ(h.fake.dialogs.alerts[0].message, "Could Not Capture the Screen");
        EXPECT_EQ(h.fake.dialogs.alerts[0].informative, reason);
        EXPECT_TRUE(h.fake.desktop.overlays.isEmpty());
        EXPECT_EQ(h.fake.clipboard.writeCount, 0);
        EXPECT_FALSE(h.app->captureFlowActive());
    }
}

// Commands during the flow are dropped; a selection or a cancel ends it.
TEST(AreaCaptureTest, RunsAloneAndDeliversTheFrozenPixelsUnderTheSelectionAtTheDisplaysScale)
{
    for (const auto &[display, selection, pixels] :
         QList<std::tuple<int, std::optional<QRectF>, QRect>>{{1, QRectF(810, 20, 100, 50), QRect(10, 20, 100, 50)},
                                                              {0, QRectF(10.5, 20, 100, 50), QRect(21, 40, 200, 100)},
                                                              {0, std::nullopt, QRect()}}) {
        AppHarness h;
        const DisplayInfo &on = h.fake.screens.displayList[display];
        const QImage frozen = h.fake.screens.captureDisplay(on);
        h.app->startRegionCapture();
        ASSERT_NE(h.app->regionController(), nullptr);
        const int snapshots = h.fake.screens.displayCaptureCount;
        h.app->startFullScreenCapture();
        h.app->startWindowCapture();
        h.app->startRegionCapture();
        EXPECT_EQ(h.fake.screens.displayCaptureCount, snapshots);
        // What happens on screen after the shortcut does not show in the capture.
        h.fake.screens.displayImages[on.id] = AppHarness::image(frozen.size(), qRgb(9, 9, 9));
        h.app->regionController()->finish(selection, &on);
        const QImage captured = onlyCapture(h);
        EXPECT_EQ(captured, selection ? frozen.copy(pixels) : QImage());
        EXPECT_EQ(AppHarness::dpi(captured), selection ? qRound(72 * on.scale) : 0);
        EXPECT_FALSE(h.app->captureFlowActive());
        EXPECT_EQ(h.app->regionController(), nullptr);
        h.app->startFullScreenCapture();
        EXPECT_EQ(h.app->history()->entries().size(), selection ? 3u : 2u) << "the next command starts at once";
    }
}

// The window lies on display 1 (scale 2): 600 x 400 pixels, 760 x 560 with its shadow.
TEST(WindowCaptureTest, ThePickedWindowIsCapturedOnceThePickerHasLeftTheScreen)
{
    const WindowInfo window{7, QRect(100, 100, 300, 200), "notes.txt", "Editor", 4242, 0, true, false};
    // Picked, shadow, still open when captured; the size captured, 0 x 0 for nothing.
    for (const auto &[picked, shadow, stillOpen, size] : QList<std::tuple<bool, bool, bool, QSize>>{
             {true, true, true, {760, 560}}, {true, false, true, {600, 400}},
             {true, true, false, {0, 0}}, {false, true, true, {0, 0}}}) {
        AppHarness h;
        h.fake.screens.windowList = {window};
        if (stillOpen)
            h.fake.screens.windowImages[window.id] = AppHarness::image(window.frame.size(), qRgb(200, 30, 30));
        h.app->settings().setWindowShadow(shadow);
        h.app->startWindowCapture();
        ASSERT_NE(h.app->windowPicker(), nullptr);
        h.app->windowPicker()->finish(picked ? std::optional(window) : std::nullopt);
        EXPECT_EQ(h.app->windowPicker(), nullptr);
        EXPECT_EQ(h.app->captureFlowActive(), picked) << "a capture waits, a cancel ends the flow";
        ASSERT_TRUE(QTest::qWaitFor([&] { return !h.app->captureFlowActive(); }, 2000));
        const QImage captured = onlyCapture(h);
        EXPECT_EQ(captured.size(), size);
        if (!captured.isNull()) {
            EXPECT_EQ(captured.pixel(captured.width() / 2, captured.height() / 2), qRgb(200, 30, 30));
        }
        ASSERT_EQ(h.fake.dialogs.alerts.size(), stillOpen ? 0 : 1) << "a window that closed meanwhile";
        EXPECT_EQ(h.fake.dialogs.alerts.value(0).message, stillOpen ? "" : "Could Not Capture the Screen");
    }
}

} // namespace
