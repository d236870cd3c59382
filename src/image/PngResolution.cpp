#include "image/PngResolution.h"

#include <QtEndian>

#include <climits>
#include <cmath>
#include <cstring>

namespace pixmora {

namespace {

constexpr char signature[] = "\x89PNG\r\n\x1a\n";
constexpr qsizetype signatureSize = 8;
constexpr qsizetype chunkOverhead = 12;  // length, type, CRC

quint32 bigEndian(const char *bytes) { return qFromBigEndian<quint32>(bytes); }

bool hasSignature(QByteArrayView png)
{
    return png.size() >= signatureSize && std::memcmp(png.data(), signature, signatureSize) == 0;
}

} // namespace

std::optional<QSize> pngPixelSize(QByteArrayView png)
{
    // The header is the first chunk: its length and type, then width and height.
    constexpr qsizetype headerEnd = signatureSize + 8 + 8;
    if (!hasSignature(png) || png.size() < headerEnd || png.sliced(signatureSize + 4, 4) != "IHDR")
        return std::nullopt;
    const quint32 width = bigEndian(png.data() + signatureSize + 8);
    const quint32 height = bigEndian(png.data() + signatureSize + 12);
    if (width == 0 || height == 0 || width > INT_MAX || height > INT_MAX)
        return std::nullopt;
    return QSize(int(width), int(height));
}

std::optional<int> pngDotsPerInch(QByteArrayView png)
{
    if (!hasSignature(png))
        return std::nullopt;
    qsizetype at = signatureSize;
    while (png.size() - at >= chunkOverhead) {
        const quint32 length = bigEndian(png.data() + at);
        const QByteArrayView type = png.sliced(at + 4, 4);
        if (type == "IDAT" || type == "IEND" || length > quint32(png.size() - at - chunkOverhead))
            return std::nullopt;
        if (type == "pHYs") {
            const char *data = png.data() + at + 8;
            if (length != 9 || data[8] != 1)
                return std::nullopt;
            return int(std::lround(bigEndian(data) * 0.0254));
        }
        at += chunkOverhead + qsizetype(length);
    }
    return std::nullopt;
}

} // namespace pixmora
