#pragma once

#include "platform/GlobalHotKeys.h"

#include <QAbstractNativeEventFilter>

#include <xcb/xcb.h>

#include <vector>

namespace pixmora {

class X11Connection;

// Passive key grabs on the root window; presses arrive through Qt's xcb
// event stream. Main thread only.
class X11HotKeys : public GlobalHotKeys, private QAbstractNativeEventFilter {
public:
    explicit X11HotKeys(X11Connection &x11);
    ~X11HotKeys() override;
    X11HotKeys(const X11HotKeys &) = delete;
    X11HotKeys &operator=(const X11HotKeys &) = delete;

    bool grab(quint32 id, quint32 keyCode, quint32 modifiers) override;

private:
    struct Grab {
        quint32 id;
        xcb_keycode_t keyCode;
        uint16_t modifiers;
    };

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;
    void ungrab(const Grab &grab);
    uint16_t ignoredModifiers() const { return XCB_MOD_MASK_LOCK | m_numLockMask; }

    X11Connection &m_x11;
    uint16_t m_numLockMask = XCB_MOD_MASK_2;
    std::vector<Grab> m_grabs;
    // A shortcut held down repeats; only its first press counts. With
    // detectable auto-repeat a held key sends presses and one release at the
    // end, so any press that follows a release is a new one.
    xcb_keycode_t m_heldKey = 0;
};

} // namespace pixmora
