#include "markup/Annotation.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QPainterPathStroker>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

namespace pixmora {
namespace {

using Kind = Annotation::Kind;
constexpr double pi = std::numbers::pi;

// Drawn through the canvas's kind of map, offset + scale * point, onto a clear surface
// by a painter whose own state the drawing must leave alone.
QImage drawn(const Annotation &annotation, double scale = 1, QPointF offset = {}, QSize size = {400, 400})
{
    QImage surface(size, QImage::Format_ARGB32_Premultiplied);
    surface.fill(Qt::transparent);
    QPainter painter(&surface);
    const QPen pen(Qt::green, 9, Qt::DashLine);
    painter.setPen(pen);
    painter.setBrush(Qt::red);
    annotation.draw(painter, [=](QPointF point) { return offset + scale * point; }, scale);
    EXPECT_EQ(painter.pen(), pen);
    EXPECT_EQ(painter.brush(), QBrush(Qt::red));
    EXPECT_FALSE(painter.testRenderHint(QPainter::Antialiasing));
    return surface;
}

// The most ink within `radius` pixels of the point: a thin slanted line covers no pixel whole.
int inkAt(const QImage &surface, QPointF point, int radius = 0)
{
    int most = 0;
    for (int dy = -radius; dy <= radius; ++dy)
        for (int dx = -radius; dx <= radius; ++dx) {
            const QPoint pixel(int(std::floor(point.x())) + dx, int(std::floor(point.y())) + dy);
            most = std::max(most, surface.rect().contains(pixel) ? qAlpha(surface.pixel(pixel)) : 0);
        }
    return most;
}

QRect inkBounds(const QImage &surface)
{
    QRect bounds;
    for (int y = 0; y < surface.height(); ++y)
        for (int x = 0; x < surface.width(); ++x)
            if (qAlpha(surface.pixel(x, y)) > 0)
                bounds |= QRect(x, y, 1, 1);
    return bounds;
}

TEST(AnnotationDrawing, ArrowHeadIsTwoOpenBarbsOfTheLengthRuleBackFromTheTip)
{
    const struct { QPointF from, to; double lineWidth, scale, headLength; } cases[] = {
        {{20, 100}, {160, 100}, 8, 1, 28},   // max(3.5 * 8, 14)
        {{150, 150}, {40, 60}, 3, 1, 14},    // max(3.5 * 3, 14)
        {{40, 300}, {600, 200}, 2, 0.5, 7},  // width 1 at this scale, head 14 * 0.5
        {{20, 20}, {150, 150}, 6, 2, 42},    // width 12
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.from.x() << "," << c.from.y() << " scale " << c.scale);
        const QImage surface = drawn(Annotation(Kind::arrow, {c.from, c.to}, Qt::black, c.lineWidth), c.scale);
        const QPointF tip = c.scale * c.to;
        const QPointF back = c.from - c.to;
        const double backAngle = std::atan2(back.y(), back.x());
        const double halfWidth = std::max(1.0, c.scale * c.lineWidth) / 2;
        const auto along = [&](double angle, double distance) {
            return tip + distance * QPointF(std::cos(angle), std::sin(angle));
        };
        for (const double barb : {backAngle + pi / 7, backAngle - pi / 7}) {
            EXPECT_GT(inkAt(surface, along(barb, c.headLength - 1), 1), 128);
            EXPECT_EQ(inkAt(surface, along(barb, c.headLength + halfWidth + 1.5)), 0);
        }
        if (halfWidth <= 1 && c.headLength >= 14) {  // open: nothing between the barbs
            EXPECT_EQ(inkAt(surface, along(backAngle + pi / 14, 0.8 * c.headLength)), 0);
        }
    }
}

// Lines and strokes have a rasterizer of their own; Qt's fill of the same
// stroke outline, which measures true area coverage, is the reference.
TEST(AnnotationDrawing, StrokesMatchQtsOutlineOfTheWidthRuleThroughAnyPainter)
{
    const struct {
        Kind kind;
        QColor colour;
        double lineWidth, scale, penWidth;
        double devicePixelRatio;
        QTransform world;
        QRectF clip;
    } strokes[] = {
        {Kind::line, Qt::black, 2, 0.25, 1, 2, {}, {}},  // never under one unit, on a high-density canvas
        {Kind::freehand, QColor(0, 0, 255, 100), 7, 1, 7, 1.25, QTransform::fromScale(1.5, 1.5), {}},  // one coat
        // max(3 * 2, 8), alpha replaced
        {Kind::highlight, QColor(255, 0, 255, 128), 2, 1, 8, 2, QTransform::fromTranslate(17.5, 9), {40, 30, 90, 200}},
    };
    const QList<QPointF> zigzag = {{20, 20}, {60, 110}, {70, 30}, {140, 120}, {30, 80}};
    for (const auto &stroke : strokes) {
        SCOPED_TRACE(testing::Message() << "kind " << int(stroke.kind) << " width " << stroke.lineWidth);
        const QList<QPointF> points = stroke.kind == Kind::line ? zigzag.mid(0, 2) : zigzag;
        const auto paint = [&](const std::function<void(QPainter &)> &draw) {
            QImage surface(400, 400, QImage::Format_ARGB32_Premultiplied);
            surface.fill(Qt::transparent);
            surface.setDevicePixelRatio(stroke.devicePixelRatio);
            QPainter painter(&surface);
            painter.setWorldTransform(stroke.world);
            if (!stroke.clip.isNull())
                painter.setClipRect(stroke.clip);
            draw(painter);
            painter.end();
            return surface;
        };
        const QImage ours = paint([&](QPainter &painter) {
            QList<QPointF> unscaled;
            for (const QPointF &point : points)
                unscaled << point / stroke.scale;
            Annotation(stroke.kind, unscaled, stroke.colour, stroke.lineWidth)
                .draw(painter, [&](QPointF p) { return stroke.scale * p; }, stroke.scale);
        });
        const QImage theirs = paint([&](QPainter &painter) {
            QColor colour = stroke.colour;
            colour.setAlphaF(stroke.kind == Kind::highlight ? 0.35 : colour.alphaF());
            QPainterPath path;
            path.addPolygon(QPolygonF(points));
            painter.setRenderHint(QPainter::Antialiasing);
            const QPen pen(colour, stroke.penWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
            painter.fillPath(QPainterPathStroker(pen).createStroke(path), colour);
        });
        double ourInk = 0, theirInk = 0;
        int apart = 0;
        for (int y = 0; y < 400; ++y) {
            for (int x = 0; x < 400; ++x) {
                const QRgb a = ours.pixel(x, y), b = theirs.pixel(x, y);
                ourInk += qAlpha(a);
                theirInk += qAlpha(b);
                apart += std::max({std::abs(qAlpha(a) - qAlpha(b)), std::abs(qRed(a) - qRed(b)),
                                   std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b))}) > 48;
            }
        }
        ASSERT_GT(theirInk, 0);
        EXPECT_NEAR(ourInk / theirInk, 1, 0.01);
        // Coverage from the distance to the nearest segment runs light only in the inner
        // corners of crossings and sharp turns; an edge half a pixel out would differ all along.
        EXPECT_LE(apart, 10);
    }
}

TEST(AnnotationDrawing, TextHangsFromItsAnchorAtPixelSizeScaleTimesFontSize)
{
    const struct { double fontSize, scale; QPointF anchor, offset; } cases[] = {
        {40, 1, {30, 40}, {}},
        {28, 0.37, {60, 80}, {7.25, 3.5}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "fontSize " << c.fontSize << " scale " << c.scale);
        const QRect ink = inkBounds(drawn(Annotation(Kind::text, {c.anchor}, Qt::black, 4, "H", c.fontSize), c.scale,
                                          c.offset));
        const QPointF anchor = c.offset + c.scale * c.anchor;
        const double size = c.scale * c.fontSize;
        EXPECT_GE(ink.top(), std::floor(anchor.y()));   // nothing above the anchor
        EXPECT_LE(ink.top(), anchor.y() + 0.4 * size);  // only the line box's gap above the capital
        EXPECT_GE(ink.left(), std::floor(anchor.x()) - 1);
        EXPECT_LE(ink.left(), anchor.x() + 0.2 * size);
        QFont font;  // a capital of pixel size F (not points) is this tall
        font.setPixelSize(100);
        font.setWeight(QFont::DemiBold);
        EXPECT_NEAR(ink.height(), QFontMetricsF(font).tightBoundingRect("H").height() * size / 100, 2);
    }
}

TEST(AnnotationGeometry, BoundingBoxSpansThePointsAndTheTextEstimateWidenedByTheLineWidth)
{
    const struct { Annotation annotation; QRectF box; } cases[] = {
        {{Kind::arrow, {{0, 0}, {100, 0}}, Qt::red, 2}, {-2, -2, 104, 4}},  // not the head
        {{Kind::freehand, {{5, 5}, {15, 25}, {0, 10}}, Qt::red, 1}, {-1, 4, 17, 22}},
        {{Kind::text, {{100, 50}}, Qt::red, 4, "Hi", 40}, {96, 46, 56, 64}},
    };
    for (const auto &[annotation, box] : cases) {
        SCOPED_TRACE(testing::Message() << int(annotation.kind()) << " " << annotation.text().toStdString());
        EXPECT_EQ(annotation.boundingBox(), box);
    }
}

// Ovals are outlines: nothing inside them.
TEST(AnnotationGeometry, DrawnAreaHoldsEveryInkedPixel)
{
    const Annotation annotations[] = {
        {Kind::arrow, {{20, 30}, {120, 90}}, Qt::black, 4},
        {Kind::oval, {{20, 20}, {140, 70}}, Qt::black, 3},
        {Kind::text, {{20, 30}}, Qt::black, 4, "Hg fj \u00C5\u00C9", 40},
        {Kind::text, {{20, 30}}, Qt::black, 4, "two\nlines", 28},
    };
    for (const Annotation &annotation : annotations) {
        for (const double scale : {0.37, 1.0, 2.5}) {
            SCOPED_TRACE(testing::Message() << int(annotation.kind()) << " scale " << scale);
            const QPointF offset(13.3, 7.9);
            const QImage surface = drawn(annotation, scale, offset, {500, 500});
            const QRect ink = inkBounds(surface);
            const QRect area = annotation.drawnArea([=](QPointF p) { return offset + scale * p; }, scale).toAlignedRect();
            ASSERT_FALSE(ink.isEmpty());
            EXPECT_TRUE(area.contains(ink));
            if (annotation.kind() == Kind::oval) {
                EXPECT_EQ(inkAt(surface, ink.center()), 0);
            }
        }
    }
}

} // namespace
} // namespace pixmora
