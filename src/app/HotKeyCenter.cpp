#include "app/HotKeyCenter.h"

#include "platform/GlobalHotKeys.h"
#include "platform/Logging.h"

#include <QTimer>

#include <limits>

namespace pixmora {

HotKeyCenter::HotKeyCenter(GlobalHotKeys &platform) : m_platform(platform)
{
    m_platform.onPressed = [this](quint32 id) { pressed(id); };
}

HotKeyCenter::~HotKeyCenter() { m_platform.onPressed = nullptr; }

void HotKeyCenter::registerHotKey(qint64 keyCode, qint64 modifiers, std::function<void()> handler)
{
    constexpr qint64 maxValue = std::numeric_limits<quint32>::max();
    if (keyCode < 0 || keyCode > maxValue || modifiers < 0 || modifiers > maxValue)
        return;
    const quint32 id = m_nextId++;
    m_handlers[id] = std::move(handler);
    if (m_platform.grab(id, quint32(keyCode), quint32(modifiers)))
        m_acceptedIds.push_back(id);
    else
        qCWarning(lcApp, "The shortcut with key code %lld and modifiers 0x%llx is taken by another program.",
                  keyCode, modifiers);
}

void HotKeyCenter::pressed(quint32 id)
{
    QTimer::singleShot(0, &m_queueContext, [this, id] {
        const auto found = m_handlers.find(id);
        if (found != m_handlers.end() && found->second)
            found->second();
    });
}

} // namespace pixmora
