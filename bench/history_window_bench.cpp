// The history window with 60 captures of 3840 x 2160, on a private X desktop,
// the way a user meets it: from the click to the window on screen, until
// every thumbnail in view is drawn, the longest main-thread step while
// scrolling (thumbnails still arriving), and the memory the process holds
// with the window open and after closing it. The first opening after start
// is reported on its own, then the median of the openings that follow, all
// in one run: first as in Pixmora, where the captures were taken while it
// ran and their thumbnails readied on disk meanwhile, then with no
// thumbnails on disk (a history Pixmora has never seen), decoded at every
// opening.

#include "VirtualDesktop.h"
#include "history/HistoryWindowController.h"
#include "image/PngEncoder.h"
#include "platform/fake/FakePlatform.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLinearGradient>
#include <QListWidget>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QWindow>

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace pixmora;

namespace {

double residentMegabytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.value(1).toDouble() * 4096 / 1e6;
}

// Memory the heap hands out now, whether or not the allocator keeps freed pages.
double heapInUseMegabytes() { return double(mallinfo2().uordblks + mallinfo2().hblkhd) / 1e6; }

double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

// A desktop of text over a gradient, as captures mostly are.
QImage desktopImage(int variant)
{
    QImage image(3840, 2160, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient gradient(0, 0, 3840, 2160);
    gradient.setColorAt(0, QColor(20, 40, 90 + variant));
    gradient.setColorAt(1, QColor(30, 140, 150));
    painter.fillRect(image.rect(), gradient);
    painter.setPen(Qt::white);
    QFont font;
    font.setPixelSize(14);
    painter.setFont(font);
    for (int y = 18; y < 2160; y += 18)
        painter.drawText(
            20, y, QStringLiteral("%1 drwxr-xr-x 2 user user 4096 Nov 16 20:27 capture-%2   ").arg(y).arg(variant).repeated(6));
    return image;
}

struct Opening {
    double shownMs = 0, visibleThumbnailsMs = 0, longestScrollStepMs = 0, medianScrollStepMs = 0,
           mostScrollStepCpuMs = 0, openMb = 0, closedMb = 0, openHeapMb = 0, closedHeapMb = 0;
};

bool visibleThumbnailsIn(QListWidget &grid)
{
    const QRect shown = grid.viewport()->rect();
    for (int row = 0; row < grid.count(); ++row) {
        QListWidgetItem *item = grid.item(row);
        if (grid.visualItemRect(item).intersects(shown) && item->data(Qt::DecorationRole).isNull())
            return false;
    }
    return grid.count() > 0;
}

template <typename Condition> bool spinUntil(const Condition &condition, int timeoutMs = 30000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return condition();
}

Opening open(HistoryWindowController &controller)
{
    Opening result;
    QElapsedTimer clock;
    clock.start();
    controller.showWindow();
    QListWidget &grid = *controller.grid();
    spinUntil([&] { return controller.window()->windowHandle() && controller.window()->windowHandle()->isExposed(); });
    QCoreApplication::processEvents();  // the first paint
    result.shownMs = double(clock.nsecsElapsed()) / 1e6;
    spinUntil([&] { return visibleThumbnailsIn(grid); });
    QCoreApplication::processEvents();
    result.visibleThumbnailsMs = double(clock.nsecsElapsed()) / 1e6;

    // Down to the end and back, 40 points a frame, while the rest decode.
    // Wall time counts the other engineers' builds too; the main thread's
    // own CPU time per step tells what is ours.
    QScrollBar *bar = grid.verticalScrollBar();
    std::vector<double> steps;
    for (int direction : {1, -1}) {
        for (int step = 0; step < 400; ++step) {
            QElapsedTimer frame;
            frame.start();
            const double cpu = threadCpuMs();
            bar->setValue(bar->value() + direction * 40);
            grid.viewport()->repaint();
            QCoreApplication::processEvents();
            steps.push_back(double(frame.nsecsElapsed()) / 1e6);
            result.mostScrollStepCpuMs = std::max(result.mostScrollStepCpuMs, threadCpuMs() - cpu);
            if (bar->value() == (direction > 0 ? bar->maximum() : 0))
                break;
        }
    }
    result.longestScrollStepMs = *std::max_element(steps.begin(), steps.end());
    std::sort(steps.begin(), steps.end());
    result.medianScrollStepMs = steps[steps.size() / 2];
    spinUntil([&] { return controller.thumbnails().idle(); });
    result.openMb = residentMegabytes();
    result.openHeapMb = heapInUseMegabytes();
    controller.window()->close();
    QCoreApplication::processEvents();
    result.closedMb = residentMegabytes();
    result.closedHeapMb = heapInUseMegabytes();
    return result;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    e2e::VirtualDesktop desktop{{}};
    QApplication app(argc, argv);
    QTemporaryDir root;
    CaptureHistoryStore store(root.filePath(QStringLiteral("History")));
    FakeClipboard clipboard;
    FakeDialogs dialogs;
    HistoryWindowController ready(store, clipboard, dialogs, {}, root.filePath(QStringLiteral("Thumbnails")));
    const QDateTime start = QDateTime::currentDateTimeUtc();
    std::fprintf(stderr, "taking 60 captures of 3840 x 2160...\n");
    for (int i = 0; i < 60; ++i) {
        store.add(encodePng(desktopImage(i), 1.0), start.addSecs(i));
        QCoreApplication::processEvents();
    }
    spinUntil([&] { return ready.thumbnails().idle(); }, 600000);
    // The user opened the tray menu first: fonts and styles are loaded.
    QMenu menu;
    menu.addAction(QString::fromUtf8("Recent Captures…"));
    menu.popup(QPoint(100, 100));
    spinUntil([&] { return menu.windowHandle() && menu.windowHandle()->isExposed(); });
    menu.close();
    QCoreApplication::processEvents();
    std::printf("60 captures of 3840 x 2160 (%.1f MB of PNG); before the window: resident %.1f MB, heap %.1f MB\n",
                double(store.entries().front().bytes) * 60 / 1e6, residentMegabytes(), heapInUseMegabytes());

    const auto run = [&](const char *title, HistoryWindowController &controller, int count) {
        std::vector<Opening> openings;
        for (int i = 0; i < count; ++i)
            openings.push_back(open(controller));
        std::printf("\n%s\n", title);
        const auto report = [&](const char *what, double Opening::*field) {
            std::vector<double> later;
            for (size_t i = 1; i < openings.size(); ++i)
                later.push_back(openings[i].*field);
            std::printf("  %-34s first %8.1f   median of %zu later %8.1f\n", what, openings[0].*field, later.size(),
                        median(later));
        };
        report("window shown (ms)", &Opening::shownMs);
        report("visible thumbnails drawn (ms)", &Opening::visibleThumbnailsMs);
        report("longest scroll step (ms)", &Opening::longestScrollStepMs);
        report("median scroll step (ms)", &Opening::medianScrollStepMs);
        report("most main-thread CPU in a step (ms)", &Opening::mostScrollStepCpuMs);
        report("resident, open, all decoded (MB)", &Opening::openMb);
        report("resident after closing (MB)", &Opening::closedMb);
        report("heap in use, open (MB)", &Opening::openHeapMb);
        report("heap in use after closing (MB)", &Opening::closedHeapMb);
    };
    run("Captures taken while Pixmora ran (thumbnails readied on disk meanwhile):", ready, 4);
    HistoryWindowController decoding(store, clipboard, dialogs, {});
    run("No thumbnails on disk: decoded from the captures at every opening:", decoding, 4);
    return 0;
}
