#pragma once

#include "capture/CaptureFlow.h"
#include "capture/RegionSelectionController.h"

#include <QPointer>

namespace pixmora {

class Desktop;
class ScreenCapture;

// Freezes every display, lets the user drag a rectangle over the frozen
// images and cuts it from the snapshot of its display, so the capture shows
// the screen as it was when the command came.
class AreaCaptureFlow : public CaptureFlow {
    Q_OBJECT

public:
    AreaCaptureFlow(ScreenCapture &screens, Desktop &desktop);

    // The open overlay; nothing before it opens and once it has closed.
    RegionSelectionController *regionController() const { return m_regionController; }

protected:
    void run() override;

private:
    ScreenCapture &m_screens;
    Desktop &m_desktop;
    QPointer<RegionSelectionController> m_regionController;
};

} // namespace pixmora
