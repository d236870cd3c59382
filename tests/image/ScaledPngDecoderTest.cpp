#include "image/PngEncoder.h"
#include "image/ScaledPngDecoder.h"

#include "TestImages.h"

#include <QBuffer>
#include <QImageWriter>
#include <QLinearGradient>
#include <QPainter>

#include <gtest/gtest.h>

#include <cstdlib>

namespace pixmora {
namespace {

QImage decoded(const QByteArray &png, QSize box)
{
    QBuffer buffer;
    buffer.setData(png);
    buffer.open(QIODevice::ReadOnly);
    return decodeScaledPng(buffer, box);
}

QByteArray qtPng(const QImage &image)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QImageWriter(&buffer, "png").write(image);
    return buffer.data();
}

int largestDifference(const QImage &a, const QImage &b)
{
    int largest = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            for (int shift : {0, 8, 16, 24})
                largest = std::max(largest, std::abs(int((p >> shift) & 0xff) - int((q >> shift) & 0xff)));
        }
    return largest;
}

QImage gradient(QSize size, QImage::Format format)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    QLinearGradient fill(0, 0, size.width(), size.height());
    fill.setColorAt(0, QColor(250, 10, 30, 255));
    fill.setColorAt(1, QColor(20, 200, 240, format == QImage::Format_ARGB32 ? 40 : 255));
    painter.fillRect(image.rect(), fill);
    painter.end();
    return image.convertToFormat(format);
}

// Every kind Pixmora or Qt writes, every filter libpng picks, reduced by
// whole and by uneven factors, agrees with Qt's own decode scaled smoothly.
TEST(ScaledPngDecoderTest, AgreesWithQtsDecodeScaledDown)
{
    const struct {
        const char *what;
        QByteArray png;
        QSize box, size;
        int tolerance;
    } cases[] = {
        {"our RGB, 10 x 10 boxes", encodePng(test::noise(600, 400), 1), {60, 60}, {60, 40}, 2},
        {"our RGBA", encodePng(gradient({640, 360}, QImage::Format_ARGB32), 1), {184, 113}, {184, 103}, 3},
        {"Qt's RGB, adaptive filters", qtPng(gradient({1000, 750}, QImage::Format_RGB32)), {184, 113}, {150, 113}, 3},
        {"Qt's grey", qtPng(gradient({500, 300}, QImage::Format_Grayscale8)), {100, 100}, {100, 60}, 3},
        {"tall", encodePng(gradient({200, 8000}, QImage::Format_RGB32), 1), {184, 113}, {2, 113}, 3},
        {"fits already", encodePng(test::noise(30, 20), 1), {184, 113}, {30, 20}, 0},
    };
    for (const auto &c : cases) {
        const QImage image = decoded(c.png, c.box);
        ASSERT_EQ(image.size(), c.size) << c.what;
        const QImage reference = QImage::fromData(c.png)
                                     .scaled(c.size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                                     .convertToFormat(image.format());
        EXPECT_LE(largestDifference(image, reference), c.tolerance) << c.what;
    }
}

// What it does not read is left to QImageReader, and damage gives nothing.
TEST(ScaledPngDecoderTest, OtherKindsAndDamagedDataGiveNothing)
{
    const QByteArray good = encodePng(test::noise(300, 200), 1);
    QImage palette = test::noise(300, 200).convertToFormat(QImage::Format_Indexed8);
    const struct {
        const char *what;
        QByteArray png;
    } cases[] = {
        {"palette", qtPng(palette)},
        {"16 bits", qtPng(gradient({300, 200}, QImage::Format_RGBA64))},
        {"cut short", good.left(good.size() / 2)},
        {"rows missing", encodePng(test::noise(300, 100), 1).replace(16, 8, good.mid(16, 8))},
        {"not a PNG", QByteArray("GIF89a and then some bytes that are no picture")},
        {"empty", QByteArray()},
    };
    for (const auto &c : cases)
        EXPECT_TRUE(decoded(c.png, {100, 100}).isNull()) << c.what;
    EXPECT_FALSE(decoded(good, {100, 100}).isNull());
}

} // namespace
} // namespace pixmora
