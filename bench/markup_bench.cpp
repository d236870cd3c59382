// The markup editor's drawing. Targets: flattening a 3840 x 2160 capture
// with 100 annotations of every kind in at most 80 ms (median), and drawing
// one annotation on a view-sized surface at fit-to-window zoom well inside
// the canvas's 4 ms per pointer move. Flattening runs with the default image
// allocator (fresh heap pages, first-touched while the capture is copied) and
// with the one the X11 platform installs (huge pages).
// Also the canvas itself: the CPU each pointer move costs while a stroke or
// a shape is dragged out over that capture fitted into the view (event,
// partial repaint; the window system's copy to the screen is not counted
// offscreen, capture_latency --editor measures it on X).
// Runs offscreen unless QT_QPA_PLATFORM says otherwise.

#include "markup/MarkupCanvasView.h"
#include "markup/MarkupDocument.h"
#include "image/ImageMemory.h"
#include "platform/x11/HugePageImages.h"

#include <QApplication>
#include <QMouseEvent>
#include <QLinearGradient>
#include <QPainter>

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

using namespace pixmora;

namespace {

using Kind = Annotation::Kind;

constexpr QSize kCapture(3840, 2160);
// The canvas of an editor window filling a 1920 x 1080 screen, and the zoom that fits the capture in it.
constexpr QSize kView(1728, 924);
const double kFitScale = std::min(double(kView.width()) / kCapture.width(), double(kView.height()) / kCapture.height());

// A gradient with text-like noise: no flat area the painter could skip through.
QImage capture()
{
    QImage image(kCapture, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient wallpaper(0, 0, kCapture.width(), kCapture.height());
    wallpaper.setColorAt(0, QColor(0x1d, 0x35, 0x57));
    wallpaper.setColorAt(1, QColor(0xa8, 0xda, 0xdc));
    painter.fillRect(image.rect(), wallpaper);
    std::mt19937 random(3);
    for (int i = 0; i < 4000; ++i)
        painter.fillRect(int(random() % 3800), int(random() % 2140), 4 + int(random() % 40), 12,
                         QColor(0x20, 0x20, 0x20));
    return image;
}

// A hand-drawn wiggle of `count` points across `width` image pixels.
QList<QPointF> stroke(QPointF start, double width, int count, std::mt19937 &random)
{
    QList<QPointF> points;
    for (int i = 0; i < count; ++i) {
        const double t = double(i) / (count - 1);
        points.append(start + QPointF(t * width, 60 * std::sin(t * 12) + double(random() % 5)));
    }
    return points;
}

// 100 annotations, every kind in turn, scattered over the capture at the widths of the size selector.
std::vector<Annotation> annotations()
{
    std::mt19937 random(7);
    std::vector<Annotation> result;
    const QColor colours[] = {Qt::red, QColor(0xff, 0x95, 0x00), Qt::yellow, Qt::green, Qt::blue, Qt::black, Qt::white};
    for (int i = 0; i < 100; ++i) {
        const QPointF at(double(random() % 3200), double(random() % 1700));
        const QPointF far = at + QPointF(100 + random() % 500, 80 + random() % 400);
        const QColor colour = colours[i % 7];
        const double width = (i % 3 + 1) * 4.0;
        switch (Kind(i % 7)) {
        case Kind::text:
            result.emplace_back(Kind::text, QList<QPointF>{at}, colour, width,
                                QStringLiteral("Note %1: look here").arg(i), i % 2 ? 40 : 64);
            break;
        case Kind::freehand:
        case Kind::highlight:
            result.emplace_back(Kind(i % 7), stroke(at, 500, 200, random), colour, width);
            break;
        default:
            result.emplace_back(Kind(i % 7), QList<QPointF>{at, far}, colour, width);
            break;
        }
    }
    return result;
}

void flatten(benchmark::State &state)
{
    MarkupDocument document(capture());
    for (Annotation &annotation : annotations())
        document.add(std::move(annotation));
    for (auto _ : state) {
        const QImage result = document.render();
        benchmark::DoNotOptimize(result.constBits());
    }
}

void flattenOnHugePages(benchmark::State &state)
{
    setImageAllocator(allocateHugePageImage);
    flatten(state);
    setImageAllocator(nullptr);
}

BENCHMARK(flatten)
    ->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(25)->ReportAggregatesOnly(true);
BENCHMARK(flattenOnHugePages)
    ->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(25)->ReportAggregatesOnly(true);

// The canvas's map: the capture fitted to the view and centred.
QPointF viewPoint(QPointF imagePoint)
{
    const QPointF origin((kView.width() - kFitScale * kCapture.width()) / 2,
                         (kView.height() - kFitScale * kCapture.height()) / 2);
    return origin + kFitScale * imagePoint;
}

// One annotation drawn over the whole view; with onlyTheLastSegment, clipped
// to what its last segment touches, as a canvas repaints a growing stroke.
void drawOnView(benchmark::State &state, Annotation annotation, bool onlyTheLastSegment)
{
    QImage view(kView, QImage::Format_RGB32);
    view.fill(Qt::gray);
    QPainter painter(&view);
    if (onlyTheLastSegment) {
        const QList<QPointF> &points = annotation.points();
        const Annotation last(annotation.kind(), points.mid(points.size() - 2), annotation.color(),
                              annotation.lineWidth());
        painter.setClipRect(last.drawnArea(viewPoint, kFitScale));
    }
    for (auto _ : state)
        annotation.draw(painter, viewPoint, kFitScale);
}

// Four points on screen, as the canvas converts the default width.
const double kDefaultWidth = 4 / kFitScale;

std::mt19937 strokeRandom(11);
const Annotation freehand(Kind::freehand, stroke({600, 900}, 2400, 200, strokeRandom), Qt::red, kDefaultWidth);
const Annotation highlight(Kind::highlight, stroke({600, 1200}, 2400, 200, strokeRandom), Qt::yellow, kDefaultWidth);

BENCHMARK_CAPTURE(drawOnView, freehand200, freehand, false)
    ->Unit(benchmark::kMicrosecond)->Repetitions(10)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(drawOnView, freehand200_lastSegmentOnly, freehand, true)
    ->Unit(benchmark::kMicrosecond)->Repetitions(10)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(drawOnView, highlight200, highlight, false)
    ->Unit(benchmark::kMicrosecond)->Repetitions(10)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(drawOnView, rectangle,
                  Annotation(Kind::rectangle, {{500, 400}, {3300, 1800}}, Qt::red, kDefaultWidth), false)
    ->Unit(benchmark::kMicrosecond)->Repetitions(10)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(drawOnView, arrow, Annotation(Kind::arrow, {{500, 400}, {3300, 1800}}, Qt::red, kDefaultWidth),
                  false)
    ->Unit(benchmark::kMicrosecond)->Repetitions(10)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(drawOnView, text, Annotation(Kind::text, {{500, 400}}, Qt::red, kDefaultWidth, "Look here", 40),
                  false)
    ->Unit(benchmark::kMicrosecond)->Repetitions(10)->ReportAggregatesOnly(true);

// What the canvas asks before each repaint of a growing stroke.
void drawnAreaOfFreehand200(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(freehand.drawnArea(viewPoint, kFitScale));
}
BENCHMARK(drawnAreaOfFreehand200)->Unit(benchmark::kMicrosecond)->Repetitions(10)->ReportAggregatesOnly(true);

void sendMouse(QWidget &widget, QEvent::Type type, QPointF at)
{
    const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, at, widget.mapToGlobal(at), Qt::LeftButton, held, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}

// One iteration: one pointer move and the repaint it asks for, on a canvas
// that already holds 20 annotations. The drag restarts every 200 moves.
void canvasDrag(benchmark::State &state, MarkupTool tool)
{
    MarkupCanvasView canvas(capture());
    canvas.resize(kView);
    canvas.show();
    std::vector<Annotation> existing = annotations();
    existing.erase(existing.begin() + 20, existing.end());
    const QPointF origin = viewPoint({});
    const auto toView = [&](QPointF image) { return origin + kFitScale * image; };
    for (const Annotation &annotation : existing) {
        canvas.setTool(MarkupTool::rectangle);
        sendMouse(canvas, QEvent::MouseButtonPress, toView(annotation.points().front()));
        sendMouse(canvas, QEvent::MouseMove, toView(annotation.points().front() + QPointF(200, 150)));
        sendMouse(canvas, QEvent::MouseButtonRelease, toView(annotation.points().front() + QPointF(200, 150)));
    }
    canvas.setTool(tool);
    QCoreApplication::processEvents();
    std::mt19937 random(5);
    const QList<QPointF> path = stroke({400, 600}, 3000, 200, random);
    int step = 0;
    for (auto _ : state) {
        if (step % 200 == 0) {
            sendMouse(canvas, QEvent::MouseButtonRelease, toView(path.back()));
            sendMouse(canvas, QEvent::MouseButtonPress, toView(path.front()));
            QCoreApplication::processEvents();
        }
        // A shape's corner travels as far again down the capture.
        const QPointF point = path[step % 200] + (tool == MarkupTool::pen ? QPointF() : QPointF(0, 6.0 * (step % 200)));
        sendMouse(canvas, QEvent::MouseMove, toView(point));
        QCoreApplication::processEvents();
        ++step;
    }
    sendMouse(canvas, QEvent::MouseButtonRelease, toView(path.back()));
}

BENCHMARK_CAPTURE(canvasDrag, freehand, MarkupTool::pen)
    ->Unit(benchmark::kMicrosecond)->Iterations(400)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(canvasDrag, highlighter, MarkupTool::highlighter)
    ->Unit(benchmark::kMicrosecond)->Iterations(400)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(canvasDrag, rectangle, MarkupTool::rectangle)
    ->Unit(benchmark::kMicrosecond)->Iterations(400)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK_CAPTURE(canvasDrag, arrow, MarkupTool::arrow)
    ->Unit(benchmark::kMicrosecond)->Iterations(400)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
