#include "image/PngEncoder.h"

#include <QByteArrayView>
#include <QScopeGuard>
#include <QtEndian>

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace pixmora {
namespace {

// zlib's fastest level. Screenshots of desktops (text, gradients, photos)
// come out 5 to 7 per cent larger than scrot's, in a fraction of the time;
// each level up costs some 6 per cent more time to save 3 per cent of bytes.
constexpr int deflateLevel = 1;
// 78 01: deflate with a 32 KiB window, fastest level, no preset dictionary.
constexpr char zlibHeader[2] = {0x78, 0x01};
static_assert((0x78 * 256 + 0x01) % 31 == 0);
constexpr uchar upFilter = 2;

// Below this many bytes of pixels a second thread costs more than it saves.
constexpr qsizetype splitThreshold = 1 << 20;
constexpr qsizetype idatLimit = 256 * 1024;
// One band of a 4K desktop compresses to well under this. A larger output
// buffer (photos, noise) is freed after use so that idle memory stays small.
constexpr qsizetype retainedOutputLimit = 2 * 1024 * 1024;
constexpr qsizetype initialOutputSize = 64 * 1024;

enum class Layout { Rgb, Rgba };

// The image in a format the row converter reads (RGB32, ARGB32 or
// ARGB32_Premultiplied) and the PNG layout its rows become.
struct Source {
    QImage image;
    Layout layout = Layout::Rgb;
    qsizetype rowBytes = 0;
};

bool isOpaque(const QImage &image)
{
    if (!image.hasAlphaChannel())
        return true;
    for (int y = 0; y < image.height(); ++y) {
        const auto *pixels = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        QRgb common = 0xffffffff;
        for (int x = 0; x < image.width(); ++x)
            common &= pixels[x];
        if (qAlpha(common) != 255)
            return false;
    }
    return true;
}

Source makeSource(const QImage &image)
{
    Source source;
    switch (image.format()) {
    case QImage::Format_RGB32:
    case QImage::Format_ARGB32:
    case QImage::Format_ARGB32_Premultiplied:
        source.image = image;
        break;
    default:
        source.image = image.convertToFormat(image.hasAlphaChannel() ? QImage::Format_ARGB32
                                                                     : QImage::Format_RGB32);
    }
    source.layout = isOpaque(source.image) ? Layout::Rgb : Layout::Rgba;
    source.rowBytes = qsizetype(source.image.width()) * (source.layout == Layout::Rgb ? 3 : 4);
    return source;
}

void convertRow(const Source &source, int y, uchar *out)
{
    const auto *pixels = reinterpret_cast<const QRgb *>(source.image.constScanLine(y));
    const int width = source.image.width();
    if (source.layout == Layout::Rgb) {
        for (int x = 0; x < width; ++x, out += 3) {
            const QRgb pixel = pixels[x];
            out[0] = uchar(qRed(pixel));
            out[1] = uchar(qGreen(pixel));
            out[2] = uchar(qBlue(pixel));
        }
        return;
    }
    const bool premultiplied = source.image.format() == QImage::Format_ARGB32_Premultiplied;
    for (int x = 0; x < width; ++x, out += 4) {
        const QRgb pixel = premultiplied ? qUnpremultiply(pixels[x]) : pixels[x];
        out[0] = uchar(qRed(pixel));
        out[1] = uchar(qGreen(pixel));
        out[2] = uchar(qBlue(pixel));
        out[3] = uchar(qAlpha(pixel));
    }
}

// PNG's Up filter, eight bytes at a time: a per-byte subtraction that keeps
// borrows from crossing byte boundaries.
void filterUp(const uchar *row, const uchar *above, qsizetype length, uchar *out)
{
    constexpr quint64 high = 0x8080808080808080ull;
    qsizetype i = 0;
    for (; i + 8 <= length; i += 8) {
        quint64 a, b;
        std::memcpy(&a, row + i, 8);
        std::memcpy(&b, above + i, 8);
        const quint64 difference = ((a | high) - (b & ~high)) ^ ((a ^ ~b) & high);
        std::memcpy(out + i, &difference, 8);
    }
    for (; i < length; ++i)
        out[i] = uchar(row[i] - above[i]);
}

// Deflates a horizontal band of filtered rows as a raw deflate segment that
// can be concatenated with the next band's. Keeps its zlib state and buffers
// from one image to the next: on these machines touching fresh pages costs
// more than compressing them.
class BandEncoder {
public:
    BandEncoder()
    {
        m_ready = deflateInit2(&m_stream, deflateLevel, Z_DEFLATED, -MAX_WBITS, 8,
                               Z_DEFAULT_STRATEGY) == Z_OK;
    }
    ~BandEncoder()
    {
        if (m_ready)
            deflateEnd(&m_stream);
    }
    Q_DISABLE_COPY_MOVE(BandEncoder)

    // Rows [firstRow, endRow). A band that does not end the image ends on a
    // byte boundary (sync flush); the last one ends the deflate stream.
    bool encode(const Source &source, int firstRow, int endRow, bool lastBand) noexcept
    {
        try {
            if (!m_ready || deflateReset(&m_stream) != Z_OK)
                return false;
            const qsizetype rowBytes = source.rowBytes;
            m_rows.resize(3 * rowBytes + 1);
            auto *above = reinterpret_cast<uchar *>(m_rows.data());
            uchar *current = above + rowBytes;
            uchar *filtered = current + rowBytes;
            // The row above the image counts as zeros, so Up suits every row.
            if (firstRow == 0)
                std::fill_n(above, rowBytes, 0);
            else
                convertRow(source, firstRow - 1, above);

            m_stream.next_out = reinterpret_cast<Bytef *>(m_output.data());
            m_stream.avail_out = uInt(std::min<qsizetype>(m_output.size(), UINT_MAX));
            m_checksum = 1;  // Adler-32 of nothing
            m_inputLength = 0;
            for (int y = firstRow; y < endRow; ++y) {
                convertRow(source, y, current);
                filtered[0] = upFilter;
                filterUp(current, above, rowBytes, filtered + 1);
                m_checksum = libdeflate_adler32(m_checksum, filtered, std::size_t(rowBytes + 1));
                m_inputLength += rowBytes + 1;
                const int flush = y + 1 < endRow ? Z_NO_FLUSH : lastBand ? Z_FINISH : Z_SYNC_FLUSH;
                if (!compress(filtered, uInt(rowBytes + 1), flush))
                    return false;
                std::swap(above, current);
            }
            return true;
        } catch (const std::bad_alloc &) {
            return false;
        }
    }

    QByteArrayView output() const { return QByteArrayView(m_output.constData(), m_stream.total_out); }
    uLong checksum() const { return m_checksum; }
    qint64 inputLength() const { return m_inputLength; }

    void releaseLargeBuffers()
    {
        if (m_output.size() > retainedOutputLimit)
            m_output = QByteArray();
    }

private:
    bool compress(uchar *data, uInt length, int flush)
    {
        m_stream.next_in = data;
        m_stream.avail_in = length;
        do {
            if (m_stream.avail_out == 0)
                growOutput();
            if (deflate(&m_stream, flush) == Z_STREAM_ERROR)
                return false;
        } while (m_stream.avail_out == 0);
        return true;
    }

    void growOutput()
    {
        const qsizetype used = qsizetype(m_stream.total_out);
        // Qt leaves the added bytes uninitialised: no pages are touched in advance.
        m_output.resize(std::max(2 * m_output.size(), initialOutputSize));
        m_stream.next_out = reinterpret_cast<Bytef *>(m_output.data()) + used;
        m_stream.avail_out = uInt(std::min<qsizetype>(m_output.size() - used, UINT_MAX));
    }

    z_stream m_stream{};
    bool m_ready = false;
    QByteArray m_rows;
    QByteArray m_output;
    uLong m_checksum = 0;
    qint64 m_inputLength = 0;
};

struct SharedEncoder {
    std::mutex mutex;
    BandEncoder bands[2];
};

void appendBigEndian(QByteArray &png, quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    png.append(bytes, 4);
}

quint32 chunkCrc(const QByteArray &png, qsizetype typeStart)
{
    const auto *typeAndData = reinterpret_cast<const Bytef *>(png.constData() + typeStart);
    return libdeflate_crc32(0, typeAndData, std::size_t(png.size() - typeStart));
}

void appendChunk(QByteArray &png, const char *type, QByteArrayView data)
{
    appendBigEndian(png, quint32(data.size()));
    const qsizetype typeStart = png.size();
    png.append(type, 4);
    png.append(data);
    appendBigEndian(png, chunkCrc(png, typeStart));
}

// Cuts the zlib stream, handed over in pieces, into IDAT chunks of at most
// idatLimit bytes.
class IdatWriter {
public:
    explicit IdatWriter(QByteArray &png) : m_png(png) {}

    void write(QByteArrayView bytes)
    {
        while (!bytes.isEmpty()) {
            if (m_chunkStart < 0 || dataLength() == idatLimit) {
                finish();
                m_chunkStart = m_png.size();
                m_png.append("\0\0\0\0IDAT", 8);
            }
            const qsizetype part = std::min(bytes.size(), idatLimit - dataLength());
            m_png.append(bytes.first(part));
            bytes = bytes.sliced(part);
        }
    }

    void finish()
    {
        if (m_chunkStart < 0)
            return;
        qToBigEndian(quint32(dataLength()), m_png.data() + m_chunkStart);
        appendBigEndian(m_png, chunkCrc(m_png, m_chunkStart + 4));
        m_chunkStart = -1;
    }

private:
    qsizetype dataLength() const { return m_png.size() - m_chunkStart - 8; }

    QByteArray &m_png;
    qsizetype m_chunkStart = -1;
};

QByteArray headerChunkData(const Source &source)
{
    QByteArray header(13, '\0');
    qToBigEndian(quint32(source.image.width()), header.data());
    qToBigEndian(quint32(source.image.height()), header.data() + 4);
    header[8] = 8;                                           // bits per sample
    header[9] = source.layout == Layout::Rgb ? 2 : 6;        // colour type
    return header;                                           // deflate, adaptive filters, no interlace
}

QByteArray resolutionChunkData(double scale)
{
    const auto dotsPerMetre = quint32(std::lround(72.0 * (scale > 0 ? scale : 1.0) / 0.0254));
    QByteArray resolution(9, '\0');
    qToBigEndian(dotsPerMetre, resolution.data());
    qToBigEndian(dotsPerMetre, resolution.data() + 4);
    resolution[8] = 1;                                       // unit: metre
    return resolution;
}

QByteArray pngFile(const Source &source, double scale, QByteArrayView firstBand,
                   QByteArrayView secondBand, uLong checksum)
{
    const qsizetype streamLength = 2 + firstBand.size() + secondBand.size() + 4;
    const qsizetype idatCount = (streamLength + idatLimit - 1) / idatLimit;
    QByteArray png;
    png.reserve(8 + (12 + 13) + (12 + 9) + streamLength + 12 * idatCount + 12);
    png.append("\x89PNG\r\n\x1a\n", 8);
    appendChunk(png, "IHDR", headerChunkData(source));
    appendChunk(png, "pHYs", resolutionChunkData(scale));
    char trailer[4];
    qToBigEndian(quint32(checksum), trailer);
    IdatWriter idat(png);
    idat.write(QByteArrayView(zlibHeader, 2));
    idat.write(firstBand);
    idat.write(secondBand);
    idat.write(QByteArrayView(trailer, 4));
    idat.finish();
    appendChunk(png, "IEND", {});
    return png;
}

} // namespace

QByteArray encodePng(const QImage &image, double scale)
{
    if (image.isNull())
        return {};
    try {
        const Source source = makeSource(image);
        if (source.image.isNull())
            return {};

        static SharedEncoder shared;
        const std::lock_guard lock(shared.mutex);
        BandEncoder &first = shared.bands[0];
        BandEncoder &second = shared.bands[1];
        const auto release = qScopeGuard([&] {
            first.releaseLargeBuffers();
            second.releaseLargeBuffers();
        });

        const int height = source.image.height();
        const bool split = height >= 2 && source.rowBytes * height >= splitThreshold;
        const int firstEnd = split ? height / 2 : height;
        bool secondDone = !split;
        const auto encodeSecond = [&] { secondDone = second.encode(source, firstEnd, height, true); };
        std::thread helper;
        if (split) {
            try {
                helper = std::thread(encodeSecond);
            } catch (const std::system_error &) {
                // No thread to be had: both bands on this one, below.
            }
        }
        const bool firstDone = first.encode(source, 0, firstEnd, !split);
        if (helper.joinable())
            helper.join();
        else if (split)
            encodeSecond();
        if (!firstDone || !secondDone)
            return {};

        if (!split)
            return pngFile(source, scale, first.output(), {}, first.checksum());
        const uLong checksum = adler32_combine(first.checksum(), second.checksum(),
                                               z_off_t(second.inputLength()));
        return pngFile(source, scale, first.output(), second.output(), checksum);
    } catch (const std::bad_alloc &) {
        return {};
    }
}

} // namespace pixmora
