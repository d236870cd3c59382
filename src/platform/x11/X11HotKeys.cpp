#include "platform/x11/X11HotKeys.h"

#include "platform/Logging.h"
#include "platform/x11/X11Connection.h"

#include <QCoreApplication>

#include <xcb/xcb_keysyms.h>
// xkb.h names a member `explicit`, a C++ keyword.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include <memory>

namespace pixmora {

namespace {

// The registry's portable values (the ANSI keyboard's virtual key codes and
// the classic modifier masks).
constexpr quint32 keyCodeOne = 18;
constexpr quint32 keyCodeFour = 21;
constexpr quint32 shiftModifier = 0x0200;
constexpr quint32 controlModifier = 0x1000;
constexpr xcb_keysym_t keysymOne = 0x31;     // XK_1
constexpr xcb_keysym_t keysymNumLock = 0xff7f;  // XK_Num_Lock

struct KeySymbolsFree {
    void operator()(xcb_key_symbols_t *symbols) const { xcb_key_symbols_free(symbols); }
};
using KeySymbols = std::unique_ptr<xcb_key_symbols_t, KeySymbolsFree>;

std::vector<xcb_keycode_t> keyCodesFor(xcb_key_symbols_t *symbols, xcb_keysym_t keysym)
{
    std::vector<xcb_keycode_t> codes;
    XcbReply<xcb_keycode_t> list(xcb_key_symbols_get_keycode(symbols, keysym));
    for (const xcb_keycode_t *code = list.get(); code && *code != XCB_NO_SYMBOL; ++code)
        codes.push_back(*code);
    return codes;
}

// The modifier bit that Num_Lock sets (Mod2 on nearly every layout).
uint16_t numLockMask(xcb_connection_t *c, xcb_key_symbols_t *symbols)
{
    const std::vector<xcb_keycode_t> numLock = keyCodesFor(symbols, keysymNumLock);
    XcbReply<xcb_get_modifier_mapping_reply_t> mapping(
        xcb_get_modifier_mapping_reply(c, xcb_get_modifier_mapping(c), nullptr));
    if (!mapping || numLock.empty())
        return XCB_MOD_MASK_2;
    const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(mapping.get());
    const int perModifier = mapping->keycodes_per_modifier;
    for (int modifier = 0; modifier < 8; ++modifier)
        for (int k = 0; k < perModifier; ++k)
            for (xcb_keycode_t code : numLock)
                if (codes[modifier * perModifier + k] == code)
                    return static_cast<uint16_t>(1u << modifier);
    return XCB_MOD_MASK_2;
}

// Without it the server fakes a release before every repeated press, and a
// repeat cannot be told from a quick second press (xdotool's come within the
// same millisecond). Qt asks for it too; the reply says whether the server
// does it for this connection.
bool enableDetectableAutoRepeat(xcb_connection_t *c)
{
    XcbReply<xcb_xkb_use_extension_reply_t> xkb(
        xcb_xkb_use_extension_reply(c, xcb_xkb_use_extension(c, XCB_XKB_MAJOR_VERSION, XCB_XKB_MINOR_VERSION), nullptr));
    if (!xkb || !xkb->supported)
        return false;
    const uint32_t flag = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
    XcbReply<xcb_xkb_per_client_flags_reply_t> flags(xcb_xkb_per_client_flags_reply(
        c, xcb_xkb_per_client_flags(c, XCB_XKB_ID_USE_CORE_KBD, flag, flag, 0, 0, 0), nullptr));
    return flags && (flags->value & flag);
}

} // namespace

X11HotKeys::X11HotKeys(X11Connection &x11)
    : m_x11(x11)
{
    KeySymbols symbols(xcb_key_symbols_alloc(m_x11.connection()));
    m_numLockMask = numLockMask(m_x11.connection(), symbols.get());
    if (!enableDetectableAutoRepeat(m_x11.connection()))
        qCWarning(lcPlatform) << "The X server cannot report held keys without releases:"
                                 " a held shortcut may capture more than once.";
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11HotKeys::~X11HotKeys()
{
    if (QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
    if (!m_x11.isAlive())
        return;
    for (const Grab &grab : m_grabs)
        ungrab(grab);
    xcb_flush(m_x11.connection());
}

void X11HotKeys::ungrab(const Grab &grab)
{
    const uint16_t ignored = ignoredModifiers();
    for (uint16_t extra : {uint16_t(0), uint16_t(XCB_MOD_MASK_LOCK), m_numLockMask, ignored})
        xcb_ungrab_key(m_x11.connection(), grab.keyCode, m_x11.root(), grab.modifiers | extra);
}

bool X11HotKeys::grab(quint32 id, quint32 keyCode, quint32 modifiers)
{
    if (keyCode < keyCodeOne || keyCode > keyCodeFour)
        return false;
    uint16_t xModifiers = 0;
    if (modifiers & controlModifier)
        xModifiers |= XCB_MOD_MASK_CONTROL;
    if (modifiers & shiftModifier)
        xModifiers |= XCB_MOD_MASK_SHIFT;

    xcb_connection_t *c = m_x11.connection();
    KeySymbols symbols(xcb_key_symbols_alloc(c));
    const std::vector<xcb_keycode_t> codes = keyCodesFor(symbols.get(), keysymOne + (keyCode - keyCodeOne));
    if (codes.empty())
        return false;

    // The shortcut must also work with Caps Lock or Num Lock on, and X treats
    // those as modifiers: every combination is grabbed.
    std::vector<Grab> made;
    bool refused = false;
    for (xcb_keycode_t code : codes) {
        const Grab candidate{id, code, xModifiers};
        std::vector<xcb_void_cookie_t> cookies;
        for (uint16_t extra : {uint16_t(0), uint16_t(XCB_MOD_MASK_LOCK), m_numLockMask, ignoredModifiers()})
            cookies.push_back(xcb_grab_key_checked(c, 1, m_x11.root(), xModifiers | extra, code,
                                                   XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        for (xcb_void_cookie_t cookie : cookies) {
            // BadAccess: another client holds this combination.
            XcbReply<xcb_generic_error_t> error(xcb_request_check(c, cookie));
            refused = refused || error != nullptr;
        }
        made.push_back(candidate);
    }
    if (refused) {
        for (const Grab &partial : made)
            ungrab(partial);
        xcb_flush(c);
        return false;
    }
    m_grabs.insert(m_grabs.end(), made.begin(), made.end());
    return true;
}

bool X11HotKeys::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    const uint8_t type = event->response_type & 0x7f;
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE)
        return false;
    const auto *key = static_cast<const xcb_key_press_event_t *>(message);
    // The release may reach one of our windows instead (an overlay that took the keyboard).
    if (type == XCB_KEY_RELEASE) {
        if (key->detail == m_heldKey)
            m_heldKey = 0;
        return false;
    }
    if (key->event != m_x11.root())
        return false;
    const uint16_t modifiers = key->state & ~ignoredModifiers() & 0xff;
    for (const Grab &grab : m_grabs) {
        if (grab.keyCode == key->detail && grab.modifiers == modifiers) {
            const bool repeat = key->detail == m_heldKey;
            m_heldKey = key->detail;
            if (!repeat && onPressed)
                onPressed(grab.id);
            return true;
        }
    }
    return false;
}

} // namespace pixmora
