#include "markup/MarkupCanvasView.h"

#include <QApplication>
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
QImage quadrants(QSize size = {400, 300})
{
    QImage image(size, QImage::Format_RGB32);
    QPainter painter(&image);
    const int w = size.width() / 2, h = size.height() / 2;
    painter.fillRect(0, 0, w, h, QColor(200, 40, 40));
    painter.fillRect(w, 0, w, h, QColor(40, 200, 40));
    painter.fillRect(0, h, w, h, QColor(40, 40, 200));
    painter.fillRect(w, h, w, h, QColor(220, 220, 220));
    return image;
}

// A 400 x 300 capture in a 300 x 150 view: shown at half size from x = 50.
struct Canvas {
    MarkupCanvasView view{quadrants()};
    int changes = 0;

    explicit Canvas(QSize size = {300, 150})
    {
        view.resize(size);
        view.onChange = [this] { ++changes; };
    }
    const std::vector<Annotation> &annotations() const { return view.document().annotations(); }
    void press(QPoint at) { QTest::mousePress(&view, Qt::LeftButton, {}, at); }
    void release(QPoint at) { QTest::mouseRelease(&view, Qt::LeftButton, {}, at); }
    void drag(QPoint from, QPoint to, int steps = 4)
    {
        press(from);
        for (int step = 1; step <= steps; ++step)
            QTest::mouseMove(&view, from + (to - from) * step / steps);
        release(to);
    }
    void draw(MarkupTool tool, QPoint from, QPoint to)
    {
        view.setTool(tool);
        drag(from, to);
    }
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) { QTest::keyClick(&view, key, modifiers); }
};

TEST(MarkupCanvas, FitsThePictureCentredAndMapsPointsBothWays)
{
    const struct { QSize view; QRectF display; double scale; } cases[] = {
        {{300, 150}, {50, 0, 200, 150}, 0.5},
        {{400, 300}, {0, 0, 400, 300}, 1},
        {{800, 800}, {0, 100, 800, 600}, 2},  // larger than the capture: enlarged
        {{0, 0}, {0, 0, 0, 0}, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.view.width() << "x" << c.view.height());
        Canvas canvas(c.view);
        EXPECT_EQ(canvas.view.displayRect(), c.display);
        EXPECT_DOUBLE_EQ(canvas.view.displayScale(), c.scale);
        if (c.scale > 0) {
            EXPECT_EQ(canvas.view.viewToImage(c.display.topLeft() + QPointF(10, 20)), QPointF(10, 20) / c.scale);
            EXPECT_EQ(canvas.view.imageToView(QPointF(400, 300)), c.display.bottomRight());
        } else {
            EXPECT_EQ(canvas.view.viewToImage(QPointF(10, 20)), QPointF(0, 0));
        }
    }
}

TEST(MarkupCanvas, EachToolDragsOutItsAnnotationInImagePixelsAtTheWidthSeenOnScreen)
{
    const struct { MarkupTool tool; Kind kind; bool stroke; } tools[] = {
        {MarkupTool::arrow, Kind::arrow, false},     {MarkupTool::rectangle, Kind::rectangle, false},
        {MarkupTool::oval, Kind::oval, false},       {MarkupTool::line, Kind::line, false},
        {MarkupTool::pen, Kind::freehand, true},     {MarkupTool::highlighter, Kind::highlight, true},
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
        // One point per drag event for strokes; start and end for the others.
        EXPECT_EQ(made.points(), t.stroke ? (Points{{20, 40}, {70, 90}, {120, 140}, {170, 190}, {220, 240}})
                                          : (Points{{20, 40}, {220, 240}}));
        EXPECT_EQ(canvas.view.document().selection(), 0u);
        EXPECT_EQ(canvas.changes, 1);
    }

    // Clicks without a drag: kept unless at most 3 x 3 pixels with fewer than three points.
    const struct { MarkupTool tool; double widthPoints; int moves; bool kept; } clicks[] = {
        {MarkupTool::rectangle, 4, 0, true},   // 8 x 8 at full size
        {MarkupTool::rectangle, 1, 0, false},  // 2 x 2
        {MarkupTool::pen, 1.5, 0, false},      // one point, 3 x 3
        {MarkupTool::pen, 1.5, 2, true},       // three points in the same place
    };
    for (const auto &c : clicks) {
        SCOPED_TRACE(testing::Message() << int(c.tool) << " width " << c.widthPoints << " moves " << c.moves);
        Canvas canvas({400, 300});
        canvas.view.setTool(c.tool);
        canvas.view.setLineWidthPoints(c.widthPoints);
        canvas.drag({100, 100}, {100, 100}, c.moves);
        EXPECT_EQ(canvas.annotations().size(), c.kept ? 1u : 0u);
        EXPECT_EQ(canvas.view.document().canUndo(), c.kept);
    }
}

TEST(MarkupCanvas, SelectMovesDeleteAndUndoWorkInWholeSteps)
{
    Canvas canvas;
    canvas.draw(MarkupTool::rectangle, {60, 10}, {100, 50});    // image (20, 20)-(100, 100)
    canvas.draw(MarkupTool::rectangle, {150, 10}, {190, 50});   // image (200, 20)-(280, 100)
    canvas.view.setTool(MarkupTool::select);

    // A press on the first and a drag of 10 view points moves it 20 image pixels, in one step.
    canvas.drag({80, 30}, {90, 40});
    EXPECT_EQ(canvas.annotations()[0].points(), (Points{{40, 40}, {120, 120}}));
    EXPECT_EQ(canvas.view.document().selection(), 0u);
    EXPECT_EQ(canvas.changes, 3);
    // A click without travel records nothing; a press on the empty picture deselects.
    canvas.drag({90, 40}, {90, 40}, 0);
    EXPECT_EQ(canvas.changes, 3);
    canvas.drag({240, 140}, {230, 130});
    EXPECT_FALSE(canvas.view.document().selection());
    EXPECT_EQ(canvas.changes, 3);

    canvas.key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(canvas.annotations()[0].points(), (Points{{20, 20}, {100, 100}}));
    canvas.key(Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(canvas.annotations()[0].points(), (Points{{40, 40}, {120, 120}}));

    // Delete with nothing selected takes the topmost; Backspace the next.
    canvas.key(Qt::Key_Delete);
    ASSERT_EQ(canvas.annotations().size(), 1u);
    EXPECT_EQ(canvas.annotations()[0].points().front(), QPointF(40, 40));
    canvas.key(Qt::Key_Backspace);
    EXPECT_TRUE(canvas.annotations().empty());
    canvas.key(Qt::Key_Z, Qt::ControlModifier);
    canvas.key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(canvas.annotations().size(), 2u);
    EXPECT_TRUE(canvas.view.document().canRedo());
    // A selected one goes first, whatever lies above it.
    canvas.press({80, 40});
    canvas.release({80, 40});
    canvas.key(Qt::Key_Delete);
    ASSERT_EQ(canvas.annotations().size(), 1u);
    EXPECT_EQ(canvas.annotations()[0].points().front(), QPointF(200, 20));
    EXPECT_FALSE(canvas.view.document().canRedo());
    EXPECT_EQ(canvas.changes, 10);
}

TEST(MarkupCanvas, TextIsTypedInPlaceAndCommittedAtTheColourAndSizeOfThatMoment)
{
    Canvas canvas;
    canvas.view.setTool(MarkupTool::text);
    canvas.press({100, 60});
    canvas.release({100, 60});
    QLineEdit *field = canvas.view.textField();
    ASSERT_NE(field, nullptr);
    // Its top edge 3 points above the press; at half size the 40-pixel font shows at 20.
    EXPECT_EQ(field->geometry().topLeft(), QPoint(98, 57));
    EXPECT_EQ(field->font().pixelSize(), 20);
    EXPECT_EQ(field->placeholderText(), QString::fromUtf8("Type…"));
    QTest::keyClicks(field, "  Look here ");
    canvas.view.setColor(Qt::green);
    canvas.view.setFontImagePx(64);
    QTest::keyClick(field, Qt::Key_Return);
    ASSERT_EQ(canvas.annotations().size(), 1u);
    const Annotation &text = canvas.annotations().front();
    EXPECT_EQ(text.kind(), Kind::text);
    EXPECT_EQ(text.text(), "Look here");
    EXPECT_EQ(text.points(), Points{QPointF(100, 120)});
    EXPECT_EQ(text.color(), QColor(Qt::green));
    EXPECT_EQ(text.fontSize(), 64);
    EXPECT_DOUBLE_EQ(text.lineWidth(), 8);
    EXPECT_EQ(canvas.view.textField(), nullptr);

    // A press elsewhere commits first, then acts with the current tool; blank text leaves nothing.
    canvas.press({60, 20});
    canvas.release({60, 20});
    QTest::keyClicks(canvas.view.textField(), "Second");
    canvas.view.setTool(MarkupTool::rectangle);
    canvas.drag({150, 100}, {200, 140});
    ASSERT_EQ(canvas.annotations().size(), 3u);
    EXPECT_EQ(canvas.annotations()[1].text(), "Second");
    EXPECT_EQ(canvas.annotations()[2].kind(), Kind::rectangle);
    canvas.view.setTool(MarkupTool::text);
    canvas.press({60, 20});
    canvas.release({60, 20});
    QTest::keyClicks(canvas.view.textField(), " \t ");
    canvas.view.undo();  // commits the blank text (nothing), then undoes the rectangle
    EXPECT_EQ(canvas.view.textField(), nullptr);
    EXPECT_EQ(canvas.annotations().size(), 2u);
    // Text still being typed is in the flattened image.
    canvas.press({60, 100});
    canvas.release({60, 100});
    QTest::keyClicks(canvas.view.textField(), "Last");
    EXPECT_FALSE(canvas.view.render().isNull());
    EXPECT_EQ(canvas.annotations().size(), 3u);
    EXPECT_EQ(canvas.changes, 5) << "the blank text is no change";
}

// Paints only the regions the canvas asked to repaint, onto one image, as a
// window's backing store keeps them; flush() after the events are handled
// (painting inside the canvas's own paint event would recurse).
class RepaintRecorder : public QObject {
public:
    explicit RepaintRecorder(MarkupCanvasView &view) : m_view(view), m_image(view.size(), QImage::Format_RGB32)
    {
        m_view.QWidget::render(&m_image);
        m_view.installEventFilter(this);
    }
    const QImage &image() const { return m_image; }
    qint64 paintedPixels = 0;

    void flush()
    {
        if (!m_pending.isEmpty())
            m_view.QWidget::render(&m_image, m_pending.boundingRect().topLeft(), m_pending);
        m_pending = QRegion();
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint) {
            const QRegion region = static_cast<QPaintEvent *>(event)->region();
            for (const QRect &part : region)
                paintedPixels += qint64(part.width()) * part.height();
            m_pending += region;
        }
        return false;
    }

private:
    MarkupCanvasView &m_view;
    QImage m_image;
    QRegion m_pending;
};

QImage fullPaint(MarkupCanvasView &view)
{
    QImage image(view.size(), QImage::Format_RGB32);
    view.QWidget::render(&image);
    return image;
}

TEST(MarkupCanvas, RepaintsOnlyAroundWhatChangedAndEndsUpAsAFullPaintWould)
{
    Canvas canvas({700, 450});  // the capture at 1.5 times its size, from x = 50
    canvas.view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&canvas.view));
    canvas.draw(MarkupTool::highlighter, {100, 100}, {600, 120});
    canvas.draw(MarkupTool::oval, {300, 50}, {500, 300});
    QCoreApplication::processEvents();

    RepaintRecorder recorder(canvas.view);
    const auto settle = [&] {
        QCoreApplication::processEvents();
        recorder.flush();
    };
    const QPoint from(120, 300);
    canvas.view.setTool(MarkupTool::pen);
    canvas.press(from);
    settle();
    recorder.paintedPixels = 0;
    for (int step = 1; step <= 40; ++step) {
        QTest::mouseMove(&canvas.view, from + QPoint(step * 12, (step % 5) * 6));
        settle();
    }
    // Each segment repaints a little more than itself, never the view.
    EXPECT_LT(recorder.paintedPixels, 40 * 40 * 40);
    canvas.release(from + QPoint(480, 0));
    settle();

    canvas.view.setTool(MarkupTool::rectangle);
    canvas.drag({200, 200}, {420, 380}, 6);
    settle();
    canvas.view.setTool(MarkupTool::select);
    canvas.drag({300, 50}, {340, 90}, 5);  // the oval's edge
    settle();
    EXPECT_EQ(canvas.annotations().size(), 4u);
    const QPointF moved = canvas.annotations()[1].points().front();
    EXPECT_NEAR(moved.x(), (250 + 40) / 1.5, 1e-9);
    EXPECT_NEAR(moved.y(), (50 + 40) / 1.5, 1e-9);
    EXPECT_EQ(recorder.image(), fullPaint(canvas.view));
}

TEST(MarkupCanvas, ShowsThePictureScaledBetweenMarginsWithTheAnnotationsOverIt)
{
    Canvas canvas;
    canvas.view.setColor(Qt::black);
    canvas.draw(MarkupTool::rectangle, {150, 20}, {230, 140});  // over the right half of the picture
    const QImage shown = fullPaint(canvas.view);
    const QColor window = canvas.view.palette().color(QPalette::Window);
    EXPECT_EQ(shown.pixelColor(20, 75), window);
    EXPECT_EQ(shown.pixelColor(280, 75), window);
    EXPECT_EQ(shown.pixelColor(60, 10), QColor(200, 40, 40));
    EXPECT_EQ(shown.pixelColor(60, 140), QColor(40, 40, 200));
    EXPECT_EQ(shown.pixelColor(190, 20), QColor(Qt::black));  // the top edge, 4 points wide
    EXPECT_EQ(shown.pixelColor(190, 80), QColor(220, 220, 220));
    // The selection's dashed outline lies 2 points outside the box, which reaches 4 points beyond the corner.
    EXPECT_EQ(shown.pixelColor(150 - 6, 60), canvas.view.palette().color(QPalette::Highlight));
}

} // namespace
} // namespace pixmora
