#include "markup/MarkupDocument.h"

#include <QColorSpace>

#include <gtest/gtest.h>

namespace pixmora {
namespace {

using Kind = Annotation::Kind;

QImage filled(QSize size, QImage::Format format, QRgb colour)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(colour);
    return image.convertToFormat(format);
}

Annotation box(QPointF topLeft, QPointF bottomRight, QColor colour = Qt::red)
{
    return Annotation(Kind::rectangle, {topLeft, bottomRight}, colour, 2);
}

TEST(MarkupDocument, KeepsAFinishedAnnotationUnlessItIsAStrayClickOrBlankText)
{
    const QPointF p(50, 50);
    const struct { Annotation annotation; bool kept; } cases[] = {
        {{Kind::rectangle, {p, p}, Qt::red, 4}, true},               // a click at the default width: 8 x 8
        {{Kind::rectangle, {p, p}, Qt::red, 1}, false},              // 2 x 2
        {{Kind::freehand, {p}, Qt::red, 1}, false},
        {{Kind::text, {p}, Qt::red, 1, " \n\t ", 40}, false},
        {{Kind::text, {p}, Qt::red, 1, "  Hi \n", 40}, true},
    };
    for (const auto &[annotation, kept] : cases) {
        SCOPED_TRACE(testing::Message() << int(annotation.kind()) << " lineWidth " << annotation.lineWidth());
        MarkupDocument document(filled({200, 150}, QImage::Format_RGB32, 0xffffffff));
        int changes = 0;
        document.onChange = [&] { ++changes; };
        EXPECT_EQ(document.add(annotation), kept);
        EXPECT_EQ(std::pair(document.annotations().size(), changes), (std::pair<std::size_t, int>(kept, kept)));
        EXPECT_EQ(document.selection(), kept ? std::optional<std::size_t>(0) : std::nullopt);
        if (kept && annotation.kind() == Kind::text) {
            EXPECT_EQ(document.annotations().front().text(), "Hi");
        }
    }
}

// Pixel for pixel whatever the capture's density, read premultiplied, in its
// colour space; the annotations over it in order at their stored size.
TEST(MarkupDocumentRender, TheFullSizeCaptureWithTheAnnotationsInOrderAtTheirStoredSize)
{
    QImage base = filled({400, 300}, QImage::Format_ARGB32, 0x80402010);
    base.setDevicePixelRatio(2);
    base.setColorSpace(QColorSpace::DisplayP3);
    MarkupDocument document(base);
    document.add(Annotation(Kind::line, {{20, 100.5}, {380, 100.5}}, Qt::black, 6));
    document.add(box({200, 20}, {300, 200}, Qt::red));
    document.add(box({250, 20}, {350, 200}, Qt::blue));
    const QImage flat = document.render();
    EXPECT_EQ(flat.size(), QSize(400, 300));
    EXPECT_EQ(flat.devicePixelRatio(), 1.0);
    EXPECT_EQ(flat.format(), QImage::Format_ARGB32_Premultiplied);
    EXPECT_EQ(flat.colorSpace(), QColorSpace::DisplayP3);
    EXPECT_EQ(flat.pixel(399, 299), 0x80201008);
    EXPECT_EQ(flat.pixel(275, 20), qRgb(0, 0, 255));  // both top edges: the later box's on top
    double width = 0;
    for (int y = 80; y < 120; ++y)
        width += (qAlpha(flat.pixel(100, y)) - 128) / 127.0;  // the black line over half-transparent pixels
    EXPECT_NEAR(width, 6, 0.1);
}

} // namespace
} // namespace pixmora
