#include "image/ScaledPngDecoder.h"

#include <QByteArrayView>
#include <QIODevice>
#include <QScopeGuard>
#include <QtEndian>

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <cstring>
#include <vector>

namespace pixmora {
namespace {

constexpr char signature[8] = {'\x89', 'P', 'N', 'G', '\r', '\n', '\x1a', '\n'};
constexpr qint64 inputSize = 64 * 1024;

bool unfilter(uchar filter, uchar *row, const uchar *above, qsizetype length, int bpp)
{
    switch (filter) {
    case 0:
        return true;
    case 1:
        for (qsizetype i = bpp; i < length; ++i)
            row[i] = uchar(row[i] + row[i - bpp]);
        return true;
    case 2:
        for (qsizetype i = 0; i < length; ++i)
            row[i] = uchar(row[i] + above[i]);
        return true;
    case 3:
        for (qsizetype i = 0; i < length; ++i)
            row[i] = uchar(row[i] + ((i >= bpp ? row[i - bpp] : 0) + above[i]) / 2);
        return true;
    case 4:
        for (qsizetype i = 0; i < length; ++i) {
            const int a = i >= bpp ? row[i - bpp] : 0, b = above[i], c = i >= bpp ? above[i - bpp] : 0;
            const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
            row[i] = uchar(row[i] + (pa <= pb && pa <= pc ? a : pb <= pc ? b : c));
        }
        return true;
    default:
        return false;
    }
}

// Each source pixel is summed into the target pixel it falls in, a target
// row at a time; alpha kinds are premultiplied first, so that transparent
// pixels lend no colour.
class AreaAverager {
public:
    AreaAverager(QSize source, QImage &target, int channels)
        : m_sourceHeight(source.height()), m_target(target), m_channels(channels),
          m_sums(size_t(target.width()) * 4), m_columnStart(size_t(target.width()) + 1)
    {
        const qint64 from = source.width(), to = target.width();
        for (qint64 column = 0; column <= to; ++column)
            m_columnStart[size_t(column)] = int((column * from + to - 1) / to);
    }

    void addRow(const uchar *pixels)
    {
        const int targetRow = int(qint64(m_row++) * m_target.height() / m_sourceHeight);
        if (targetRow != m_targetRow)
            flush();
        m_targetRow = targetRow;
        ++m_rows;
        switch (m_channels) {
        case 1: add<1>(pixels); break;
        case 2: add<2>(pixels); break;
        case 3: add<3>(pixels); break;
        default: add<4>(pixels); break;
        }
    }

    void flush()
    {
        if (m_rows == 0)
            return;
        auto *out = reinterpret_cast<QRgb *>(m_target.scanLine(m_targetRow));
        for (int column = 0; column < m_target.width(); ++column) {
            const quint32 count =
                quint32(m_columnStart[size_t(column) + 1] - m_columnStart[size_t(column)]) * quint32(m_rows);
            const auto average = [count](quint32 sum) { return int((sum + count / 2) / count); };
            const quint32 *sum = &m_sums[size_t(column) * 4];
            out[column] = m_channels == 1 || m_channels == 2
                              ? qRgba(average(sum[0]), average(sum[0]), average(sum[0]), average(sum[3]))
                              : qRgba(average(sum[0]), average(sum[1]), average(sum[2]), average(sum[3]));
        }
        std::fill(m_sums.begin(), m_sums.end(), 0);
        m_rows = 0;
    }

private:
    static quint32 premultiplied(uint value, uint alpha)
    {
        const uint product = value * alpha + 128;
        return (product + (product >> 8)) >> 8;
    }

    template <int channels> void add(const uchar *pixels)
    {
        for (size_t column = 0; column + 1 < m_columnStart.size(); ++column) {
            quint32 s0 = 0, s1 = 0, s2 = 0, s3 = 0;
            const uchar *pixel = pixels + qsizetype(m_columnStart[column]) * channels;
            const uchar *end = pixels + qsizetype(m_columnStart[column + 1]) * channels;
            for (; pixel < end; pixel += channels) {
                if constexpr (channels == 1) {
                    s0 += pixel[0];
                    s3 += 255;
                } else if constexpr (channels == 2) {
                    s0 += premultiplied(pixel[0], pixel[1]);
                    s3 += pixel[1];
                } else if constexpr (channels == 3) {
                    s0 += pixel[0];
                    s1 += pixel[1];
                    s2 += pixel[2];
                    s3 += 255;
                } else {
                    s0 += premultiplied(pixel[0], pixel[3]);
                    s1 += premultiplied(pixel[1], pixel[3]);
                    s2 += premultiplied(pixel[2], pixel[3]);
                    s3 += pixel[3];
                }
            }
            quint32 *sum = &m_sums[column * 4];
            sum[0] += s0;
            sum[1] += s1;
            sum[2] += s2;
            sum[3] += s3;
        }
    }

    const int m_sourceHeight;
    QImage &m_target;
    const int m_channels;
    std::vector<quint32> m_sums;  // r, g, b, a of each target pixel in the row
    std::vector<int> m_columnStart;
    int m_row = 0, m_targetRow = 0, m_rows = 0;
};

struct Header {
    QSize size;
    int channels = 0;
};

std::optional<Header> readHeader(QIODevice &png)
{
    char head[8 + 8 + 13 + 4];
    if (png.read(head, sizeof head) != qint64(sizeof head) || std::memcmp(head, signature, 8) != 0 ||
        qFromBigEndian<quint32>(head + 8) != 13 || QByteArrayView(head + 12, 4) != "IHDR")
        return std::nullopt;
    const quint32 width = qFromBigEndian<quint32>(head + 16), height = qFromBigEndian<quint32>(head + 20);
    const int depth = uchar(head[24]), kind = uchar(head[25]);
    const bool plain = head[26] == 0 && head[27] == 0 && head[28] == 0;  // deflate, filter set 0, not interlaced
    static constexpr int channelsOfKind[7] = {1, 0, 3, 0, 2, 0, 4};
    if (width == 0 || height == 0 || width > (1u << 24) || height > (1u << 30) || depth != 8 || kind > 6 ||
        channelsOfKind[kind] == 0 || !plain)
        return std::nullopt;
    return Header{QSize(int(width), int(height)), channelsOfKind[kind]};
}

} // namespace

QImage decodeScaledPng(QIODevice &png, QSize box)
{
    const std::optional<Header> header = readHeader(png);
    if (!header || box.isEmpty())
        return {};
    const QSize source = header->size;
    const QSize size = source.width() <= box.width() && source.height() <= box.height()
                           ? source
                           : source.scaled(box, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
    QImage image(size, header->channels % 2 == 0 ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
    if (image.isNull())
        return {};
    AreaAverager averager(source, image, header->channels);

    z_stream stream{};
    if (inflateInit(&stream) != Z_OK)
        return {};
    const auto end = qScopeGuard([&stream] { inflateEnd(&stream); });
    const qsizetype rowBytes = qsizetype(source.width()) * header->channels;
    std::vector<uchar> rows(2 * size_t(rowBytes + 1));
    uchar *current = rows.data(), *above = current + rowBytes + 1;
    qsizetype filled = 0;
    int row = 0;
    std::vector<char> input(inputSize);
    while (true) {
        char chunk[8];
        if (png.read(chunk, 8) != 8)
            return {};
        const qint64 length = qFromBigEndian<quint32>(chunk);
        const QByteArrayView type(chunk + 4, 4);
        if (type == "IEND")
            return {};
        // A colour key or an orientation is QImageReader's to apply.
        if (type == "tRNS" || type == "eXIf")
            return {};
        if (type != "IDAT") {
            if (png.skip(length + 4) != length + 4)
                return {};
            continue;
        }
        for (qint64 left = length; left > 0;) {
            const qint64 read = png.read(input.data(), std::min(left, inputSize));
            if (read <= 0)
                return {};
            left -= read;
            stream.next_in = reinterpret_cast<Bytef *>(input.data());
            stream.avail_in = uInt(read);
            bool more = true;
            while (more && row < source.height()) {
                stream.next_out = current + filled;
                stream.avail_out = uInt(rowBytes + 1 - filled);
                const int result = inflate(&stream, Z_NO_FLUSH);
                if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
                    return {};
                filled = rowBytes + 1 - stream.avail_out;
                const bool rowDone = filled == rowBytes + 1;
                if (rowDone) {
                    if (!unfilter(current[0], current + 1, above + 1, rowBytes, header->channels))
                        return {};
                    averager.addRow(current + 1);
                    std::swap(current, above);
                    filled = 0;
                    ++row;
                } else if (result == Z_STREAM_END) {
                    return {};  // rows missing
                }
                // A full row may leave output waiting in zlib even with no input left.
                more = stream.avail_in > 0 || rowDone;
            }
        }
        if (row == source.height()) {
            averager.flush();
            return image;
        }
        if (png.skip(4) != 4)  // the CRC: the zlib stream checks the data itself
            return {};
    }
}

} // namespace pixmora
