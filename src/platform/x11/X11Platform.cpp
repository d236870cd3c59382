#include "platform/x11/X11Platform.h"

#include "image/ImageMemory.h"
#include "platform/x11/HugePageImages.h"

#include <QCoreApplication>

namespace pixmora {

X11Platform::X11Platform()
    : m_screens(m_connection), m_hotKeys(m_connection), m_desktop(m_connection), m_dialogs(m_desktop)
{
    setImageAllocator(allocateHugePageImage);
    QCoreApplication::instance()->installEventFilter(&m_backingStorePopulator);
}

X11Platform::~X11Platform()
{
    setImageAllocator(nullptr);
}

Platform X11Platform::platform()
{
    return Platform{m_screens, m_hotKeys, m_clipboard, m_dialogs, m_desktop, m_loginItem, m_bookmarks, m_sharing};
}

} // namespace pixmora
