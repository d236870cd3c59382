#pragma once

#include <QImage>
#include <QRect>

#include <xcb/xcb.h>

namespace pixmora {

class X11Connection;

// Reads pixels of a drawable through MIT-SHM, in bands through one small
// shared segment that lives as long as the reader. Page faults are what
// costs here (a fresh 33 MB segment takes 0.1 to 0.8 s on first touch,
// between the server and us), so the segment is 4 MB, double-buffered: the
// server fills one half while the other is copied out, and it stays mapped
// without weighing on the idle footprint. Falls back to plain GetImage when
// the server cannot share memory with us (remote displays). Main thread only.
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

    bool usesSharedMemory() const { return m_shmAvailable; }

private:
    bool attachSegment();

    X11Connection &m_x11;
    bool m_shmAvailable = false;
    quint32 m_segment = 0;
    uchar *m_segmentData = nullptr;
};

} // namespace pixmora
