#pragma once

#include <QRect>
#include <QStringList>

#include <sys/types.h>

#include <functional>
#include <vector>

namespace pixmora::e2e {

// A private X desktop for end-to-end tests: Xvfb, optionally split into two
// monitors, with a window manager (openbox), a tray host (trayer) and a D-Bus
// session bus. It points this process's environment (DISPLAY, the bus, Qt's
// xcb platform) at itself for what it starts and a QGuiApplication made later.
// What it starts runs in process groups that the destructor kills; direct
// children also die with this process if it crashes.
class VirtualDesktop {
public:
    struct Options {
        QSize size{3840, 2160};
        bool leftAndRight = false;  // monitors LEFT and RIGHT, each half the screen
        bool windowManager = false;
        bool trayHost = false;
        bool sessionBus = false;
    };

    // Throws std::runtime_error when the desktop cannot be started.
    explicit VirtualDesktop(const Options &options);
    ~VirtualDesktop();
    VirtualDesktop(const VirtualDesktop &) = delete;
    VirtualDesktop &operator=(const VirtualDesktop &) = delete;

    QString display() const { return m_display; }
    struct Result {
        int exitCode = -1;  // -1 when it did not exit normally
        bool timedOut = false;
        QByteArray output;
        QByteArray errors;
        bool ok() const { return exitCode == 0 && !timedOut; }
    };
    // Runs a program and waits for it to exit. What it leaves running ends with the desktop.
    Result run(const QString &program, const QStringList &arguments, int timeoutMs = 10000) const;

    // Starts a program that keeps running until stop() or the desktop's end.
    pid_t start(const QString &program, const QStringList &arguments);
    void stop(pid_t pid);
    static bool waitUntil(const std::function<bool()> &condition, int timeoutMs);
    // The first visible window whose name matches the regular expression, 0 on timeout.
    quint64 waitForWindow(const QString &namePattern, int timeoutMs = 10000) const;
    // A window's true position and size in root-window pixels (xdotool's is
    // off by the frame); empty when it is not on screen.
    QRect windowRect(quint64 window) const;

private:
    pid_t spawn(const QString &program, const QStringList &arguments, const QString &outputPath,
                const QString &errorPath) const;
    QString startAndReadLine(const QString &program, const QStringList &arguments);
    void startAndWaitFor(const QString &program, const QStringList &arguments, const std::function<bool()> &ready);
    QString logOf(const QString &program, const char *suffix) const;
    void shutdown();

    QString m_display;
    QString m_logFolder;
    std::vector<pid_t> m_started;            // stopped in reverse order, so the server goes last
    mutable std::vector<pid_t> m_ranGroups;  // groups that run() left members in
    mutable int m_runs = 0;
};

} // namespace pixmora::e2e
