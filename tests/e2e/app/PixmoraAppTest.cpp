#include "VirtualDesktop.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace pixmora::e2e;

namespace {

QStringList args(const QString &words)
{
    return words.split(QLatin1Char(' '));
}

QStringList pngFiles(const QString &folder, QDir::SortFlag order = QDir::Name)
{
    return QDir(folder).entryList({QStringLiteral("*.png")}, QDir::Files, order);
}

QImage newestImage(const QString &folder)
{
    return QImage(QDir(folder).filePath(pngFiles(folder, QDir::Time).value(0)));
}

bool waitForFiles(const QString &folder, qsizetype count)
{
    return VirtualDesktop::waitUntil([&] { return pngFiles(folder).size() >= count; }, 10000);
}

// Pixels only: QImage's own comparison also weighs colour-space tags, which scrot writes and Pixmora does not.
bool samePixels(const QImage &a, const QImage &b)
{
    const QImage x = a.convertToFormat(QImage::Format_RGB888);
    const QImage y = b.convertToFormat(QImage::Format_RGB888);
    for (int row = 0; x.size() == y.size() && row < x.height(); ++row) {
        if (std::memcmp(x.constScanLine(row), y.constScanLine(row), size_t(x.width()) * 3) != 0)
            return false;
    }
    return !x.isNull() && x.size() == y.size();
}

int dotsPerInch(const QImage &image) { return qRound(image.dotsPerMeterX() * 0.0254); }

bool privateTo(const QString &path, QFile::Permissions owner)
{
    const QFile::Permissions all = QFileInfo(path).permissions()
                                   & ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);
    return all == owner;
}

// Another user (nobody) listening at `path`, as a squatter in a shared folder would.
pid_t listenAsNobody(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    const pid_t pid = fork();
    if (pid == 0) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name.constData(), size_t(name.size()) + 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (setgid(65534) != 0 || setuid(65534) != 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0
            || listen(fd, 50) != 0)
            _exit(1);
        pause();
        _exit(0);
    }
    return pid;
}

// The real binary on a private desktop with a window manager and a tray host,
// monitors LEFT at scale 2 and RIGHT at scale 1, in a home folder of its own.
class PixmoraAppTest : public ::testing::Test {
protected:
    PixmoraAppTest()
    {
        qputenv("HOME", home.path().toLocal8Bit());
        qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral(".config")).toLocal8Bit());
        qputenv("XDG_DATA_HOME", home.filePath(QStringLiteral(".local/share")).toLocal8Bit());
        qputenv("QT_SCREEN_SCALE_FACTORS", "LEFT=2;RIGHT=1");
        QDir().mkpath(home.filePath(QStringLiteral(".config/Pixmora")));
        // Answered already, so that the question does not sit over the screen.
        addSetting("[General]\ndidAskLaunchAtLogin=true");
    }

    void addSetting(const QByteArray &line)
    {
        QFile settings(home.filePath(QStringLiteral(".config/Pixmora/Pixmora.conf")));
        ASSERT_TRUE(settings.open(QIODevice::Append) && settings.write(line + '\n') > 0);
    }
    VirtualDesktop::Result pixmora(const QStringList &arguments)
    {
        return desktop.run(qEnvironmentVariable("PIXMORA_BINARY"), arguments, 15000);
    }
    QByteArray saveFolder() { return pixmora({QStringLiteral("save-to")}).output.trimmed(); }
    VirtualDesktop::Result xdotool(const QString &line) { return desktop.run(QStringLiteral("xdotool"), args(line)); }
    QByteArray clipboard(const QString &type)
    {
        return desktop.run(QStringLiteral("xclip"), args(QStringLiteral("-selection clipboard -o -t ") + type)).output;
    }
    // What the X server shows, in device pixels.
    QImage screen(const QRect &area)
    {
        const QString path = home.filePath(QStringLiteral("screen.png"));
        const QString rect = QStringLiteral("%1,%2,%3,%4").arg(area.x()).arg(area.y()).arg(area.width()).arg(area.height());
        desktop.run(QStringLiteral("scrot"), {QStringLiteral("-o"), QStringLiteral("-a"), rect, path}, 20000);
        return QImage(path);
    }
    // Presses a shortcut and gives the overlay time to come up.
    void command(const QString &keys)
    {
        ASSERT_TRUE(xdotool(QStringLiteral("key ") + keys).ok());
        QThread::msleep(700);
    }
    // xdotool speaks the root window's device pixels.
    void mouse(QPoint point, const QString &then = {})
    {
        xdotool(QStringLiteral("mousemove %1 %2 %3").arg(point.x()).arg(point.y()).arg(then).trimmed());
    }
    // beforeRelease runs with the button still down.
    void drag(QPoint from, QPoint to, const std::function<void()> &beforeRelease = {})
    {
        mouse(from, QStringLiteral("mousedown 1"));
        mouse((from + to) / 2);
        mouse(to);
        if (beforeRelease)
            beforeRelease();
        xdotool(QStringLiteral("mouseup 1"));
    }

    // A tray that a command started outlives the command: it goes with its test.
    ~PixmoraAppTest() override
    {
        const QList<QByteArray> trays = xdotool(QStringLiteral("search --classname ^pixmora$ getwindowpid %@")).output.split('\n');
        for (const QByteArray &tray : trays) {
            if (const pid_t pid = pid_t(tray.toInt()); pid > 0 && kill(pid, SIGTERM) == 0)
                VirtualDesktop::waitUntil([pid] { return kill(pid, 0) != 0; }, 5000);
        }
    }

    // Every test of the program shares one desktop: starting one takes seconds.
    static VirtualDesktop &sharedDesktop()
    {
        static VirtualDesktop shared{[] {
            VirtualDesktop::Options options;
            options.monitors = VirtualDesktop::leftAndRight(options.size);
            options.windowManager = options.trayHost = options.sessionBus = true;  // a bus of its own: none is autolaunched
            return options;
        }()};
        return shared;
    }

    QTemporaryDir home;
    VirtualDesktop &desktop = sharedDesktop();
    const QString history = home.filePath(QStringLiteral(".local/share/Pixmora/History"));
    const QString folder = home.filePath(QStringLiteral("Shots"));
};

TEST_F(PixmoraAppTest, CapturesThroughShortcutsAndCommandLineDeliverWhatTheScreenShowed)
{
    const VirtualDesktop::Result version = pixmora({QStringLiteral("--version")});
    EXPECT_TRUE(version.ok());
    EXPECT_TRUE(version.output.startsWith("Pixmora "));
    const VirtualDesktop::Result bad = pixmora(args(QStringLiteral("capture everything")));
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_FALSE(bad.errors.isEmpty());
    EXPECT_EQ(pixmora({QStringLiteral("save-to"), home.filePath(QStringLiteral("missing"))}).exitCode, 1);
    EXPECT_EQ(saveFolder(), QByteArray("not set"));
    QDir().mkpath(folder);
    ASSERT_TRUE(pixmora({QStringLiteral("save-to"), folder}).ok());
    EXPECT_EQ(saveFolder(), folder.toUtf8());

    desktop.start(QStringLiteral("xterm"), args(QStringLiteral("-hold -geometry 80x24+150+150 -e ls -l /usr/bin")));
    desktop.start(QStringLiteral("xterm"), args(QStringLiteral("-T pick-me -hold -geometry 80x24+2000+300 -e ls -l /etc")));
    ASSERT_NE(desktop.waitForWindow(QStringLiteral("^pick-me$")), 0u);
    const pid_t app = desktop.start(qEnvironmentVariable("PIXMORA_BINARY"), {});
    // The tray icon is created just before the shortcuts are grabbed.
    ASSERT_TRUE(VirtualDesktop::waitUntil(
        [&] { return xdotool(QStringLiteral("search --classname ^pixmora$")).ok(); }, 15000));
    QThread::msleep(800);
    const QImage before = screen(QRect(0, 0, 3840, 2160));

    // Every display: LEFT (960 x 1080 points at scale 2) and RIGHT (1920 x
    // 2160 points at scale 1) are both 1920 x 2160 pixels, as the screen showed them.
    command(QStringLiteral("ctrl+shift+3"));
    ASSERT_TRUE(waitForFiles(folder, 2));
    ASSERT_TRUE(waitForFiles(history, 2));
    const QStringList files = pngFiles(folder);
    const QStringList named = files.filter(
        QRegularExpression(QStringLiteral(R"(^Screenshot \d{4}-\d\d-\d\d at \d\d\.\d\d\.\d\d\.\d{3}\.png$)")));
    ASSERT_EQ(named.size(), 1) << files.join(u',').toStdString();
    const QImage left(QDir(folder).filePath(named[0]));
    const QImage right(QDir(folder).filePath(named[0].chopped(4) + QStringLiteral(" (2).png")));
    EXPECT_EQ(dotsPerInch(left), 144);
    EXPECT_EQ(dotsPerInch(right), 72);
    EXPECT_TRUE(samePixels(left, before.copy(0, 0, 1920, 2160)));
    EXPECT_TRUE(samePixels(right, before.copy(1920, 0, 1920, 2160)));
    // With a save folder, too, only the first image goes to the clipboard, as PNG only.
    const QList<QByteArray> targets = clipboard(QStringLiteral("TARGETS")).split('\n');
    EXPECT_TRUE(targets.contains("image/png"));
    EXPECT_FALSE(targets.contains("UTF8_STRING"));
    for (const QByteArray &target : targets)
        EXPECT_TRUE(target == "image/png" || !target.startsWith("image/")) << target.constData();
    EXPECT_TRUE(samePixels(QImage::fromData(clipboard(QStringLiteral("image/png"))), left));
    const QStringList kept = pngFiles(history);
    const QRegularExpression historyName(QStringLiteral(R"(^\d{4}-\d\d-\d\d \d\d-\d\d-\d\d-\d{3}\.png$)"));
    EXPECT_EQ(kept.filter(historyName).size(), 2) << kept.join(u',').toStdString();
    EXPECT_NE(desktop.waitForWindow(QStringLiteral("^Pixmora Preview$"), 5000), 0u);
    EXPECT_TRUE(pixmora({}).ok()) << "a second start only exits";

    // An area on LEFT, dragged up and left: pixels (200, 200)-(600, 500) are
    // points (100, 100)-(300, 250). Meanwhile the screen shows the frozen
    // desktop dimmed as QPainter dims it, the selection clear.
    command(QStringLiteral("ctrl+shift+1"));
    drag({600, 500}, {200, 200}, [&] {
        QThread::msleep(300);
        QImage dimmed = before.copy(700, 100, 2400, 900);
        QPainter(&dimmed).fillRect(dimmed.rect(), QColor::fromRgbF(0, 0, 0, 0.25));
        EXPECT_TRUE(samePixels(screen(QRect(700, 100, 2400, 900)), dimmed));
        EXPECT_TRUE(samePixels(screen(QRect(210, 210, 380, 280)), before.copy(210, 210, 380, 280)));
    });
    ASSERT_TRUE(waitForFiles(folder, 3));
    EXPECT_EQ(dotsPerInch(newestImage(folder)), 144);
    EXPECT_TRUE(samePixels(newestImage(folder), before.copy(200, 200, 400, 300)));
    command(QStringLiteral("ctrl+shift+1"));
    drag({2000, 300}, {2300, 500});
    ASSERT_TRUE(waitForFiles(folder, 4));
    EXPECT_EQ(dotsPerInch(newestImage(folder)), 72);
    EXPECT_TRUE(samePixels(newestImage(folder), before.copy(2000, 300, 300, 200)));
    // Escape and a click without a drag cancel.
    command(QStringLiteral("ctrl+shift+1"));
    command(QStringLiteral("Escape"));
    command(QStringLiteral("ctrl+shift+1"));
    mouse({1000, 1000}, QStringLiteral("click 1"));
    QThread::msleep(500);
    EXPECT_EQ(pngFiles(folder).size(), 4);

    // A picked window with its shadow, 40 points on every side at scale 1, then without.
    command(QStringLiteral("ctrl+shift+2"));
    mouse({2300, 500}, QStringLiteral("click 1"));
    ASSERT_TRUE(waitForFiles(folder, 5));
    const QImage shadowed = newestImage(folder);
    addSetting("windowShadow=false");
    const QImage shown = screen(QRect(2000, 300, 800, 600));
    command(QStringLiteral("ctrl+shift+2"));
    mouse({2300, 500}, QStringLiteral("click 1"));
    ASSERT_TRUE(waitForFiles(folder, 6));
    const QImage plain = newestImage(folder);
    EXPECT_EQ(shadowed.size(), plain.size() + QSize(80, 80));
    EXPECT_TRUE(samePixels(shadowed.copy(40, 40, plain.width(), plain.height()), plain));
    EXPECT_EQ(qAlpha(shadowed.pixel(0, 0)), 0) << "the margin's corner lies outside the shadow";
    // The window with its frame, exactly as the screen showed it: openbox puts the frame where xterm asked.
    EXPECT_TRUE(samePixels(plain, shown.copy(0, 0, plain.width(), plain.height())));
    // A click where no window is cancels; the next command works.
    command(QStringLiteral("ctrl+shift+2"));
    mouse({3500, 1800}, QStringLiteral("click 1"));
    QThread::msleep(500);
    EXPECT_EQ(pngFiles(folder).size(), 6);
    command(QStringLiteral("ctrl+shift+3"));
    EXPECT_TRUE(waitForFiles(folder, 8));

    // The running app follows its folder when renamed and forgets it when deleted.
    const QString renamed = home.filePath(QStringLiteral("Renamed Shots"));
    ASSERT_TRUE(QDir().rename(folder, renamed));
    ASSERT_TRUE(pixmora(args(QStringLiteral("capture screen"))).ok());
    EXPECT_TRUE(waitForFiles(renamed, 10));
    EXPECT_EQ(saveFolder(), renamed.toUtf8());
    ASSERT_TRUE(QDir(renamed).removeRecursively());
    EXPECT_EQ(saveFolder(), QByteArray("not set"));
    const qsizetype historyCount = pngFiles(history).size();
    ASSERT_TRUE(pixmora(args(QStringLiteral("capture screen"))).ok());
    EXPECT_TRUE(waitForFiles(history, historyCount + 2)) << "the app survives a vanished folder";

    // With none running, `capture screen` starts Pixmora; without a folder the
    // captures go to the history and the first one onto the clipboard.
    desktop.stop(app);
    ASSERT_TRUE(pixmora(args(QStringLiteral("capture screen"))).ok());
    EXPECT_TRUE(waitForFiles(history, historyCount + 4));
    EXPECT_TRUE(VirtualDesktop::waitUntil(
        [&] { return QImage::fromData(clipboard(QStringLiteral("image/png"))).size() == QSize(1920, 2160); }, 5000));
}

// Only the user reaches Pixmora and its files; every command runs once or says
// why not, however many come at once and however slow the tray is.
TEST_F(PixmoraAppTest, OnlyTheUserDrivesPixmoraAndEveryCommandRunsOnceOrSaysWhy)
{
    const QByteArray runtimeBefore = qgetenv("XDG_RUNTIME_DIR");
    const auto restoreRuntime = qScopeGuard([&] {
        runtimeBefore.isNull() ? qunsetenv("XDG_RUNTIME_DIR") : qputenv("XDG_RUNTIME_DIR", runtimeBefore);
    });
    const QString runtime = home.filePath(QStringLiteral("run"));
    ASSERT_TRUE(QDir().mkpath(runtime));
    ASSERT_TRUE(QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());

    // Settings full of binary junk are set aside, quickly, and defaults apply.
    const QString settings = home.filePath(QStringLiteral(".config/Pixmora/Pixmora.conf"));
    addSetting(QByteArray(4 << 20, '\x01'));
    const qint64 damagedSize = QFileInfo(settings).size();
    EXPECT_EQ(saveFolder(), QByteArray("not set"));
    EXPECT_EQ(QFileInfo(settings + QStringLiteral(".damaged")).size(), damagedSize);
    EXPECT_FALSE(QFileInfo::exists(settings));
    addSetting("[General]\ndidAskLaunchAtLogin=true");

    // What an older Pixmora left open to others, and a write a crash cut short.
    const QFile::Permissions openToAll = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
    const QString older = QDir(history).filePath(QStringLiteral("2020-01-02 03-04-05-678.png"));
    ASSERT_TRUE(QDir().mkpath(history) && QImage(4, 4, QImage::Format_RGB32).save(older));
    ASSERT_TRUE(QFile::setPermissions(history, openToAll | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther));
    ASSERT_TRUE(QFile::setPermissions(older, openToAll));
    QDir().mkpath(folder);
    const QString partial = QDir(folder).filePath(QStringLiteral("Screenshot 2020-01-02 at 03.04.05.678.png.AbCdEf"));
    {
        QFile file(partial);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("\x89PNG") == 4 && file.flush());
        ASSERT_TRUE(file.setFileTime(QDateTime::currentDateTime().addSecs(-3600), QFileDevice::FileModificationTime));
    }
    ASSERT_TRUE(pixmora({QStringLiteral("save-to"), folder}).ok());
    ASSERT_TRUE(pixmora(args(QStringLiteral("capture screen"))).ok()) << "starts the tray";
    ASSERT_TRUE(waitForFiles(folder, 2));
    ASSERT_TRUE(waitForFiles(history, 3));
    EXPECT_FALSE(QFileInfo::exists(partial));
    const QString socket = runtime + QStringLiteral("/pixmora-") + desktop.display() + QStringLiteral(".socket");
    EXPECT_TRUE(privateTo(socket, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    EXPECT_TRUE(privateTo(history, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    for (const QString &kept : pngFiles(history))
        EXPECT_TRUE(privateTo(QDir(history).filePath(kept), QFile::ReadOwner | QFile::WriteOwner)) << kept.toStdString();
    EXPECT_TRUE(privateTo(settings, QFile::ReadOwner | QFile::WriteOwner));
    EXPECT_TRUE(QFileInfo(QDir(folder).filePath(pngFiles(folder).value(0))).permissions() & QFile::ReadOther)
        << "the save folder keeps the umask";

    // Twenty at once while the tray is stopped for two seconds: each is
    // answered once, and exactly the ones that say so made a capture.
    const pid_t tray = pid_t(xdotool(QStringLiteral("search --classname ^pixmora$ getwindowpid")).output.trimmed().toInt());
    ASSERT_GT(tray, 0);
    kill(tray, SIGSTOP);
    const QString binary = qEnvironmentVariable("PIXMORA_BINARY");
    for (int i = 0; i < 20; ++i)
        desktop.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"),
            QStringLiteral("\"$0\" capture screen 2>>\"$1\"; echo $? >>\"$2\""), binary,
            home.filePath(QStringLiteral("errors")), home.filePath(QStringLiteral("codes"))});
    QThread::msleep(2000);
    kill(tray, SIGCONT);
    const auto lines = [&](const char *name) {
        QFile file(home.filePath(QString::fromLatin1(name)));
        return file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QList<QByteArray>();
    };
    ASSERT_TRUE(VirtualDesktop::waitUntil([&] { return lines("codes").size() == 21; }, 60000));
    const qsizetype ran = lines("codes").count("0");
    EXPECT_GE(ran, 1);
    EXPECT_EQ(lines("codes").count("1"), 20 - ran);
    for (const QByteArray &error : lines("errors"))
        EXPECT_TRUE(error.isEmpty() || error == "pixmora: a capture is already in progress") << error.constData();
    EXPECT_TRUE(waitForFiles(folder, 2 + 2 * ran));
    QThread::msleep(500);
    EXPECT_EQ(pngFiles(folder).size(), 2 + 2 * ran) << ran << " commands ran";

    // While a flow runs, a command is refused with the reason.
    command(QStringLiteral("ctrl+shift+1"));
    const VirtualDesktop::Result busy = pixmora(args(QStringLiteral("capture screen")));
    EXPECT_EQ(busy.exitCode, 1);
    EXPECT_EQ(busy.errors, "pixmora: a capture is already in progress\n");
    command(QStringLiteral("Escape"));

    // Squatters where a runtime folder is shared: a plain file, and another
    // user's listener. The tray and every command refuse them, saying why.
    QTemporaryDir shared;
    ASSERT_TRUE(QFile::setPermissions(shared.path(), QFile::Permissions(0x7777)));
    qputenv("XDG_RUNTIME_DIR", shared.path().toLocal8Bit());
    const QString squatted = shared.filePath(QStringLiteral("pixmora-") + desktop.display() + QStringLiteral(".socket"));
    ASSERT_TRUE(QFile(squatted).open(QIODevice::WriteOnly));
    const QByteArray inTheWay = squatted.toUtf8() + " is in the way: it is not Pixmora's socket\n";
    // Qt warns first about the open folder.
    const VirtualDesktop::Result blockedTray = pixmora({});
    EXPECT_EQ(blockedTray.exitCode, 1);
    EXPECT_TRUE(blockedTray.errors.endsWith("\npixmora: Pixmora cannot start: " + inTheWay)) << blockedTray.errors.constData();
    const VirtualDesktop::Result blockedCommand = pixmora(args(QStringLiteral("capture screen")));
    EXPECT_EQ(blockedCommand.exitCode, 1);
    EXPECT_EQ(blockedCommand.errors, "pixmora: Pixmora is not running and cannot start: " + inTheWay);
    if (getuid() == 0) {
        ASSERT_TRUE(QFile::remove(squatted));
        const pid_t squatter = listenAsNobody(squatted);
        const auto reap = qScopeGuard([squatter] {
            kill(squatter, SIGKILL);
            waitpid(squatter, nullptr, 0);
        });
        ASSERT_TRUE(VirtualDesktop::waitUntil([&] { return QFileInfo::exists(squatted); }, 5000));
        const QByteArray foreign = squatted.toUtf8() + " belongs to another user (uid 65534)\n";
        const VirtualDesktop::Result refused = pixmora(args(QStringLiteral("capture screen")));
        EXPECT_EQ(refused.exitCode, 1);
        EXPECT_EQ(refused.errors, "pixmora: Pixmora is not running and cannot start: " + foreign);
        const VirtualDesktop::Result refusedTray = pixmora({});
        EXPECT_EQ(refusedTray.exitCode, 1);
        EXPECT_TRUE(refusedTray.errors.endsWith("\npixmora: Pixmora cannot start: " + foreign)) << refusedTray.errors.constData();
    }
    EXPECT_EQ(pngFiles(folder).size(), 2 + 2 * ran) << "nothing was captured for a refused command";
}

} // namespace
