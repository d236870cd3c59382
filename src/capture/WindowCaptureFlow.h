#pragma once

#include "capture/CaptureFlow.h"
#include "capture/WindowPickerController.h"
#include "platform/Displays.h"

#include <QPointer>

namespace pixmora {

class Desktop;
class ScreenCapture;

// Lets the user pick a window over a frozen image of the desktop, then
// captures that window live once the picker has left the screen, with the
// program's own drop shadow when asked.
class WindowCaptureFlow : public CaptureFlow {
    Q_OBJECT

public:
    static constexpr int captureDelayMs = 150;

    WindowCaptureFlow(ScreenCapture &screens, Desktop &desktop, bool withShadow);

    // The open picker; nothing before it opens and once it has closed.
    WindowPickerController *windowPicker() const { return m_windowPicker; }

protected:
    void run() override;

private:
    void performWindowCapture(const WindowInfo &window);

    ScreenCapture &m_screens;
    Desktop &m_desktop;
    const bool m_withShadow;
    QPointer<WindowPickerController> m_windowPicker;
};

} // namespace pixmora
