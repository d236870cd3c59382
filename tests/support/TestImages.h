#pragma once

#include <QImage>
#include <QRandomGenerator>

namespace pixmora::test {

// Noise: a wrong offset cannot go unnoticed, and an encoder meets every byte value.
inline QImage noise(int width, int height, QImage::Format format = QImage::Format_RGB32, bool translucent = false)
{
    QImage image(width, height, QImage::Format_ARGB32);
    QRandomGenerator random(7);
    for (int y = 0; y < height; ++y)
        random.fillRange(reinterpret_cast<quint32 *>(image.scanLine(y)), width);
    return (translucent ? image : image.convertToFormat(QImage::Format_RGB32)).convertToFormat(format);
}

} // namespace pixmora::test
