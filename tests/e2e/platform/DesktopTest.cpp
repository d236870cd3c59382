#include "PlatformTestSupport.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Desktop.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11ImageTransfer.h"
#include "platform/x11/X11ScreenCapture.h"

#include <QDBusConnection>
#include <QPainter>
#include <QTest>
#include <QWindow>

#include <gtest/gtest.h>

#include <xcb/xcb_keysyms.h>

namespace pixmora::e2e {
namespace {

// Another application's connection to the desktop.
using Client = std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)>;
Client otherClient() { return Client(xcb_connect(nullptr, nullptr), xcb_disconnect); }

xcb_window_t rootOf(xcb_connection_t *client)
{
    return xcb_setup_roots_iterator(xcb_get_setup(client)).data->root;
}

bool keyboardIsFree()
{
    const Client other = otherClient();
    const xcb_grab_keyboard_cookie_t cookie = xcb_grab_keyboard(other.get(), 0, rootOf(other.get()), XCB_CURRENT_TIME,
                                                                XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    XcbReply<xcb_grab_keyboard_reply_t> grab(xcb_grab_keyboard_reply(other.get(), cookie, nullptr));
    return grab && grab->status == XCB_GRAB_STATUS_SUCCESS;
}

// Grabs Control-Shift and the key as another application's shortcut; true when the server agreed.
bool grabShortcut(xcb_connection_t *client, xcb_keysym_t keysym)
{
    xcb_key_symbols_t *symbols = xcb_key_symbols_alloc(client);
    XcbReply<xcb_keycode_t> codes(xcb_key_symbols_get_keycode(symbols, keysym));
    xcb_key_symbols_free(symbols);
    return codes && !XcbReply<xcb_generic_error_t>(xcb_request_check(
               client, xcb_grab_key_checked(client, 1, rootOf(client), XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT,
                                            codes.get()[0], XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
}

// Stands in for the file manager on the test session bus.
class FileManagerService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;
public slots:
    void ShowItems(const QStringList &uris, const QString &) { shown += uris; }
};

class DesktopTest : public ::testing::Test {
protected:
    void TearDown() override { switchToWorkspace(0); }

    bool switchToWorkspace(int index)
    {
        return runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("set_desktop"), QString::number(index)}).ok();
    }
    bool becomesActive(quint64 window)
    {
        desktop.activateWindow(window);
        return QTest::qWaitFor([&] { return desktop.activeWindow() == window; });
    }

    X11Connection x11;
    X11Desktop desktop{x11};
};

TEST_F(DesktopTest, OverlayShowsTheBackdropDimmedStaysOnTopEverywhereAndHoldsTheKeyboardWhileShown)
{
    const Xterm xterm(QStringLiteral("pixmora-e2e-focused"), QStringLiteral("40x8+100+100"));
    ASSERT_TRUE(becomesActive(xterm.window));
    QWindow overlay;
    overlay.setGeometry(0, 0, 960, 1080);  // LEFT: 1920 x 2160 pixels
    overlay.create();
    desktop.makeOverlay(&overlay);
    overlay.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&overlay));
    desktop.giveKeyboardTo(&overlay);
    EXPECT_FALSE(keyboardIsFree());

    const QImage backdrop = rootPattern(QSize(1920, 2160));
    const QColor dim = QColor::fromRgbF(0, 0, 0, 0.25);
    ASSERT_TRUE(desktop.drawOverlayBackdrop(&overlay, backdrop, dim));
    QImage expected = backdrop;
    QPainter(&expected).fillRect(expected.rect(), dim);
    const auto shown = [&] { return x11.images().read(x11.root(), QRect(0, 0, 1920, 2160), QRect(0, 0, 3840, 2160)); };
    EXPECT_EQ(firstDifference(shown(), expected), std::nullopt);
    EXPECT_FALSE(desktop.drawOverlayBackdrop(&overlay, rootPattern(QSize(960, 1080)), dim)) << "not stretched: the overlay paints it";

    // Still all that shows with the xterm raised, and on another workspace.
    runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("windowraise"), QString::number(xterm.window)});
    QTest::qWait(200);
    EXPECT_EQ(firstDifference(shown(), expected), std::nullopt);
    ASSERT_TRUE(switchToWorkspace(1));
    QTest::qWait(200);
    EXPECT_EQ(firstDifference(shown(), expected), std::nullopt);
    overlay.hide();
    EXPECT_TRUE(QTest::qWaitFor(keyboardIsFree));
}

TEST_F(DesktopTest, FloatingPanelIsStickyAboveAndNeverTakesTheFocus)
{
    const Xterm first(QStringLiteral("pixmora-e2e-first"), QStringLiteral("40x8+2000+100"));
    const Xterm second(QStringLiteral("pixmora-e2e-second"), QStringLiteral("40x8+2600+100"));
    ASSERT_TRUE(becomesActive(first.window));
    ASSERT_TRUE(becomesActive(second.window));

    SolidWindow panel(Qt::yellow, QRect(3500, 1900, 300, 200));
    panel.setWindowFlag(Qt::FramelessWindowHint);
    desktop.makeFloatingPanel(&panel, Desktop::PanelFocus::never);
    panel.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&panel));
    const quint64 window = panel.winId();
    // Window managers show "sticky" as the state or as desktop 0xFFFFFFFF (openbox).
    EXPECT_TRUE(QTest::qWaitFor([&] {
        const QByteArray p = runOnDesktop(QStringLiteral("xprop"), {QStringLiteral("-id"), QString::number(window)}).output;
        return p.contains("_NET_WM_STATE_ABOVE") && p.contains("_NET_WM_STATE_SKIP_TASKBAR")
               && p.contains("_NET_WM_STATE_SKIP_PAGER") && p.contains("accepts input or input focus: False")
               && (p.contains("_NET_WM_STATE_STICKY") || p.contains("_NET_WM_DESKTOP(CARDINAL) = 4294967295"));
    }));
    EXPECT_EQ(desktop.activeWindow(), second.window);
    // The window list reads the layer from the state the window manager keeps.
    const WindowList windows = X11ScreenCapture(x11).windows();
    const auto listed = std::ranges::find(windows, window, &WindowInfo::id);
    ASSERT_NE(listed, windows.end());
    EXPECT_EQ(listed->layer, 3);
}

// A compositing manager announces itself by owning _NET_WM_CM_S<screen>; a
// client that stands in for one, then quits, must be seen both ways.
TEST_F(DesktopTest, CompositingIsSeenWhileSomeoneOwnsTheCompositorSelection)
{
    EXPECT_FALSE(desktop.isCompositing());
    Client compositor = otherClient();
    xcb_connection_t *client = compositor.get();
    const xcb_window_t window = xcb_generate_id(client);
    xcb_create_window(client, XCB_COPY_FROM_PARENT, window, rootOf(client), 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(x11.screenNumber());
    XcbReply<xcb_intern_atom_reply_t> atom(
        xcb_intern_atom_reply(client, xcb_intern_atom(client, 0, uint16_t(name.size()), name.constData()), nullptr));
    ASSERT_TRUE(atom);
    xcb_set_selection_owner(client, window, atom->atom, XCB_CURRENT_TIME);
    XcbReply<xcb_get_input_focus_reply_t> roundTrip(xcb_get_input_focus_reply(client, xcb_get_input_focus(client), nullptr));
    EXPECT_TRUE(desktop.isCompositing());
    compositor.reset();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !desktop.isCompositing(); }));
}

TEST_F(DesktopTest, RevealAsksTheFileManagerToSelectTheItem)
{
    FileManagerService fileManager;  // unregistered when it goes
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &fileManager,
                                   QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.FileManager1")));
    desktop.revealInFileManager(QStringLiteral("/tmp/Pixmora Shots/Screenshot 1.png"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !fileManager.shown.isEmpty(); }));
    EXPECT_EQ(fileManager.shown, QStringList(QStringLiteral("file:///tmp/Pixmora%20Shots/Screenshot%201.png")));
}

class HotKeysTest : public ::testing::Test {
protected:
    HotKeysTest() { hotKeys.onPressed = [this](quint32 id) { pressed.push_back(id); }; }
    void press(const QString &keys)
    {
        ASSERT_TRUE(runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("key"), keys}).ok());
    }
    bool arrives(const std::vector<quint32> &expected)
    {
        return QTest::qWaitFor([&] { return pressed == expected; }, 3000);
    }

    static constexpr quint32 controlShift = 0x1200;
    X11Connection x11;
    X11HotKeys hotKeys{x11};
    std::vector<quint32> pressed;
};

// Other modifiers make another shortcut: were they let through, a 7 would come first.
TEST_F(HotKeysTest, ControlShiftDigitsDeliverTheirIdsWhateverTheLockKeys)
{
    // Portable key codes: 18..21 are the digits 1..4.
    ASSERT_TRUE(hotKeys.grab(7, 20, controlShift));
    ASSERT_TRUE(hotKeys.grab(9, 18, controlShift));
    for (const QString &lock : {QString(), QStringLiteral("Num_Lock"), QStringLiteral("Caps_Lock")}) {
        SCOPED_TRACE(lock.toStdString());
        pressed.clear();
        if (!lock.isEmpty())
            press(lock);
        for (const char *keys : {"ctrl+3", "ctrl+shift+alt+3", "ctrl+shift+3", "ctrl+shift+1"})
            press(QString::fromLatin1(keys));
        EXPECT_TRUE(arrives({7, 9}));
        if (!lock.isEmpty())
            press(lock);
    }
}

// xdotool's presses follow their releases within the same millisecond; a held
// key repeats (Xvfb repeats after 660 ms, 25 times a second) without releases.
TEST_F(HotKeysTest, EveryPressCountsOnceAndAHeldKeysRepeatsDoNot)
{
    ASSERT_TRUE(hotKeys.grab(3, 20, controlShift));
    QStringList keys{QStringLiteral("key"), QStringLiteral("--delay"), QStringLiteral("0")};
    for (int i = 0; i < 30; ++i)
        keys << QStringLiteral("ctrl+shift+3");
    ASSERT_TRUE(runOnDesktop(QStringLiteral("xdotool"), keys).ok());
    EXPECT_TRUE(arrives(std::vector<quint32>(30, 3))) << pressed.size() << " presses arrived";

    pressed.clear();
    ASSERT_TRUE(runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("keydown"), QStringLiteral("ctrl+shift+3")}).ok());
    QTest::qWait(1500);
    ASSERT_TRUE(runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("keyup"), QStringLiteral("ctrl+shift+3")}).ok());
    press(QStringLiteral("ctrl+shift+3"));
    EXPECT_TRUE(arrives({3, 3})) << pressed.size() << " presses arrived";
}

TEST_F(HotKeysTest, AShortcutHeldElsewhereIsRefusedUntilReleased)
{
    Client other = otherClient();
    ASSERT_TRUE(grabShortcut(other.get(), '4'));
    EXPECT_FALSE(hotKeys.grab(4, 21, controlShift));
    EXPECT_TRUE(hotKeys.grab(2, 19, controlShift)) << "a refusal leaves other shortcuts alone";
    other.reset();
    // The server frees the grab once it notices the other client left.
    EXPECT_TRUE(QTest::qWaitFor([&] { return hotKeys.grab(4, 21, controlShift); }));
    press(QStringLiteral("ctrl+shift+4"));
    EXPECT_TRUE(arrives({4}));
}

} // namespace
} // namespace pixmora::e2e

#include "DesktopTest.moc"
