#pragma once

#include <QObject>
#include <QtGlobal>

#include <functional>
#include <map>
#include <vector>

namespace pixmora {

class GlobalHotKeys;

// Registers system-wide shortcuts and runs their actions on the main thread,
// always later than the platform's event callback, never inside it.
class HotKeyCenter {
public:
    // Portable key codes and modifier masks (the platform translates them).
    static constexpr quint32 keyCode1 = 18, keyCode2 = 19, keyCode3 = 20, keyCode4 = 21;
    static constexpr quint32 controlKey = 0x1000, shiftKey = 0x0200;

    explicit HotKeyCenter(GlobalHotKeys &platform);
    ~HotKeyCenter();
    HotKeyCenter(const HotKeyCenter &) = delete;
    HotKeyCenter &operator=(const HotKeyCenter &) = delete;

    // Ids are handed out 1, 2, 3... in call order, also to refused shortcuts.
    // Arguments outside the 32-bit unsigned range are refused without an id.
    void registerHotKey(qint64 keyCode, qint64 modifiers, std::function<void()> handler);

    // Ids of the shortcuts the platform accepted, in order.
    const std::vector<quint32> &acceptedIds() const { return m_acceptedIds; }

private:
    void pressed(quint32 id);

    GlobalHotKeys &m_platform;
    std::map<quint32, std::function<void()>> m_handlers;
    std::vector<quint32> m_acceptedIds;
    quint32 m_nextId = 1;
    QObject m_queueContext;  // queued presses die with the registry
};

} // namespace pixmora
