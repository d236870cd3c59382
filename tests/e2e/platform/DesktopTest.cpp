#include "PlatformTestSupport.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Desktop.h"
#include "platform/x11/X11ImageTransfer.h"
#include "platform/x11/X11ScreenCapture.h"

#include <QDBusConnection>
#include <QKeyEvent>
#include <QPainter>
#include <QWindow>

#include <gtest/gtest.h>

#include <xcb/xcb_icccm.h>

#include <algorithm>

namespace pixmora::e2e {
namespace {

class KeyRecorder : public QWindow {
public:
    QList<int> keys;

protected:
    void keyPressEvent(QKeyEvent *event) override { keys.append(event->key()); }
};

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
    void TearDown() override
    {
        for (pid_t pid : started)
            testDesktop().stop(pid);
        runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("set_desktop"), QStringLiteral("0")});
    }

    quint64 startXterm(const QString &title, const QString &geometry)
    {
        started.push_back(testDesktop().start(QStringLiteral("xterm"),
                                              {QStringLiteral("-T"), title, QStringLiteral("-geometry"), geometry}));
        return testDesktop().waitForWindow(QLatin1Char('^') + title + QLatin1Char('$'), 10000, processEvents);
    }

    std::vector<xcb_atom_t> netWmState(xcb_window_t window)
    {
        std::vector<xcb_atom_t> states;
        xcb_ewmh_get_atoms_reply_t reply{};
        if (xcb_ewmh_get_wm_state_reply(x11.ewmh(), xcb_ewmh_get_wm_state(x11.ewmh(), window), &reply, nullptr)) {
            states.assign(reply.atoms, reply.atoms + reply.atoms_len);
            xcb_ewmh_get_atoms_reply_wipe(&reply);
        }
        return states;
    }

    XcbReply<xcb_get_window_attributes_reply_t> attributes(xcb_window_t window)
    {
        return XcbReply<xcb_get_window_attributes_reply_t>(xcb_get_window_attributes_reply(
            x11.connection(), xcb_get_window_attributes(x11.connection(), window), nullptr));
    }

    // Unmapped windows count in the stacking order too; they are skipped.
    xcb_window_t topmostViewableChildOfRoot()
    {
        XcbReply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(x11.connection(), xcb_query_tree(x11.connection(), x11.root()), nullptr));
        const xcb_window_t *children = xcb_query_tree_children(tree.get());
        for (int i = xcb_query_tree_children_length(tree.get()) - 1; i >= 0; --i) {
            const auto state = attributes(children[i]);
            if (state && state->map_state == XCB_MAP_STATE_VIEWABLE)
                return children[i];
        }
        return XCB_WINDOW_NONE;
    }

    bool switchToWorkspace(int index)
    {
        return runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("set_desktop"), QString::number(index)}).ok();
    }

    X11Connection x11;
    X11Desktop desktop{x11};
    std::vector<pid_t> started;
};

TEST_F(DesktopTest, ActiveWindowIsReadAndGivenBack)
{
    const quint64 first = startXterm(QStringLiteral("pixmora-e2e-first"), QStringLiteral("40x8+2000+100"));
    const quint64 second = startXterm(QStringLiteral("pixmora-e2e-second"), QStringLiteral("40x8+2600+100"));
    ASSERT_NE(first, 0u);
    ASSERT_NE(second, 0u);
    desktop.activateWindow(first);
    EXPECT_TRUE(waitFor([&] { return desktop.activeWindow() == first; }));
    desktop.activateWindow(second);
    EXPECT_TRUE(waitFor([&] { return desktop.activeWindow() == second; }));
}

TEST_F(DesktopTest, OverlayStaysOnTopOnEveryWorkspaceAndTakesTheKeyboard)
{
    const quint64 xterm = startXterm(QStringLiteral("pixmora-e2e-focused"), QStringLiteral("40x8+100+100"));
    ASSERT_NE(xterm, 0u);
    desktop.activateWindow(xterm);
    ASSERT_TRUE(waitFor([&] { return desktop.activeWindow() == xterm; }));

    KeyRecorder overlay;
    overlay.setGeometry(0, 0, 960, 1080);
    overlay.create();
    desktop.makeOverlay(&overlay);
    overlay.show();
    ASSERT_TRUE(waitFor([&] { return overlay.isExposed(); }));
    desktop.giveKeyboardTo(&overlay);
    const auto window = static_cast<xcb_window_t>(overlay.winId());
    EXPECT_TRUE(attributes(window)->override_redirect) << "the window manager must not stack or move it";
    EXPECT_EQ(topmostViewableChildOfRoot(), window);
    // Raising a managed window does not put it above the overlay.
    runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("windowraise"), QString::number(xterm)});
    waitFor([] { return false; }, 200);
    EXPECT_EQ(topmostViewableChildOfRoot(), window);

    runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("a")});
    EXPECT_TRUE(waitFor([&] { return overlay.keys.contains(Qt::Key_A); })) << "keys go to the overlay";

    ASSERT_TRUE(switchToWorkspace(1));
    EXPECT_EQ(attributes(window)->map_state, XCB_MAP_STATE_VIEWABLE);
    ASSERT_TRUE(switchToWorkspace(0));

    overlay.hide();
    processEvents();
    // Released: another client can take the keyboard now.
    xcb_connection_t *other = xcb_connect(testDesktop().display().toLocal8Bit().constData(), nullptr);
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other)).data->root;
    XcbReply<xcb_grab_keyboard_reply_t> grab(xcb_grab_keyboard_reply(
        other, xcb_grab_keyboard(other, 0, root, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
        nullptr));
    EXPECT_TRUE(grab && grab->status == XCB_GRAB_STATUS_SUCCESS);
    xcb_disconnect(other);
}

TEST_F(DesktopTest, OverlayBackdropIsDrawnDimmedExactlyAsQPainterDimsIt)
{
    // On LEFT, at scale 2: 200 x 150 points are 400 x 300 pixels at (200, 200).
    QImage backdrop = rootPattern(QSize(400, 300));
    QWindow overlay;
    overlay.setGeometry(100, 100, 200, 150);
    overlay.create();
    desktop.makeOverlay(&overlay);
    overlay.show();
    ASSERT_TRUE(waitFor([&] { return overlay.isExposed(); }));

    const QColor dim = QColor::fromRgbF(0, 0, 0, 0.25);
    ASSERT_TRUE(desktop.drawOverlayBackdrop(&overlay, backdrop, dim));
    QImage expected = backdrop.convertToFormat(QImage::Format_RGB32);
    QPainter(&expected).fillRect(expected.rect(), dim);
    const QImage shown = x11.images().read(x11.root(), QRect(200, 200, 400, 300), QRect(0, 0, 3840, 2160));
    EXPECT_EQ(firstDifference(shown, expected), std::nullopt);

    // A backdrop of another size is not stretched: the overlay has to paint it.
    EXPECT_FALSE(desktop.drawOverlayBackdrop(&overlay, rootPattern(QSize(200, 150)), dim));
    EXPECT_FALSE(desktop.drawOverlayBackdrop(&overlay, QImage(), dim));
}

TEST_F(DesktopTest, FloatingPanelIsStickyAboveAndNeverFocused)
{
    const quint64 xterm = startXterm(QStringLiteral("pixmora-e2e-working"), QStringLiteral("40x8+2000+500"));
    ASSERT_NE(xterm, 0u);
    desktop.activateWindow(xterm);
    ASSERT_TRUE(waitFor([&] { return desktop.activeWindow() == xterm; }));

    SolidWindow panel(QStringLiteral("pixmora-e2e-panel"), Qt::yellow, QRect(3500, 1900, 300, 200));
    panel.setWindowFlag(Qt::FramelessWindowHint);
    desktop.makeFloatingPanel(&panel);
    panel.show();
    ASSERT_TRUE(waitUntilMapped(panel));
    const xcb_window_t window = panel.winId();
    xcb_ewmh_connection_t *ewmh = x11.ewmh();
    // Window managers show "sticky" as the state or as desktop 0xFFFFFFFF (openbox).
    auto has = [&](xcb_atom_t state) { return std::ranges::count(netWmState(window), state) == 1; };
    EXPECT_TRUE(waitFor([&] {
        uint32_t workspace = 0;
        xcb_ewmh_get_wm_desktop_reply(ewmh, xcb_ewmh_get_wm_desktop(ewmh, window), &workspace, nullptr);
        return has(ewmh->_NET_WM_STATE_ABOVE) && has(ewmh->_NET_WM_STATE_SKIP_TASKBAR)
               && has(ewmh->_NET_WM_STATE_SKIP_PAGER) && (has(ewmh->_NET_WM_STATE_STICKY) || workspace == 0xFFFFFFFF);
    }));
    xcb_icccm_wm_hints_t hints{};
    ASSERT_TRUE(xcb_icccm_get_wm_hints_reply(x11.connection(), xcb_icccm_get_wm_hints(x11.connection(), window),
                                             &hints, nullptr));
    EXPECT_FALSE(hints.input) << "the panel must not take the focus";
    EXPECT_EQ(desktop.activeWindow(), xterm);

    X11ScreenCapture capture(x11);
    auto listed = [&] {
        const WindowList windows = capture.windows();
        const auto it = std::ranges::find_if(windows, [&](const WindowInfo &w) { return w.id == window; });
        return it == windows.end() ? std::optional<WindowInfo>() : *it;
    };
    ASSERT_TRUE(waitFor([&] { return listed() && listed()->onScreen; }));
    EXPECT_EQ(listed()->layer, 3);
    ASSERT_TRUE(switchToWorkspace(1));
    EXPECT_TRUE(waitFor([&] { return listed() && listed()->onScreen; })) << "on every workspace";
    EXPECT_TRUE(waitFor([&] {
        const WindowList windows = capture.windows();
        return std::ranges::none_of(windows, [&](const WindowInfo &w) { return w.id == xterm && w.onScreen; });
    })) << "windows of another workspace are not on screen";
}

TEST_F(DesktopTest, RevealAsksTheFileManagerToSelectTheItem)
{
    FileManagerService fileManager;
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &fileManager,
                                   QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.FileManager1")));

    desktop.revealInFileManager(QStringLiteral("/tmp/Pixmora Shots/Screenshot 1.png"));
    desktop.revealInFileManager(QStringLiteral("/tmp/Pixmora Shots"));
    EXPECT_TRUE(waitFor([&] { return fileManager.shown.size() == 2; }));
    EXPECT_EQ(fileManager.shown, (QStringList{QStringLiteral("file:///tmp/Pixmora%20Shots/Screenshot%201.png"),
                                               QStringLiteral("file:///tmp/Pixmora%20Shots")}));

    bus.unregisterService(QStringLiteral("org.freedesktop.FileManager1"));
    bus.unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
}

} // namespace
} // namespace pixmora::e2e

#include "DesktopTest.moc"
