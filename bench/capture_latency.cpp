// Key press to last file written, for the real binary on a 3840 x 2160 Xvfb
// desktop with a gradient wallpaper and text windows, side by side with scrot
// writing the same screen; plus the PNG sizes and the tray process's idle
// CPU and resident memory. With --overlay, the same desktop split into two
// 1920 x 2160 monitors and the time from Control-Shift-1 until the frozen,
// dimmed overlay shows on both. Prints medians; needs Xvfb, openbox, trayer,
// xterm, ImageMagick and scrot (scripts/install-deps.sh).
//
//   capture_latency [--overlay] [path/to/pixmora] [iterations]
#include "VirtualDesktop.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
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
#include <cstring>
#include <cstdio>
#include <vector>

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
        }
    }
    return usage;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    const bool overlay = arguments.removeAll(QStringLiteral("--overlay")) > 0;
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
    if (overlay)
        options.monitors = VirtualDesktop::leftAndRight(options.size);
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

    if (overlay) {
        // Two points on the gradient, one per monitor: they change when the dimmed overlay shows.
        const QPoint probes[] = {{60, 2100}, {3780, 2100}};
        KeyPresser area(desktop.display(), {XK_Control_L, XK_Shift_L, XK_1});
        KeyPresser escape(desktop.display(), {XK_Escape});
        PixelReader pixels(desktop.display());
        std::vector<double> shown;
        for (int round = 0; round < iterations; ++round) {
            const quint32 before[] = {pixels.at(probes[0]), pixels.at(probes[1])};
            QElapsedTimer clock;
            clock.start();
            area.press();
            while (pixels.at(probes[0]) == before[0] || pixels.at(probes[1]) == before[1]) {
                if (clock.elapsed() > 5000) {
                    std::fprintf(stderr, "the overlay did not show in round %d\n", round);
                    return 1;
                }
            }
            shown.push_back(clock.nsecsElapsed() / 1e6);
            escape.press();
            QThread::msleep(400);
        }
        std::printf("iterations                          %d\n", iterations);
        std::printf("Control-Shift-1 -> overlay on both 1920 x 2160 monitors  median %.1f ms (min %.1f, max %.1f)\n",
                    median(shown), *std::min_element(shown.begin(), shown.end()), *std::max_element(shown.begin(), shown.end()));
        return 0;
    }

    KeyPresser keys(desktop.display(), {XK_Control_L, XK_Shift_L, XK_3});
    FileArrivals arrivals({shots, history});
    std::vector<double> ours, scrot;
    const QString scrotFile = home.filePath(QStringLiteral("scrot.png"));
    for (int round = 0; round < iterations; ++round) {
        arrivals.drain();
        QElapsedTimer clock;
        clock.start();
        keys.press();
        if (!arrivals.waitFor(2, 10000)) {
            std::fprintf(stderr, "Pixmora wrote no files\n");
            return 1;
        }
        ours.push_back(clock.nsecsElapsed() / 1e6);
        QThread::msleep(300);

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

    std::printf("iterations                          %d\n", iterations);
    std::printf("Pixmora key press -> files written  median %.1f ms (min %.1f, max %.1f)\n", median(ours),
                *std::min_element(ours.begin(), ours.end()), *std::max_element(ours.begin(), ours.end()));
    std::printf("scrot writing the same screen       median %.1f ms\n", median(scrot));
    std::printf("speed-up                            %.1fx\n", median(scrot) / median(ours));
    std::printf("PNG size                            Pixmora %lld bytes, scrot %lld bytes (%+.1f%%)\n",
                (long long)ourBytes, (long long)scrotBytes, 100.0 * double(ourBytes - scrotBytes) / double(scrotBytes));
    std::printf("idle CPU over 5 s                   %.2f s\n", idleEnd.cpuSeconds - idleStart.cpuSeconds);
    std::printf("resident memory                     after start %.1f MB, right after captures %.1f MB, 5 s later %.1f MB\n",
                idleStart.residentMB, afterCapture.residentMB, settled.residentMB);
    return 0;
}
