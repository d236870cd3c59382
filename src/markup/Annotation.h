#pragma once

#include <QColor>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>

#include <functional>

class QPainter;

namespace pixmora {

// One mark over a capture: an arrow, a shape, a stroke or a piece of text,
// in image pixels (origin at the top left, y down), widths and font sizes
// included. A plain value: the document's list, its undo snapshots and the
// canvas's stroke in progress each hold their own, so moving one never moves
// another.
class Annotation {
public:
    enum class Kind : quint8 { arrow = 0, rectangle = 1, oval = 2, line = 3, freehand = 4, highlight = 5, text = 6 };

    // Image point to surface point. A surface is y-down like the image; the
    // scale passed beside a map is the surface units one image pixel covers.
    using PointMap = std::function<QPointF(QPointF)>;

    // Arrows, lines, rectangles and ovals use the first two points (start and
    // end, or opposite corners), strokes all of them in order, text the first
    // as the top-left corner of its first line. Text carries a lineWidth too:
    // it only widens the bounding box.
    Annotation(Kind kind, QList<QPointF> points, QColor color, double lineWidth, QString text = {},
               double fontSize = 0);

    Kind kind() const { return m_kind; }
    const QList<QPointF> &points() const { return m_points; }
    QColor color() const { return m_color; }
    double lineWidth() const { return m_lineWidth; }
    const QString &text() const { return m_text; }
    double fontSize() const { return m_fontSize; }

    void appendPoint(QPointF point);
    void setPoint(qsizetype index, QPointF point);
    void translate(QPointF offset);

    // Image rectangle spanning the points, for text at least its estimated
    // size below and right of the anchor, then widened by lineWidth on every
    // side; the zero rectangle without points. It covers strokes but not an
    // arrow's head; hit testing and the minimum-size rule use it.
    QRectF boundingBox() const;

    // The one drawing routine, for the canvas and the flattened image alike:
    // antialiased, with its own pen, brush and font; the painter's state is
    // left as it was.
    void draw(QPainter &painter, const PointMap &map, double scale) const;
    // The surface rectangle that draw() may touch with the same map and
    // scale, so that a canvas repaints only what changed; empty when nothing
    // is drawn.
    QRectF drawnArea(const PointMap &map, double scale) const;

    bool operator==(const Annotation &other) const = default;

private:
    Kind m_kind;
    QList<QPointF> m_points;
    QColor m_color;
    double m_lineWidth;
    QString m_text;
    double m_fontSize;
};

} // namespace pixmora
