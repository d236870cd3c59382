#include "capture/AreaCaptureFlow.h"
#include "capture/FullScreenCaptureFlow.h"
#include "capture/RegionSelectionController.h"
#include "capture/ScrollingCaptureFlow.h"
#include "capture/WindowCaptureFlow.h"
#include "capture/WindowPickerController.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;

namespace {

QImage filled(QSize size, QRgb colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

// Display 1 is 800 x 600 points at scale 2; display 2, right of it, 640 x 480 at scale 1.
class CaptureFlowTest : public ::testing::Test {
protected:
    CaptureFlowTest()
    {
        fake.screens.displayList = {FakeScreenCapture::display(1, {0, 0, 800, 600}, 2.0),
                                    FakeScreenCapture::display(2, {800, 0, 640, 480}, 1.0)};
    }
    ~CaptureFlowTest() override { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    // Starts the flow; its outcomes are collected (exactly one is expected).
    template <typename Flow, typename... Arguments>
    std::unique_ptr<Flow> start(Arguments &&...arguments)
    {
        auto flow = std::make_unique<Flow>(std::forward<Arguments>(arguments)...);
        flow->start([this](CaptureOutcome outcome) { outcomes.push_back(std::move(outcome)); });
        return flow;
    }

    FakePlatform fake;
    std::vector<CaptureOutcome> outcomes;
};

// A failed snapshot ends every flow with its error and nothing else, before
// any overlay opens. (DeliveryTest sees each display delivered at its scale.)
TEST_F(CaptureFlowTest, AFailedSnapshotEndsTheFlowWithItsErrorAndNothingElse)
{
    fake.screens.beforeDisplayCapture = [](const DisplayInfo &display) {
        if (display.id == 2)
            throw Error("The display went away.");
    };
    start<FullScreenCaptureFlow>(fake.screens);
    start<AreaCaptureFlow>(fake.screens, fake.desktop);
    start<WindowCaptureFlow>(fake.screens, fake.desktop, true);
    EXPECT_TRUE(fake.desktop.overlays.isEmpty());
    ASSERT_EQ(outcomes.size(), 3u);
    for (const CaptureOutcome &outcome : outcomes) {
        EXPECT_TRUE(outcome.images.isEmpty());
        ASSERT_TRUE(outcome.error);
        EXPECT_EQ(outcome.error->description(), "The display went away.");
    }
}

// What happens on screen after the command does not show in the capture.
TEST_F(CaptureFlowTest, AreaGivesTheFrozenPixelsUnderTheSelectionAtItsDisplaysScale)
{
    for (const auto &[display, selection, pixels] :
         QList<std::tuple<int, QRectF, QRect>>{{1, QRectF(810, 20, 100, 50), QRect(10, 20, 100, 50)},
                                               {0, QRectF(10.5, 20, 100, 50), QRect(21, 40, 200, 100)}}) {
        outcomes.clear();
        fake.screens.displayImages.clear();
        const DisplayInfo &on = fake.screens.displayList[display];
        const QImage frozen = fake.screens.captureDisplay(on);
        const auto flow = start<AreaCaptureFlow>(fake.screens, fake.desktop);
        ASSERT_NE(flow->regionController(), nullptr);
        fake.screens.displayImages[on.id] = filled(frozen.size(), qRgb(9, 9, 9));
        flow->regionController()->finish(selection, &on);
        EXPECT_EQ(flow->regionController(), nullptr);
        ASSERT_EQ(outcomes.size(), 1u);
        EXPECT_FALSE(outcomes[0].error);
        ASSERT_EQ(outcomes[0].images.size(), 1);
        EXPECT_EQ(outcomes[0].images[0].image, frozen.copy(pixels));
        EXPECT_EQ(outcomes[0].images[0].scale, on.scale);
    }
}

// The window lies on display 1 (scale 2): 760 x 560 pixels with its shadow.
TEST_F(CaptureFlowTest, WindowIsCapturedOnceThePickerHasLeftTheScreen)
{
    const WindowInfo window{7, QRect(100, 100, 300, 200), "notes.txt", "Editor", 4242, 0, true, false};
    fake.screens.windowList = {window};
    for (const auto &[picked, stillOpen, size] :
         QList<std::tuple<bool, bool, QSize>>{{true, true, {760, 560}}, {true, false, {}}, {false, true, {}}}) {
        outcomes.clear();
        fake.screens.windowImages.clear();
        if (stillOpen)
            fake.screens.windowImages[window.id] = filled(window.frame.size(), qRgb(200, 30, 30));
        const auto flow = start<WindowCaptureFlow>(fake.screens, fake.desktop, true);
        ASSERT_NE(flow->windowPicker(), nullptr);
        flow->windowPicker()->finish(picked ? std::optional(window) : std::nullopt);
        EXPECT_EQ(flow->windowPicker(), nullptr);
        EXPECT_EQ(outcomes.size(), picked ? 0u : 1u) << "a capture waits, a cancel ends at once";
        ASSERT_TRUE(QTest::qWaitFor([&] { return !outcomes.empty(); }, 2000));
        const CaptureOutcome &outcome = outcomes[0];
        EXPECT_EQ(outcome.images.isEmpty() ? QSize() : outcome.images[0].image.size(), size);
        if (size.isValid()) {
            const QImage &image = outcome.images[0].image;
            EXPECT_EQ(image.pixel(image.width() / 2, image.height() / 2), qRgb(200, 30, 30));
            EXPECT_EQ(outcome.images[0].scale, 2.0);
        }
        EXPECT_EQ(outcome.error.has_value(), picked && !stillOpen) << "a window that closed meanwhile";
    }
}

// On display 1 (scale 2), 59.5 points are 119 pixels: too low for stitching.
TEST_F(CaptureFlowTest, ScrollingRefusesLowSelectionsThenCapturesTheRectangleLiveUntilFinished)
{
    const DisplayInfo &display = fake.screens.displayList[0];
    for (const auto &[height, started] : {std::pair{59.5, false}, std::pair{60.0, true}}) {
        outcomes.clear();
        fake.dialogs.alerts.clear();
        const auto flow = start<ScrollingCaptureFlow>(fake.screens, fake.desktop, fake.dialogs);
        ASSERT_NE(flow->regionController(), nullptr);
        flow->regionController()->finish(QRectF(100, 100, 200, height), &display);
        if (!started) {
            ASSERT_EQ(fake.dialogs.alerts.size(), 1);
            EXPECT_EQ(fake.dialogs.alerts[0].message, "Selection Too Short");
            ASSERT_EQ(outcomes.size(), 1u);
            EXPECT_TRUE(outcomes[0].images.isEmpty() && !outcomes[0].error);
            continue;
        }
        EXPECT_EQ(flow->scrollCapture(), nullptr) << "not before the overlay has gone";
        // Live pixels: what the display shows now, not the frozen snapshot.
        fake.screens.displayImages[display.id] = filled(QSize(1600, 1200), qRgb(40, 90, 200));
        ASSERT_TRUE(QTest::qWaitFor([&] { return flow->scrollCapture() && flow->scrollCapture()->hud()
                                                 && flow->scrollCapture()->hud()->status().startsWith("60 px"); }));
        EXPECT_TRUE(fake.dialogs.alerts.isEmpty());
        EXPECT_EQ(fake.screens.exclusionsHeld, 1);
        EXPECT_TRUE(flow->finishScrollCapture());
        ASSERT_EQ(outcomes.size(), 1u);
        ASSERT_EQ(outcomes[0].images.size(), 1);
        EXPECT_EQ(outcomes[0].images[0].image, filled(QSize(400, 120), qRgb(40, 90, 200)));
        EXPECT_EQ(outcomes[0].images[0].scale, 2.0);
        EXPECT_EQ(flow->scrollCapture(), nullptr);
        EXPECT_EQ(fake.screens.exclusionsHeld, 0);
    }
}

} // namespace
