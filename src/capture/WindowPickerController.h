#pragma once

#include "capture/DisplaySnapshots.h"
#include "capture/OverlayController.h"
#include "platform/Displays.h"

#include <QList>
#include <QPointF>

#include <functional>
#include <optional>

namespace pixmora {

class WindowPickerView;

// Covers every display with a panel, outlines the candidate window under the
// pointer and reports the one clicked, or nothing.
//
// The panels show a frozen image of each display rather than being see-through:
// without a compositing manager, X11 cannot show the desktop through a window.
class WindowPickerController : public OverlayController {
    Q_OBJECT

public:
    // Called once: with the window picked, or with nothing when cancelled.
    using Completion = std::function<void(std::optional<WindowInfo>)>;

    // Windows topmost first, as the window list gives them.
    WindowPickerController(WindowList windows, DisplayList displays, DisplaySnapshots backdrops, Desktop &desktop,
                           Completion completion, CursorPosition cursorPosition = {});

    // The windows that can be picked, in the given order.
    const WindowList &candidates() const { return m_candidates; }
    QList<WindowPickerView *> views() const;

    void begin();
    // The first candidate whose frame contains the point.
    std::optional<WindowInfo> windowUnder(QPointF globalPoint) const;
    void updateHighlight();
    // Closes the picker and calls the completion; only the first call counts.
    // The completion may destroy the controller.
    void finish(std::optional<WindowInfo> window);
    void cancel() override { finish(std::nullopt); }

private:
    Completion m_completion;
    const WindowList m_candidates;
    const DisplayList m_displays;
    const DisplaySnapshots m_backdrops;
};

} // namespace pixmora
