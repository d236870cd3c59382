#include "image/WindowShadow.h"

#include "TestImages.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace pixmora;
using pixmora::test::noise;

TEST(Shadow, WholeMarginsAroundTheUnchangedWindowAndASoftBlackShadowBelowIt)
{
    const QImage rgb = noise(300, 200);
    for (const double scale : {1.0, 1.33, 1.5, 2.0}) {
        SCOPED_TRACE(scale);
        const int margin = int(40 * scale);
        const QImage argb = rgb.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        // RGB32 takes a shortcut for rectangles; ARGB32 follows the alpha.
        const QImage shortcut = compositeShadow(rgb, scale).value();
        const QImage general = compositeShadow(argb, scale).value();
        ASSERT_EQ(general.size(), QSize(300 + 2 * margin, 200 + 2 * margin));
        EXPECT_EQ(general.copy(margin, margin, 300, 200), argb);
        EXPECT_EQ(shortcut.copy(margin, margin, 300, 200), argb);
        for (int y = 0; y < general.height(); ++y)
            for (int x = 0; x < general.width(); ++x)
                ASSERT_NEAR(qAlpha(shortcut.pixel(x, y)), qAlpha(general.pixel(x, y)), 2) << x << "," << y;
        // Black at 0.45, blurred: half of that on its edge, 8 points below the window's.
        const QRgb onEdge = general.pixel(margin + 150, margin + 200 + int(std::lround(8 * scale)));
        EXPECT_NEAR(qAlpha(onEdge), 0.45 * 255 / 2, 5);
        EXPECT_EQ(onEdge & 0xffffff, 0u);
    }
    EXPECT_FALSE(compositeShadow(QImage(), 2.0));
}
