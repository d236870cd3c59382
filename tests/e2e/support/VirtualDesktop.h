#pragma once

#include <QProcessEnvironment>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <functional>
#include <mutex>
#include <vector>

namespace pixmora::e2e {

// A private X desktop for end-to-end tests: Xvfb on a free display number,
// optionally split into monitors, with a window manager (openbox), a system
// tray host (trayer) and a D-Bus session bus. Everything it starts runs in
// its own process group and is killed by the destructor; direct children
// also die with this process if it crashes.
class VirtualDesktop {
public:
    struct Monitor {
        QString name;
        QRect rect;  // device pixels on the root window
    };

    struct Options {
        QSize size{3840, 2160};
        std::vector<Monitor> monitors;  // empty: one monitor covering the screen
        bool windowManager = false;
        bool trayHost = false;
        bool sessionBus = false;
    };

    // The screen split into a left and a right half named LEFT and RIGHT.
    static std::vector<Monitor> leftAndRight(QSize size);

    // Throws std::runtime_error when the desktop cannot be started.
    explicit VirtualDesktop(const Options &options);
    ~VirtualDesktop();
    VirtualDesktop(const VirtualDesktop &) = delete;
    VirtualDesktop &operator=(const VirtualDesktop &) = delete;

    QString display() const { return QStringLiteral(":%1").arg(m_displayNumber); }
    QSize size() const { return m_options.size; }
    // This process's environment pointed at this desktop (DISPLAY, the bus,
    // QT_QPA_PLATFORM=xcb), for the programs a test starts.
    QProcessEnvironment environment() const;

    struct Result {
        int exitCode = -1;  // -1 when it did not exit normally
        bool timedOut = false;
        QByteArray output;
        QByteArray errors;
        bool ok() const { return exitCode == 0 && !timedOut; }
    };
    // Runs a program on this desktop and waits for it to exit. whileWaiting
    // is called every few milliseconds (process Qt events there when the
    // program talks to this process, e.g. reading our clipboard). What the
    // program leaves running (xclip serving a selection) ends with the desktop.
    Result run(const QString &program, const QStringList &arguments, int timeoutMs = 10000,
               const std::function<void()> &whileWaiting = {}) const;

    // Starts a program that keeps running; it is stopped by stop() or with the desktop.
    pid_t start(const QString &program, const QStringList &arguments);
    void stop(pid_t pid);

    // Polls until the condition holds; whileWaiting as for run().
    static bool waitUntil(const std::function<bool()> &condition, int timeoutMs,
                          const std::function<void()> &whileWaiting = {});
    // The first visible window whose name matches the regular expression, 0 on timeout.
    quint64 waitForWindow(const QString &namePattern, int timeoutMs = 10000,
                          const std::function<void()> &whileWaiting = {}) const;

private:
    pid_t spawn(const QString &program, const QStringList &arguments, const QString &logName,
                int outputFd, int errorFd) const;
    bool startServer();
    void startAndWaitFor(const QString &program, const QStringList &arguments, const std::function<bool()> &ready);
    void runOrThrow(const QString &program, const QStringList &arguments) const;
    void stopProcessGroup(pid_t pid) const;
    void shutdown();
    QString logTail(const QString &logName) const;

    Options m_options;
    int m_displayNumber = -1;
    QString m_logFolder;
    QString m_busAddress;
    pid_t m_server = -1;
    std::vector<pid_t> m_started;               // stopped in reverse order, the server last
    mutable std::mutex m_ranMutex;
    mutable std::vector<pid_t> m_ranGroups;     // groups that run() left members in
};

} // namespace pixmora::e2e
