#include "markup/Annotation.h"

#include "markup/RoundStroke.h"

#include <QFont>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QRegularExpression>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <variant>

namespace pixmora {

namespace {

using Kind = Annotation::Kind;
using PointMap = Annotation::PointMap;

constexpr double kArrowHalfAngle = std::numbers::pi / 7;
constexpr double kHighlightAlpha = 0.35;
// Text size estimate for the bounding box, in font sizes: per perceived
// character across, one line box down.
constexpr double kEstimatedCharacterWidth = 0.6;
constexpr double kEstimatedLineHeight = 1.4;
// Antialiasing may light a pixel that an edge only grazes.
constexpr double kAntialiasingMargin = 1;

// A stroke is never thinner than one surface unit.
double effectiveWidth(double lineWidth, double scale)
{
    return std::max(1.0, scale * lineWidth);
}

// Rectangles and ovals: closed outlines, stroked by Qt.
struct ShapeStroke {
    QPainterPath path;
    QPen pen;
};

// Text is laid out at a whole pixel size, the only kind QFont has, and
// scaled by the painter to the exact one.
struct TextPlacement {
    QFont font;
    double scale;
    QPointF anchor;
    QStringList lines;
};

using Drawing = std::variant<std::monostate, RoundStroke, ShapeStroke, TextPlacement>;

// What the annotation puts on the surface, in surface coordinates; nothing
// when it has too few points or no text.
Drawing drawingOf(const Annotation &annotation, const PointMap &map, double scale)
{
    const QList<QPointF> &points = annotation.points();
    const double width = effectiveWidth(annotation.lineWidth(), scale);
    switch (annotation.kind()) {
    case Kind::arrow:
    case Kind::line: {
        if (points.size() < 2)
            return {};
        const QPointF from = map(points[0]);
        const QPointF tip = map(points[1]);
        RoundStroke stroke(width, annotation.color());
        stroke.addPolyline({from, tip});
        if (annotation.kind() == Kind::arrow) {
            // An open head of two barbs; atan2(0, 0) = 0 points a zero-length arrow right. On a
            // y-down surface the angle comes out mirrored, but the barbs are symmetric about
            // the shaft, so the head is the same as on a y-up one.
            const double angle = std::atan2(tip.y() - from.y(), tip.x() - from.x());
            const double length = std::max(3.5 * width, 14 * scale);
            for (const double barb : {angle + std::numbers::pi - kArrowHalfAngle,
                                      angle - std::numbers::pi + kArrowHalfAngle})
                stroke.addPolyline({tip, tip + length * QPointF(std::cos(barb), std::sin(barb))});
        }
        return stroke;
    }
    case Kind::rectangle:
    case Kind::oval: {
        if (points.size() < 2)
            return {};
        const QRectF box = QRectF(map(points[0]), map(points[1])).normalized();
        ShapeStroke shape{{}, QPen(annotation.color(), width, Qt::SolidLine, Qt::FlatCap, Qt::RoundJoin)};
        if (annotation.kind() == Kind::rectangle)
            shape.path.addRect(box);
        else
            shape.path.addEllipse(box);
        return shape;
    }
    case Kind::freehand:
    case Kind::highlight: {
        if (points.size() < 2)
            return {};
        const bool highlight = annotation.kind() == Kind::highlight;
        QColor color = annotation.color();
        if (highlight)
            color.setAlphaF(kHighlightAlpha);  // replaced, not multiplied
        QPolygonF polyline;
        polyline.reserve(points.size());
        for (const QPointF &point : points)
            polyline.append(map(point));
        RoundStroke stroke(highlight ? std::max(3 * width, 8 * scale) : width, color);
        stroke.addPolyline(std::move(polyline));
        return stroke;
    }
    case Kind::text: {
        const double size = scale * annotation.fontSize();
        if (points.isEmpty() || annotation.text().isEmpty() || !(size > 0))
            return {};
        const int pixelSize = std::max(1, qRound(size));
        QFont font;  // the application's default family
        font.setPixelSize(pixelSize);
        font.setWeight(QFont::DemiBold);
        static const QRegularExpression lineBreak(QStringLiteral("\\r\\n|[\\r\\n\\x{2028}\\x{2029}]"));
        return TextPlacement{font, size / pixelSize, map(points.front()), annotation.text().split(lineBreak)};
    }
    }
    return {};
}

void drawText(QPainter &painter, const TextPlacement &text, const QColor &color)
{
    // The top of the first line box sits at the anchor; the text hangs below it.
    painter.setPen(color);
    painter.setFont(text.font);
    painter.translate(text.anchor);
    painter.scale(text.scale, text.scale);
    const QFontMetricsF metrics(text.font);
    double baseline = metrics.ascent();
    for (const QString &line : text.lines) {
        painter.drawText(QPointF(0, baseline), line);
        baseline += metrics.lineSpacing();
    }
}

QRectF textArea(const TextPlacement &text)
{
    // Each line's rectangle from the metrics covers every pixel its glyphs touch.
    const QFontMetricsF metrics(text.font);
    QRectF laidOut;
    double baseline = metrics.ascent();
    for (const QString &line : text.lines) {
        laidOut |= metrics.boundingRect(line).translated(0, baseline);
        baseline += metrics.lineSpacing();
    }
    return QRectF(text.anchor + text.scale * laidOut.topLeft(), text.scale * laidOut.size())
        .adjusted(-kAntialiasingMargin, -kAntialiasingMargin, kAntialiasingMargin, kAntialiasingMargin);
}

qsizetype perceivedCharacters(const QString &text)
{
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (graphemes.toNextBoundary() != -1)
        ++count;
    return count;
}

} // namespace

Annotation::Annotation(Kind kind, QList<QPointF> points, QColor color, double lineWidth, QString text,
                       double fontSize)
    : m_kind(kind)
    , m_points(std::move(points))
    , m_color(color)
    , m_lineWidth(lineWidth)
    , m_text(std::move(text))
    , m_fontSize(fontSize)
{
}

void Annotation::appendPoint(QPointF point)
{
    m_points.append(point);
}

void Annotation::setPoint(qsizetype index, QPointF point)
{
    m_points[index] = point;
}

void Annotation::translate(QPointF offset)
{
    for (QPointF &point : m_points)
        point += offset;
}

QRectF Annotation::boundingBox() const
{
    if (m_points.isEmpty())
        return QRectF(0, 0, 0, 0);
    const auto [left, right] = std::minmax_element(m_points.begin(), m_points.end(),
                                                   [](QPointF a, QPointF b) { return a.x() < b.x(); });
    const auto [top, bottom] = std::minmax_element(m_points.begin(), m_points.end(),
                                                   [](QPointF a, QPointF b) { return a.y() < b.y(); });
    QRectF box(QPointF(left->x(), top->y()), QPointF(right->x(), bottom->y()));
    if (m_kind == Kind::text) {
        const double estimatedWidth =
            kEstimatedCharacterWidth * m_fontSize * double(std::max<qsizetype>(perceivedCharacters(m_text), 1));
        box.setWidth(std::max(box.width(), estimatedWidth));
        box.setHeight(std::max(box.height(), kEstimatedLineHeight * m_fontSize));
    }
    return box.adjusted(-m_lineWidth, -m_lineWidth, m_lineWidth, m_lineWidth);
}

void Annotation::draw(QPainter &painter, const PointMap &map, double scale) const
{
    const Drawing drawing = drawingOf(*this, map, scale);
    if (const auto *stroke = std::get_if<RoundStroke>(&drawing)) {
        stroke->draw(painter);
        return;
    }
    if (std::holds_alternative<std::monostate>(drawing))
        return;
    painter.save();
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setBrush(Qt::NoBrush);
    if (const auto *shape = std::get_if<ShapeStroke>(&drawing)) {
        painter.setPen(shape->pen);
        painter.drawPath(shape->path);
    } else {
        drawText(painter, std::get<TextPlacement>(drawing), m_color);
    }
    painter.restore();
}

QRectF Annotation::drawnArea(const PointMap &map, double scale) const
{
    const Drawing drawing = drawingOf(*this, map, scale);
    if (const auto *stroke = std::get_if<RoundStroke>(&drawing))
        return stroke->area();
    if (const auto *shape = std::get_if<ShapeStroke>(&drawing)) {
        // Round joins reach half the pen's width beyond the outline.
        const double reach = shape->pen.widthF() / 2 + kAntialiasingMargin;
        return shape->path.controlPointRect().adjusted(-reach, -reach, reach, reach);
    }
    if (const auto *text = std::get_if<TextPlacement>(&drawing))
        return textArea(*text);
    return {};
}

} // namespace pixmora
