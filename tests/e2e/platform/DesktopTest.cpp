#include "PlatformTestSupport.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Desktop.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11ImageTransfer.h"

#include <QPainter>
#include <QTest>
#include <QWidget>
#include <QWindow>

#include <gtest/gtest.h>

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

class DesktopTest : public ::testing::Test {
protected:
    void TearDown() override { runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("set_desktop"), QStringLiteral("0")}); }
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
    for (const QString &change : {QStringLiteral("windowraise %1").arg(xterm.window), QStringLiteral("set_desktop 1")}) {
        ASSERT_TRUE(runOnDesktop(QStringLiteral("xdotool"), change.split(QLatin1Char(' '))).ok());
        QTest::qWait(200);
        EXPECT_EQ(firstDifference(shown(), expected), std::nullopt) << change.toStdString();
    }
    overlay.hide();
    EXPECT_TRUE(QTest::qWaitFor(keyboardIsFree));
}

TEST_F(DesktopTest, FloatingPanelIsStickyAboveAndNeverTakesTheFocus)
{
    const Xterm first(QStringLiteral("pixmora-e2e-first"), QStringLiteral("40x8+2000+100"));
    const Xterm second(QStringLiteral("pixmora-e2e-second"), QStringLiteral("40x8+2600+100"));
    ASSERT_TRUE(becomesActive(first.window));
    ASSERT_TRUE(becomesActive(second.window));

    QWidget panel(nullptr, Qt::FramelessWindowHint);
    panel.setGeometry(3500, 1900, 300, 200);
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

// Other modifiers make another shortcut: were they let through, a 7 would come first.
TEST(HotKeysTest, ControlShiftDigitsDeliverTheirIdsWhateverTheLockKeys)
{
    X11Connection x11;
    X11HotKeys hotKeys{x11};
    std::vector<quint32> pressed;
    hotKeys.onPressed = [&](quint32 id) { pressed.push_back(id); };
    const auto press = [](const char *keys) {
        return runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("key"), QString::fromLatin1(keys)}).ok();
    };
    // Portable key codes 18 and 20 are the digits 1 and 3; 0x1200 is Control-Shift.
    ASSERT_TRUE(hotKeys.grab(7, 20, 0x1200));
    ASSERT_TRUE(hotKeys.grab(9, 18, 0x1200));
    for (const char *lock : {"", "Num_Lock", "Caps_Lock"}) {
        SCOPED_TRACE(lock);
        pressed.clear();
        ASSERT_TRUE(!*lock || press(lock));
        for (const char *keys : {"ctrl+3", "ctrl+shift+alt+3", "ctrl+shift+3", "ctrl+shift+1"})
            ASSERT_TRUE(press(keys));
        EXPECT_TRUE(QTest::qWaitFor([&] { return pressed == std::vector<quint32>{7, 9}; }, 3000));
        ASSERT_TRUE(!*lock || press(lock));
    }
}

} // namespace
} // namespace pixmora::e2e
