#include "ScrollDocument.h"
#include "VirtualDesktop.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <cstring>

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

bool waitForFiles(const QString &folder, qsizetype count)
{
    return VirtualDesktop::waitUntil([&] { return pngFiles(folder).size() >= count; }, 10000);
}

// The newest file once the folder holds `count`, null if it never does.
QImage nextFile(const QString &folder, qsizetype count)
{
    return waitForFiles(folder, count) ? QImage(QDir(folder).filePath(pngFiles(folder, QDir::Time).value(0))) : QImage();
}

// The first row where two images differ, 0 when their sizes do, -1 when none does.
// Pixels only: QImage's own comparison also weighs colour-space tags, which scrot writes and Pixmora does not.
int firstDifferentRow(const QImage &a, const QImage &b)
{
    const QImage x = a.convertToFormat(QImage::Format_RGB888);
    const QImage y = b.convertToFormat(QImage::Format_RGB888);
    if (x.isNull() || x.size() != y.size())
        return 0;
    for (int row = 0; row < x.height(); ++row) {
        if (std::memcmp(x.constScanLine(row), y.constScanLine(row), size_t(x.width()) * 3) != 0)
            return row;
    }
    return -1;
}

bool samePixels(const QImage &a, const QImage &b) { return firstDifferentRow(a, b) == -1; }

bool privateTo(const QString &path, QFile::Permissions owner)
{
    const QFile::Permissions all = QFileInfo(path).permissions()
                                   & ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);
    return all == owner;
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
        // The socket, too: a tray left from a test must not answer the next one.
        QDir().mkpath(runtime);
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
        QDir().mkpath(home.filePath(QStringLiteral(".config/Pixmora")));
        // Answered already, so that the question does not sit over the screen.
        addSetting("[General]\ndidAskLaunchAtLogin=true");
    }

    void addSetting(const QByteArray &line)
    {
        QFile file(settings);
        ASSERT_TRUE(file.open(QIODevice::Append) && file.write(line + '\n') > 0);
    }
    VirtualDesktop::Result pixmora(const QStringList &arguments)
    {
        return desktop.run(qEnvironmentVariable("PIXMORA_BINARY"), arguments, 15000);
    }
    VirtualDesktop::Result xdotool(const QString &line) { return desktop.run(QStringLiteral("xdotool"), args(line)); }
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
    void drag(QPoint from, QPoint to)
    {
        mouse(from, QStringLiteral("mousedown 1"));
        mouse((from + to) / 2);
        mouse(to, QStringLiteral("mouseup 1"));
    }
    // Starts Pixmora and waits for its tray icon, created just before the shortcuts are grabbed.
    void startPixmora()
    {
        desktop.start(qEnvironmentVariable("PIXMORA_BINARY"), {});
        EXPECT_TRUE(VirtualDesktop::waitUntil(
            [&] { return xdotool(QStringLiteral("search --classname ^pixmora$")).ok(); }, 15000));
        QThread::msleep(800);
    }
    quint64 activeWindow() { return xdotool(QStringLiteral("getactivewindow")).output.trimmed().toULongLong(); }

    // A desktop of its own for each test, so that none sees what another left on screen.
    QTemporaryDir home;
    VirtualDesktop desktop{[] {  // after the home folder: it goes first
        VirtualDesktop::Options options;
        options.leftAndRight = options.windowManager = options.trayHost = options.sessionBus = true;  // a bus of its own: none is autolaunched
        return options;
    }()};
    const QString runtime = home.filePath(QStringLiteral("run"));
    const QString settings = home.filePath(QStringLiteral(".config/Pixmora/Pixmora.conf"));
    const QString history = home.filePath(QStringLiteral(".local/share/Pixmora/History"));
    const QString folder = home.filePath(QStringLiteral("Shots"));
};

// The editor on a 400 x 300 point area of LEFT (scale 2) shows the picture one
// device pixel per image pixel, centred below a toolbar of fixed-size buttons.
TEST_F(PixmoraAppTest, ACaptureIsMarkedUpAndSavedAsANewFileOrDiscardedWithItsFile)
{
    QDir().mkpath(folder);
    ASSERT_TRUE(pixmora({QStringLiteral("save-to"), folder}).ok());
    startPixmora();
    const QString editorName = QString::fromUtf8("^Pixmora — Markup$");
    // The editor of a new area capture, active, so that keys reach its canvas.
    const auto captureAndEdit = [&](QPoint from, QPoint to, qsizetype files) {
        command(QStringLiteral("ctrl+shift+1"));
        drag(from, to);
        EXPECT_TRUE(waitForFiles(folder, files));
        mouse(desktop.windowRect(desktop.waitForWindow(QStringLiteral("^Pixmora Preview$"))).center(), QStringLiteral("click 1"));
        const quint64 editor = desktop.waitForWindow(editorName);
        EXPECT_TRUE(VirtualDesktop::waitUntil([&] { return activeWindow() == editor; }, 3000));
        return editor;
    };
    const QRect window = desktop.windowRect(captureAndEdit({200, 300}, {1000, 900}, 1));
    ASSERT_FALSE(window.isEmpty());
    const QString originalName = pngFiles(folder).first();
    const QImage original = QImage(QDir(folder).filePath(originalName)).convertToFormat(QImage::Format_RGB32);
    const int width = window.width() / 2;  // in points
    // Toolbar buttons by their centres in points; picture points in image pixels.
    const auto toolbar = [&](int x) { return window.topLeft() + 2 * QPoint(x, 24); };
    const auto picture = [&](QPoint image) { return window.topLeft() + QPoint(width - 400, 96) + image; };
    const QRgb blue = qRgb(0, 122, 255);

    mouse(toolbar(246 + 4 * 22 + 9), QStringLiteral("click 1"));  // the blue swatch
    drag(picture({100, 450}), picture({400, 150}));                // an arrow, the tool it starts with
    mouse(toolbar(12 + 2 * 28 + 14), QStringLiteral("click 1"));   // Rectangle
    drag(picture({500, 100}), picture({700, 400}));
    const auto rectangleShown = [&] { return screen(QRect(picture({596, 96}), QSize(8, 8))).pixel(4, 4) == blue; };
    EXPECT_TRUE(VirtualDesktop::waitUntil(rectangleShown, 2000));
    ASSERT_TRUE(xdotool(QStringLiteral("key ctrl+z")).ok());
    EXPECT_TRUE(VirtualDesktop::waitUntil([&] { return !rectangleShown(); }, 2000)) << "the keyboard is on the canvas";
    ASSERT_TRUE(xdotool(QStringLiteral("key ctrl+shift+z")).ok());  // the saved file shows it back

    mouse(toolbar(width - 12 - 72 - 10 - 36), QStringLiteral("click 1"));  // Save
    ASSERT_TRUE(waitForFiles(folder, 2));
    const QStringList saved = pngFiles(folder);
    const QImage edited(QDir(folder).filePath(saved[saved[0] == originalName ? 1 : 0]));
    ASSERT_EQ(edited.size(), original.size());
    // The arrow and the box's sides where they were drawn; just inside the box, the capture.
    const QImage after = edited.convertToFormat(QImage::Format_RGB32);
    for (const QPoint mark : {QPoint(250, 300), QPoint(400, 150), QPoint(600, 100), QPoint(500, 250), QPoint(700, 250),
                              QPoint(600, 400)})
        EXPECT_EQ(after.pixel(mark), blue) << mark.x() << "," << mark.y();
    EXPECT_EQ(after.pixel(520, 120), original.pixel(520, 120));

    // Done closes it; a second capture's editor discards that capture's file after asking.
    mouse(toolbar(width - 12 - 36), QStringLiteral("click 1"));  // Done
    ASSERT_TRUE(VirtualDesktop::waitUntil([&] { return !desktop.waitForWindow(editorName, 0); }, 3000));
    const quint64 second = captureAndEdit({1200, 300}, {1600, 700}, 3);
    mouse(desktop.windowRect(second).topLeft() + 2 * QPoint(576 + 14, 24), QStringLiteral("click 1"));  // Discard
    ASSERT_TRUE(VirtualDesktop::waitUntil([&] { return activeWindow() != second; }, 5000)) << "the question";
    QThread::msleep(300);
    ASSERT_TRUE(xdotool(QStringLiteral("key Return")).ok());
    EXPECT_TRUE(VirtualDesktop::waitUntil([&] { return pngFiles(folder) == saved; }, 5000));
}

TEST_F(PixmoraAppTest, CapturesThroughShortcutsAndCommandLineDeliverWhatTheScreenShowed)
{
    QDir().mkpath(folder);
    ASSERT_TRUE(pixmora({QStringLiteral("save-to"), folder}).ok());
    addSetting("windowShadow=false");

    desktop.start(QStringLiteral("xterm"), args(QStringLiteral("-hold -geometry 80x24+150+150 -e ls -l /usr/bin")));
    desktop.start(QStringLiteral("xterm"), args(QStringLiteral("-T pick-me -hold -geometry 80x24+2000+300 -e ls -l /etc")));
    ASSERT_NE(desktop.waitForWindow(QStringLiteral("^pick-me$")), 0u);
    startPixmora();
    EXPECT_TRUE(pixmora({}).ok()) << "a second start only exits";
    const QImage before = screen(QRect(0, 0, 3840, 2160));

    // Every display: LEFT (960 x 1080 points at scale 2) and RIGHT (1920 x
    // 2160 points at scale 1) are both 1920 x 2160 pixels, as the screen showed them.
    command(QStringLiteral("ctrl+shift+3"));
    ASSERT_TRUE(waitForFiles(folder, 2));
    const QString second = pngFiles(folder).filter(QStringLiteral(" (2).png")).value(0);
    const QImage left(QDir(folder).filePath(QString(second).remove(QStringLiteral(" (2)"))));
    const QImage right(QDir(folder).filePath(second));
    EXPECT_TRUE(samePixels(left, before.copy(0, 0, 1920, 2160)));
    EXPECT_TRUE(samePixels(right, before.copy(1920, 0, 1920, 2160)));
    const QByteArray clipboard =
        desktop.run(QStringLiteral("xclip"), args(QStringLiteral("-selection clipboard -o -t image/png"))).output;
    EXPECT_TRUE(samePixels(QImage::fromData(clipboard), left)) << "the first display goes to the clipboard";

    // Areas on LEFT, dragged up and left (pixels (200, 200)-(600, 500) are
    // points (100, 100)-(300, 250)), and on RIGHT.
    command(QStringLiteral("ctrl+shift+1"));
    drag({600, 500}, {200, 200});
    EXPECT_TRUE(samePixels(nextFile(folder, 3), before.copy(200, 200, 400, 300)));
    command(QStringLiteral("ctrl+shift+1"));
    drag({2000, 300}, {2300, 500});
    EXPECT_TRUE(samePixels(nextFile(folder, 4), before.copy(2000, 300, 300, 200)));

    // A picked window with its frame (no shadow), exactly as the screen shows
    // it: openbox puts the frame where xterm asked.
    const QImage shown = screen(QRect(2000, 300, 800, 600));
    command(QStringLiteral("ctrl+shift+2"));
    mouse({2300, 500}, QStringLiteral("click 1"));
    const QImage picked = nextFile(folder, 5);
    EXPECT_TRUE(samePixels(picked, shown.copy(0, 0, picked.width(), picked.height())));
    // A window across LEFT (scale 2) and RIGHT (scale 1) is picked by a click on either part.
    desktop.start(QStringLiteral("xterm"), args(QStringLiteral("-T span -hold -geometry 60x10+1700+1300 -e ls /")));
    ASSERT_NE(desktop.waitForWindow(QStringLiteral("^span$")), 0u);
    QImage spanning[2];
    for (int part = 0; part < 2; ++part) {
        command(QStringLiteral("ctrl+shift+2"));
        mouse(part == 0 ? QPoint(1780, 1380) : QPoint(1990, 1380), QStringLiteral("click 1"));
        spanning[part] = nextFile(folder, 6 + part);
    }
    EXPECT_GT(spanning[0].width(), 300);
    EXPECT_TRUE(samePixels(spanning[0], spanning[1]));
}

// Three captures, the window opened from the tray menu, one deleted from
// its context menu. LEFT is the primary monitor, at scale 2.
TEST_F(PixmoraAppTest, RecentCapturesShowsTheHistoryAndDeletesFromIt)
{
    desktop.start(QStringLiteral("xterm"), args(QStringLiteral("-T busy -hold -geometry 80x24+100+100 -e ls -l /usr/bin")));
    ASSERT_NE(desktop.waitForWindow(QStringLiteral("^busy$")), 0u);
    startPixmora();
    for (int i = 0; i < 3; ++i) {
        command(QStringLiteral("ctrl+shift+1"));
        drag({150 + 100 * i, 150}, {700, 600});
        ASSERT_TRUE(waitForFiles(history, i + 1));
    }

    // "Recent Captures…" is the fifth item from the bottom of the tray icon's
    // menu. The tray host may take a while to embed the icon on a busy machine.
    QRect icon;
    ASSERT_TRUE(VirtualDesktop::waitUntil([&] {
        for (const QByteArray &id : xdotool(QStringLiteral("search --classname ^pixmora$")).output.split('\n'))
            if (const QRect frame = desktop.windowRect(id.toULongLong()); !frame.isEmpty() && frame.width() <= 64)
                icon = frame;
        return !icon.isEmpty();
    }, 30000));
    mouse(icon.center(), QStringLiteral("click 1"));
    QThread::msleep(700);
    command(QStringLiteral("Up Up Up Up Up Return"));
    const QRect frame = desktop.windowRect(desktop.waitForWindow(QStringLiteral("^Recent Captures$")));
    ASSERT_EQ(frame.size(), QSize(1440, 960));

    // Tiles of 200 x 150 points, 12 apart, 14 from the edges, newest first.
    const auto tile = [&](int column) { return QRect(frame.topLeft() + QPoint(28 + 424 * column, 28), QSize(400, 300)); };
    const auto colours = [&](int column) {
        const QImage shot = screen(tile(column).adjusted(40, 40, -40, -120));
        QSet<QRgb> seen;
        for (int y = 0; y < shot.height(); y += 4)
            for (int x = 0; x < shot.width(); x += 4)
                seen.insert(shot.pixel(x, y));
        return seen.size();
    };
    // An empty tile has one or two colours; a thumbnail of black text on white, several.
    EXPECT_TRUE(VirtualDesktop::waitUntil([&] { return colours(2) > 4; }, 5000)) << "the thumbnails show";

    const QString newest = pngFiles(history).last();
    mouse(tile(0).center(), QStringLiteral("click 3"));
    QThread::msleep(700);
    command(QStringLiteral("Down Down Down Down Return"));
    EXPECT_TRUE(VirtualDesktop::waitUntil([&] { return pngFiles(history).size() == 2; }, 5000));
    EXPECT_FALSE(pngFiles(history).contains(newest));
    EXPECT_TRUE(VirtualDesktop::waitUntil([&] { return colours(2) < 3; }, 3000)) << "the grid follows at once";
}

// Only the user reaches Pixmora and its files; a command that cannot run says why.
TEST_F(PixmoraAppTest, OnlyTheUserDrivesPixmoraAndARefusedCommandSaysWhy)
{
    QDir().mkpath(folder);
    ASSERT_TRUE(pixmora({QStringLiteral("save-to"), folder}).ok());
    ASSERT_TRUE(pixmora(args(QStringLiteral("capture screen"))).ok()) << "starts the tray";
    ASSERT_TRUE(waitForFiles(folder, 2));
    ASSERT_TRUE(waitForFiles(history, 2));
    const QString socket = runtime + QStringLiteral("/pixmora-") + desktop.display() + QStringLiteral(".socket");
    EXPECT_TRUE(privateTo(socket, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    EXPECT_TRUE(privateTo(history, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    for (const QString &kept : pngFiles(history))
        EXPECT_TRUE(privateTo(QDir(history).filePath(kept), QFile::ReadOwner | QFile::WriteOwner)) << kept.toStdString();
    EXPECT_TRUE(privateTo(settings, QFile::ReadOwner | QFile::WriteOwner));
    EXPECT_TRUE(QFileInfo(QDir(folder).filePath(pngFiles(folder).value(0))).permissions() & QFile::ReadOther)
        << "the save folder keeps the umask";

    // While a flow runs, a command is refused with the reason.
    command(QStringLiteral("ctrl+shift+1"));
    const VirtualDesktop::Result busy = pixmora(args(QStringLiteral("capture screen")));
    EXPECT_EQ(busy.exitCode, 1);
    EXPECT_EQ(busy.errors, "pixmora: a capture is already in progress\n");

    // Another user listening where a runtime folder is shared: the tray and
    // every command refuse it, saying why (the tray after Qt's warning about the open folder).
    if (getuid() == 0) {  // only root can listen as another user
        QTemporaryDir shared;
        ASSERT_TRUE(QFile::setPermissions(shared.path(), QFile::Permissions(0x7777)));
        qputenv("XDG_RUNTIME_DIR", shared.path().toLocal8Bit());
        const QString squatted = shared.filePath(QStringLiteral("pixmora-") + desktop.display() + QStringLiteral(".socket"));
        desktop.start(QStringLiteral("setpriv"),
                      args(QStringLiteral("--reuid=65534 --regid=65534 --clear-groups perl -MIO::Socket::UNIX -e"))
                          << QStringLiteral("IO::Socket::UNIX->new(Local => $ARGV[0], Listen => 1) and sleep") << squatted);
        ASSERT_TRUE(VirtualDesktop::waitUntil([&] { return QFileInfo::exists(squatted); }, 5000));
        const QByteArray reason = squatted.toUtf8() + " belongs to another user (uid 65534)\n";
        const VirtualDesktop::Result start = pixmora({});
        EXPECT_EQ(start.exitCode, 1);
        EXPECT_TRUE(start.errors.endsWith("\npixmora: Pixmora cannot start: " + reason)) << start.errors.constData();
        const VirtualDesktop::Result capture = pixmora(args(QStringLiteral("capture screen")));
        EXPECT_EQ(capture.exitCode, 1);
        EXPECT_EQ(capture.errors, "pixmora: Pixmora is not running and cannot start: " + reason);
    }
    EXPECT_EQ(pngFiles(folder).size(), 2) << "nothing was captured for a refused command";
}

} // namespace

// Pixmora running on the test's own desktop.
class ScrollingCaptureTest : public PixmoraAppTest {
protected:
    void SetUp() override { startPixmora(); }
    // Selects the rectangle for a scrolling capture; the HUD's place.
    QRect startScrolling(const QRect &rectangle)
    {
        command(QStringLiteral("ctrl+shift+4"));
        drag(rectangle.topLeft(), rectangle.bottomRight() + QPoint(1, 1));
        return desktop.windowRect(desktop.waitForWindow(QStringLiteral("^Pixmora Scrolling Capture$"), 5000));
    }
    // Wheel notches down over the window under the pointer, `perStep` at a
    // time at the pace of a hand on a wheel, then Done.
    void scrollDown(int notches, int perStep, const QRect &hud)
    {
        for (int done = 0; done < notches; done += perStep) {
            xdotool(QStringLiteral("click --repeat %1 --delay 15 5").arg(std::min(perStep, notches - done)));
            QThread::msleep(120);
        }
        QThread::msleep(700);  // the last frames are taken
        mouse(hud.topLeft() + QPoint(198 + 44, 77 + 14), QStringLiteral("click 1"));
    }
};

// A document no one tuned to the stitcher, scrolled with the wheel at a
// user's pace; the rectangle fills the screen's height, so the HUD sits
// inside it for the whole capture and must not show in any frame.
TEST_F(ScrollingCaptureTest, ADocumentScrolledByWheelComesOutExactlyAsTheDocument)
{
    const QString truthPath = home.filePath(QStringLiteral("truth.png"));
    const std::optional<ScrollDocument> document =
        ScrollDocument::start(desktop, qEnvironmentVariable("PIXMORA_SCROLL_DOCUMENT"), home.path(),
                              {QStringLiteral("--truth"), truthPath, QStringLiteral("-geometry"), QStringLiteral("736x2090+2100+40")});
    ASSERT_TRUE(document);
    const QImage truth(truthPath);
    ASSERT_FALSE(truth.isNull());

    // RIGHT is at scale 1: points are pixels.
    const QRect selection = document->viewport.adjusted(10, 10, -12, -10);
    const QRect panel = startScrolling(selection);
    mouse(document->viewport.center());
    const int notches = 42;  // 60 pixels each in a Qt scroll area
    scrollDown(notches, 3, panel);
    const QImage captured = nextFile(history, 1);
    EXPECT_EQ(firstDifferentRow(captured, truth.copy(10, 10, selection.width(), selection.height() + notches * 60)), -1)
        << captured.height() << " rows";
}

// Lines that differ in a digit or two, which only exact alignment tells
// apart; each band of the result must be the terminal's own rendering of
// the line that belongs there, so a line twice or missing shows at once.
TEST_F(ScrollingCaptureTest, NumberedTerminalLinesComeOutEachOnceInOrder)
{
    const int rows = 40;
    desktop.start(QStringLiteral("xterm"),
                  args(QStringLiteral("-T numbered -fs 12 -sl 4000 -geometry 90x%1+2100+100").arg(rows))
                      << QStringLiteral("-fa") << QStringLiteral("DejaVu Sans Mono") << QStringLiteral("-xrm")
                      << QStringLiteral("XTerm*VT100.translations: #override <Key>F1: scroll-to(begin)\\n"
                                        "<Key>F2: scroll-forw(%1,line)").arg(rows)
                      << QStringLiteral("-e") << QStringLiteral("sh") << QStringLiteral("-c")
                      << QStringLiteral("seq -f 'line %05g of a long document' 1 3000; exec sleep 100000"));
    const quint64 window = desktop.waitForWindow(QStringLiteral("^numbered$"));
    ASSERT_NE(window, 0u);
    QThread::msleep(500);
    const QRect frame = desktop.windowRect(window);
    const int border = 2;  // xterm's internal border
    ASSERT_EQ((frame.height() - 2 * border) % rows, 0) << frame.height();
    const int lineHeight = (frame.height() - 2 * border) / rows;
    const QRect text(frame.x() + border, frame.y() + border, frame.width() - 2 * border, rows * lineHeight);
    // F1 and F2 go to the focused window: synthetic key events are ignored.
    const auto toTerminal = [&](const QString &key) {
        xdotool(QStringLiteral("windowactivate --sync %1").arg(window));
        xdotool(QStringLiteral("key ") + key);
        QThread::msleep(300);
    };
    toTerminal(QStringLiteral("F1"));

    const QRect panel = startScrolling(text);
    mouse(text.center());
    const int notches = 24;  // 5 lines each
    scrollDown(notches, 1, panel);
    const QImage captured = nextFile(history, 1);
    const int lines = rows + notches * 5;
    ASSERT_EQ(captured.size(), QSize(text.width(), lines * lineHeight));

    // The terminal's rendering of the same lines, a screenful at a time.
    QImage expected(text.width(), lines * lineHeight, QImage::Format_RGB32);
    QPainter painter(&expected);
    toTerminal(QStringLiteral("F1"));
    for (int top = 0; top < lines; top += rows) {
        painter.drawImage(0, top * lineHeight, screen(text));
        toTerminal(QStringLiteral("F2"));
    }
    painter.end();
    for (int line = 0; line < lines; ++line) {
        const QRect band(0, line * lineHeight, text.width(), lineHeight);
        ASSERT_TRUE(samePixels(captured.copy(band), expected.copy(band))) << "line " << line + 1 << " of " << lines;
    }
}
