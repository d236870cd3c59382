#include "capture/WindowCaptureFlow.h"

#include "capture/CaptureEngine.h"
#include "capture/WindowPickerController.h"
#include "platform/ScreenCapture.h"

#include <QTimer>

namespace pixmora {

WindowCaptureFlow::WindowCaptureFlow(ScreenCapture &screens, Desktop &desktop, bool withShadow)
    : m_screens(screens), m_desktop(desktop), m_withShadow(withShadow)
{
}

void WindowCaptureFlow::run()
{
    WindowList windows;
    DisplayList displays;
    DisplaySnapshots backdrops;
    try {
        windows = m_screens.windows();
        displays = m_screens.displays();
        backdrops = CaptureEngine::snapshotDisplays(m_screens, displays);
    } catch (const Error &error) {
        finish(CaptureOutcome::failed(error));
        return;
    }
    m_windowPicker = new WindowPickerController(
        std::move(windows), std::move(displays), std::move(backdrops), m_desktop, [this](std::optional<WindowInfo> window) {
            // Called from inside the picker's own event handler: it goes later.
            m_windowPicker->deleteLater();
            m_windowPicker = nullptr;
            if (!window) {
                finish(CaptureOutcome::cancelled());
                return;
            }
            // The picker's panels must be off the screen before the window is captured.
            QTimer::singleShot(captureDelayMs, this, [this, picked = *window] { performWindowCapture(picked); });
        });
    m_windowPicker->setParent(this);
    m_windowPicker->begin();
}

void WindowCaptureFlow::performWindowCapture(const WindowInfo &window)
{
    CapturedImage captured;
    try {
        captured = CaptureEngine::captureWindow(m_screens, window, m_withShadow);
    } catch (const Error &error) {
        finish(CaptureOutcome::failed(error));
        return;
    }
    finish(CaptureOutcome::captured({std::move(captured)}));
}

} // namespace pixmora
