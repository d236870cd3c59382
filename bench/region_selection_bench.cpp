// The area overlay's two speed targets: opening on two 1920 x 2160 pixel
// displays until both are painted, and one drag step on a 3840 x 2160 pixel
// display. Runs offscreen unless QT_QPA_PLATFORM says otherwise; with
// QT_SCALE_FACTOR=2 the same pixel counts are covered by half as many points.
// The fake platform cannot draw backdrops, so every panel paints its whole
// frozen image here: the slow path, taken where the window system cannot.
#include "RepaintCounter.h"
#include "capture/RegionSelectionController.h"
#include "capture/RegionSelectionView.h"
#include "platform/fake/FakePlatform.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>

#include <benchmark/benchmark.h>

#include <memory>

using namespace pixmora;

namespace {

// Displays side by side, each `pixels` large at the application's own ratio,
// with frozen images to match.
struct Desk {
    DisplayList displays;
    DisplaySnapshots snapshots;

    Desk(int count, QSize pixels)
    {
        const double scale = qApp->devicePixelRatio();
        const QSize points = pixels / scale;
        for (int index = 0; index < count; ++index) {
            const quint32 id = quint32(index + 1);
            const QRect frame(QPoint(index * points.width(), 0), points);
            displays.push_back({id, frame, frame, scale, QStringLiteral("D%1").arg(id)});
            QImage image(pixels, QImage::Format_RGB32);
            image.fill(qRgb(40 + 60 * index, 120, 200));
            snapshots.emplace(id, std::move(image));
        }
    }
};

void dropClosedPanels()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void sendMouse(QWindow *view, QEvent::Type type, QPointF position)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    const Qt::MouseButtons buttons = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, position, view->mapToGlobal(position), button, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(view, &event);
}

// From the start of the overlay to both displays painted by the window system's repaint.
void BM_OpenOverlayUntilPainted(benchmark::State &state)
{
    const Desk desk(2, QSize(1920, 2160));
    FakeDesktop desktop;
    for (auto _ : state) {
        RegionSelectionController controller(std::nullopt, desk.snapshots, desk.displays, desktop, nullptr);
        controller.begin();
        RepaintCounter counter;
        for (RegionSelectionView *panel : controller.views())
            panel->installEventFilter(&counter);
        while (counter.repaints < 2)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);

        state.PauseTiming();
        controller.finish(std::nullopt, nullptr);
        dropClosedPanels();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_OpenOverlayUntilPainted)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->Iterations(1)->Repetitions(25)
    ->ReportAggregatesOnly(true);

// The same, each view rendered into an image of its own.
void BM_OpenOverlayAndRender(benchmark::State &state)
{
    const Desk desk(2, QSize(1920, 2160));
    FakeDesktop desktop;
    QImage target(1920, 2160, QImage::Format_RGB32);
    target.setDevicePixelRatio(qApp->devicePixelRatio());
    for (auto _ : state) {
        RegionSelectionController controller(std::nullopt, desk.snapshots, desk.displays, desktop, nullptr);
        controller.begin();
        for (RegionSelectionView *panel : controller.views()) {
            QPainter painter(&target);
            panel->paint(painter);
        }

        state.PauseTiming();
        controller.finish(std::nullopt, nullptr);
        dropClosedPanels();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_OpenOverlayAndRender)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->Iterations(1)->Repetitions(25)
    ->ReportAggregatesOnly(true);

// One pointer move of a large selection, and the repaint it causes.
void BM_DragStep(benchmark::State &state)
{
    const Desk desk(1, QSize(3840, 2160));
    FakeDesktop desktop;
    RegionSelectionController controller(std::nullopt, desk.snapshots, desk.displays, desktop, nullptr);
    controller.begin();
    RegionSelectionView *view = controller.views().front();
    RepaintCounter counter;
    view->installEventFilter(&counter);
    while (counter.repaints < 1)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);

    const QSizeF points = view->size();
    sendMouse(view, QEvent::MouseButtonPress, QPointF(points.width() * 0.15, points.height() * 0.2));
    QCoreApplication::processEvents();
    int step = 0;
    for (auto _ : state) {
        ++step;
        const QPointF corner(points.width() * 0.8 + step % 8 * 4, points.height() * 0.8 + step % 6 * 3);
        const int before = counter.repaints;
        sendMouse(view, QEvent::MouseMove, corner);
        while (counter.repaints == before)
            QCoreApplication::processEvents();
    }
    controller.finish(std::nullopt, nullptr);
    dropClosedPanels();
}
BENCHMARK(BM_DragStep)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->Repetitions(10)->ReportAggregatesOnly(true);

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
