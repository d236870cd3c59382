#include "app/StatusItemIcon.h"

#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

namespace pixmora {

namespace {

// The largest design grid that the size is a whole multiple of; a size that
// fits none (tray hosts ask for odd sizes too) takes the nearest smaller grid.
int designGridFor(int pixels)
{
    constexpr int grids[] = {24, 22, 16};
    for (const int grid : grids)
        if (pixels % grid == 0)
            return grid;
    for (const int grid : grids)
        if (pixels >= grid)
            return grid;
    return 16;
}

} // namespace

QIcon statusItemIcon()
{
    QIcon icon;
    for (const int pixels : {16, 22, 24, 32, 44, 48, 64}) {
        QSvgRenderer renderer(QStringLiteral(":/icons/tray-%1.svg").arg(designGridFor(pixels)));
        QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        renderer.render(&painter);
        painter.end();
        icon.addPixmap(QPixmap::fromImage(std::move(image)));
    }
    return icon;
}

} // namespace pixmora
