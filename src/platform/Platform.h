#pragma once

#include "platform/Clipboard.h"
#include "platform/Desktop.h"
#include "platform/Dialogs.h"
#include "platform/FolderBookmarks.h"
#include "platform/GlobalHotKeys.h"
#include "platform/LoginItem.h"
#include "platform/ScreenCapture.h"
#include "platform/SharingServices.h"

namespace pixmora {

// The services the program gets from the system. The real ones live in
// platform/x11, the in-memory ones for tests in platform/fake.
struct Platform {
    ScreenCapture &screens;
    GlobalHotKeys &hotKeys;
    Clipboard &clipboard;
    Dialogs &dialogs;
    Desktop &desktop;
    LoginItem &loginItem;
    FolderBookmarks &bookmarks;
    SharingServices &sharing;
};

} // namespace pixmora
