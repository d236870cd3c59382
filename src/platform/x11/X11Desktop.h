#pragma once

#include "platform/Desktop.h"

#include <memory>

namespace pixmora {

class X11Connection;
class OverlayKeyboardGrab;

// The desktop as an EWMH window manager (openbox, xfwm, kwin, mutter, ...)
// and the freedesktop.org file-manager interface present it. Main thread only.
class X11Desktop : public Desktop {
public:
    explicit X11Desktop(X11Connection &x11);
    ~X11Desktop() override;

    void openFile(const QString &path) override;
    void revealInFileManager(const QString &path) override;
    void beep() override;
    quint64 activeWindow() override;
    void activateWindow(quint64 window) override;
    void activateApplication() override;
    // Both change window flags, which Qt applies when the window is shown:
    // call them before show() (a visible widget is shown again).
    void makeOverlay(QWindow *window) override;
    void giveKeyboardTo(QWindow *overlay) override;
    bool drawOverlayBackdrop(QWindow *overlay, const QImage &backdrop, QColor dim) override;
    void makeFloatingPanel(QWidget *widget, PanelFocus focus) override;
    bool isCompositing() override;

private:
    X11Connection &m_x11;
    std::unique_ptr<OverlayKeyboardGrab> m_keyboardGrab;
};

} // namespace pixmora
