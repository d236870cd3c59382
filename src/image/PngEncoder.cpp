#include "image/PngEncoder.h"

#include <QByteArrayView>
#include <QtEndian>

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

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

// `keepAlpha` false writes RGB whatever the format says.
Source makeSource(const QImage &image, bool keepAlpha)
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
    source.layout = keepAlpha && source.image.hasAlphaChannel() ? Layout::Rgba : Layout::Rgb;
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

// Deflates runs of filtered rows, each as a raw deflate segment that ends on
// a byte boundary (sync flush) and starts without history, so that segments
// made on two threads join into one stream in the image's order. Keeps its
// zlib state and buffers from one image to the next: on these machines
// touching fresh pages costs more than compressing them.
class BandEncoder {
public:
    struct Segment {
        qsizetype offset = 0;
        qsizetype length = 0;
        uLong checksum = 1;
        qint64 inputLength = 0;
    };

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

    void startImage() { m_used = 0; }

    // Rows [firstRow, endRow) of `source` as the next segment of this
    // encoder's output. The row above firstRow is converted from `source`,
    // or for its first row taken from `above` (the previous band's last
    // row), or zeros at the image's top. Nothing when memory runs out.
    std::optional<Segment> encode(const Source &source, int firstRow, int endRow, const uchar *above) noexcept
    {
        try {
            if (!m_ready || deflateReset(&m_stream) != Z_OK)
                return std::nullopt;
            const qsizetype rowBytes = source.rowBytes;
            m_rows.resize(3 * rowBytes + 1);
            auto *previous = reinterpret_cast<uchar *>(m_rows.data());
            uchar *current = previous + rowBytes;
            uchar *filtered = current + rowBytes;
            if (firstRow > 0)
                convertRow(source, firstRow - 1, previous);
            else if (above)
                std::memcpy(previous, above, std::size_t(rowBytes));
            else
                std::fill_n(previous, rowBytes, 0);  // so Up suits the first row too

            Segment segment;
            segment.offset = m_used;
            m_stream.next_out = reinterpret_cast<Bytef *>(m_output.data()) + m_used;
            m_stream.avail_out = uInt(std::min<qsizetype>(m_output.size() - m_used, UINT_MAX));
            m_stream.total_out = 0;
            for (int y = firstRow; y < endRow; ++y) {
                convertRow(source, y, current);
                filtered[0] = upFilter;
                filterUp(current, previous, rowBytes, filtered + 1);
                segment.checksum = libdeflate_adler32(segment.checksum, filtered, std::size_t(rowBytes + 1));
                segment.inputLength += rowBytes + 1;
                if (!compress(filtered, uInt(rowBytes + 1), y + 1 < endRow ? Z_NO_FLUSH : Z_SYNC_FLUSH))
                    return std::nullopt;
                std::swap(previous, current);
            }
            m_lastRow = previous;
            segment.length = qsizetype(m_stream.total_out);
            m_used += segment.length;
            return segment;
        } catch (const std::bad_alloc &) {
            return std::nullopt;
        }
    }

    QByteArrayView bytes(const Segment &segment) const
    {
        return QByteArrayView(m_output.constData() + segment.offset, segment.length);
    }
    // The last row encoded, converted: the row above the next band.
    const uchar *lastRow() const { return m_lastRow; }

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
        const qsizetype used = m_used + qsizetype(m_stream.total_out);
        // Qt leaves the added bytes uninitialised: no pages are touched in advance.
        m_output.resize(std::max(2 * m_output.size(), initialOutputSize));
        m_stream.next_out = reinterpret_cast<Bytef *>(m_output.data()) + used;
        m_stream.avail_out = uInt(std::min<qsizetype>(m_output.size() - used, UINT_MAX));
    }

    z_stream m_stream{};
    bool m_ready = false;
    QByteArray m_rows;
    QByteArray m_output;
    qsizetype m_used = 0;
    const uchar *m_lastRow = nullptr;
};

// The second thread of one image, for its bands' lower halves. Between two
// halves it spins a moment before it sleeps: a core that has gone idle here
// takes about as long to wake as half a band takes to encode.
class HelperThread {
public:
    HelperThread() : m_thread([this] { serve(); }) {}
    ~HelperThread()
    {
        m_state.store(quitting, std::memory_order_release);
        m_state.notify_one();
        m_thread.join();
    }
    Q_DISABLE_COPY_MOVE(HelperThread)

    void start(std::function<void()> task)
    {
        m_task = std::move(task);
        m_state.store(busy, std::memory_order_release);
        m_state.notify_one();
    }

    void wait()
    {
        spinWhile(busy);
        while (m_state.load(std::memory_order_acquire) == busy)
            m_state.wait(busy, std::memory_order_acquire);
    }

private:
    enum State { idle, busy, quitting };

    void spinWhile(int state) const
    {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(2);
        while (m_state.load(std::memory_order_acquire) == state && std::chrono::steady_clock::now() < until)
            std::this_thread::yield();
    }

    void serve()
    {
        for (;;) {
            spinWhile(idle);
            const int state = m_state.load(std::memory_order_acquire);
            if (state == quitting)
                return;
            if (state == idle) {
                m_state.wait(idle, std::memory_order_acquire);
                continue;
            }
            m_task();
            m_state.store(idle, std::memory_order_release);
            m_state.notify_one();
        }
    }

    std::function<void()> m_task;
    std::atomic<int> m_state{idle};
    std::thread m_thread;
};

// The encoders kept warm between images, one per thread, and the lock of the image using them.
struct SharedEncoder {
    std::mutex mutex;
    BandEncoder bands[2];
};

SharedEncoder &sharedEncoder()
{
    static SharedEncoder shared;
    return shared;
}

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

QByteArray headerChunkData(QSize size, Layout layout)
{
    QByteArray header(13, '\0');
    qToBigEndian(quint32(size.width()), header.data());
    qToBigEndian(quint32(size.height()), header.data() + 4);
    header[8] = 8;                                    // bits per sample
    header[9] = layout == Layout::Rgb ? 2 : 6;        // colour type
    return header;                                    // deflate, adaptive filters, no interlace
}

QByteArray resolutionChunkData(double scale)
{
    const auto dotsPerMetre = quint32(std::lround(72.0 * (scale > 0 ? scale : 1.0) / 0.0254));
    QByteArray resolution(9, '\0');
    qToBigEndian(dotsPerMetre, resolution.data());
    qToBigEndian(dotsPerMetre, resolution.data() + 4);
    resolution[8] = 1;                                // unit: metre
    return resolution;
}

// An empty final block with fixed codes: the stream's end after the last
// segment's sync flush.
constexpr char finalEmptyBlock[2] = {0x03, 0x00};

} // namespace

struct PngStreamEncoder::State {
    State(double resolutionScale, bool alpha)
        : lock(sharedEncoder().mutex, std::try_to_lock), scale(resolutionScale), keepAlpha(alpha)
    {
        // Another image is being encoded: this one gets fresh encoders rather than wait.
        if (!lock.owns_lock())
            own = std::make_unique<std::array<BandEncoder, 2>>();
        for (int i = 0; i < 2; ++i) {
            encoders[i] = own ? &(*own)[i] : &sharedEncoder().bands[i];
            encoders[i]->startImage();
        }
    }
    ~State()
    {
        for (BandEncoder *encoder : encoders)
            encoder->releaseLargeBuffers();
    }

    std::unique_lock<std::mutex> lock;
    std::unique_ptr<std::array<BandEncoder, 2>> own;
    BandEncoder *encoders[2] = {};
    double scale;
    bool keepAlpha;
    bool failed = false;
    QSize size{0, 0};  // width set by the first rows
    Layout layout = Layout::Rgb;
    QByteArray lastRow;
    // The segments in the image's order, with the encoder holding each.
    std::vector<std::pair<const BandEncoder *, BandEncoder::Segment>> segments;
    std::unique_ptr<HelperThread> helper;
};

PngStreamEncoder::PngStreamEncoder(double scale, bool keepAlpha)
    : m_state(std::make_unique<State>(scale, keepAlpha))
{
}

PngStreamEncoder::~PngStreamEncoder() = default;

bool PngStreamEncoder::addRows(const QImage &rows)
{
    State &state = *m_state;
    if (state.failed || rows.isNull())
        return false;
    try {
        const Source source = makeSource(rows, state.keepAlpha);
        if (source.image.isNull()
            || (state.size.width() > 0 && (source.image.width() != state.size.width() || source.layout != state.layout))) {
            state.failed = true;
            return false;
        }
        if (state.size.width() == 0) {
            state.size.setWidth(source.image.width());
            state.layout = source.layout;
            state.lastRow.resize(source.rowBytes);
        }
        const uchar *above = state.size.height() > 0 ? reinterpret_cast<const uchar *>(state.lastRow.constData()) : nullptr;

        BandEncoder &first = *state.encoders[0];
        BandEncoder &second = *state.encoders[1];
        const int height = source.image.height();
        const bool split = height >= 2 && source.rowBytes * height >= splitThreshold;
        const int middle = split ? height / 2 : height;
        std::optional<BandEncoder::Segment> lowerHalf;
        const auto encodeSecond = [&] { lowerHalf = second.encode(source, middle, height, nullptr); };
        if (split && !state.helper) {
            try {
                state.helper = std::make_unique<HelperThread>();
            } catch (const std::system_error &) {
                // No thread to be had: both halves on this one, below.
            }
        }
        if (split && state.helper)
            state.helper->start(encodeSecond);
        const std::optional<BandEncoder::Segment> upperHalf = first.encode(source, 0, middle, above);
        if (split && state.helper)
            state.helper->wait();
        else if (split)
            encodeSecond();
        if (!upperHalf || (split && !lowerHalf)) {
            state.failed = true;
            return false;
        }
        state.segments.emplace_back(&first, *upperHalf);
        if (split)
            state.segments.emplace_back(&second, *lowerHalf);
        std::memcpy(state.lastRow.data(), (split ? second : first).lastRow(), std::size_t(source.rowBytes));
        state.size.setHeight(state.size.height() + height);
        return true;
    } catch (const std::bad_alloc &) {
        state.failed = true;
        return false;
    }
}

QByteArray PngStreamEncoder::finish()
{
    const State &state = *m_state;
    if (state.failed || state.size.isEmpty())
        return {};
    try {
        qsizetype streamLength = 2 + 2 + 4;
        uLong checksum = 1;
        for (const auto &[encoder, segment] : state.segments) {
            streamLength += segment.length;
            checksum = adler32_combine(checksum, segment.checksum, z_off_t(segment.inputLength));
        }

        const qsizetype idatCount = (streamLength + idatLimit - 1) / idatLimit;
        QByteArray png;
        png.reserve(8 + (12 + 13) + (12 + 9) + streamLength + 12 * idatCount + 12);
        png.append("\x89PNG\r\n\x1a\n", 8);
        appendChunk(png, "IHDR", headerChunkData(state.size, state.layout));
        appendChunk(png, "pHYs", resolutionChunkData(state.scale));
        char trailer[4];
        qToBigEndian(quint32(checksum), trailer);
        IdatWriter idat(png);
        idat.write(QByteArrayView(zlibHeader, 2));
        for (const auto &[encoder, segment] : state.segments)
            idat.write(encoder->bytes(segment));
        idat.write(QByteArrayView(finalEmptyBlock, 2));
        idat.write(QByteArrayView(trailer, 4));
        idat.finish();
        appendChunk(png, "IEND", {});
        return png;
    } catch (const std::bad_alloc &) {
        return {};
    }
}

QByteArray encodePng(const QImage &image, double scale)
{
    if (image.isNull())
        return {};
    try {
        const QImage pixels = makeSource(image, true).image;
        PngStreamEncoder encoder(scale, !isOpaque(pixels));
        if (!encoder.addRows(pixels))
            return {};
        return encoder.finish();
    } catch (const std::bad_alloc &) {
        return {};
    }
}

} // namespace pixmora
