#include "capture/OverlayController.h"

#include "capture/OverlayPanel.h"
#include "platform/Desktop.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

#include <utility>

namespace pixmora {

OverlayController::OverlayController(Desktop &desktop, CursorPosition cursorPosition)
    : m_desktop(desktop),
      m_cursorPosition(cursorPosition ? std::move(cursorPosition) : CursorPosition([] { return QCursor::pos(); }))
{
}

OverlayController::~OverlayController()
{
    for (OverlayPanel *panel : m_panels)
        delete panel;
}

void OverlayController::cover(std::vector<OverlayPanel *> panels)
{
    m_panels = std::move(panels);
    m_previousWindow = m_desktop.activeWindow();
    m_desktop.activateApplication();

    const QPoint pointer = m_cursorPosition();
    OverlayPanel *keyboardPanel = nullptr;
    for (OverlayPanel *panel : m_panels) {
        panel->present();
        if (!keyboardPanel && panel->display().frame.contains(pointer))
            keyboardPanel = panel;
    }
    // Only once all are shown, so that no later one takes the keyboard away.
    if (!keyboardPanel && !m_panels.empty())
        keyboardPanel = m_panels.front();
    if (keyboardPanel)
        keyboardPanel->takeKeyboard();

    connect(qGuiApp, &QGuiApplication::screenRemoved, this, [this] { cancel(); });
}

bool OverlayController::close()
{
    if (m_closed)
        return false;
    m_closed = true;
    for (OverlayPanel *panel : std::exchange(m_panels, {})) {
        panel->hide();
        panel->deleteLater();
    }
    if (m_previousWindow != 0)
        m_desktop.activateWindow(std::exchange(m_previousWindow, 0));
    return true;
}

} // namespace pixmora
