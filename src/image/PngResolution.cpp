#include "image/PngResolution.h"

#include <QtEndian>

#include <cmath>
#include <cstring>

namespace pixmora {

namespace {

constexpr char signature[] = "\x89PNG\r\n\x1a\n";
constexpr qsizetype signatureSize = 8;
constexpr qsizetype chunkOverhead = 12;  // length, type, CRC

quint32 bigEndian(const char *bytes) { return qFromBigEndian<quint32>(bytes); }

} // namespace

std::optional<int> pngDotsPerInch(QByteArrayView png)
{
    if (png.size() < signatureSize || std::memcmp(png.data(), signature, signatureSize) != 0)
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
