// Key press to last file written, for the real binary on a 3840 x 2160 Xvfb
// desktop with a gradient wallpaper and text windows, side by side with scrot
// writing the same screen; plus the PNG sizes and the tray process's idle
// CPU and resident memory. With --idle, each capture (ours and scrot's) comes
// after 3 s of idle, as a user meets it. With --overlay, the same desktop split into two 1920 x 2160 monitors and the time
// from Control-Shift-1 and Control-Shift-4 until the frozen, dimmed overlay
// shows on both. With --editor, a click on
// the thumbnail of a 3840 x 2160 capture until the markup editor shows the
// picture, the CPU of each pointer move while an arrow and a freehand stroke
// are dragged out in it, and the resident memory it takes and gives back.
// With --scrolling, on that desktop with the left monitor at scale 2, a
// scrolling capture of 800 x 600 points over a long document scrolled by
// wheel until the 24000-row limit delivers it: the tray process's peak and
// settled resident memory. Prints medians; needs Xvfb, openbox, trayer,
// xterm, xdotool, ImageMagick and scrot (scripts/install-deps.sh).
//
//   capture_latency [--idle | --overlay | --editor | --scrolling] [path/to/pixmora] [iterations]
#include "ScrollDocument.h"
#include "VirtualDesktop.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QTemporaryDir>
#include <QThread>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <X11/keysym.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <vector>

using pixmora::e2e::ScrollDocument;
using pixmora::e2e::VirtualDesktop;

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Presses Control-Shift-3 through XTest, as a keyboard would.
class KeyPresser {
public:
    KeyPresser(const QString &display, std::vector<xcb_keysym_t> keys)
        : m_connection(xcb_connect(display.toLocal8Bit().constData(), nullptr)),
          m_symbols(xcb_key_symbols_alloc(m_connection))
    {
        for (xcb_keysym_t key : keys)
            m_keys.push_back(code(key));
    }
    ~KeyPresser()
    {
        xcb_key_symbols_free(m_symbols);
        xcb_disconnect(m_connection);
    }
    void press()
    {
        for (xcb_keycode_t key : m_keys)
            send(XCB_KEY_PRESS, key);
        for (auto key = m_keys.rbegin(); key != m_keys.rend(); ++key)
            send(XCB_KEY_RELEASE, *key);
        // A round trip: every event has reached the server.
        free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }

private:
    void send(uint8_t type, xcb_keycode_t key)
    {
        xcb_test_fake_input(m_connection, type, key, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_flush(m_connection);
    }
    xcb_keycode_t code(xcb_keysym_t symbol)
    {
        xcb_keycode_t *codes = xcb_key_symbols_get_keycode(m_symbols, symbol);
        const xcb_keycode_t result = codes ? codes[0] : 0;
        free(codes);
        return result;
    }
    xcb_connection_t *m_connection;
    xcb_key_symbols_t *m_symbols;
    std::vector<xcb_keycode_t> m_keys;
};

// Counts PNG files appearing in the watched folders under their final names:
// atomic writes either rename a temporary file or link an unnamed one.
class FileArrivals {
public:
    explicit FileArrivals(const QStringList &folders) : m_fd(inotify_init1(IN_NONBLOCK))
    {
        for (const QString &folder : folders)
            inotify_add_watch(m_fd, folder.toLocal8Bit().constData(), IN_MOVED_TO | IN_CREATE);
    }
    ~FileArrivals() { close(m_fd); }
    void drain() { waitFor(1000000, 0); }
    // True when count files arrived within timeoutMs.
    bool waitFor(int count, int timeoutMs)
    {
        QElapsedTimer clock;
        clock.start();
        int seen = 0;
        alignas(inotify_event) char buffer[8192];
        while (seen < count) {
            const int left = timeoutMs - int(clock.elapsed());
            pollfd descriptor{m_fd, POLLIN, 0};
            if (left < 0 || poll(&descriptor, 1, left) <= 0)
                return false;
            const ssize_t length = read(m_fd, buffer, sizeof buffer);
            for (ssize_t offset = 0; offset < length;) {
                const auto *event = reinterpret_cast<const inotify_event *>(buffer + offset);
                if (event->len && QByteArray(event->name).endsWith(".png"))
                    ++seen;
                offset += ssize_t(sizeof(inotify_event) + event->len);
            }
        }
        return true;
    }

private:
    int m_fd;
};

// The pointer, moved and pressed through XTest as a mouse would.
class Pointer {
public:
    explicit Pointer(const QString &display) : m_connection(xcb_connect(display.toLocal8Bit().constData(), nullptr)) {}
    ~Pointer() { xcb_disconnect(m_connection); }
    void move(QPoint to) { send(XCB_MOTION_NOTIFY, 0, to); }
    void press() { send(XCB_BUTTON_PRESS, 1, {}); }
    void release() { send(XCB_BUTTON_RELEASE, 1, {}); }
    void click(QPoint at)
    {
        move(at);
        press();
        release();
    }

private:
    void send(uint8_t type, uint8_t detail, QPoint at)
    {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        xcb_test_fake_input(m_connection, type, detail, XCB_CURRENT_TIME, root, int16_t(at.x()), int16_t(at.y()), 0);
        free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }
    xcb_connection_t *m_connection;
};

// One pixel of the root window, as the X server shows it.
class PixelReader {
public:
    explicit PixelReader(const QString &display) : m_connection(xcb_connect(display.toLocal8Bit().constData(), nullptr)) {}
    ~PixelReader() { xcb_disconnect(m_connection); }
    quint32 at(QPoint point)
    {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        xcb_get_image_reply_t *reply = xcb_get_image_reply(
            m_connection, xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, root, int16_t(point.x()), int16_t(point.y()), 1, 1, ~0u),
            nullptr);
        quint32 pixel = 0;
        if (reply && xcb_get_image_data_length(reply) >= 4)
            std::memcpy(&pixel, xcb_get_image_data(reply), 4);
        free(reply);
        return pixel & 0xffffff;
    }

private:
    xcb_connection_t *m_connection;
};

struct ProcessUsage {
    double cpuSeconds = 0;
    double residentMB = 0;
    double peakResidentMB = 0;  // since the last resetPeak
    // Of residentMB: private memory, pages of mapped files (libraries), shared memory.
    double anonymousMB = 0, fileMB = 0, sharedMB = 0;
};

ProcessUsage usageOf(pid_t pid)
{
    ProcessUsage usage;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (stat.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> fields = stat.readAll().split(')').value(1).trimmed().split(' ');
        usage.cpuSeconds = (fields.value(11).toDouble() + fields.value(12).toDouble()) / double(sysconf(_SC_CLK_TCK));
    }
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("VmRSS:"))
                usage.residentMB = line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
            if (line.startsWith("VmHWM:"))
                usage.peakResidentMB = line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
            if (line.startsWith("RssAnon:"))
                usage.anonymousMB = line.mid(8).trimmed().split(' ').value(0).toDouble() / 1024.0;
            if (line.startsWith("RssFile:"))
                usage.fileMB = line.mid(8).trimmed().split(' ').value(0).toDouble() / 1024.0;
            if (line.startsWith("RssShmem:"))
                usage.sharedMB = line.mid(9).trimmed().split(' ').value(0).toDouble() / 1024.0;
        }
    }
    return usage;
}

// The first visible window with that name, in root-window pixels; empty when there is none.
QRect windowRect(const VirtualDesktop &desktop, const QString &name, quint64 *id = nullptr)
{
    const quint64 window = desktop.waitForWindow(name, 0);
    if (id)
        *id = window;
    return window ? desktop.windowRect(window) : QRect();
}

bool isMagenta(quint32 pixel)
{
    return (pixel >> 16 & 0xff) > 200 && (pixel >> 8 & 0xff) < 60 && (pixel & 0xff) > 200;
}

// CPU seconds of the process per pointer move while a drag follows the path.
double dragCpu(Pointer &pointer, pid_t pid, const std::vector<QPoint> &path)
{
    pointer.move(path.front());
    pointer.press();
    QThread::msleep(100);
    const double before = usageOf(pid).cpuSeconds;
    for (const QPoint &point : path) {
        pointer.move(point);
        QThread::msleep(8);  // a 120 Hz mouse
    }
    QThread::msleep(200);
    const double spent = usageOf(pid).cpuSeconds - before;
    pointer.release();
    return spent / double(path.size());
}

// Thumbnail click to the editor showing the picture, the editor's CPU per
// pointer move and its resident memory. A magenta window in the middle of the
// screen is captured and then hidden: the editor shows the picture when the
// middle of the screen turns magenta again.
int measureEditor(VirtualDesktop &desktop, pid_t pixmora, const QString &shots, const QString &history, int rounds)
{
    desktop.start(QStringLiteral("xterm"), {QStringLiteral("-T"), QStringLiteral("probe"), QStringLiteral("-bg"), QStringLiteral("magenta"),
                                            QStringLiteral("-geometry"), QStringLiteral("60x20+1700+950"), QStringLiteral("-e"),
                                            QStringLiteral("sleep 100000")});
    quint64 probe = 0;
    if (!VirtualDesktop::waitUntil([&] { return !windowRect(desktop, QStringLiteral("^probe$"), &probe).isEmpty(); }, 10000))
        return 1;
    const QString probeId = QString::number(probe);
    const QPoint middle(1920, 1080);
    KeyPresser capture(desktop.display(), {XK_Control_L, XK_Shift_L, XK_3});
    KeyPresser closeWindow(desktop.display(), {XK_Alt_L, XK_F4});
    Pointer pointer(desktop.display());
    PixelReader pixels(desktop.display());
    FileArrivals arrivals({shots, history});
    const QString editorName = QString::fromUtf8("^Pixmora — Markup$");
    std::vector<double> shown, openingCpu, arrowCpu, penCpu, added, kept;
    int focused = 0;
    for (int round = 0; round < rounds; ++round) {
        desktop.run(QStringLiteral("xdotool"), {QStringLiteral("windowmap"), probeId});
        QThread::msleep(500);
        const double idle = usageOf(pixmora).residentMB;
        arrivals.drain();
        capture.press();
        if (!arrivals.waitFor(2, 10000)) {
            std::fprintf(stderr, "Pixmora wrote no files\n");
            return 1;
        }
        desktop.run(QStringLiteral("xdotool"), {QStringLiteral("windowunmap"), probeId});
        // As a user meets it: the thumbnail has been on screen for a moment.
        QThread::msleep(1500);
        const QRect thumbnail = windowRect(desktop, QStringLiteral("^Pixmora Preview$"));
        if (thumbnail.isEmpty() || isMagenta(pixels.at(middle))) {
            std::fprintf(stderr, "no thumbnail, or the probe is still on screen\n");
            return 1;
        }
        // The CPU it takes, apart from the wait for a loaded machine.
        const double cpuBefore = usageOf(pixmora).cpuSeconds;
        QElapsedTimer clock;
        clock.start();
        pointer.click(thumbnail.center());
        while (!isMagenta(pixels.at(middle))) {
            if (clock.elapsed() > 5000) {
                std::fprintf(stderr, "the editor did not show the picture in round %d\n", round);
                return 1;
            }
        }
        shown.push_back(clock.nsecsElapsed() / 1e6);
        std::fprintf(stderr, "round %d: shown after %.1f ms\n", round, shown.back());
        openingCpu.push_back((usageOf(pixmora).cpuSeconds - cpuBefore) * 1000);
        QThread::msleep(500);
        quint64 editor = 0;
        const QRect window = windowRect(desktop, editorName, &editor);
        const QByteArray active = desktop.run(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")}).output.trimmed();
        focused += active.toULongLong() == editor ? 1 : 0;

        // Below the toolbar, a wiggle across most of the picture.
        const QRect canvas = window.adjusted(0, 48, 0, 0);
        std::vector<QPoint> path;
        for (int i = 0; i < 200; ++i)
            path.push_back(canvas.topLeft() + QPoint(200 + i * (canvas.width() - 400) / 200,
                                                     canvas.height() / 3 + int(150 * std::sin(i / 10.0))));
        arrowCpu.push_back(dragCpu(pointer, pixmora, path) * 1000);
        pointer.click(window.topLeft() + QPoint(12 + 5 * 28 + 14, 24));  // the Freehand tool
        penCpu.push_back(dragCpu(pointer, pixmora, path) * 1000);
        added.push_back(usageOf(pixmora).residentMB - idle);

        closeWindow.press();
        if (!VirtualDesktop::waitUntil([&] { return windowRect(desktop, editorName).isEmpty(); }, 5000)) {
            std::fprintf(stderr, "the editor did not close\n");
            return 1;
        }
        QThread::sleep(5);
        kept.push_back(usageOf(pixmora).residentMB - idle);
    }
    std::printf("rounds                                         %d\n", rounds);
    std::printf("thumbnail click -> editor shows the 3840 x 2160 picture  first %.1f ms, median %.1f ms (max %.1f)\n",
                shown.front(), median(shown), *std::max_element(shown.begin(), shown.end()));
    std::printf("Pixmora's CPU from the click until then           first %.1f ms, median %.1f ms\n", openingCpu.front(),
                median(openingCpu));
    std::printf("editor active with the keyboard on opening     %d of %d rounds\n", focused, rounds);
    std::printf("CPU per pointer move, dragging an arrow         median %.2f ms (first round %.2f)\n", median(arrowCpu), arrowCpu.front());
    std::printf("CPU per pointer move, drawing freehand          median %.2f ms (first round %.2f)\n", median(penCpu), penCpu.front());
    std::printf("resident memory over idle before the capture   editor open %.1f MB (max %.1f), 5 s after closing %.1f MB (max %.1f)\n",
                median(added), *std::max_element(added.begin(), added.end()), median(kept),
                *std::max_element(kept.begin(), kept.end()));
    return 0;
}

void resetPeak(pid_t pid)
{
    QFile clearRefs(QStringLiteral("/proc/%1/clear_refs").arg(pid));
    if (!clearRefs.open(QIODevice::WriteOnly) || clearRefs.write("5") != 1)
        std::fprintf(stderr, "cannot reset the peak resident memory; the peak is since start\n");
}

// Selects 800 x 600 points at scale 2 over a document 1700 pixels wide and
// scrolls it by wheel, five notches (300 pixels) a quarter second, until
// the capture reaches its limit and is delivered.
int measureScrolling(VirtualDesktop &desktop, pid_t pixmora, const QString &home, const QString &history)
{
    const std::optional<ScrollDocument> document = ScrollDocument::startForBenchmark(desktop, home);
    if (!document) {
        std::fprintf(stderr, "the document did not show\n");
        return 1;
    }
    const QPoint viewport = document->viewport.topLeft();
    const auto xdotool = [&](const QString &line) {
        return desktop.run(QStringLiteral("xdotool"), line.split(QLatin1Char(' '))).ok();
    };
    QThread::sleep(2);
    const ProcessUsage idle = usageOf(pixmora);
    resetPeak(pixmora);

    FileArrivals delivered({history});
    KeyPresser scrolling(desktop.display(), {XK_Control_L, XK_Shift_L, XK_4});
    scrolling.press();
    QThread::msleep(800);
    const QPoint from = viewport + QPoint(20, 20), to = from + QPoint(1600, 1200);
    xdotool(QStringLiteral("mousemove %1 %2 mousedown 1").arg(from.x()).arg(from.y()));
    xdotool(QStringLiteral("mousemove %1 %2").arg(to.x() - 100).arg(to.y() - 100));
    xdotool(QStringLiteral("mousemove %1 %2 mouseup 1").arg(to.x()).arg(to.y()));
    QThread::msleep(600);
    xdotool(QStringLiteral("mousemove %1 %2").arg(from.x() + 800).arg(from.y() + 600));
    QElapsedTimer clock;
    clock.start();
    bool arrived = false;
    while (!arrived && clock.elapsed() < 120000) {
        xdotool(QStringLiteral("click --repeat 5 --delay 10 5"));
        arrived = delivered.waitFor(1, 250);
    }
    if (!arrived) {
        std::fprintf(stderr, "the scrolling capture did not reach its limit\n");
        return 1;
    }
    const double scrolledSeconds = clock.nsecsElapsed() / 1e9;
    QThread::sleep(1);
    const ProcessUsage afterDelivery = usageOf(pixmora);
    QThread::sleep(4);
    const ProcessUsage settled = usageOf(pixmora);
    QThread::sleep(5);
    const ProcessUsage later = usageOf(pixmora);  // the thumbnail has gone too

    const QStringList files = QDir(history).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Time);
    const QString newest = QDir(history).filePath(files.value(0));
    const QSize result = QImageReader(newest).size();
    const double resultMB = double(result.width()) * result.height() * 4 / (1024.0 * 1024.0);
    const double frameMB = 1600.0 * 1200 * 4 / (1024.0 * 1024.0);
    const double bound = 2.2 * resultMB + 2 * frameMB;
    const double peakAbove = afterDelivery.peakResidentMB - idle.residentMB;
    std::printf("delivered image                     %d x %d pixels (%.1f MB as pixels) after %.1f s of scrolling\n",
                result.width(), result.height(), resultMB, scrolledSeconds);
    std::printf("resident memory idle                %.1f MB\n", idle.residentMB);
    std::printf("peak during capture and delivery    %.1f MB, %.1f MB above idle; bound 2.2 x result + 2 frames = %.1f MB "
                "(%.2f of it)\n",
                afterDelivery.peakResidentMB, peakAbove, bound, peakAbove / bound);
    const auto growth = [&](const ProcessUsage &usage) {
        std::printf("%.1f MB, %+.1f MB against idle: private %+.1f, library pages %+.1f, shared memory %+.1f\n",
                    usage.residentMB, usage.residentMB - idle.residentMB, usage.anonymousMB - idle.anonymousMB,
                    usage.fileMB - idle.fileMB, usage.sharedMB - idle.sharedMB);
    };
    std::printf("5 s after delivery (bound +10 MB)   ");
    growth(settled);
    std::printf("10 s after delivery                 ");
    growth(later);
    std::printf("the PNG on the clipboard            %.1f MB\n", QFileInfo(newest).size() / (1024.0 * 1024.0));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    const bool overlay = arguments.removeAll(QStringLiteral("--overlay")) > 0;
    const bool editor = arguments.removeAll(QStringLiteral("--editor")) > 0;
    const bool scrolling = arguments.removeAll(QStringLiteral("--scrolling")) > 0;
    const bool idle = arguments.removeAll(QStringLiteral("--idle")) > 0;
    const QString binary = arguments.value(0, QCoreApplication::applicationDirPath() + QStringLiteral("/../pixmora"));
    const int iterations = std::max(3, arguments.value(1, QStringLiteral("15")).toInt());

    QTemporaryDir home;
    const QString shots = home.filePath(QStringLiteral("Shots"));
    const QString history = home.filePath(QStringLiteral(".local/share/Pixmora/History"));
    QDir().mkpath(shots);
    QDir().mkpath(history);
    QDir().mkpath(home.filePath(QStringLiteral(".config/Pixmora")));
    QFile settings(home.filePath(QStringLiteral(".config/Pixmora/Pixmora.conf")));
    if (!settings.open(QIODevice::WriteOnly) || settings.write("[General]\ndidAskLaunchAtLogin=true\n") < 0)
        return 1;
    settings.close();
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral(".config")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", home.filePath(QStringLiteral(".local/share")).toLocal8Bit());

    VirtualDesktop::Options options;
    options.size = QSize(3840, 2160);
    options.windowManager = true;
    options.trayHost = true;
    if (overlay || scrolling)
        options.leftAndRight = true;
    if (scrolling)
        qputenv("QT_SCREEN_SCALE_FACTORS", "LEFT=2;RIGHT=1");
    VirtualDesktop desktop(options);

    // A realistic desktop: gradient wallpaper, text windows.
    const QString wallpaper = home.filePath(QStringLiteral("wallpaper.png"));
    desktop.run(QStringLiteral("convert"), {QStringLiteral("-size"), QStringLiteral("3840x2160"),
                                            QStringLiteral("gradient:#1f4068-#e8a87c"), wallpaper}, 60000);
    desktop.run(QStringLiteral("display"), {QStringLiteral("-window"), QStringLiteral("root"), wallpaper}, 60000);
    const QStringList commands{QStringLiteral("ls -l /usr/bin"), QStringLiteral("ls -l /usr/lib/x86_64-linux-gnu"),
                               QStringLiteral("cat /etc/services"), QStringLiteral("ls -lR /usr/share/doc")};
    for (int index = 0; index < commands.size(); ++index) {
        desktop.start(QStringLiteral("xterm"),
                      {QStringLiteral("-fa"), QStringLiteral("DejaVu Sans Mono"), QStringLiteral("-fs"), QStringLiteral("11"),
                       QStringLiteral("-geometry"), QStringLiteral("110x45+%1+%2").arg(80 + index * 900).arg(120 + (index % 2) * 500),
                       QStringLiteral("-e"), commands[index] + QStringLiteral("; sleep 100000")});
    }

    if (!desktop.run(binary, {QStringLiteral("save-to"), shots}).ok()) {
        std::fprintf(stderr, "cannot set the save folder\n");
        return 1;
    }
    // The server makes XTest's keyboard the source of the core keyboard at its
    // first event and has every client reload its keymap: some 40 ms, once.
    // A user's own keyboard has been that source since the first key typed.
    KeyPresser(desktop.display(), {XK_Shift_L}).press();
    const pid_t pixmora = desktop.start(binary, {});
    const bool started = VirtualDesktop::waitUntil([&] {
        return desktop.run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--classname"), QStringLiteral("^pixmora$")}).ok();
    }, 15000);
    if (!started) {
        std::fprintf(stderr, "Pixmora did not start\n");
        return 1;
    }
    QThread::sleep(3);

    const ProcessUsage idleStart = usageOf(pixmora);
    QThread::sleep(5);
    const ProcessUsage idleEnd = usageOf(pixmora);

    if (editor)
        return measureEditor(desktop, pixmora, shots, history, std::max(3, arguments.value(1, QStringLiteral("5")).toInt()));
    if (scrolling)
        return measureScrolling(desktop, pixmora, home.path(), history);

    if (overlay) {
        // Two points on the gradient, one per monitor: they change when the dimmed overlay shows.
        const QPoint probes[] = {{60, 2100}, {3780, 2100}};
        KeyPresser shortcuts[] = {{desktop.display(), {XK_Control_L, XK_Shift_L, XK_1}},
                                  {desktop.display(), {XK_Control_L, XK_Shift_L, XK_4}}};
        KeyPresser escape(desktop.display(), {XK_Escape});
        PixelReader pixels(desktop.display());
        std::vector<double> shown[2];
        // Alternated, so that both meet the same machine; the first round is the first use after start.
        for (int round = 0; round < 2 * iterations; ++round) {
            const quint32 before[] = {pixels.at(probes[0]), pixels.at(probes[1])};
            QElapsedTimer clock;
            clock.start();
            shortcuts[round % 2].press();
            while (pixels.at(probes[0]) == before[0] || pixels.at(probes[1]) == before[1]) {
                if (clock.elapsed() > 5000) {
                    std::fprintf(stderr, "the overlay did not show in round %d\n", round);
                    return 1;
                }
            }
            shown[round % 2].push_back(clock.nsecsElapsed() / 1e6);
            escape.press();
            QThread::msleep(400);
        }
        std::printf("iterations                          %d each\n", iterations);
        const char *const names[] = {"Control-Shift-1", "Control-Shift-4"};
        for (int kind = 0; kind < 2; ++kind)
            std::printf("%s -> overlay on both 1920 x 2160 monitors  median %.1f ms (first %.1f, min %.1f, max %.1f)\n",
                        names[kind], median(shown[kind]), shown[kind].front(),
                        *std::min_element(shown[kind].begin(), shown[kind].end()),
                        *std::max_element(shown[kind].begin(), shown[kind].end()));
        return 0;
    }

    KeyPresser keys(desktop.display(), {XK_Control_L, XK_Shift_L, XK_3});
    FileArrivals arrivals({shots, history});
    std::vector<double> ours, scrot;
    const QString scrotFile = home.filePath(QStringLiteral("scrot.png"));
    // Back to back, the pauses only let the previous capture settle.
    const int pauseBeforeOursMs = idle ? 3000 : 0;
    const int pauseBeforeScrotMs = idle ? 3000 : 300;
    for (int round = 0; round < iterations; ++round) {
        QThread::msleep(pauseBeforeOursMs);
        arrivals.drain();
        QElapsedTimer clock;
        clock.start();
        keys.press();
        if (!arrivals.waitFor(2, 10000)) {
            std::fprintf(stderr, "Pixmora wrote no files\n");
            return 1;
        }
        ours.push_back(clock.nsecsElapsed() / 1e6);
        QThread::msleep(pauseBeforeScrotMs);

        QFile::remove(scrotFile);
        clock.restart();
        desktop.run(QStringLiteral("scrot"), {QStringLiteral("-o"), scrotFile}, 20000);
        scrot.push_back(clock.nsecsElapsed() / 1e6);
        QThread::msleep(100);
    }
    const ProcessUsage afterCapture = usageOf(pixmora);
    QThread::sleep(5);
    const ProcessUsage settled = usageOf(pixmora);

    const QStringList saved = QDir(shots).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Time);
    const qint64 ourBytes = QFileInfo(QDir(shots).filePath(saved.value(0))).size();
    const qint64 scrotBytes = QFileInfo(scrotFile).size();

    std::printf("iterations                          %d%s\n", iterations, idle ? ", each after 3 s idle" : "");
    std::printf("Pixmora key press -> files written  median %.1f ms (first after start %.1f, min %.1f, max %.1f)\n",
                median(ours), ours.front(), *std::min_element(ours.begin(), ours.end()),
                *std::max_element(ours.begin(), ours.end()));
    std::printf("scrot writing the same screen       median %.1f ms\n", median(scrot));
    std::printf("speed-up                            %.1fx\n", median(scrot) / median(ours));
    std::printf("PNG size                            Pixmora %lld bytes, scrot %lld bytes (%+.1f%%)\n",
                (long long)ourBytes, (long long)scrotBytes, 100.0 * double(ourBytes - scrotBytes) / double(scrotBytes));
    std::printf("idle CPU over 5 s                   %.2f s\n", idleEnd.cpuSeconds - idleStart.cpuSeconds);
    std::printf("resident memory                     after start %.1f MB, right after captures %.1f MB, 5 s later %.1f MB\n",
                idleStart.residentMB, afterCapture.residentMB, settled.residentMB);
    return 0;
}
