#include "preview/PreviewThumbView.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;

namespace {

QImage solid(int width, int height, QColor color)
{
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(color);
    return image;
}

// What the view paints, on a transparent background, without the window's fill.
QImage rendered(PreviewThumbView &view, QSize size)
{
    view.resize(size);
    QImage target(size, QImage::Format_ARGB32_Premultiplied);
    target.fill(Qt::transparent);
    view.render(&target, QPoint(), QRegion(), QWidget::DrawChildren);
    return target;
}

bool isRed(QRgb pixel) { return qAlpha(pixel) == 255 && qRed(pixel) > 250 && qGreen(pixel) < 5; }

} // namespace

TEST(PreviewThumbView, EnlargesASmallImageToTheWidthWithTransparentBarsAboveAndBelow)
{
    // 100 x 40 pixels at scale 2 in a 60 x 40 point thumbnail: shown 60 x 24, rows 8 to 31.
    PreviewThumbView view(solid(100, 40, Qt::red), {});
    const QImage painted = rendered(view, {60, 40});

    EXPECT_TRUE(isRed(painted.pixel(30, 9)));
    EXPECT_TRUE(isRed(painted.pixel(30, 30)));
    EXPECT_TRUE(isRed(painted.pixel(2, 20)));
    EXPECT_EQ(qAlpha(painted.pixel(30, 5)), 0);
    EXPECT_EQ(qAlpha(painted.pixel(30, 34)), 0);
}

TEST(PreviewThumbView, ShowsATallImageAsANarrowCentredStrip)
{
    // A 1:10 image in a 60 x 180 point thumbnail: an 18-point strip at x 21 to 38.
    PreviewThumbView view(solid(80, 800, Qt::red), {});
    const QImage painted = rendered(view, {60, 180});

    EXPECT_TRUE(isRed(painted.pixel(22, 90)));
    EXPECT_TRUE(isRed(painted.pixel(37, 90)));
    EXPECT_EQ(qAlpha(painted.pixel(19, 90)), 0);
    EXPECT_EQ(qAlpha(painted.pixel(40, 90)), 0);
}

TEST(PreviewThumbView, ClipsToRoundedCornersUnderALightBorder)
{
    PreviewThumbView view(solid(120, 80, Qt::red), {});
    const QImage painted = rendered(view, {120, 80});

    // Outside the radius-8 corners nothing is painted.
    EXPECT_EQ(qAlpha(painted.pixel(0, 0)), 0);
    EXPECT_EQ(qAlpha(painted.pixel(119, 79)), 0);
    // The border: white at 0.8 over the image along every straight edge.
    for (const QPoint edge : {QPoint(60, 0), QPoint(60, 79), QPoint(0, 40), QPoint(119, 40)}) {
        const QRgb pixel = painted.pixel(edge);
        EXPECT_EQ(qAlpha(pixel), 255) << edge.x() << "," << edge.y();
        EXPECT_NEAR(qRed(pixel), 255, 2);
        EXPECT_NEAR(qGreen(pixel), 204, 3);  // 0.8 white + 0.2 red
        EXPECT_NEAR(qBlue(pixel), 204, 3);
    }
    EXPECT_TRUE(isRed(painted.pixel(60, 1)));
}

TEST(PreviewThumbView, EveryPressIsAClickAndTheCursorIsAPointingHand)
{
    int clicks = 0;
    PreviewThumbView view(solid(10, 10, Qt::red), [&] { ++clicks; });
    view.resize(60, 40);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));

    EXPECT_EQ(view.cursor().shape(), Qt::PointingHandCursor);
    QTest::mousePress(&view, Qt::LeftButton, {}, QPoint(2, 2));
    QTest::mouseRelease(&view, Qt::LeftButton, {}, QPoint(2, 2));
    EXPECT_EQ(clicks, 1);  // the release is not a second click
    QTest::mousePress(&view, Qt::RightButton, {}, QPoint(50, 30));
    EXPECT_EQ(clicks, 2);
}
