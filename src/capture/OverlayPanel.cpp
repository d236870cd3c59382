#include "capture/OverlayPanel.h"

#include "platform/Desktop.h"

namespace pixmora {

OverlayPanel::OverlayPanel(const DisplayInfo &display, Desktop &desktop)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint),
      m_display(display)
{
    setAttribute(Qt::WA_DeleteOnClose, false);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setGeometry(display.frame);
    setAttribute(Qt::WA_OpaquePaintEvent);  // the content view paints every pixel
    winId();  // the window system hints need the native window, before it is mapped
    desktop.makeOverlay(this);
}

void OverlayPanel::present(bool makeKeyPanel)
{
    show();
    raise();
    if (makeKeyPanel)
        makeKey();
}

void OverlayPanel::makeKey()
{
    activateWindow();
    setFocus(Qt::OtherFocusReason);
    keyboardTarget()->grabKeyboard();
}

// A grab outlives hiding: a hidden panel would go on taking every key press
// of the application (an alert's included) until it is deleted.
void OverlayPanel::hideEvent(QHideEvent *event)
{
    if (keyboardGrabber() == keyboardTarget())
        keyboardTarget()->releaseKeyboard();
    QWidget::hideEvent(event);
}

// Key events go to the grabbing widget, not to the focus widget.
QWidget *OverlayPanel::keyboardTarget()
{
    return focusProxy() ? focusProxy() : this;
}

} // namespace pixmora
