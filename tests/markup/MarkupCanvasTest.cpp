#include "markup/MarkupCanvasView.h"

#include <QLineEdit>
#include <QPaintEvent>
#include <QPainter>
#include <QTest>

#include <gtest/gtest.h>

namespace pixmora {
namespace {

using Kind = Annotation::Kind;
using Points = QList<QPointF>;

// Four flat quadrants: scaling blurs only their borders.
QImage quadrants()
{
    QImage image(400, 300, QImage::Format_RGB32);
    QPainter painter(&image);
    painter.fillRect(0, 0, 200, 150, QColor(200, 40, 40));
    painter.fillRect(200, 0, 200, 150, QColor(40, 200, 40));
    painter.fillRect(0, 150, 200, 150, QColor(40, 40, 200));
    painter.fillRect(200, 150, 200, 150, QColor(220, 220, 220));
    return image;
}

// By default a 400 x 300 capture in a 300 x 150 view: shown at half size from x = 50.
struct Canvas {
    MarkupCanvasView view;
    int changes = 0;

    explicit Canvas(QSize size = {300, 150}, QImage image = quadrants()) : view(std::move(image))
    {
        view.resize(size);
        view.onChange = [this] { ++changes; };
    }
    const std::vector<Annotation> &annotations() const { return view.document().annotations(); }
    Points corners() const
    {
        Points result;
        for (const Annotation &annotation : annotations())
            result << annotation.points().front();
        return result;
    }
    void click(QPoint at) { QTest::mouseClick(&view, Qt::LeftButton, {}, at); }
    void draw(MarkupTool tool, QPoint from, QPoint to, int steps = 4)
    {
        view.setTool(tool);
        QTest::mousePress(&view, Qt::LeftButton, {}, from);
        for (int step = 1; step <= steps; ++step)
            QTest::mouseMove(&view, from + (to - from) * step / steps);
        QTest::mouseRelease(&view, Qt::LeftButton, {}, to);
    }
    QImage paintAll()
    {
        QImage image(view.size(), QImage::Format_RGB32);
        view.QWidget::render(&image);
        return image;
    }
};

TEST(MarkupCanvas, EachToolDragsOutItsAnnotationInImagePixelsAtTheWidthSeenOnScreen)
{
    const struct { MarkupTool tool; Kind kind; } tools[] = {
        {MarkupTool::arrow, Kind::arrow}, {MarkupTool::rectangle, Kind::rectangle}, {MarkupTool::oval, Kind::oval},
        {MarkupTool::line, Kind::line},   {MarkupTool::pen, Kind::freehand},     {MarkupTool::highlighter, Kind::highlight},
    };
    for (const auto &t : tools) {
        SCOPED_TRACE(int(t.tool));
        Canvas canvas;
        canvas.view.setColor(Qt::blue);
        canvas.draw(t.tool, {60, 20}, {160, 120});
        ASSERT_EQ(canvas.annotations().size(), 1u);
        const Annotation &made = canvas.annotations().front();
        EXPECT_EQ(made.kind(), t.kind);
        EXPECT_EQ(made.color(), QColor(Qt::blue));
        EXPECT_DOUBLE_EQ(made.lineWidth(), 8);  // 4 points at half size
        // One point per drag event for strokes, start and end for the others.
        const bool stroke = t.kind == Kind::freehand || t.kind == Kind::highlight;
        EXPECT_EQ(made.points(), stroke ? (Points{{20, 40}, {70, 90}, {120, 140}, {170, 190}, {220, 240}})
                                        : (Points{{20, 40}, {220, 240}}));
        EXPECT_EQ(canvas.changes, 1);
    }
}

// 10 view points are 20 image pixels.
TEST(MarkupCanvas, SelectMovesAndTheKeysDeleteUndoAndRedoInWholeSteps)
{
    Canvas canvas;
    canvas.draw(MarkupTool::rectangle, {60, 10}, {100, 50});   // image (20, 20)-(100, 100)
    canvas.draw(MarkupTool::rectangle, {150, 10}, {190, 50});  // image (200, 20)-(280, 100)
    canvas.draw(MarkupTool::select, {80, 30}, {90, 40});
    EXPECT_EQ(canvas.corners(), (Points{{40, 40}, {200, 20}}));
    EXPECT_EQ(canvas.view.document().selection(), 0u);
    // A drag beside every box, a click without travel, and a drag undone halfway record nothing.
    canvas.draw(MarkupTool::select, {120, 100}, {140, 120});
    EXPECT_FALSE(canvas.view.document().selection());
    canvas.click({160, 20});
    QTest::mousePress(&canvas.view, Qt::LeftButton, {}, {160, 20});
    QTest::mouseMove(&canvas.view, {170, 30});
    QTest::keyClick(&canvas.view, Qt::Key_Z, Qt::ControlModifier);
    QTest::mouseMove(&canvas.view, {180, 40});
    QTest::mouseRelease(&canvas.view, Qt::LeftButton, {}, {180, 40});
    EXPECT_EQ(canvas.corners(), (Points{{20, 20}, {200, 20}}));
    const struct { Qt::Key key; Qt::KeyboardModifiers modifiers; Points corners; } keys[] = {
        {Qt::Key_Z, Qt::ControlModifier, {{20, 20}}},
        {Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier, {{20, 20}, {200, 20}}},
        {Qt::Key_Delete, {}, {{20, 20}}},  // nothing selected: the topmost
        {Qt::Key_Backspace, {}, {}},
    };
    for (const auto &k : keys) {
        QTest::keyClick(&canvas.view, k.key, k.modifiers);
        EXPECT_EQ(canvas.corners(), k.corners) << k.key;
    }
    canvas.draw(MarkupTool::rectangle, {150, 100}, {200, 140});
    EXPECT_FALSE(canvas.view.document().canRedo()) << "a new change drops what could be redone";
    EXPECT_EQ(canvas.changes, 9);
}

TEST(MarkupCanvas, TextIsTypedInPlaceAndCommittedAtTheColourAndSizeOfThatMoment)
{
    Canvas canvas;
    canvas.view.setTool(MarkupTool::text);
    canvas.click({100, 60});
    QLineEdit *field = canvas.view.textField();
    ASSERT_NE(field, nullptr);
    // Its top edge 3 points above the press; at half size the 40-pixel font shows at 20.
    EXPECT_EQ(field->geometry().topLeft(), QPoint(98, 57));
    EXPECT_EQ(field->font().pixelSize(), 20);
    QTest::keyClicks(field, "  Look here ");
    canvas.view.setColor(Qt::green);
    canvas.view.setFontImagePx(64);
    QTest::keyClick(field, Qt::Key_Return);
    ASSERT_EQ(canvas.annotations().size(), 1u);
    EXPECT_EQ(canvas.annotations()[0], Annotation(Kind::text, {{100, 120}}, Qt::green, 8, "Look here", 64));
    EXPECT_EQ(canvas.view.textField(), nullptr);

    // A press elsewhere commits first, then acts with the current tool.
    canvas.click({60, 20});
    QTest::keyClicks(canvas.view.textField(), "Second");
    canvas.draw(MarkupTool::rectangle, {150, 100}, {200, 140});
    ASSERT_EQ(canvas.annotations().size(), 3u);
    EXPECT_EQ(canvas.annotations()[1].text(), "Second");
    // Text still being typed is in the flattened image.
    canvas.view.setTool(MarkupTool::text);
    canvas.click({60, 100});
    QTest::keyClicks(canvas.view.textField(), "Last");
    canvas.view.render();
    EXPECT_EQ(canvas.annotations().size(), 4u);
}

// Paints the regions the canvas asks for onto one image, as a window's
// backing store keeps them, after the events are handled.
struct RepaintRecorder : QObject {
    MarkupCanvasView &view;
    QImage image{view.size(), QImage::Format_RGB32};
    QRegion pending;

    explicit RepaintRecorder(MarkupCanvasView &canvas) : view(canvas)
    {
        view.QWidget::render(&image);
        view.installEventFilter(this);
    }
    QImage settle()
    {
        QCoreApplication::processEvents();
        if (!pending.isEmpty())
            view.QWidget::render(&image, pending.boundingRect().topLeft(), pending);
        pending = QRegion();
        return image;
    }
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            pending += static_cast<QPaintEvent *>(event)->region();
        return false;
    }
};

TEST(MarkupCanvas, RepaintsOnlyAroundWhatChangedAndEndsUpAsAFullPaintWould)
{
    Canvas canvas({700, 450});  // the capture at 1.5 times its size, from x = 50
    canvas.view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&canvas.view));
    canvas.draw(MarkupTool::highlighter, {100, 100}, {600, 120});
    canvas.draw(MarkupTool::oval, {300, 50}, {500, 300});
    QCoreApplication::processEvents();

    RepaintRecorder recorder(canvas.view);
    const QPoint from(120, 300);
    canvas.view.setTool(MarkupTool::pen);
    QTest::mousePress(&canvas.view, Qt::LeftButton, {}, from);
    for (int step = 1; step <= 40; ++step) {
        recorder.settle();
        QTest::mouseMove(&canvas.view, from + QPoint(step * 12, (step % 5) * 6));
    }
    QTest::mouseRelease(&canvas.view, Qt::LeftButton, {}, from + QPoint(480, 0));
    canvas.draw(MarkupTool::rectangle, {200, 200}, {420, 380}, 6);
    recorder.settle();
    canvas.draw(MarkupTool::select, {300, 50}, {340, 90}, 5);  // the oval's edge
    EXPECT_EQ(recorder.settle(), canvas.paintAll());
    EXPECT_EQ(canvas.annotations()[1].points().front(), QPointF(250 + 40, 50 + 40) / 1.5);
}

TEST(MarkupCanvas, ShowsThePictureScaledBetweenMarginsWithTheAnnotationsOverIt)
{
    Canvas canvas;
    canvas.view.setColor(Qt::black);
    canvas.draw(MarkupTool::rectangle, {150, 20}, {230, 140});  // over the right half of the picture
    const QImage shown = canvas.paintAll();
    EXPECT_EQ(shown.pixelColor(20, 75), canvas.view.palette().color(QPalette::Window));
    EXPECT_EQ(shown.pixelColor(60, 140), QColor(40, 40, 200));
    EXPECT_EQ(shown.pixelColor(190, 20), QColor(Qt::black));  // the top edge, 4 points wide
    EXPECT_EQ(shown.pixelColor(190, 80), QColor(220, 220, 220));
    // The selection's dashed outline lies 2 points outside the box, which reaches 4 points beyond the corner.
    EXPECT_EQ(shown.pixelColor(150 - 6, 60), canvas.view.palette().color(QPalette::Highlight));

    // Far below half size, one-pixel stripes come out as their mean, not as whichever stripe was sampled.
    QImage stripes(1000, 600, QImage::Format_RGB32);
    for (int x = 0; x < stripes.width(); ++x)
        for (int y = 0; y < stripes.height(); ++y)
            stripes.setPixel(x, y, x % 2 ? 0xffffffff : 0xff000000);
    Canvas far({130, 78}, stripes);
    ASSERT_LT(far.view.displayScale(), 0.25);
    const QImage farShown = far.paintAll();
    for (int x = 5; x < 125; x += 7)
        EXPECT_NEAR(qGray(farShown.pixel(x, 40)), 128, 8) << x;
}

} // namespace
} // namespace pixmora
