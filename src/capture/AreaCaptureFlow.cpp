#include "capture/AreaCaptureFlow.h"

#include "capture/CaptureEngine.h"
#include "capture/RegionSelectionController.h"
#include "platform/Logging.h"
#include "platform/ScreenCapture.h"

namespace pixmora {

AreaCaptureFlow::AreaCaptureFlow(ScreenCapture &screens, Desktop &desktop)
    : AreaCaptureFlow(screens, desktop, std::nullopt)
{
}

AreaCaptureFlow::AreaCaptureFlow(ScreenCapture &screens, Desktop &desktop, std::optional<QString> hint)
    : m_screens(screens), m_desktop(desktop), m_hint(std::move(hint))
{
}

void AreaCaptureFlow::run()
{
    DisplayList displays;
    DisplaySnapshots snapshots;
    try {
        displays = m_screens.displays();
        snapshots = CaptureEngine::snapshotDisplays(m_screens, displays);
    } catch (const Error &error) {
        finish(CaptureOutcome::failed(error));
        return;
    }
    m_regionController = new RegionSelectionController(
        m_hint, snapshots, displays, m_desktop, [this, snapshots](std::optional<RegionSelection> selection) {
            // Called from inside the overlay's own event handler: it goes later.
            m_regionController->deleteLater();
            m_regionController = nullptr;
            selected(std::move(selection), snapshots);
        });
    m_regionController->setParent(this);
    m_regionController->begin();
}

void AreaCaptureFlow::selected(std::optional<RegionSelection> selection, const DisplaySnapshots &snapshots)
{
    if (!selection) {
        finish(CaptureOutcome::cancelled());
        return;
    }
    const auto snapshot = snapshots.find(selection->display.id);
    QImage cropped;
    if (snapshot != snapshots.end())
        cropped = CaptureEngine::crop(snapshot->second, selection->rect, selection->display.frame);
    if (cropped.isNull()) {
        qCWarning(lcCapture) << "The selection" << selection->rect << "lies on no snapshot pixel; nothing captured.";
        finish(CaptureOutcome::cancelled());
        return;
    }
    finish(CaptureOutcome::captured({{std::move(cropped), selection->display.scale}}));
}

} // namespace pixmora
