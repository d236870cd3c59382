#include "image/PngThumbnail.h"

#include "image/PngEncoder.h"

#include "TestImages.h"

#include <gtest/gtest.h>

using namespace pixmora;
using pixmora::test::noise;

namespace {

// The premultiplied average of each 4 x 3 box, rounded: what a 4 x 3 reduction must give.
QImage boxAverages(const QImage &image)
{
    const QImage source = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QImage result(image.width() / 4, image.height() / 3, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < result.height(); ++y) {
        for (int x = 0; x < result.width(); ++x) {
            int sums[4] = {};
            for (int dy = 0; dy < 3; ++dy) {
                for (int dx = 0; dx < 4; ++dx) {
                    const QRgb pixel = source.pixel(4 * x + dx, 3 * y + dy);
                    sums[0] += qRed(pixel), sums[1] += qGreen(pixel), sums[2] += qBlue(pixel), sums[3] += qAlpha(pixel);
                }
            }
            result.setPixel(x, y, qRgba((sums[0] + 6) / 12, (sums[1] + 6) / 12, (sums[2] + 6) / 12, (sums[3] + 6) / 12));
        }
    }
    return result;
}

int largestDifference(const QImage &a, const QImage &b)
{
    int largest = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            for (const int d : {qRed(p) - qRed(q), qGreen(p) - qGreen(q), qBlue(p) - qBlue(q), qAlpha(p) - qAlpha(q)})
                largest = std::max(largest, std::abs(d));
        }
    }
    return largest;
}

} // namespace

// Large enough that the encoder writes two bands: the stream a hand-made
// decoder once read wrong.
TEST(PngThumbnail, EachPixelIsTheAverageOfItsBoxOpaqueOrTranslucent)
{
    for (const bool translucent : {false, true}) {
        SCOPED_TRACE(translucent ? "translucent" : "opaque");
        const QImage image = noise(1200, 903, QImage::Format_ARGB32_Premultiplied, translucent);
        const QImage thumbnail = decodePngThumbnail(encodePng(image, 1.0), QSize(300, 301));
        ASSERT_EQ(thumbnail.size(), QSize(300, 301));
        EXPECT_EQ(thumbnail.format(), translucent ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
        // Premultiplying each pixel before summing rounds once more than premultiplying the sum.
        EXPECT_LE(largestDifference(thumbnail, boxAverages(image)), 1);
    }
}

TEST(PngThumbnail, RefusesWhatItCannotReduce)
{
    const QByteArray png = encodePng(noise(400, 300), 1.0);
    EXPECT_TRUE(decodePngThumbnail(png.first(png.size() - 2000), QSize(100, 75)).isNull()) << "truncated";
    EXPECT_TRUE(decodePngThumbnail(QByteArray(5000, 'x'), QSize(100, 75)).isNull()) << "no PNG";
    EXPECT_TRUE(decodePngThumbnail(png, QSize(400, 100)).isNull()) << "not smaller in width";
    EXPECT_FALSE(decodePngThumbnail(png, QSize(100, 75)).isNull());
}
