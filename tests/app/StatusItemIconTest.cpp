#include "app/StatusItemIcon.h"

#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>

// The icons live in the app library's resources, which a static library
// registers only when asked.
static void registerAppResources() { Q_INIT_RESOURCE(resources); }

namespace pixmora {
namespace {

QImage iconImage(int pixels)
{
    registerAppResources();
    return statusItemIcon().pixmap(QSize(pixels, pixels)).toImage().convertToFormat(QImage::Format_ARGB32);
}

TEST(StatusItemIcon, EveryTraySizeHasSharpEdgesOutsideTheLens)
{
    for (const int pixels : {16, 22, 24, 32, 44, 48}) {
        SCOPED_TRACE(pixels);
        const QImage image = iconImage(pixels);
        ASSERT_EQ(image.size(), QSize(pixels, pixels));
        // The round lens in the middle is the one shape allowed soft edges.
        const QRect lens(pixels / 4, pixels / 4, pixels / 2, pixels / 2);
        int blurred = 0;
        int opaque = 0;
        for (int y = 0; y < pixels; ++y)
            for (int x = 0; x < pixels; ++x) {
                if (lens.contains(x, y))
                    continue;
                const int alpha = qAlpha(image.pixel(x, y));
                opaque += alpha >= 225;
                blurred += alpha > 0 && alpha < 225;
            }
        EXPECT_EQ(blurred, 0);
        EXPECT_GT(opaque, pixels * 2);
    }
}

TEST(StatusItemIcon, ReadsOnLightAndDarkPanels)
{
    const QImage glyph = iconImage(22);
    for (const QColor panel : {QColor(Qt::white), QColor(0xd6, 0xd6, 0xd6), QColor(0x30, 0x30, 0x30), QColor(Qt::black)}) {
        SCOPED_TRACE(panel.name().toStdString());
        QImage shown(glyph.size(), QImage::Format_RGB32);
        shown.fill(panel);
        QPainter(&shown).drawImage(0, 0, glyph);
        int contrasting = 0;
        for (int y = 0; y < shown.height(); ++y)
            for (int x = 0; x < shown.width(); ++x)
                contrasting += std::abs(qGray(shown.pixel(x, y)) - qGray(panel.rgb())) > 150;
        // The brackets alone cover well over 40 pixels at 22.
        EXPECT_GT(contrasting, 40);
    }
}

} // namespace
} // namespace pixmora
