#include "PlatformTestSupport.h"

#include "platform/x11/X11Connection.h"

#include <QFile>

#include <gtest/gtest.h>

#include <xcb/xcb.h>

#include <memory>

#include <signal.h>

namespace pixmora::e2e {
namespace {

bool answers(const QString &display)
{
    xcb_connection_t *connection = xcb_connect(display.toLocal8Bit().constData(), nullptr);
    const bool ok = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return ok;
}

// The fixture that every end-to-end test stands on: a second desktop next
// to the one main() started, with a tray host, gone without a trace after.
TEST(VirtualDesktopTest, SecondDesktopHasATrayAndLeavesNothingBehind)
{
    VirtualDesktop::Options options;
    options.size = QSize(800, 600);
    options.trayHost = true;
    auto desktop = std::make_unique<VirtualDesktop>(options);
    const QString display = desktop->display();
    EXPECT_NE(display, testDesktop().display());
    const QString lockFile = QStringLiteral("/tmp/.X%1-lock").arg(display.mid(1));
    EXPECT_TRUE(QFile::exists(lockFile));

    xcb_connection_t *connection = xcb_connect(display.toLocal8Bit().constData(), nullptr);
    ASSERT_EQ(xcb_connection_has_error(connection), 0);
    const char trayName[] = "_NET_SYSTEM_TRAY_S0";
    XcbReply<xcb_intern_atom_reply_t> atom(
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, sizeof trayName - 1, trayName), nullptr));
    XcbReply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, atom->atom), nullptr));
    EXPECT_NE(owner->owner, uint32_t(XCB_WINDOW_NONE)) << "QSystemTrayIcon needs a tray selection owner";
    xcb_disconnect(connection);

    const pid_t xterm = desktop->start(QStringLiteral("xterm"), {QStringLiteral("-T"), QStringLiteral("pixmora-e2e-second")});
    EXPECT_NE(desktop->waitForWindow(QStringLiteral("^pixmora-e2e-second$")), 0u);
    EXPECT_EQ(desktop->environment().value(QStringLiteral("DISPLAY")), display);

    desktop.reset();
    EXPECT_FALSE(answers(display));
    EXPECT_FALSE(QFile::exists(lockFile)) << "the server was stopped, not killed";
    EXPECT_EQ(kill(xterm, 0), -1) << "what the test started is gone";
}

TEST(VirtualDesktopTest, RunReportsOutputExitCodeAndTimeout)
{
    const auto echoed = testDesktop().run(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("echo $DISPLAY; exit 3")});
    EXPECT_EQ(echoed.exitCode, 3);
    EXPECT_EQ(echoed.output.trimmed(), testDesktop().display().toLocal8Bit());
    const auto slow = testDesktop().run(QStringLiteral("sleep"), {QStringLiteral("5")}, 200);
    EXPECT_TRUE(slow.timedOut);
    EXPECT_FALSE(slow.ok());
}

} // namespace
} // namespace pixmora::e2e
