// One tick of a scrolling capture on the main thread, as the user meets it:
// an 800 x 600 point rectangle at scale 2 (1600 x 1200 pixels) captured from
// a real X server, with the HUD on screen, and appended to the stitched
// image, while a long document in another program scrolls five wheel
// notches (300 pixels) between ticks. Starts its own virtual desktop; needs
// Xvfb, openbox and xdotool. Prints the first tick that appends, the median,
// the costliest and the tick after 5 s of idleness.
//
//   scroll_capture_bench [ticks]

#include "ScrollDocument.h"
#include "VirtualDesktop.h"
#include "platform/x11/X11Platform.h"
#include "scroll/ScrollCaptureController.h"
#include "scroll/ScrollHUDPanel.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <tuple>
#include <optional>
#include <vector>

using namespace pixmora;
using pixmora::e2e::ScrollDocument;
using pixmora::e2e::VirtualDesktop;

namespace {

// CPU time of this thread: the machine is shared, so wall time alone says little.
double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    std::optional<VirtualDesktop> desktop;
    try {
        VirtualDesktop::Options options;
        options.leftAndRight = true;
        options.windowManager = true;
        options.sessionBus = true;
        desktop.emplace(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "cannot start the virtual desktop: %s\n", error.what());
        return 1;
    }
    qputenv("QT_SCREEN_SCALE_FACTORS", "LEFT=2;RIGHT=1");
    QApplication app(argc, argv);  // after the desktop, so that Qt disconnects before the server goes
    const int ticks = std::max(5, app.arguments().value(1, QStringLiteral("60")).toInt());

    QTemporaryDir scratch;
    const std::optional<ScrollDocument> document = ScrollDocument::startForBenchmark(*desktop, scratch.path());
    if (!document) {
        std::fprintf(stderr, "the document did not show\n");
        return 1;
    }
    const QPoint viewport = document->viewport.topLeft();
    const auto xdotool = [&](const QString &line) {
        desktop->run(QStringLiteral("xdotool"), line.split(QLatin1Char(' ')));
    };
    xdotool(QStringLiteral("mousemove %1 %2").arg(viewport.x() + 800).arg(viewport.y() + 600));

    X11Platform x11;
    const Platform platform = x11.platform();
    const DisplayList displays = platform.screens.displays();
    const auto left = std::ranges::find(displays, 2.0, &DisplayInfo::scale);
    if (left == displays.end()) {
        std::fprintf(stderr, "no display at scale 2\n");
        return 1;
    }
    // LEFT starts at the desktop's origin: its points are half its pixels.
    const QRectF rect((viewport.x() + 20) / 2.0, (viewport.y() + 20) / 2.0, 800, 600);
    bool ended = false;
    ScrollCaptureController capture(platform.screens, platform.desktop, *left, rect,
                                    [&](std::optional<QImage>) { ended = true; });
    capture.showHUD();
    capture.begin();
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 500)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);

    // Events are not processed between ticks: the capture's own clock must not take the frames timed here.
    const auto scrollAndTick = [&] {
        xdotool(QStringLiteral("click --repeat 5 --delay 5 5"));
        QThread::msleep(100);  // the document repaints
        const QString before = capture.hud()->status();
        QElapsedTimer clock;
        clock.start();
        const double cpuBefore = threadCpuMs();
        capture.captureTick();
        const double ms = clock.nsecsElapsed() / 1e6;
        return std::tuple{ms, threadCpuMs() - cpuBefore, capture.hud()->status() != before};
    };
    std::vector<double> times, cpu, captures;
    int appended = 0;
    for (int tick = 0; tick < ticks && !ended; ++tick) {
        const auto [ms, cpuMs, grew] = scrollAndTick();
        times.push_back(ms);
        cpu.push_back(cpuMs);
        appended += grew ? 1 : 0;
        // The capture's share of the tick, with the same exclusion in force.
        QElapsedTimer clock;
        clock.start();
        platform.screens.captureRegion(*left, rect);
        captures.push_back(clock.nsecsElapsed() / 1e6);
    }
    const QString status = capture.hud()->status();
    QThread::sleep(5);
    const auto [afterIdle, cpuAfterIdle, grewAfterIdle] = scrollAndTick();

    std::printf("ticks                                 %zu, %d of them appended (%s)\n", times.size(), appended,
                qPrintable(status));
    std::printf("one tick: capture 1600 x 1200 + append  first %.2f ms, median %.2f ms (min %.2f, max %.2f)\n",
                times.front(), median(times), *std::min_element(times.begin(), times.end()),
                *std::max_element(times.begin(), times.end()));
    std::printf("CPU time of the main thread per tick  first %.2f ms, median %.2f ms (max %.2f)\n", cpu.front(), median(cpu),
                *std::max_element(cpu.begin(), cpu.end()));
    std::printf("of which the capture alone            median %.2f ms\n", median(captures));
    std::printf("tick after 5 s idle                   %.2f ms, %.2f ms CPU (%s)\n", afterIdle, cpuAfterIdle,
                grewAfterIdle ? "appended" : "nothing appended");
    capture.cancel();
    std::vector<double> bare;
    for (int round = 0; round < 20; ++round) {
        QElapsedTimer clock;
        clock.start();
        platform.screens.captureRegion(*left, rect);
        bare.push_back(clock.nsecsElapsed() / 1e6);
    }
    std::printf("the capture once the HUD has gone     median %.2f ms\n", median(bare));
    return 0;
}
