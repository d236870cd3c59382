#include "image/PngThumbnail.h"

#include <spng.h>

#include <memory>
#include <vector>

namespace pixmora {

namespace {

// Any width a display or a scrolling capture can have, with room to spare.
constexpr uint32_t largestSide = 1u << 20;

struct ContextDeleter {
    void operator()(spng_ctx *context) const { spng_ctx_free(context); }
};

// Sums, per thumbnail pixel of one row, the premultiplied channels of the
// source pixels that fall into it: a run of neighbours, as columns map in order.
class RowAccumulator {
public:
    RowAccumulator(int sourceWidth, int width) : m_sums(std::size_t(width) * 4), m_perColumn(std::size_t(width), 0)
    {
        for (int x = 0; x < sourceWidth; ++x)
            ++m_perColumn[std::size_t(qint64(x) * width / sourceWidth)];
    }

    void addRgb(const uchar *pixels)
    {
        quint32 *sum = m_sums.data();
        for (const int run : m_perColumn) {
            quint32 red = 0, green = 0, blue = 0;
            for (int n = 0; n < run; ++n, pixels += 3)
                red += pixels[0], green += pixels[1], blue += pixels[2];
            sum[0] += red, sum[1] += green, sum[2] += blue, sum[3] += 255u * quint32(run);
            sum += 4;
        }
        ++m_rows;
    }

    // Premultiplied, so that transparent pixels add no colour.
    void addRgba(const uchar *pixels, bool &opaque)
    {
        quint32 *sum = m_sums.data();
        for (const int run : m_perColumn) {
            for (int n = 0; n < run; ++n, pixels += 4) {
                const quint32 alpha = pixels[3];
                opaque = opaque && alpha == 255;
                sum[0] += (pixels[0] * alpha + 127) / 255;
                sum[1] += (pixels[1] * alpha + 127) / 255;
                sum[2] += (pixels[2] * alpha + 127) / 255;
                sum[3] += alpha;
            }
            sum += 4;
        }
        ++m_rows;
    }

    // Writes the averages into a row of premultiplied pixels and starts over.
    void takeRow(QRgb *out)
    {
        for (std::size_t x = 0; x < m_perColumn.size(); ++x) {
            const quint32 count = quint32(m_perColumn[x]) * quint32(m_rows);
            const quint32 *sum = &m_sums[x * 4];
            const auto average = [&](int channel) { return int((sum[channel] + count / 2) / count); };
            out[x] = qRgba(average(0), average(1), average(2), average(3));
        }
        std::fill(m_sums.begin(), m_sums.end(), 0);
        m_rows = 0;
    }

private:
    std::vector<quint32> m_sums;
    std::vector<int> m_perColumn;  // how many source columns each thumbnail column covers
    int m_rows = 0;
};

} // namespace

QImage decodePngThumbnail(QByteArrayView png, QSize size)
{
    // The chunks' CRCs still catch a damaged file; the stream's Adler-32 on
    // top took a sixth of the time.
    const std::unique_ptr<spng_ctx, ContextDeleter> context(spng_ctx_new(SPNG_CTX_IGNORE_ADLER32));
    spng_ihdr header{};
    if (!context || size.isEmpty() || spng_set_image_limits(context.get(), largestSide, largestSide) != 0
        || spng_set_png_buffer(context.get(), png.data(), std::size_t(png.size())) != 0
        || spng_get_ihdr(context.get(), &header) != 0 || header.interlace_method != 0
        || size.width() >= qint64(header.width) || size.height() >= qint64(header.height))
        return {};

    // Opaque 8-bit RGB, a capture's layout, is read as it is stored.
    spng_trns transparency{};
    const bool rgb = header.color_type == SPNG_COLOR_TYPE_TRUECOLOR && header.bit_depth == 8
                     && spng_get_trns(context.get(), &transparency) != 0;
    const int channels = rgb ? 3 : 4;
    if (spng_decode_image(context.get(), nullptr, 0, rgb ? SPNG_FMT_RGB8 : SPNG_FMT_RGBA8, SPNG_DECODE_PROGRESSIVE) != 0)
        return {};

    QImage thumbnail(size, QImage::Format_ARGB32_Premultiplied);
    if (thumbnail.isNull())
        return {};
    const int sourceHeight = int(header.height);
    RowAccumulator accumulator(int(header.width), size.width());
    std::vector<uchar> row(std::size_t(header.width) * std::size_t(channels));
    bool opaque = true;
    for (int y = 0; y < sourceHeight; ++y) {
        const int status = spng_decode_row(context.get(), row.data(), row.size());
        if (status != 0 && !(status == SPNG_EOI && y + 1 == sourceHeight))
            return {};
        if (rgb)
            accumulator.addRgb(row.data());
        else
            accumulator.addRgba(row.data(), opaque);
        // The thumbnail row this source row belongs to ends where the next one's begins.
        const int thumbnailRow = int(qint64(y) * size.height() / sourceHeight);
        if (int(qint64(y + 1) * size.height() / sourceHeight) != thumbnailRow)
            accumulator.takeRow(reinterpret_cast<QRgb *>(thumbnail.scanLine(thumbnailRow)));
    }
    // Every alpha 255: premultiplied and RGB32 words are then the same.
    if (opaque)
        thumbnail.reinterpretAsFormat(QImage::Format_RGB32);
    return thumbnail;
}

} // namespace pixmora
