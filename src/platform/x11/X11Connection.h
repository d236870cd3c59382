#pragma once

#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

#include <cstdlib>
#include <memory>
#include <optional>

#include <QString>

namespace pixmora {

class X11ImageTransfer;

// xcb replies are malloc'ed; this frees them.
struct XcbFree {
    void operator()(void *p) const { std::free(p); }
};
template <typename T>
using XcbReply = std::unique_ptr<T, XcbFree>;

// Qt's own X connection with the root window and the EWMH atoms, shared by
// the X11 services. It must not outlive the QGuiApplication.
class X11Connection {
public:
    // Throws pixmora::Error when the application does not run on xcb.
    X11Connection();
    // Why $DISPLAY cannot be opened, before Qt tries (it aborts); nothing when it can.
    static std::optional<QString> displayProblem();
    ~X11Connection();
    X11Connection(const X11Connection &) = delete;
    X11Connection &operator=(const X11Connection &) = delete;

    xcb_connection_t *connection() const { return m_connection; }
    xcb_screen_t *screen() const { return m_screen; }
    xcb_window_t root() const { return m_screen->root; }
    int screenNumber() const { return m_screenNumber; }
    xcb_ewmh_connection_t *ewmh() { return &m_ewmh; }
    // Pixels to and from the server; its shared memory belongs to this connection.
    X11ImageTransfer &images() { return *m_images; }

    // False once the server went away (or never answered).
    bool isAlive() const;

private:
    xcb_connection_t *m_connection = nullptr;
    xcb_screen_t *m_screen = nullptr;
    int m_screenNumber = 0;
    xcb_ewmh_connection_t m_ewmh{};
    std::unique_ptr<X11ImageTransfer> m_images;  // last: it goes while the connection still works
};

} // namespace pixmora
