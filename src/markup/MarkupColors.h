#pragma once

#include <QColor>
#include <QList>

namespace pixmora {

// The editor's colour swatches, in order: the system's red, orange, yellow,
// green and blue as fixed sRGB values, then black and white. New annotations
// start in the first.
inline QList<QColor> markupSwatchColors()
{
    return {QColor(255, 59, 48), QColor(255, 149, 0), QColor(255, 204, 0), QColor(52, 199, 89),
            QColor(0, 122, 255), QColor(0, 0, 0), QColor(255, 255, 255)};
}

} // namespace pixmora
