#include "VirtualDesktop.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace pixmora::e2e {

namespace {

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

[[noreturn]] void fail(const QString &message)
{
    throw std::runtime_error(message.toStdString());
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void stopGroup(pid_t pid)
{
    kill(-pid, SIGTERM);  // lets Xvfb remove its lock file
    if (!VirtualDesktop::waitUntil([pid] { return waitpid(pid, nullptr, WNOHANG) == pid; }, 2000)) {
        kill(-pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    kill(-pid, SIGKILL);  // whatever else is left in its group
}

} // namespace

VirtualDesktop::VirtualDesktop(const Options &options)
{
    char folder[] = "/tmp/pixmora-desktop-XXXXXX";
    if (!mkdtemp(folder))
        fail(QStringLiteral("cannot create a log folder"));
    m_logFolder = QString::fromLocal8Bit(folder);
    try {
        // Xvfb picks a free display number and tells it once it accepts clients.
        // Without -noreset it forgets its monitors whenever its last client leaves.
        const QStringList xvfb = words("-displayfd 1 -nolisten tcp -noreset -screen 0")
                                 << QStringLiteral("%1x%2x24").arg(options.size.width()).arg(options.size.height());
        m_display = QLatin1Char(':') + startAndReadLine(QStringLiteral("Xvfb"), xvfb);
        qputenv("DISPLAY", m_display.toLocal8Bit());
        qputenv("XDG_SESSION_TYPE", "x11");
        qputenv("QT_QPA_PLATFORM", "xcb");
        qunsetenv("WAYLAND_DISPLAY");
        if (options.sessionBus) {
            const QStringList bus = words("--session --nofork --nopidfile --print-address")
                                    << QStringLiteral("--address=unix:tmpdir=") + m_logFolder;
            qputenv("DBUS_SESSION_BUS_ADDRESS", startAndReadLine(QStringLiteral("dbus-daemon"), bus).toLocal8Bit());
        }
        if (options.leftAndRight) {
            const int half = options.size.width() / 2, height = options.size.height();
            for (const QRect r : {QRect(0, 0, half, height), QRect(half, 0, options.size.width() - half, height)}) {
                // 96 dots per inch, so that Qt derives no scale of its own from the physical size.
                const QString geometry = QStringLiteral("%1/%2x%3/%4+%5+%6").arg(r.width()).arg(r.width() * 254 / 960)
                                             .arg(r.height()).arg(r.height() * 254 / 960).arg(r.x()).arg(r.y());
                // Xvfb's one output is called "screen"; LEFT takes it over.
                const QStringList monitor = r.x() == 0 ? words("LEFT screen") : words("RIGHT none");
                const Result added = run(QStringLiteral("xrandr"), words("--setmonitor") << monitor[0] << geometry << monitor[1]);
                if (!added.ok())
                    fail(QStringLiteral("xrandr --setmonitor failed: ") + QString::fromLocal8Bit(added.errors));
            }
        }
        if (options.windowManager) {
            startAndWaitFor(QStringLiteral("openbox"), {}, [this] {
                return run(QStringLiteral("xprop"), words("-root _NET_SUPPORTING_WM_CHECK")).output.contains("window id");
            });
        }
        if (options.trayHost) {
            startAndWaitFor(QStringLiteral("trayer"), words("--edge top --align right --widthtype request --height 24"),
                            [this] { return run(QStringLiteral("xdotool"), words("search --classname trayer")).ok(); });
        }
    } catch (...) {
        shutdown();
        throw;
    }
}

VirtualDesktop::~VirtualDesktop() { shutdown(); }

void VirtualDesktop::shutdown()
{
    for (pid_t group : m_ranGroups)
        kill(-group, SIGKILL);
    for (; !m_started.empty(); m_started.pop_back())
        stopGroup(m_started.back());
    QDir(m_logFolder).removeRecursively();
}

QString VirtualDesktop::logOf(const QString &program, const char *suffix) const
{
    return m_logFolder + QLatin1Char('/') + QFileInfo(program).fileName() + QLatin1String(suffix);
}

pid_t VirtualDesktop::spawn(const QString &program, const QStringList &arguments, const QString &outputPath,
                            const QString &errorPath) const
{
    const QString path = program.contains(QLatin1Char('/')) ? program : QStandardPaths::findExecutable(program);
    if (path.isEmpty())
        fail(QStringLiteral("program not found: ") + program);

    // Everything the child needs is prepared before fork(): after it, a
    // multithreaded parent's child may only make async-signal-safe calls.
    std::vector<QByteArray> bytes{QFile::encodeName(path)};
    for (const QString &argument : arguments)
        bytes.push_back(argument.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &argument : bytes)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int output = open(QFile::encodeName(outputPath).constData(), flags, 0644);
    const int errors = open(QFile::encodeName(errorPath).constData(), flags, 0644);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            _exit(127);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        dup2(input, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
        execve(argv[0], argv.data(), environ);
        _exit(127);
    }
    for (int fd : {input, output, errors})
        close(fd);
    if (pid < 0)
        fail(QStringLiteral("cannot start ") + program);
    setpgid(pid, pid);  // also here, so that the group exists before anyone signals it
    return pid;
}

pid_t VirtualDesktop::start(const QString &program, const QStringList &arguments)
{
    m_started.push_back(spawn(program, arguments, logOf(program, ".out"), logOf(program, ".log")));
    return m_started.back();
}

void VirtualDesktop::startAndWaitFor(const QString &program, const QStringList &arguments,
                                     const std::function<bool()> &ready)
{
    start(program, arguments);
    if (!waitUntil(ready, 10000))
        fail(program + QStringLiteral(" did not start: ")
             + QString::fromLocal8Bit(contents(logOf(program, ".log")).right(2000)));
}

QString VirtualDesktop::startAndReadLine(const QString &program, const QStringList &arguments)
{
    const QString output = logOf(program, ".out");
    startAndWaitFor(program, arguments, [&] { return contents(output).contains('\n'); });
    const QByteArray line = contents(output);
    return QString::fromLocal8Bit(line.left(line.indexOf('\n')));
}

void VirtualDesktop::stop(pid_t pid)
{
    const auto it = std::ranges::find(m_started, pid);
    if (it != m_started.end()) {
        m_started.erase(it);
        stopGroup(pid);
    }
}

VirtualDesktop::Result VirtualDesktop::run(const QString &program, const QStringList &arguments, int timeoutMs) const
{
    // Files, not pipes: what the program leaves running may keep a pipe open.
    const QString outputPath = QStringLiteral("%1/run%2.out").arg(m_logFolder).arg(++m_runs);
    const QString errorPath = outputPath.chopped(3) + QStringLiteral("err");
    const pid_t pid = spawn(program, arguments, outputPath, errorPath);
    Result result;
    int status = 0;
    if (waitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, timeoutMs)) {
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    } else {
        stopGroup(pid);
        result.timedOut = true;
    }
    if (kill(-pid, 0) == 0)
        m_ranGroups.push_back(pid);
    result.output = contents(outputPath);
    result.errors = contents(errorPath);
    return result;
}

bool VirtualDesktop::waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

quint64 VirtualDesktop::waitForWindow(const QString &namePattern, int timeoutMs) const
{
    quint64 window = 0;
    waitUntil([&] {
        const QByteArray found = run(QStringLiteral("xdotool"), words("search --onlyvisible --name") << namePattern, 2000).output;
        window = found.split('\n').first().trimmed().toULongLong();
        return window != 0;
    }, timeoutMs);
    return window;
}

QRect VirtualDesktop::windowRect(quint64 window) const
{
    const Result info = run(QStringLiteral("xwininfo"), {QStringLiteral("-id"), QString::number(window)});
    const auto field = [&](const char *label) {
        const qsizetype at = info.output.indexOf(label);
        return at < 0 ? -1 : info.output.mid(at + qsizetype(std::strlen(label))).trimmed().split('\n').first().toInt();
    };
    if (!info.ok() || !info.output.contains("IsViewable"))
        return {};
    return QRect(field("Absolute upper-left X:"), field("Absolute upper-left Y:"), field("Width:"), field("Height:"));
}

} // namespace pixmora::e2e
