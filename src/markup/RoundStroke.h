#pragma once

#include <QColor>
#include <QPolygonF>
#include <QRectF>

#include <vector>

class QPainter;

namespace pixmora {

// Polylines of one width and colour with round caps and joins, drawn as one
// coat: a pixel that several of them cover is covered once, as when one path
// is stroked. Qt's rasterizer slows down sharply on paths that overlap
// themselves densely (a freehand stroke wider than the spacing of its
// points), so the coverage is worked out here, from each pixel's distance to
// the nearest segment, and composited through the painter.
class RoundStroke {
public:
    RoundStroke(double width, QColor color);

    // Two points or more, in surface coordinates; where they coincide, a dot.
    void addPolyline(QPolygonF points);

    // The surface rectangle that draw() may touch.
    QRectF area() const;
    // Respects the painter's transform (widths scale with it), clip and
    // opacity, and leaves its state as it was.
    void draw(QPainter &painter) const;

private:
    double m_width;
    QColor m_color;
    std::vector<QPolygonF> m_polylines;
};

} // namespace pixmora
