#pragma once

#include "platform/ScreenCapture.h"

#include <xcb/xcb.h>

#include <QImage>
#include <QRect>
#include <QRegion>

#include <utility>
#include <vector>

namespace pixmora {

class X11Connection;

// Keeps what lies beneath our own windows readable without a compositing
// manager: while it lives, the X server redirects the top-level windows under
// the area (Composite), so the screen looks the same but each one's whole
// content stays in its own pixmap, also where one of ours covers it. Only the
// bare desktop has no pixmap; the part of the area it showed at the start is
// remembered instead. When none of our windows comes over the area, nothing is
// redirected: redirected windows cost every reader of the screen. Main thread only.
class X11OwnWindowsExclusion : public OwnWindowsExclusion {
public:
    // area, panel: device pixels on the root window. `active` points at this
    // exclusion while it lives.
    X11OwnWindowsExclusion(X11Connection &x11, const QRect &area, const QRect &panel, X11OwnWindowsExclusion *&active);
    ~X11OwnWindowsExclusion() override;
    X11OwnWindowsExclusion(const X11OwnWindowsExclusion &) = delete;
    X11OwnWindowsExclusion &operator=(const X11OwnWindowsExclusion &) = delete;

    // Replaces our windows' pixels in `image`, which shows the root window's
    // `area`, by what lies beneath them; only within `bounds` (the display).
    void uncover(QImage &image, const QRect &area, const QRect &bounds);

    // The frame captured last: the next one is read into it once its user
    // has let go of it, and it goes with the exclusion.
    QImage lastFrame;

private:
    struct Beneath {
        xcb_window_t window;
        QRect native;  // border included, as the window's pixmap is
    };
    // Where our windows are on screen: found again only when the set of them changes.
    const QRegion &ownArea();

    X11Connection &m_x11;
    X11OwnWindowsExclusion *&m_active;
    std::vector<Beneath> m_redirected;  // topmost first
    std::vector<std::pair<QRect, QImage>> m_bareDesktop;  // root coordinates
    std::vector<xcb_window_t> m_ownClients;
    QRegion m_ownArea;
    bool m_ownAreaSettled = true;
};

} // namespace pixmora
