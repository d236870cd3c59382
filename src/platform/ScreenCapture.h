#pragma once

#include "platform/Displays.h"

#include <QImage>
#include <QRectF>

#include <functional>
#include <memory>

namespace pixmora {

// Held while captures of an area must show what lies beneath the program's
// own windows there (see ScreenCapture::excludeOwnWindows).
class OwnWindowsExclusion {
public:
    virtual ~OwnWindowsExclusion() = default;
};

// The screen-capture service: which displays and windows can be captured, and
// their pixels. Images are in device pixels (RGB32 or ARGB32 premultiplied).
// Failures throw pixmora::Error (platform/Error.h).
class ScreenCapture {
public:
    virtual ~ScreenCapture() = default;

    // Displays in capture order; the first is the main (primary) display.
    virtual DisplayList displays() = 0;
    // On-screen windows, topmost first.
    virtual WindowList windows() = 0;

    virtual QImage captureDisplay(const DisplayInfo &display) = 0;
    // The same pixels handed to `consume` band by band, top to bottom, each
    // band readable only during its call: for a capture that is encoded as
    // it is read and never held whole.
    virtual void streamDisplay(const DisplayInfo &display, const std::function<void(const QImage &band)> &consume)
    {
        consume(captureDisplay(display));
    }
    // rect is in global points and lies on the display; the result is
    // floor(w * scale) x floor(h * scale) pixels. Our own windows are left
    // out while an exclusion for that area is held, else they may show.
    virtual QImage captureRegion(const DisplayInfo &display, const QRectF &rect) = 0;
    // Until the result is destroyed, captureRegion of `rect` shows what lies
    // beneath our own windows: those on screen now and one about to appear at
    // `panel` (global points; empty for none). Take it before such a window
    // appears over the area: the system may keep only what it saw from then
    // on. One at a time.
    virtual std::unique_ptr<OwnWindowsExclusion> excludeOwnWindows(const DisplayInfo &display, const QRectF &rect,
                                                                   const QRectF &panel) = 0;
    // The window alone, floor(frame.w * scale) x floor(frame.h * scale) pixels.
    virtual QImage captureWindow(const WindowInfo &window, double scale) = 0;
};

} // namespace pixmora
