#include "app/StatusItemIcon.h"

#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>

// The icons live in the app library's resources, which a static library registers only when asked.
static void registerAppResources() { Q_INIT_RESOURCE(resources); }

// Sharp outside the round lens in the middle, the one shape allowed soft edges,
// and readable on light and dark panels alike: the brackets alone cover well
// over twice the size in pixels.
TEST(StatusItemIcon, EveryTraySizeHasSharpEdgesOutsideTheLensAndReadsOnAnyPanel)
{
    registerAppResources();
    for (const int pixels : {16, 22, 24, 32, 44, 48}) {
        SCOPED_TRACE(pixels);
        const QImage image = pixmora::statusItemIcon().pixmap(QSize(pixels, pixels)).toImage().convertToFormat(QImage::Format_ARGB32);
        ASSERT_EQ(image.size(), QSize(pixels, pixels));
        const QRect lens(pixels / 4, pixels / 4, pixels / 2, pixels / 2);
        for (const QColor panel : {QColor(Qt::white), QColor(0xd6, 0xd6, 0xd6), QColor(0x30, 0x30, 0x30), QColor(Qt::black)}) {
            QImage shown(image.size(), QImage::Format_RGB32);
            shown.fill(panel);
            QPainter(&shown).drawImage(0, 0, image);
            int blurred = 0, contrasting = 0;
            for (int y = 0; y < pixels; ++y)
                for (int x = 0; x < pixels; ++x) {
                    const int alpha = qAlpha(image.pixel(x, y));
                    blurred += !lens.contains(x, y) && alpha > 0 && alpha < 225;
                    contrasting += std::abs(qGray(shown.pixel(x, y)) - qGray(panel.rgb())) > 150;
                }
            EXPECT_EQ(blurred, 0);
            EXPECT_GT(contrasting, 2 * pixels) << panel.name().toStdString();
        }
    }
}
