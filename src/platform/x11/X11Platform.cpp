#include "platform/x11/X11Platform.h"

namespace pixmora {

X11Platform::X11Platform()
    : m_screens(m_connection), m_hotKeys(m_connection), m_desktop(m_connection)
{
}

Platform X11Platform::platform()
{
    return Platform{m_screens, m_hotKeys, m_clipboard, m_dialogs, m_desktop, m_loginItem, m_bookmarks};
}

} // namespace pixmora
