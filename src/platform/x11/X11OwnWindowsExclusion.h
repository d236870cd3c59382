#pragma once

#include "platform/ScreenCapture.h"

#include <QImage>
#include <QRect>

#include <utility>
#include <vector>

namespace pixmora {

class X11Connection;

// Keeps what lies beneath our own windows readable without a compositing
// manager: while it lives, the X server redirects every top-level window
// automatically (Composite), so the screen looks the same but each window's
// whole content stays in its own pixmap, also where one of ours covers it.
// Only the bare desktop has no pixmap; the part of the area it showed at the
// start is remembered instead. Main thread only.
class X11OwnWindowsExclusion : public OwnWindowsExclusion {
public:
    // area: device pixels on the root window. `active` points at this
    // exclusion while it lives.
    X11OwnWindowsExclusion(X11Connection &x11, const QRect &area, X11OwnWindowsExclusion *&active);
    ~X11OwnWindowsExclusion() override;
    X11OwnWindowsExclusion(const X11OwnWindowsExclusion &) = delete;
    X11OwnWindowsExclusion &operator=(const X11OwnWindowsExclusion &) = delete;

    // Replaces our windows' pixels in `image`, which shows the root window's
    // `area`, by what lies beneath them; only within `bounds` (the display).
    void uncover(QImage &image, const QRect &area, const QRect &bounds);

private:
    X11Connection &m_x11;
    X11OwnWindowsExclusion *&m_active;
    bool m_redirected = false;
    std::vector<std::pair<QRect, QImage>> m_bareDesktop;  // root coordinates
};

} // namespace pixmora
