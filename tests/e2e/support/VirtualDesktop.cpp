#include "VirtualDesktop.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace pixmora::e2e {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int firstDisplay = 100;
constexpr int displayRange = 400;
constexpr int readyTimeoutMs = 10000;

std::runtime_error failure(const QString &message)
{
    return std::runtime_error(message.toStdString());
}

bool exited(pid_t pid)
{
    int status = 0;
    return waitpid(pid, &status, WNOHANG) == pid;
}

int exitCodeOf(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Reads what a non-blocking pipe holds; false once the writer closed it.
bool readAvailable(int fd, QByteArray &into)
{
    char buffer[65536];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n == 0)
            return false;
        if (n < 0)
            return true;
        into.append(buffer, n);
    }
}

} // namespace

std::vector<VirtualDesktop::Monitor> VirtualDesktop::leftAndRight(QSize size)
{
    const int half = size.width() / 2;
    return {{QStringLiteral("LEFT"), QRect(0, 0, half, size.height())},
            {QStringLiteral("RIGHT"), QRect(half, 0, size.width() - half, size.height())}};
}

VirtualDesktop::VirtualDesktop(const Options &options)
    : m_options(options)
{
    char folder[] = "/tmp/pixmora-desktop-XXXXXX";
    if (!mkdtemp(folder))
        throw failure(QStringLiteral("cannot create a log folder"));
    m_logFolder = QString::fromLocal8Bit(folder);
    try {
        if (!startServer())
            throw failure(QStringLiteral("no X server could be started; Xvfb said: ") + logTail(QStringLiteral("Xvfb.log")));
        if (m_options.sessionBus) {
            const QString socket = m_logFolder + QStringLiteral("/bus");
            startAndWaitFor(QStringLiteral("dbus-daemon"),
                            {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                             QStringLiteral("--address=unix:path=") + socket},
                            [&] { return QFile::exists(socket); });
            m_busAddress = QStringLiteral("unix:path=") + socket;
        }
        for (size_t i = 0; i < m_options.monitors.size(); ++i) {
            // 96 dots per inch, so that Qt derives no scale of its own from the physical size.
            const QRect rect = m_options.monitors[i].rect;
            const QString geometry = QStringLiteral("%1/%2x%3/%4+%5+%6")
                                         .arg(rect.width()).arg(rect.width() * 254 / 960)
                                         .arg(rect.height()).arg(rect.height() * 254 / 960)
                                         .arg(rect.x()).arg(rect.y());
            // Xvfb's one output is called "screen"; the first monitor takes it over.
            runOrThrow(QStringLiteral("xrandr"), {QStringLiteral("--setmonitor"), m_options.monitors[i].name, geometry,
                                                  i == 0 ? QStringLiteral("screen") : QStringLiteral("none")});
        }
        if (m_options.windowManager) {
            startAndWaitFor(QStringLiteral("openbox"), {}, [this] {
                return run(QStringLiteral("xprop"), {QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK")})
                    .output.contains("window id");
            });
        }
        if (m_options.trayHost) {
            startAndWaitFor(QStringLiteral("trayer"),
                            {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--align"), QStringLiteral("right"),
                             QStringLiteral("--widthtype"), QStringLiteral("request"), QStringLiteral("--height"),
                             QStringLiteral("24")},
                            [this] {
                                const Result found = run(QStringLiteral("xdotool"), {QStringLiteral("search"),
                                                                                     QStringLiteral("--classname"),
                                                                                     QStringLiteral("trayer")});
                                return found.ok() && !found.output.trimmed().isEmpty();
                            });
        }
    } catch (...) {
        shutdown();
        throw;
    }
}

VirtualDesktop::~VirtualDesktop()
{
    shutdown();
}

QString VirtualDesktop::logTail(const QString &logName) const
{
    QFile log(m_logFolder + QLatin1Char('/') + logName);
    return log.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(log.readAll().right(2000)) : QString();
}

void VirtualDesktop::shutdown()
{
    {
        std::lock_guard lock(m_ranMutex);
        for (pid_t group : m_ranGroups)
            kill(-group, SIGKILL);
        m_ranGroups.clear();
    }
    while (!m_started.empty()) {
        stopProcessGroup(m_started.back());
        m_started.pop_back();
    }
    if (m_server > 0)
        stopProcessGroup(m_server);
    m_server = -1;
    if (!m_logFolder.isEmpty())
        QDir(m_logFolder).removeRecursively();
    m_logFolder.clear();
}

bool VirtualDesktop::startServer()
{
    // A display is free when neither a lock file nor a socket claims it;
    // Xvfb's own lock file settles a race with a parallel test (the loser
    // exits and we move on). Starting at a pid-dependent number keeps
    // parallel tests from trying the same numbers first.
    const int offset = static_cast<int>(getpid() % displayRange);
    for (int i = 0; i < displayRange; ++i) {
        const int number = firstDisplay + (offset + i) % displayRange;
        if (QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(number))
            || QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(number)))
            continue;
        m_displayNumber = number;
        const QString screen = QStringLiteral("%1x%2x24").arg(m_options.size.width()).arg(m_options.size.height());
        const pid_t server = spawn(QStringLiteral("Xvfb"),
                                   {display(), QStringLiteral("-screen"), QStringLiteral("0"), screen,
                                    QStringLiteral("-nolisten"), QStringLiteral("tcp"),
                                    // Without it the server resets, and forgets its
                                    // monitors, whenever its last client leaves.
                                    QStringLiteral("-noreset")},
                                   QStringLiteral("Xvfb.log"), -1, -1);
        bool gone = false;
        const bool ready = waitUntil(
            [&] {
                gone = exited(server);
                return gone || run(QStringLiteral("xdpyinfo"), {}, 2000).ok();
            },
            readyTimeoutMs);
        if (ready && !gone) {
            m_server = server;
            return true;
        }
        if (!gone)
            stopProcessGroup(server);
    }
    return false;
}

QProcessEnvironment VirtualDesktop::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), display());
    environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("x11"));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    if (!m_busAddress.isEmpty())
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_busAddress);
    return environment;
}

pid_t VirtualDesktop::spawn(const QString &program, const QStringList &arguments, const QString &logName,
                            int outputFd, int errorFd) const
{
    const QString path = program.contains(QLatin1Char('/')) ? program : QStandardPaths::findExecutable(program);
    if (path.isEmpty())
        throw failure(QStringLiteral("program not found: ") + program);

    // Everything the child needs is prepared before fork(): after it, a
    // multithreaded parent's child may only make async-signal-safe calls.
    std::vector<QByteArray> argumentBytes{QFile::encodeName(path)};
    for (const QString &argument : arguments)
        argumentBytes.push_back(argument.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &argument : argumentBytes)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::vector<QByteArray> environmentBytes;
    for (const QString &entry : environment().toStringList())
        environmentBytes.push_back(entry.toLocal8Bit());
    std::vector<char *> envp;
    for (QByteArray &entry : environmentBytes)
        envp.push_back(entry.data());
    envp.push_back(nullptr);

    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int log = -1;
    if (outputFd < 0 || errorFd < 0) {
        const QByteArray logPath = QFile::encodeName(m_logFolder + QLatin1Char('/') + logName);
        log = open(logPath.constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (outputFd < 0)
            outputFd = log;
        if (errorFd < 0)
            errorFd = log;
    }
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        // SIGTERM lets Xvfb remove its lock file; X clients end with the server.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            _exit(127);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        dup2(input, STDIN_FILENO);
        dup2(outputFd, STDOUT_FILENO);
        dup2(errorFd, STDERR_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    if (input >= 0)
        close(input);
    if (log >= 0)
        close(log);
    if (pid < 0)
        throw failure(QStringLiteral("cannot start ") + program);
    setpgid(pid, pid);  // also here, so that the group exists before anyone signals it
    return pid;
}

VirtualDesktop::Result VirtualDesktop::run(const QString &program, const QStringList &arguments, int timeoutMs,
                                           const std::function<void()> &whileWaiting) const
{
    int outputPipe[2];
    int errorPipe[2];
    if (pipe2(outputPipe, O_CLOEXEC) != 0)
        throw failure(QStringLiteral("cannot create a pipe"));
    if (pipe2(errorPipe, O_CLOEXEC) != 0) {
        close(outputPipe[0]);
        close(outputPipe[1]);
        throw failure(QStringLiteral("cannot create a pipe"));
    }
    fcntl(outputPipe[0], F_SETFL, O_NONBLOCK);
    fcntl(errorPipe[0], F_SETFL, O_NONBLOCK);
    pid_t pid = -1;
    try {
        pid = spawn(program, arguments, {}, outputPipe[1], errorPipe[1]);
    } catch (...) {
        for (int fd : {outputPipe[0], outputPipe[1], errorPipe[0], errorPipe[1]})
            close(fd);
        throw;
    }
    close(outputPipe[1]);
    close(errorPipe[1]);

    Result result;
    bool outputOpen = true;
    bool errorOpen = true;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        // A closed pipe is left out (a negative descriptor), or poll() would spin.
        pollfd fds[] = {{outputOpen ? outputPipe[0] : -1, POLLIN, 0}, {errorOpen ? errorPipe[0] : -1, POLLIN, 0}};
        poll(fds, 2, whileWaiting ? 5 : 20);
        outputOpen = outputOpen && readAvailable(outputPipe[0], result.output);
        errorOpen = errorOpen && readAvailable(errorPipe[0], result.errors);
        int status = 0;
        // The program's own exit ends the wait, not the end of its output:
        // a child it leaves running may keep the pipe open.
        if (waitpid(pid, &status, WNOHANG) == pid) {
            readAvailable(outputPipe[0], result.output);
            readAvailable(errorPipe[0], result.errors);
            result.exitCode = exitCodeOf(status);
            break;
        }
        if (Clock::now() > deadline) {
            kill(-pid, SIGKILL);
            waitpid(pid, &status, 0);
            result.timedOut = true;
            break;
        }
        if (whileWaiting)
            whileWaiting();
    }
    close(outputPipe[0]);
    close(errorPipe[0]);
    if (kill(-pid, 0) == 0) {
        std::lock_guard lock(m_ranMutex);
        m_ranGroups.push_back(pid);
    }
    return result;
}

void VirtualDesktop::startAndWaitFor(const QString &program, const QStringList &arguments,
                                     const std::function<bool()> &ready)
{
    const QString log = program + QStringLiteral(".log");
    m_started.push_back(spawn(program, arguments, log, -1, -1));
    if (!waitUntil(ready, readyTimeoutMs))
        throw failure(program + QStringLiteral(" did not start: ") + logTail(log));
}

void VirtualDesktop::runOrThrow(const QString &program, const QStringList &arguments) const
{
    const Result result = run(program, arguments);
    if (!result.ok())
        throw failure(program + QLatin1Char(' ') + arguments.join(QLatin1Char(' ')) + QStringLiteral(" failed: ")
                      + QString::fromLocal8Bit(result.errors));
}

pid_t VirtualDesktop::start(const QString &program, const QStringList &arguments)
{
    const pid_t pid = spawn(program, arguments, QFileInfo(program).fileName() + QStringLiteral(".log"), -1, -1);
    m_started.push_back(pid);
    return pid;
}

void VirtualDesktop::stop(pid_t pid)
{
    const auto it = std::find(m_started.begin(), m_started.end(), pid);
    if (it == m_started.end())
        return;
    m_started.erase(it);
    stopProcessGroup(pid);
}

void VirtualDesktop::stopProcessGroup(pid_t pid) const
{
    kill(-pid, SIGTERM);
    if (!waitUntil([pid] { return exited(pid); }, 2000)) {
        kill(-pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    kill(-pid, SIGKILL);  // whatever else is left in its group
}

bool VirtualDesktop::waitUntil(const std::function<bool()> &condition, int timeoutMs,
                               const std::function<void()> &whileWaiting)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (condition())
            return true;
        if (Clock::now() > deadline)
            return false;
        if (whileWaiting)
            whileWaiting();
        std::this_thread::sleep_for(std::chrono::milliseconds(whileWaiting ? 5 : 20));
    }
}

quint64 VirtualDesktop::waitForWindow(const QString &namePattern, int timeoutMs,
                                      const std::function<void()> &whileWaiting) const
{
    quint64 window = 0;
    waitUntil(
        [&] {
            const Result found = run(QStringLiteral("xdotool"),
                                     {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                      QStringLiteral("--name"), namePattern},
                                     2000, whileWaiting);
            window = found.ok() ? found.output.split('\n').first().trimmed().toULongLong() : 0;
            return window != 0;
        },
        timeoutMs, whileWaiting);
    return window;
}

} // namespace pixmora::e2e
