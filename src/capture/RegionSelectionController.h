#pragma once

#include "capture/DisplaySnapshots.h"
#include "capture/OverlayController.h"
#include "platform/Displays.h"

#include <QList>
#include <QRectF>
#include <QString>

#include <functional>
#include <optional>

namespace pixmora {

class RegionSelectionView;

// A rectangle chosen on the area overlay, in global logical points, with the
// display it was drawn on.
struct RegionSelection {
    QRectF rect;
    DisplayInfo display;
};

// Lets the user drag a rectangle on a frozen image of every display.
class RegionSelectionController : public OverlayController {
    Q_OBJECT

public:
    // Called once: with the selection, or with nothing when cancelled.
    using Completion = std::function<void(std::optional<RegionSelection>)>;

    // hint: shown on every panel until the mouse goes down.
    RegionSelectionController(std::optional<QString> hint, DisplaySnapshots snapshots, DisplayList displays,
                              Desktop &desktop, Completion completion, CursorPosition cursorPosition = {});

    // Covers every display that has a snapshot. With none, the overlay cancels
    // itself from the event loop.
    void begin();
    // Closes the overlay and calls the completion: with the selection when
    // both are given and the rectangle is large enough, else with nothing.
    // Only the first call counts. The completion may destroy the controller.
    void finish(std::optional<QRectF> rect, const DisplayInfo *display);
    void cancel() override { finish(std::nullopt, nullptr); }

    QList<RegionSelectionView *> views() const;

private:
    Completion m_completion;
    const std::optional<QString> m_hint;
    const DisplaySnapshots m_snapshots;
    const DisplayList m_displays;
};

} // namespace pixmora
