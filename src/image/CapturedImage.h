#pragma once

#include <QByteArray>
#include <QImage>

namespace pixmora {

// One captured bitmap (device pixels) and the backing scale of the display it
// came from: device pixels per point, 2.0 on a high-density display. A
// capture encoded while it was read comes as its PNG bytes alone, `image`
// null.
struct CapturedImage {
    QImage image;
    double scale = 1.0;
    QByteArray png{};
};

} // namespace pixmora
