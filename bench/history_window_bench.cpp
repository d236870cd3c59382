// The history window with 60 captures of 3840 x 2160, on a private X desktop,
// the way a user meets it: from the click to the window on screen, until
// every thumbnail in view is drawn, the main thread's steps while scrolling
// (thumbnails still arriving), and the memory the process holds with the
// window open and after closing it. The first opening of each case is
// reported on its own, then the median of the openings that follow, all in
// one run: as in Pixmora, where the captures were taken while it ran and
// their thumbnails readied on disk meanwhile; a history it has never seen,
// opened a few seconds after start; and the same opened at once. First, what
// one thumbnail costs to decode.

#include "VirtualDesktop.h"
#include "history/HistoryItemDelegate.h"
#include "history/HistoryWindowController.h"
#include "image/PngEncoder.h"
#include "platform/fake/FakePlatform.h"

#include <QApplication>
#include <QDir>
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

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// "A few seconds": as long as a user takes to reach the tray menu after start.
constexpr int waitAfterStartMs = 5000;

struct Opening {
    double shownMs = 0, visibleThumbnailsMs = 0, longestScrollStepMs = 0, medianScrollStepMs = 0,
           mostScrollStepCpuMs = 0, medianScrollStepCpuMs = 0, openMb = 0, closedMb = 0, openHeapMb = 0, closedHeapMb = 0;
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
    std::vector<double> steps, cpus;
    for (int direction : {1, -1}) {
        for (int step = 0; step < 400; ++step) {
            QElapsedTimer frame;
            frame.start();
            const double cpu = threadCpuMs();
            bar->setValue(bar->value() + direction * 40);
            grid.viewport()->repaint();
            QCoreApplication::processEvents();
            steps.push_back(double(frame.nsecsElapsed()) / 1e6);
            cpus.push_back(threadCpuMs() - cpu);
            if (bar->value() == (direction > 0 ? bar->maximum() : 0))
                break;
        }
    }
    result.longestScrollStepMs = *std::max_element(steps.begin(), steps.end());
    result.mostScrollStepCpuMs = *std::max_element(cpus.begin(), cpus.end());
    result.medianScrollStepMs = median(steps);
    result.medianScrollStepCpuMs = median(cpus);
    spinUntil([&] { return controller.thumbnails().idle(); });
    result.openMb = residentMegabytes();
    result.openHeapMb = heapInUseMegabytes();
    controller.window()->close();
    QCoreApplication::processEvents();
    result.closedMb = residentMegabytes();
    result.closedHeapMb = heapInUseMegabytes();
    return result;
}


// What one thumbnail of a capture costs to decode, on this thread.
void measureDecoding(const QString &path, QSize box)
{
    std::vector<double> times;
    for (int round = 0; round < 9; ++round) {
        const double cpu = threadCpuMs();
        if (HistoryThumbnailLoader::decode(path, box).isNull())
            std::printf("decoding failed\n");
        times.push_back(threadCpuMs() - cpu);
    }
    std::printf("One thumbnail of a 3840 x 2160 capture, CPU ms: first %.1f, median of 8 later %.1f\n", times[0],
                median(std::vector<double>(times.begin() + 1, times.end())));
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
    spinUntil([&] { return ready.thumbnails().preparedOnDisk(); }, 600000);
    // The user opened the tray menu first: fonts and styles are loaded.
    QMenu menu;
    menu.addAction(QString::fromUtf8("Recent Captures…"));
    menu.popup(QPoint(100, 100));
    spinUntil([&] { return menu.windowHandle() && menu.windowHandle()->isExposed(); });
    menu.close();
    QCoreApplication::processEvents();
    std::printf("60 captures of 3840 x 2160 (%.1f MB of PNG); before the window: resident %.1f MB, heap %.1f MB\n\n",
                double(store.entries().front().bytes) * 60 / 1e6, residentMegabytes(), heapInUseMegabytes());
    measureDecoding(store.entries().front().path,
                    HistoryItemDelegate::thumbnailBox(HistoryItemDelegate::captionFont(QApplication::font())).size());

    const auto run = [&](const char *title, HistoryWindowController &controller, int count) {
        std::vector<Opening> openings;
        for (int i = 0; i < count; ++i)
            openings.push_back(open(controller));
        std::printf("\n%s\n", title);
        const auto report = [&](const char *what, double Opening::*field) {
            std::vector<double> later;
            for (size_t i = 1; i < openings.size(); ++i)
                later.push_back(openings[i].*field);
            std::printf("  %-36s first %8.1f   median of %zu later %8.1f\n", what, openings[0].*field, later.size(),
                        median(later));
        };
        report("window shown (ms)", &Opening::shownMs);
        report("visible thumbnails drawn (ms)", &Opening::visibleThumbnailsMs);
        report("longest scroll step, wall (ms)", &Opening::longestScrollStepMs);
        report("median scroll step, wall (ms)", &Opening::medianScrollStepMs);
        report("most main-thread CPU in a step (ms)", &Opening::mostScrollStepCpuMs);
        report("median main-thread CPU in a step (ms)", &Opening::medianScrollStepCpuMs);
        report("resident, open, all decoded (MB)", &Opening::openMb);
        report("resident after closing (MB)", &Opening::closedMb);
        report("heap in use, open (MB)", &Opening::openHeapMb);
        report("heap in use after closing (MB)", &Opening::closedHeapMb);
    };
    run("Captures taken while Pixmora ran (their thumbnails readied on disk meanwhile):", ready, 4);

    // A history Pixmora has never seen: started, then opened a few seconds later...
    const auto onDisk = [&](const QString &folder) { return QDir(folder).entryList(QDir::Files).size(); };
    const QString waitedFolder = root.filePath(QStringLiteral("Thumbnails-waited"));
    HistoryWindowController waited(store, clipboard, dialogs, {}, waitedFolder);
    QElapsedTimer clock;
    clock.start();
    spinUntil([] { return false; }, waitAfterStartMs);
    std::printf("\nStarted with no thumbnails on disk: %lld of 60 on disk %.1f s after start\n",
                qlonglong(onDisk(waitedFolder)), double(clock.elapsed()) / 1e3);
    run("  ...then opened:", waited, 4);
    // ...or at once: the worst case.
    HistoryWindowController atOnce(store, clipboard, dialogs, {}, root.filePath(QStringLiteral("Thumbnails-at-once")));
    run("Opened right after start, no thumbnails on disk:", atOnce, 4);
    return 0;
}
