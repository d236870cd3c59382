#include "markup/RoundStroke.h"

#include <QImage>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace pixmora {

namespace {

// Coverage falls from full to none across one pixel centred on the stroke's edge.
constexpr double kEdgeRamp = 0.5;
// Rows worked out at a time: bounds the scratch memory whatever the stroke's size.
constexpr int kBandRows = 32;

struct Segment {
    QPointF from;
    QPointF along;          // to - from
    double inverseLength2;  // 0 for a dot
};

// The stroke's colour at every coverage level, premultiplied.
std::array<QRgb, 256> coveragePalette(const QColor &color)
{
    std::array<QRgb, 256> palette;
    const QRgb rgba = color.rgba();
    for (int level = 0; level < 256; ++level)
        palette[level] = qPremultiply(qRgba(qRed(rgba), qGreen(rgba), qBlue(rgba), (qAlpha(rgba) * level + 127) / 255));
    return palette;
}

// Half-open ranges of pixel columns or rows.
struct Span {
    int first = std::numeric_limits<int>::max();
    int end = std::numeric_limits<int>::min();

    bool isEmpty() const { return first >= end; }
    Span operator&(Span other) const { return {std::max(first, other.first), std::min(end, other.end)}; }
    Span operator|(Span other) const { return {std::min(first, other.first), std::max(end, other.end)}; }
};

// Pixels whose centres lie in [low, high]; far-off coordinates must not overflow an int.
Span centresWithin(double low, double high)
{
    constexpr double limit = 1 << 30;
    return {int(std::ceil(std::clamp(low, -limit, limit) - 0.5)),
            int(std::floor(std::clamp(high, -limit, limit) - 0.5)) + 1};
}

Span rowsNear(const Segment &segment, double reach)
{
    const double y0 = segment.from.y();
    const double y1 = y0 + segment.along.y();
    return centresWithin(std::min(y0, y1) - reach, std::max(y0, y1) + reach);
}

// Columns of row y whose centres may lie within reach: those beside the
// part of the segment that is within reach of the row's centre line.
Span columnsNear(const Segment &segment, int y, double reach)
{
    double t0 = 0, t1 = 1;
    if (segment.along.y() != 0) {
        const double centre = y + 0.5;
        t0 = std::clamp((centre - reach - segment.from.y()) / segment.along.y(), 0.0, 1.0);
        t1 = std::clamp((centre + reach - segment.from.y()) / segment.along.y(), 0.0, 1.0);
    }
    const double x0 = segment.from.x() + t0 * segment.along.x();
    const double x1 = segment.from.x() + t1 * segment.along.x();
    return centresWithin(std::min(x0, x1) - reach, std::max(x0, x1) + reach);
}

// Squared distances from the centres of the columns of row y to the segment,
// lowered into nearest (indexed by column) where they are smaller.
void lowerDistances(const Segment &segment, int y, Span columns, float *nearest)
{
    const double dy = y + 0.5 - segment.from.y();
    const double ax = segment.along.x();
    const double ay = segment.along.y();
    for (int x = columns.first; x < columns.end; ++x) {
        const double dx = x + 0.5 - segment.from.x();
        const double t = std::clamp((dx * ax + dy * ay) * segment.inverseLength2, 0.0, 1.0);
        const double ex = dx - t * ax;
        const double ey = dy - t * ay;
        nearest[x] = std::min(nearest[x], float(ex * ex + ey * ey));
    }
}

} // namespace

RoundStroke::RoundStroke(double width, QColor color)
    : m_width(width)
    , m_color(color)
{
}

void RoundStroke::addPolyline(QPolygonF points)
{
    m_polylines.push_back(std::move(points));
}

QRectF RoundStroke::area() const
{
    const double reach = m_width / 2 + 2 * kEdgeRamp;
    QRectF area;
    for (const QPolygonF &polyline : m_polylines)
        area |= polyline.boundingRect().adjusted(-reach, -reach, reach, reach);
    return area;
}

void RoundStroke::draw(QPainter &painter) const
{
    if (m_polylines.empty())
        return;
    // Worked out in device pixels, so that a scaled or high-density painter stays sharp; a
    // painter that scales unevenly widens the stroke by its mean scale.
    const QTransform toDevice = painter.deviceTransform();
    const double radius = m_width * std::sqrt(std::abs(toDevice.determinant())) / 2;
    const double reach = radius + kEdgeRamp;

    std::vector<Segment> segments;
    QRectF bounds;
    for (const QPolygonF &polyline : m_polylines) {
        const QPolygonF points = toDevice.map(polyline);
        bounds |= points.boundingRect().adjusted(-reach, -reach, reach, reach);
        for (qsizetype i = 1; i < points.size(); ++i) {
            const QPointF along = points[i] - points[i - 1];
            const double length2 = QPointF::dotProduct(along, along);
            segments.push_back({points[i - 1], along, length2 > 0 ? 1 / length2 : 0});
        }
    }
    // Some devices give their size in pixels, others in logical units: this covers both.
    const QPaintDevice &device = *painter.device();
    const double ratio = std::max(1.0, device.devicePixelRatio());
    bounds &= QRectF(0, 0, device.width() * ratio, device.height() * ratio);
    if (painter.hasClipping())
        bounds &= toDevice.mapRect(painter.clipBoundingRect());
    const QRect pixels = bounds.toAlignedRect();
    if (pixels.isEmpty())
        return;
    // From here on, columns and rows count from the corner of those pixels.
    for (Segment &segment : segments)
        segment.from -= pixels.topLeft();

    const std::array<QRgb, 256> palette = coveragePalette(m_color);
    const float reach2 = float(reach * reach);
    const int width = pixels.width();
    const Span allColumns{0, width};
    std::vector<float> nearest(std::size_t(width) * kBandRows);
    QImage band(width, kBandRows, QImage::Format_ARGB32_Premultiplied);
    std::array<Span, kBandRows> touched;

    painter.save();
    painter.resetTransform();
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    const double devicePixelRatio = painter.deviceTransform().m11();
    band.setDevicePixelRatio(devicePixelRatio);
    for (int top = 0; top < pixels.height(); top += kBandRows) {
        const Span bandRows{top, std::min(top + kBandRows, pixels.height())};
        const auto nearestRow = [&](int y) { return nearest.data() + std::size_t(y - top) * width; };
        // Only the columns some segment may reach, row by row: a long slanting line touches few in each.
        touched.fill({});
        Span bandColumns;
        for (const Segment &segment : segments) {
            const Span rows = rowsNear(segment, reach) & bandRows;
            for (int y = rows.first; y < rows.end; ++y) {
                const Span columns = columnsNear(segment, y, reach) & allColumns;
                if (!columns.isEmpty()) {
                    touched[y - top] = touched[y - top] | columns;
                    bandColumns = bandColumns | columns;
                }
            }
        }
        if (bandColumns.isEmpty())
            continue;
        for (int y = bandRows.first; y < bandRows.end; ++y) {
            const Span row = touched[y - top];
            if (!row.isEmpty())
                std::fill(nearestRow(y) + row.first, nearestRow(y) + row.end, reach2);
        }
        for (const Segment &segment : segments) {
            const Span rows = rowsNear(segment, reach) & bandRows;
            for (int y = rows.first; y < rows.end; ++y) {
                const Span columns = columnsNear(segment, y, reach) & allColumns;
                if (!columns.isEmpty())
                    lowerDistances(segment, y, columns, nearestRow(y));
            }
        }
        for (int y = bandRows.first; y < bandRows.end; ++y) {
            const float *distances = nearestRow(y);
            auto *out = reinterpret_cast<QRgb *>(band.scanLine(y - top));
            const Span row = touched[y - top];
            for (int x = bandColumns.first; x < bandColumns.end; ++x) {
                const double distance = x >= row.first && x < row.end ? std::sqrt(double(distances[x])) : reach;
                out[x] = palette[int(std::clamp(reach - distance, 0.0, 1.0) * 255 + 0.5)];
            }
        }
        const QPoint corner = pixels.topLeft() + QPoint(bandColumns.first, top);
        painter.drawImage(QPointF(corner) / devicePixelRatio, band,
                          QRectF(bandColumns.first, 0, bandColumns.end - bandColumns.first, bandRows.end - top));
    }
    painter.restore();
}

} // namespace pixmora
