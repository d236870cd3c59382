#pragma once

#include <QImage>
#include <QRect>

#include <xcb/xcb.h>

#include <functional>

namespace pixmora {

class X11Connection;

// Moves pixels between the server and us through MIT-SHM, in bands through
// one small shared segment that lives as long as the connection. Page faults are what
// costs here (a fresh 33 MB segment takes 0.1 to 0.8 s on first touch,
// between the server and us), so the segment is 4 MB, double-buffered: the
// server fills one half while the other is copied out, and it stays mapped
// without weighing on the idle footprint. Reading falls back to plain
// GetImage when the server cannot share memory with us (remote displays).
// Main thread only.
class X11ImageTransfer {
public:
    explicit X11ImageTransfer(X11Connection &x11);
    ~X11ImageTransfer();
    X11ImageTransfer(const X11ImageTransfer &) = delete;
    X11ImageTransfer &operator=(const X11ImageTransfer &) = delete;

    // The pixels of `area` (device pixels) of a drawable that covers `bounds`;
    // what lies outside bounds is black (transparent for 32-bit drawables).
    // RGB32 for 24-bit drawables, ARGB32 premultiplied for 32-bit ones.
    // Throws pixmora::Error when the server refuses. The pixels go into
    // `recycled` when no one else holds it and it has the size and format:
    // fresh memory costs more than the copy itself.
    QImage read(xcb_drawable_t drawable, const QRect &area, const QRect &bounds, QImage recycled = {});
    // What the server sends for 24-bit pixels in their fourth byte: anything.
    enum class Padding { AsSent, Opaque };
    // The same pixels band by band, top to bottom, without the whole image
    // in memory: `consume` gets a view of each band in the shared segment,
    // valid only during the call, and where its rows go in `area`. Padding
    // says whether RGB32 bands get their fourth byte set to 0xff first.
    void readBands(xcb_drawable_t drawable, const QRect &area, const QRect &bounds, Padding padding,
                   const std::function<void(QImage &band, QPoint at)> &consume);
    // Puts an RGB32 or ARGB32 premultiplied image at the top-left corner of a
    // drawable of that depth (24 or 32), with `veil` (premultiplied) laid
    // over every pixel on the way, as QPainter would lay it. False, with the
    // drawable partly written, when shared memory is not available or the
    // server refuses.
    bool write(const QImage &image, xcb_drawable_t drawable, uint8_t depth, QRgb veil = 0);

    bool usesSharedMemory() const { return m_shmAvailable; }

private:
    bool attachSegment();

    X11Connection &m_x11;
    bool m_shmAvailable = false;
    quint32 m_segment = 0;
    uchar *m_segmentData = nullptr;
};

} // namespace pixmora
