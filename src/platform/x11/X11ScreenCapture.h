#pragma once

#include "platform/ScreenCapture.h"

namespace pixmora {

class X11Connection;
class X11OwnWindowsExclusion;
struct ScreenPlacement;

// Screens and windows of an X11 desktop, read from the root window in device
// pixels. Main thread only.
class X11ScreenCapture : public ScreenCapture {
public:
    explicit X11ScreenCapture(X11Connection &x11);

    DisplayList displays() override;
    WindowList windows() override;
    QImage captureDisplay(const DisplayInfo &display) override;
    void streamDisplay(const DisplayInfo &display, const std::function<void(const QImage &band)> &consume) override;
    QImage captureRegion(const DisplayInfo &display, const QRectF &rect) override;
    QImage captureWindow(const WindowInfo &window, double scale) override;
    std::unique_ptr<OwnWindowsExclusion> excludeOwnWindows(const DisplayInfo &display, const QRectF &rect,
                                                           const QRectF &panel) override;

private:
    QRect rootBounds() const;
    bool compositorRunning();

    X11Connection &m_x11;
    X11OwnWindowsExclusion *m_exclusion = nullptr;  // the one held, if any
};

} // namespace pixmora
