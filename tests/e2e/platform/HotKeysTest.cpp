#include "PlatformTestSupport.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11HotKeys.h"

#include <gtest/gtest.h>

#include <memory>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

namespace pixmora::e2e {
namespace {

constexpr quint32 controlShift = 0x1200;

class HotKeysTest : public ::testing::Test {
protected:
    HotKeysTest()
    {
        hotKeys.onPressed = [this](quint32 id) { pressed.push_back(id); };
    }

    void press(const QString &keys)
    {
        ASSERT_TRUE(runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("key"), keys}).ok());
    }

    bool arrives(std::vector<quint32> expected)
    {
        return waitFor([&] { return pressed == expected; }, 3000);
    }

    X11Connection x11;
    X11HotKeys hotKeys{x11};
    std::vector<quint32> pressed;
};

TEST_F(HotKeysTest, ControlShiftDigitDeliversItsId)
{
    ASSERT_TRUE(hotKeys.grab(7, 20, controlShift));
    ASSERT_TRUE(hotKeys.grab(9, 18, controlShift));
    press(QStringLiteral("ctrl+shift+3"));
    EXPECT_TRUE(arrives({7}));
    press(QStringLiteral("ctrl+shift+1"));
    EXPECT_TRUE(arrives({7, 9}));

    // Other modifiers are another shortcut.
    press(QStringLiteral("ctrl+3"));
    press(QStringLiteral("ctrl+shift+alt+3"));
    waitFor([] { return false; }, 300);
    EXPECT_EQ(pressed, (std::vector<quint32>{7, 9}));
}

TEST_F(HotKeysTest, LockKeysDoNotStopTheShortcut)
{
    ASSERT_TRUE(hotKeys.grab(3, 20, controlShift));
    for (const QString &lock : {QStringLiteral("Num_Lock"), QStringLiteral("Caps_Lock")}) {
        SCOPED_TRACE(lock.toStdString());
        pressed.clear();
        press(lock);
        press(QStringLiteral("ctrl+shift+3"));
        EXPECT_TRUE(arrives({3}));
        press(lock);
    }
}

// A second X client on the test desktop.
class OtherClient {
public:
    OtherClient()
        : m_connection(xcb_connect(testDesktop().display().toLocal8Bit().constData(), nullptr))
    {
    }
    ~OtherClient() { xcb_disconnect(m_connection); }

    // Grabs Control-Shift and the key of a keysym; true when the server agreed.
    bool grab(xcb_keysym_t keysym)
    {
        xcb_key_symbols_t *symbols = xcb_key_symbols_alloc(m_connection);
        XcbReply<xcb_keycode_t> codes(xcb_key_symbols_get_keycode(symbols, keysym));
        xcb_key_symbols_free(symbols);
        if (!codes)
            return false;
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        XcbReply<xcb_generic_error_t> error(xcb_request_check(
            m_connection, xcb_grab_key_checked(m_connection, 1, root, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT,
                                               codes.get()[0], XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
        return !error;
    }

private:
    xcb_connection_t *m_connection;
};

TEST_F(HotKeysTest, ShortcutHeldByAnotherClientIsRefused)
{
    auto other = std::make_unique<OtherClient>();
    ASSERT_TRUE(other->grab(0x34));  // '4'

    EXPECT_FALSE(hotKeys.grab(4, 21, controlShift));
    EXPECT_TRUE(hotKeys.grab(2, 19, controlShift)) << "a refusal leaves other shortcuts alone";
    other.reset();
    // The server frees the grab once it notices the other client left.
    EXPECT_TRUE(waitFor([&] { return hotKeys.grab(4, 21, controlShift); })) << "free again once the other client is gone";
    press(QStringLiteral("ctrl+shift+4"));
    EXPECT_TRUE(arrives({4}));
}

TEST_F(HotKeysTest, DestroyingTheServiceReleasesItsGrabs)
{
    {
        X11HotKeys temporary(x11);
        ASSERT_TRUE(temporary.grab(1, 20, controlShift));
        EXPECT_FALSE(OtherClient().grab(0x33));  // '3'
    }
    EXPECT_TRUE(OtherClient().grab(0x33));
}

TEST_F(HotKeysTest, UnknownKeyCodeIsRefused)
{
    EXPECT_FALSE(hotKeys.grab(5, 0, controlShift));
    EXPECT_FALSE(hotKeys.grab(5, 22, controlShift));
}

} // namespace
} // namespace pixmora::e2e
