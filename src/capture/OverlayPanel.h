#pragma once

#include "platform/Displays.h"

#include <QWidget>

namespace pixmora {

class Desktop;

// A frameless window that covers one display above everything else (panels,
// docks, full-screen windows), on every workspace, and takes keyboard focus.
// The area overlay and the window picker each put one on every display.
// Give it a focus proxy to route the keyboard to a content view.
class OverlayPanel : public QWidget {
    Q_OBJECT

public:
    OverlayPanel(const DisplayInfo &display, Desktop &desktop);

    const DisplayInfo &display() const { return m_display; }

    // Shows the panel; the key panel also gets the keyboard.
    void present(bool makeKey);
    void makeKey();

protected:
    void hideEvent(QHideEvent *event) override;

private:
    QWidget *keyboardTarget();

    DisplayInfo m_display;
};

} // namespace pixmora
