#pragma once

#include "capture/OverlayPanel.h"

#include <QImage>
#include <QPainter>

namespace pixmora::test {

// The panel as a full repaint draws it.
inline QImage rendered(OverlayPanel &panel)
{
    QImage image(panel.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    panel.paint(painter);
    return image;
}

} // namespace pixmora::test
