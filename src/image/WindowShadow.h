#pragma once

#include <QImage>

#include <optional>

namespace pixmora {

// The window on a transparent canvas with a margin of whole(40 * scale)
// pixels on every side, over a soft black shadow that falls 8 * scale pixels
// below it. Nothing for a null window or when there is no memory.
std::optional<QImage> compositeShadow(const QImage &window, double scale);

} // namespace pixmora
