#pragma once

#include "capture/CaptureFlow.h"
#include "capture/RegionSelectionController.h"

#include <QPointer>

#include <optional>

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
    // hint: shown on the overlay until the mouse goes down.
    AreaCaptureFlow(ScreenCapture &screens, Desktop &desktop, std::optional<QString> hint);

    void run() override;
    // Once the overlay has closed: with the rectangle and the frozen images,
    // or with nothing when the selection was cancelled.
    virtual void selected(std::optional<RegionSelection> selection, const DisplaySnapshots &snapshots);

    ScreenCapture &m_screens;
    Desktop &m_desktop;

private:
    const std::optional<QString> m_hint;
    QPointer<RegionSelectionController> m_regionController;
};

} // namespace pixmora
