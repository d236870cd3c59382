// The X11 capture layer on a real X server: MIT-SHM grabs of a 3840 x 2160
// display (warm, and cold after the shared segment was released) and the
// window list with 50 managed windows. Needs an X display, ideally with a
// window manager for realistic frames, e.g.
//   Xvfb :90 -screen 0 3840x2160x24 -noreset & DISPLAY=:90 openbox &
//   DISPLAY=:90 x11_capture_bench --benchmark_repetitions=10

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ImageTransfer.h"
#include "platform/x11/X11ScreenCapture.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <xcb/xcb_icccm.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>

using namespace pixmora;

namespace {

X11Connection *connection = nullptr;
X11ScreenCapture *capture = nullptr;

DisplayInfo largestDisplay()
{
    DisplayInfo largest;
    for (const DisplayInfo &display : capture->displays())
        if (display.frame.width() * display.scale > largest.frame.width() * largest.scale)
            largest = display;
    return largest;
}

void BM_CaptureDisplayWarm(benchmark::State &state)
{
    const DisplayInfo display = largestDisplay();
    capture->captureDisplay(display);
    for (auto _ : state)
        benchmark::DoNotOptimize(capture->captureDisplay(display));
    state.SetLabel(QStringLiteral("%1x%2 device pixels")
                       .arg(display.frame.width() * display.scale)
                       .arg(display.frame.height() * display.scale)
                       .toStdString());
}
BENCHMARK(BM_CaptureDisplayWarm)->Unit(benchmark::kMillisecond)->UseRealTime();

// The first capture of a process pays for mapping the shared segment.
void BM_CaptureDisplayFirst(benchmark::State &state)
{
    const DisplayInfo display = largestDisplay();
    std::unique_ptr<X11ScreenCapture> fresh;
    for (auto _ : state) {
        state.PauseTiming();
        fresh.reset();
        fresh = std::make_unique<X11ScreenCapture>(*connection);
        state.ResumeTiming();
        benchmark::DoNotOptimize(fresh->captureDisplay(display));
    }
}
BENCHMARK(BM_CaptureDisplayFirst)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CaptureRegion800x600(benchmark::State &state)
{
    const DisplayInfo display = largestDisplay();
    const QRectF rect(display.frame.x() + 100, display.frame.y() + 100, 800, 600);
    for (auto _ : state)
        benchmark::DoNotOptimize(capture->captureRegion(display, rect));
}
BENCHMARK(BM_CaptureRegion800x600)->Unit(benchmark::kMillisecond)->UseRealTime();

// 50 mapped top-level windows of another client, named and classed like an
// application's, managed by the window manager if one runs.
class FiftyWindows {
public:
    FiftyWindows()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        for (int i = 0; i < 50; ++i) {
            const xcb_window_t window = xcb_generate_id(m_connection);
            xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, window, screen->root, int16_t((i % 10) * 350),
                              int16_t((i / 10) * 400), 600, 500, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                              screen->root_visual, 0, nullptr);
            const QByteArray title = QStringLiteral("Document %1 — Editor").arg(i).toUtf8();
            xcb_icccm_set_wm_name(m_connection, window, XCB_ATOM_STRING, 8, uint32_t(title.size()), title.constData());
            static const char wmClass[] = "editor\0Editor";
            xcb_icccm_set_wm_class(m_connection, window, sizeof wmClass, wmClass);
            xcb_map_window(m_connection, window);
        }
        xcb_flush(m_connection);
    }
    ~FiftyWindows() { xcb_disconnect(m_connection); }

private:
    xcb_connection_t *m_connection;
};

void BM_WindowList50(benchmark::State &state)
{
    static FiftyWindows windows;  // kept for every repetition
    QElapsedTimer waited;
    waited.start();
    while (capture->windows().size() < 50 && waited.elapsed() < 5000)
        QThread::msleep(20);
    size_t listed = 0;
    for (auto _ : state)
        listed = capture->windows().size();
    state.counters["windows"] = double(listed);
}
BENCHMARK(BM_WindowList50)->Unit(benchmark::kMillisecond)->UseRealTime();

long residentKilobytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    return -1;
}

// Resident memory around the first capture (its image dropped) and a moment later.
void reportMemory()
{
    const long before = residentKilobytes();
    QElapsedTimer timer;
    timer.start();
    { const QImage first = capture->captureDisplay(largestDisplay()); }
    benchmark::AddCustomContext("first_capture_ms", std::to_string(timer.nsecsElapsed() / 1e6));
    benchmark::AddCustomContext("rss_growth_after_capture_kb", std::to_string(residentKilobytes() - before));
    timer.start();
    while (timer.elapsed() < 2500)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    benchmark::AddCustomContext("rss_growth_2500ms_later_kb", std::to_string(residentKilobytes() - before));
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::fprintf(stderr, "x11_capture_bench needs an X display (see the top of its source).\n");
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    auto x11 = std::make_unique<X11Connection>();
    auto screenCapture = std::make_unique<X11ScreenCapture>(*x11);
    connection = x11.get();
    capture = screenCapture.get();
    benchmark::AddCustomContext("mit_shm", x11->images().usesSharedMemory() ? "yes" : "no");
    reportMemory();

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
