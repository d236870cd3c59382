#include "capture/CaptureEngine.h"

#include "TestImages.h"

#include <gtest/gtest.h>

using namespace pixmora;

TEST(BackingScale, ByDisplayIdOrWindowCentreElseTheMainDisplay)
{
    // The main display at scale 1 and a smaller one at scale 2 to its right.
    const DisplayList displays = {{7, {0, 0, 1920, 1080}, {}, 1.0, {}}, {9, {1920, 0, 960, 540}, {}, 2.0, {}}};
    EXPECT_EQ(CaptureEngine::backingScale(9, displays), 2.0);
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({1820, 100, 200, 100}, displays), 2.0);  // centre on the seam
}

TEST(Crop, FloorsEachValueSubtractsTheScreensOriginAndClipsToTheImage)
{
    const QImage image = test::noise(1440, 900);
    const QRectF screen(0, 0, 720, 450), leftScreen(-720, -200, 720, 450);
    const struct { QRectF selection; QRectF screen; QRect pixels; } cases[] = {
        {{10.75, 10.75, 300.5, 200.25}, screen, {21, 21, 601, 400}},
        {{-720 + 30.5, -200 + 40.25, 100, 50}, leftScreen, {61, 80, 200, 100}},
        {{710, 440, 30, 30}, screen, {1420, 880, 20, 20}},
        {{-10, -10, 15, 20}, screen, {0, 0, 10, 20}},
        {{720, 10, 20, 20}, screen, {}},
    };
    for (const auto &[selection, screenFrame, pixels] : cases) {
        SCOPED_TRACE(testing::Message() << selection.x() << "," << selection.y());
        EXPECT_EQ(CaptureEngine::crop(image, selection, screenFrame), pixels.isEmpty() ? QImage() : image.copy(pixels));
    }
}
