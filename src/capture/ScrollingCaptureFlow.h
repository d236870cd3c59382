#pragma once

#include "capture/AreaCaptureFlow.h"
#include "scroll/ScrollCaptureController.h"

#include <QPointer>

namespace pixmora {

class Dialogs;

// The user selects the visible part of a long document on the frozen
// displays; 0.15 s later, once the overlay has left the screen, a scrolling
// capture of that rectangle runs while the user scrolls, and its tall image
// is the outcome. Selections under 120 pixels high are refused with an alert.
class ScrollingCaptureFlow : public AreaCaptureFlow {
    Q_OBJECT

public:
    static constexpr int sessionDelayMs = 150;
    // The smallest frame the stitcher accepts.
    static constexpr double minimumHeightPixels = 120.0;

    ScrollingCaptureFlow(ScreenCapture &screens, Desktop &desktop, Dialogs &dialogs);

    // The running capture; nothing before it starts and once it has ended.
    ScrollCaptureController *scrollCapture() const { return m_scrollCapture; }
    // The scrolling command given again: a running capture finishes as with
    // Done (one that has already finished stays as it is). False when no
    // capture runs yet, as during the selection.
    bool finishScrollCapture();

protected:
    void selected(std::optional<RegionSelection> selection, const DisplaySnapshots &snapshots) override;

private:
    void beginScrollSession(const RegionSelection &selection);

    Dialogs &m_dialogs;
    QPointer<ScrollCaptureController> m_scrollCapture;
};

} // namespace pixmora
