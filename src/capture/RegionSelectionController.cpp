#include "capture/RegionSelectionController.h"

#include "capture/RegionSelectionView.h"
#include "capture/SelectionGeometry.h"
#include "platform/Logging.h"

#include <QTimer>

#include <utility>

namespace pixmora {

RegionSelectionController::RegionSelectionController(std::optional<QString> hint, DisplaySnapshots snapshots,
                                                     DisplayList displays, Desktop &desktop, Completion completion,
                                                     CursorPosition cursorPosition)
    : OverlayController(desktop, std::move(cursorPosition)),
      m_completion(std::move(completion)),
      m_hint(std::move(hint)),
      m_snapshots(std::move(snapshots)),
      m_displays(std::move(displays))
{
}

QList<RegionSelectionView *> RegionSelectionController::views() const
{
    return panelsAs<RegionSelectionView>();
}

void RegionSelectionController::begin()
{
    std::vector<OverlayPanel *> views;
    for (const DisplayInfo &display : m_displays) {
        const auto snapshot = m_snapshots.find(display.id);
        if (snapshot != m_snapshots.end())
            views.push_back(new RegionSelectionView(this, m_hint, display, snapshot->second, desktop()));
    }
    if (views.empty()) {
        // Nothing to select on: cancel rather than leave the flow waiting forever.
        qCWarning(lcCapture) << "The area overlay has no display snapshot to show; cancelled.";
        QTimer::singleShot(0, this, [this] { cancel(); });
        return;
    }
    cover(std::move(views));
}

void RegionSelectionController::finish(std::optional<QRectF> rect, const DisplayInfo *display)
{
    std::optional<RegionSelection> selection;
    if (rect && display && SelectionGeometry::isAccepted(*rect))
        selection = RegionSelection{*rect, *display};
    if (!close())
        return;
    if (Completion completion = std::exchange(m_completion, nullptr))
        completion(std::move(selection));
}

} // namespace pixmora
