#pragma once

#include <QImage>
#include <QRect>
#include <QTimer>

#include <xcb/xcb.h>

#include <cstddef>

namespace pixmora {

class X11Connection;

// Reads pixels of a drawable through MIT-SHM into one shared segment that is
// reused between captures (a fresh segment per shot costs ~90 ms of page
// faults on a 4K screen) and released shortly after the last capture, so an
// idle process does not keep tens of megabytes. Falls back to plain GetImage
// when the server offers no SHM (remote displays). Main thread only.
class X11ImageReader {
public:
    explicit X11ImageReader(X11Connection &x11);
    ~X11ImageReader();
    X11ImageReader(const X11ImageReader &) = delete;
    X11ImageReader &operator=(const X11ImageReader &) = delete;

    // The pixels of `area` (device pixels) of a drawable that covers `bounds`;
    // what lies outside bounds is black (transparent for 32-bit drawables).
    // RGB32 for 24-bit drawables, ARGB32 premultiplied for 32-bit ones.
    // Throws pixmora::Error when the server refuses.
    QImage read(xcb_drawable_t drawable, const QRect &area, const QRect &bounds);

    void releaseSegment();
    bool usesSharedMemory() const { return m_shmAvailable; }

private:
    struct Segment {
        quint32 id = 0;
        uchar *data = nullptr;
        std::size_t size = 0;
    };

    bool ensureSegment(std::size_t bytes);
    QImage readShared(xcb_drawable_t drawable, const QRect &area, const QRect &clip);
    QImage readPlain(xcb_drawable_t drawable, const QRect &area, const QRect &clip);

    X11Connection &m_x11;
    bool m_shmAvailable = false;
    Segment m_segment;
    QTimer m_releaseTimer;
};

} // namespace pixmora
