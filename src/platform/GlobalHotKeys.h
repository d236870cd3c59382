#pragma once

#include <QtGlobal>

#include <functional>

namespace pixmora {

// System-wide shortcuts. Key codes and modifier masks use the portable values
// of the hot-key registry (key codes 18..21 for 1..4, Control 0x1000, Shift
// 0x0200); each platform translates them.
class GlobalHotKeys {
public:
    virtual ~GlobalHotKeys() = default;

    // True when the system accepted the shortcut.
    virtual bool grab(quint32 id, quint32 keyCode, quint32 modifiers) = 0;

    // Called from event dispatch on the main thread with the id of a pressed shortcut.
    std::function<void(quint32 id)> onPressed;
};

} // namespace pixmora
