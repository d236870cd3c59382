#include "capture/CaptureEngine.h"
#include "capture/PngEncoder.h"

#include <QRandomGenerator>
#include <QtEndian>

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

using namespace pixmora;

namespace {

struct Chunk {
    QByteArray type;
    qsizetype length;
};

// The chunk sequence of a PNG file, checking every length against the file size.
std::vector<Chunk> chunksOf(const QByteArray &png)
{
    std::vector<Chunk> chunks;
    EXPECT_TRUE(png.startsWith("\x89PNG\r\n\x1a\n"));
    for (qsizetype at = 8; at < png.size();) {
        const qsizetype length = qFromBigEndian<quint32>(png.constData() + at);
        EXPECT_LE(at + 12 + length, png.size());
        chunks.push_back({png.mid(at + 4, 4), length});
        at += 12 + length;
    }
    return chunks;
}

int colourType(const QByteArray &png)
{
    return png.at(8 + 8 + 9);
}

QImage decode(const QByteArray &png)
{
    return QImage::fromData(png, "PNG");
}

// Smooth areas, edges and noise, so every filter byte value turns up.
QImage testPattern(int width, int height, QImage::Format format, bool withAlpha)
{
    QImage image(width, height, QImage::Format_ARGB32);
    QRandomGenerator random(7);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int alpha = withAlpha ? (x * 7 + y * 3) % 256 : 255;
            const bool noisy = (x / 16 + y / 16) % 3 == 0;
            const QRgb colour = noisy ? QRgb(random.generate()) : qRgb(x % 256, y % 256, (x + y) % 256);
            image.setPixel(x, y, qRgba(qRed(colour), qGreen(colour), qBlue(colour), alpha));
        }
    return image.convertToFormat(format);
}

} // namespace

TEST(PngEncoder, OpaqueImagesBecomeRgb)
{
    for (const QImage::Format format : {QImage::Format_RGB32, QImage::Format_ARGB32_Premultiplied,
                                        QImage::Format_RGB888, QImage::Format_Grayscale8}) {
        const QImage image = testPattern(97, 61, format, false);
        const QByteArray png = encodePng(image, 1.0);
        EXPECT_EQ(colourType(png), 2) << format;
        const QImage decoded = decode(png);
        ASSERT_FALSE(decoded.isNull()) << format;
        EXPECT_EQ(decoded.convertToFormat(QImage::Format_RGB32), image.convertToFormat(QImage::Format_RGB32)) << format;
    }
}

TEST(PngEncoder, TranslucentImagesKeepTheirAlpha)
{
    for (const QImage::Format format : {QImage::Format_ARGB32_Premultiplied, QImage::Format_ARGB32,
                                        QImage::Format_RGBA8888}) {
        const QImage image = testPattern(120, 45, format, true);
        const QByteArray png = encodePng(image, 1.0);
        EXPECT_EQ(colourType(png), 6) << format;
        const QImage decoded = decode(png);
        ASSERT_FALSE(decoded.isNull()) << format;
        EXPECT_EQ(decoded.convertToFormat(QImage::Format_ARGB32_Premultiplied),
                  image.convertToFormat(QImage::Format_ARGB32_Premultiplied)) << format;
    }
}

TEST(PngEncoder, ResolutionIs72DpiTimesScale)
{
    const QImage image = testPattern(200, 100, QImage::Format_RGB32, false);
    EXPECT_TRUE(CaptureEngine::pngData(QImage(), 2.0).isEmpty());
    for (const int dpi : {72, 144, 216}) {
        const double scale = dpi / 72.0;
        const QImage decoded = decode(CaptureEngine::pngData(image, scale));
        EXPECT_EQ(decoded.dotsPerMeterX(), std::lround(dpi / 0.0254));
        EXPECT_EQ(decoded.dotsPerMeterY(), decoded.dotsPerMeterX());
        EXPECT_EQ(std::lround(decoded.dotsPerMeterX() * 0.0254), dpi);
    }
    // 200 x 100 pixels at 144 dpi measure 100 x 50 points.
    const QImage retina = decode(CaptureEngine::pngData(image, 2.0));
    EXPECT_EQ(std::lround(retina.width() * 72 / (retina.dotsPerMeterX() * 0.0254)), 100);
    EXPECT_EQ(std::lround(retina.height() * 72 / (retina.dotsPerMeterY() * 0.0254)), 50);
}

TEST(PngEncoder, LargeImagesSplitIntoBoundedChunks)
{
    // Large enough for both threads and several IDAT chunks; odd height.
    for (const bool withAlpha : {false, true}) {
        const QImage image = testPattern(1500, 701, QImage::Format_ARGB32_Premultiplied, withAlpha);
        const QByteArray png = encodePng(image, 2.0);
        const std::vector<Chunk> chunks = chunksOf(png);
        ASSERT_GE(chunks.size(), 5u);
        EXPECT_EQ(chunks[0].type, "IHDR");
        EXPECT_EQ(chunks[1].type, "pHYs");
        EXPECT_EQ(chunks.back().type, "IEND");
        for (size_t i = 2; i + 1 < chunks.size(); ++i) {
            EXPECT_EQ(chunks[i].type, "IDAT");
            EXPECT_LE(chunks[i].length, 256 * 1024);
        }
        // The decoder checks every CRC and the stream's Adler-32.
        EXPECT_EQ(decode(png).convertToFormat(QImage::Format_ARGB32_Premultiplied), image) << withAlpha;
    }
}

TEST(PngEncoder, ConcurrentCallsStayIntact)
{
    const QImage first = testPattern(900, 700, QImage::Format_RGB32, false);
    const QImage second = testPattern(700, 900, QImage::Format_ARGB32_Premultiplied, true);
    QByteArray firstPng, secondPng;
    std::thread other([&] {
        for (int i = 0; i < 3; ++i)
            secondPng = encodePng(second, 1.0);
    });
    for (int i = 0; i < 3; ++i)
        firstPng = encodePng(first, 1.0);
    other.join();
    EXPECT_EQ(decode(firstPng), first);
    EXPECT_EQ(decode(secondPng).convertToFormat(QImage::Format_ARGB32_Premultiplied), second);
}
