#include "image/WindowShadow.h"

#include <QPainter>

#include <array>
#include <cmath>
#include <vector>

namespace pixmora {
namespace {

// The drop shadow, in points: margin around the window, downward offset,
// blur radius (a Gaussian of sigma = radius / 2), and its opacity.
constexpr double shadowMargin = 40;
constexpr double shadowOffset = 8;
constexpr double shadowBlurRadius = 24;
constexpr double shadowOpacity = 0.45;

// Pixels of an 8-bit mask, row after row without padding.
struct Mask {
    uchar *values;
    int width;
    int height;

    uchar *row(int y) const { return values + qsizetype(y) * width; }
};

// Widths of three successive box blurs that together approximate a Gaussian.
using Blur = std::array<int, 3>;

// Odd widths whose variances, (w * w - 1) / 12 each, add up to sigma squared
// as closely as can be: the first few of the lower width, the rest one
// size up (Kovesi, "Fast almost-Gaussian filtering").
Blur boxWidthsForGaussian(double sigma)
{
    const double twelveVariances = 12 * sigma * sigma;
    int lower = int(std::sqrt(twelveVariances / 3 + 1));
    if (lower % 2 == 0)
        --lower;
    const int upper = lower + 2;
    const long lowerCount = std::lround((twelveVariances - 3.0 * lower * lower - 12.0 * lower - 9) / (-4.0 * lower - 4));
    return {lowerCount > 0 ? lower : upper, lowerCount > 1 ? lower : upper, lowerCount > 2 ? lower : upper};
}

// Mean of `width` values with rounding, via a 24-bit fixed-point reciprocal;
// 255 * 2^24 plus the rounding half still fits in 32 bits.
struct BoxAverage {
    explicit BoxAverage(int width) : reciprocal((1u << 24) / quint32(width)) {}
    uchar operator()(quint32 sum) const { return uchar((sum * reciprocal + (1u << 23)) >> 24); }
    quint32 reciprocal;
};

// Box blur along rows; values beyond either end count as zero.
void blurRows(const Mask &in, const Mask &out, int firstRow, int endRow, int boxWidth)
{
    const int radius = boxWidth / 2;
    const BoxAverage average(boxWidth);
    for (int y = firstRow; y < endRow; ++y) {
        const uchar *source = in.row(y);
        uchar *target = out.row(y);
        quint32 sum = 0;
        for (int x = 0; x < std::min(radius, in.width); ++x)
            sum += source[x];
        for (int x = 0; x < in.width; ++x) {
            if (x + radius < in.width)
                sum += source[x + radius];
            target[x] = average(sum);
            if (x - radius >= 0)
                sum -= source[x - radius];
        }
    }
}

// Box blur along columns, a whole row at a time to stay in cache.
void blurColumns(const Mask &in, const Mask &out, int boxWidth)
{
    const int radius = boxWidth / 2;
    const BoxAverage average(boxWidth);
    std::vector<quint32> sums(in.width, 0);
    const auto add = [&](int y) {
        const uchar *source = in.row(y);
        for (int x = 0; x < in.width; ++x)
            sums[x] += source[x];
    };
    const auto subtract = [&](int y) {
        const uchar *source = in.row(y);
        for (int x = 0; x < in.width; ++x)
            sums[x] -= source[x];
    };
    for (int y = 0; y < std::min(radius, in.height); ++y)
        add(y);
    for (int y = 0; y < in.height; ++y) {
        if (y + radius < in.height)
            add(y + radius);
        uchar *target = out.row(y);
        for (int x = 0; x < in.width; ++x)
            target[x] = average(sums[x]);
        if (y - radius >= 0)
            subtract(y - radius);
    }
}

// Shadow pixels for every coverage of the mask, scaled by rowCoverage / 255.
std::array<QRgb, 256> shadowPalette(int rowCoverage)
{
    std::array<QRgb, 256> palette;
    const double factor = shadowOpacity * rowCoverage / 255;
    for (int coverage = 0; coverage < 256; ++coverage)
        palette[coverage] = qRgba(0, 0, 0, int(coverage * factor + 0.5));
    return palette;
}

// An opaque window casts a blurred rectangle, which is the product of its
// blurred horizontal and vertical extents: two short blurs, no mask.
void paintShadowOfRectangle(QImage &canvas, const QRect &area, const Blur &blur)
{
    const auto blurredExtent = [&](int length, int start, int count) {
        std::vector<uchar> values(2 * qsizetype(length), 0);
        std::fill_n(values.begin() + start, count, 255);
        const Mask masks[2] = {{values.data(), length, 1}, {values.data() + length, length, 1}};
        int current = 0;
        for (int box : blur) {
            blurRows(masks[current], masks[1 - current], 0, 1, box);
            current = 1 - current;
        }
        return std::vector<uchar>(masks[current].values, masks[current].values + length);
    };
    const std::vector<uchar> across = blurredExtent(canvas.width(), area.left(), area.width());
    const std::vector<uchar> down = blurredExtent(canvas.height(), area.top(), area.height());
    for (int y = 0; y < canvas.height(); ++y) {
        const std::array<QRgb, 256> palette = shadowPalette(down[y]);
        auto *pixels = reinterpret_cast<QRgb *>(canvas.scanLine(y));
        for (int x = 0; x < canvas.width(); ++x)
            pixels[x] = palette[across[x]];
    }
}

// The window's alpha at topLeft of the mask, which is zero elsewhere.
void copyAlpha(const QImage &window, const Mask &mask, QPoint topLeft)
{
    const QImage argb = window.format() == QImage::Format_ARGB32
            || window.format() == QImage::Format_ARGB32_Premultiplied
        ? window : window.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    std::fill_n(mask.values, qsizetype(mask.width) * mask.height, 0);
    for (int y = 0; y < argb.height(); ++y) {
        const auto *pixels = reinterpret_cast<const QRgb *>(argb.constScanLine(y));
        uchar *target = mask.row(topLeft.y() + y) + topLeft.x();
        for (int x = 0; x < argb.width(); ++x)
            target[x] = uchar(qAlpha(pixels[x]));
    }
}

// A translucent window's shadow follows its alpha: a full two-dimensional
// blur. The two masks that the passes bounce between live in the canvas's
// own first half, so there is no scratch memory to allocate and fault in.
void paintShadowOfAlpha(QImage &canvas, const QImage &window, QPoint topLeft, const Blur &blur)
{
    const int width = canvas.width();
    const int height = canvas.height();
    uchar *scratch = canvas.bits();
    const Mask masks[2] = {{scratch, width, height}, {scratch + qsizetype(width) * height, width, height}};
    copyAlpha(window, masks[0], topLeft);

    // Rows only need blurring where the window left alpha; columns everywhere.
    const int firstRow = topLeft.y();
    const int endRow = firstRow + window.height();
    int current = 0;
    for (int box : blur) {
        blurRows(masks[current], masks[1 - current], firstRow, endRow, box);
        current = 1 - current;
    }
    for (int y = 0; y < height; ++y) {
        if (y < firstRow || y >= endRow)
            std::fill_n(masks[current].row(y), width, 0);
    }
    for (int box : blur) {
        blurColumns(masks[current], masks[1 - current], box);
        current = 1 - current;
    }

    // Six passes leave the result in the first mask. Widen it into pixels
    // last one first, so that no mask value is overwritten before it is read.
    Q_ASSERT(current == 0);
    const std::array<QRgb, 256> palette = shadowPalette(255);
    auto *pixels = reinterpret_cast<QRgb *>(scratch);
    for (qsizetype i = qsizetype(width) * height - 1; i >= 0; --i)
        pixels[i] = palette[masks[0].values[i]];
}

} // namespace

std::optional<QImage> compositeShadow(const QImage &window, double scale)
{
    if (window.isNull() || !(scale > 0))
        return std::nullopt;
    const int margin = int(shadowMargin * scale);
    const int offset = int(std::lround(shadowOffset * scale));
    QImage canvas(window.width() + 2 * margin, window.height() + 2 * margin,
                  QImage::Format_ARGB32_Premultiplied);
    if (canvas.isNull())
        return std::nullopt;

    const int shadowTop = std::min(margin + offset, canvas.height() - window.height());
    const Blur blur = boxWidthsForGaussian(shadowBlurRadius * scale / 2);
    if (window.hasAlphaChannel())
        paintShadowOfAlpha(canvas, window, QPoint(margin, shadowTop), blur);
    else
        paintShadowOfRectangle(canvas, QRect(QPoint(margin, shadowTop), window.size()), blur);

    QPainter painter(&canvas);
    painter.drawImage(QRectF(margin, margin, window.width(), window.height()), window,
                      QRectF(window.rect()));
    painter.end();
    return canvas;
}

} // namespace pixmora
