#pragma once

#include "platform/Platform.h"
#include "platform/x11/AutostartLoginItem.h"
#include "platform/x11/BackingStorePopulator.h"
#include "platform/x11/GioSharingServices.h"
#include "platform/x11/InodeFolderBookmarks.h"
#include "platform/x11/QtClipboard.h"
#include "platform/x11/QtDialogs.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Desktop.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11ScreenCapture.h"

namespace pixmora {

// The real services on an X11 desktop. Create it after the QApplication
// (on the xcb platform) and destroy it before; throws pixmora::Error when
// there is no X display. While it lives, large images come from huge pages
// (see allocateImage()) and windows' surfaces are populated before they
// first paint.
class X11Platform {
public:
    X11Platform();
    ~X11Platform();
    X11Platform(const X11Platform &) = delete;
    X11Platform &operator=(const X11Platform &) = delete;

    Platform platform();

private:
    X11Connection m_connection;
    X11ScreenCapture m_screens;
    X11HotKeys m_hotKeys;
    QtClipboard m_clipboard;
    X11Desktop m_desktop;
    QtDialogs m_dialogs;
    AutostartLoginItem m_loginItem;
    InodeFolderBookmarks m_bookmarks;
    GioSharingServices m_sharing;
    BackingStorePopulator m_backingStorePopulator;
};

} // namespace pixmora
