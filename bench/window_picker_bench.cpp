// The window picker's own costs: keeping the candidates out of a window list,
// finding the window under the pointer, and repainting a 3840 x 2160 panel
// when the outline moves to another window.

#include "RepaintCounter.h"
#include "capture/WindowPickerController.h"
#include "capture/WindowPickerView.h"
#include "platform/fake/FakePlatform.h"

#include <QApplication>
#include <QWindow>

#include <benchmark/benchmark.h>

using namespace pixmora;

namespace {

// 50 windows topmost first, overlapping in a grid over a 4K desktop, with
// docks and windows of other workspaces among them.
WindowList busyDesktop()
{
    WindowList windows;
    for (int i = 0; i < 50; ++i) {
        WindowInfo w;
        w.id = 1000 + quint64(i);
        w.frame = QRect((i % 10) * 350, (i / 10) * 400, 600, 500);
        w.title = QStringLiteral("Document %1").arg(i);
        w.appName = QStringLiteral("Editor");
        w.pid = 5000 + i;
        w.layer = i % 10 == 9 ? 20 : 0;
        w.onScreen = i % 7 != 3;
        windows.push_back(w);
    }
    return windows;
}

WindowInfo window(quint64 id, QRect frame)
{
    WindowInfo w;
    w.id = id;
    w.frame = frame;
    w.appName = QStringLiteral("Editor");
    w.title = QStringLiteral("A document with a fairly long title");
    w.pid = 5000;
    return w;
}

const DisplayInfo display4K{1, QRect(0, 0, 3840, 2160), QRect(0, 0, 3840, 2160), 1.0, QStringLiteral("4K")};

void noCompletion(std::optional<WindowInfo>) {}

void BM_CandidateFiltering(benchmark::State &state)
{
    const WindowList windows = busyDesktop();
    FakeDesktop desktop;
    for (auto _ : state) {
        WindowPickerController picker(windows, {display4K}, {}, desktop, noCompletion);
        benchmark::DoNotOptimize(picker.candidates().size());
    }
}
BENCHMARK(BM_CandidateFiltering);

// One lookup per pointer move, over points spread across the desktop
// (many of them on no window, the slowest case).
void BM_WindowUnderPointer(benchmark::State &state)
{
    FakeDesktop desktop;
    const WindowPickerController picker(busyDesktop(), {display4K}, {}, desktop, noCompletion);
    std::vector<QPointF> points;
    for (int y = 0; y < 2160; y += 270)
        for (int x = 0; x < 3840; x += 480)
            points.emplace_back(x + 0.5, y + 0.5);
    for (auto _ : state)
        for (const QPointF &point : points)
            benchmark::DoNotOptimize(picker.windowUnder(point));
    state.SetItemsProcessed(state.iterations() * qint64(points.size()));
}
BENCHMARK(BM_WindowUnderPointer);

// The pointer alternates between two windows; each step finds the new one,
// updates the view and paints the changed area into the panel's backing store.
// Argument 0: two 800 x 600 windows; 1: two large overlapping windows whose
// outlines together cover nearly the whole panel.
void BM_HighlightChangeRepaint(benchmark::State &state)
{
    const bool large = state.range(0) == 1;
    const WindowInfo first = window(1, large ? QRect(0, 0, 3000, 1800) : QRect(200, 200, 800, 600));
    const WindowInfo second = window(2, large ? QRect(700, 300, 3140, 1860) : QRect(2000, 1000, 800, 600));
    const QPoint inFirst(first.frame.topLeft() + QPoint(50, 50));
    const QPoint inSecond(second.frame.bottomRight() - QPoint(50, 50));

    FakeDesktop desktop;
    QPoint cursor = inFirst;
    QImage backdrop(display4K.frame.size(), QImage::Format_RGB32);
    backdrop.fill(qRgb(40, 90, 160));
    WindowPickerController picker({first, second}, {display4K}, {{display4K.id, backdrop}}, desktop, noCompletion,
                                  [&cursor] { return cursor; });
    picker.begin();
    WindowPickerView *panel = picker.views().front();
    for (int i = 0; i < 200 && !panel->isExposed(); ++i)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents();

    RepaintCounter counter;
    panel->installEventFilter(&counter);
    for (auto _ : state) {
        cursor = cursor == inFirst ? inSecond : inFirst;
        picker.updateHighlight();
        QCoreApplication::sendPostedEvents();
    }
    if (counter.repaints != state.iterations())
        state.SkipWithError("not every highlight change was painted");
    picker.finish(std::nullopt);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}
// Qt's raster engine spreads large fills over worker threads: count their time too.
BENCHMARK(BM_HighlightChangeRepaint)->Arg(0)->Arg(1)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    benchmark::Initialize(&argc, argv);
    QApplication app(argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
