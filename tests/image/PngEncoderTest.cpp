#include "image/PngEncoder.h"

#include "TestImages.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

using namespace pixmora;
using pixmora::test::noise;

TEST(Png, RoundTripsEveryFormatAsRgbWhenOpaqueElseRgbaAt72DpiTimesScale)
{
    const struct { QImage::Format format; bool translucent; int colourType; double scale; int dpi; } cases[] = {
        {QImage::Format_RGB32, false, 2, 1.0, 72}, {QImage::Format_ARGB32_Premultiplied, false, 2, 2.0, 144},
        {QImage::Format_ARGB32_Premultiplied, true, 6, 1.5, 108}, {QImage::Format_ARGB32, true, 6, 1.0, 72},
        {QImage::Format_RGBA8888, true, 6, 3.0, 216},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.format << (c.translucent ? " translucent" : ""));
        const QImage image = noise(97, 61, c.format, c.translucent);
        const QByteArray png = encodePng(image, c.scale);
        ASSERT_GT(png.size(), 25);
        EXPECT_EQ(png.at(8 + 8 + 9), c.colourType);
        const QImage read = QImage::fromData(png);
        EXPECT_EQ(read.convertToFormat(QImage::Format_ARGB32_Premultiplied),
                  image.convertToFormat(QImage::Format_ARGB32_Premultiplied));
        EXPECT_EQ(read.dotsPerMeterX(), std::lround(c.dpi / 0.0254));
        EXPECT_EQ(read.dotsPerMeterY(), read.dotsPerMeterX());
    }
    EXPECT_TRUE(encodePng(QImage(), 2.0).isEmpty());
}

TEST(Png, ALargeImageEncodedOnTwoThreadsAtOnceStaysIntact)
{
    const QImage image = noise(1000, 701, QImage::Format_ARGB32_Premultiplied, true);  // two bands, odd height
    QByteArray png, sameOnTheOtherThread;
    std::thread other([&] { sameOnTheOtherThread = encodePng(image, 1.0); });
    png = encodePng(image, 1.0);
    other.join();
    EXPECT_EQ(png, sameOnTheOtherThread);
    // The decoder checks every chunk's CRC and the stream's Adler-32.
    EXPECT_EQ(QImage::fromData(png).convertToFormat(QImage::Format_ARGB32_Premultiplied), image);
}

// Bands of one row carry the row above across calls; bands over 1 MB are
// split between the threads, the short last one is not, so the segments of
// both threads must join in order.
TEST(Png, AnImageStreamedInBandsOfAnyHeightDecodesToTheSamePixels)
{
    for (const bool translucent : {false, true}) {
        const QImage image = noise(1500, 701, translucent ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32,
                                   translucent);
        for (const int bandRows : {1, 250}) {
            SCOPED_TRACE(testing::Message() << (translucent ? "translucent" : "opaque") << ", bands of " << bandRows);
            PngStreamEncoder encoder(2.0);
            for (int top = 0; top < image.height(); top += bandRows)
                ASSERT_TRUE(encoder.addRows(image.copy(0, top, image.width(), std::min(bandRows, image.height() - top))));
            const QImage read = QImage::fromData(encoder.finish());
            EXPECT_EQ(read.hasAlphaChannel(), translucent);
            EXPECT_EQ(read.convertToFormat(image.format()), image);
            EXPECT_EQ(read.dotsPerMeterX(), std::lround(144 / 0.0254));
        }
    }

    PngStreamEncoder nothingAdded(1.0);
    EXPECT_TRUE(nothingAdded.finish().isEmpty());
    PngStreamEncoder narrower(1.0);
    EXPECT_TRUE(narrower.addRows(noise(40, 3)));
    EXPECT_FALSE(narrower.addRows(noise(39, 3)));
    EXPECT_FALSE(narrower.addRows(noise(40, 3)));
    EXPECT_TRUE(narrower.finish().isEmpty());
}
