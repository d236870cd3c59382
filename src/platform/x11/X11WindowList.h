#pragma once

#include "platform/Displays.h"

#include <QRect>

#include <xcb/xcb.h>

#include <vector>

namespace pixmora {

class X11Connection;
class ScreenLayout;

// The window manager's frame around a client: the ancestor that is a child
// of the root (the client itself when nothing reparented it).
struct WindowFrame {
    xcb_window_t window = XCB_WINDOW_NONE;  // none: the client is gone
    QRect native;                           // root coordinates, border included
    bool viewable = false;                  // mapped, and so are its ancestors
};

// One round trip per tree level for all clients together.
std::vector<WindowFrame> findFrames(X11Connection &x11, const std::vector<xcb_window_t> &clients);

// The managed top-level windows (EWMH client list), topmost first. All
// property requests go out before the first reply is read, so 50 windows cost
// a few round trips, not hundreds.
WindowList listWindows(X11Connection &x11, const ScreenLayout &layout);

} // namespace pixmora
