#include "capture/ScrollingCaptureFlow.h"

#include "platform/Dialogs.h"
#include "scroll/ScrollCaptureController.h"

#include <QTimer>

namespace pixmora {

ScrollingCaptureFlow::ScrollingCaptureFlow(ScreenCapture &screens, Desktop &desktop, Dialogs &dialogs)
    : AreaCaptureFlow(screens, desktop,
                      QString::fromUtf8("Select only the visible part — you'll scroll through the rest afterwards")),
      m_dialogs(dialogs)
{
}

void ScrollingCaptureFlow::selected(std::optional<RegionSelection> selection, const DisplaySnapshots &)
{
    if (!selection) {
        finish(CaptureOutcome::cancelled());
        return;
    }
    if (selection->rect.height() * selection->display.scale < minimumHeightPixels) {
        m_dialogs.runAlert({QStringLiteral("Selection Too Short"),
                            QStringLiteral("Select a taller area for a scrolling capture.")});
        finish(CaptureOutcome::cancelled());
        return;
    }
    // The overlay must be off the screen before the first frame is taken.
    QTimer::singleShot(sessionDelayMs, this, [this, chosen = *selection] { beginScrollSession(chosen); });
}

void ScrollingCaptureFlow::beginScrollSession(const RegionSelection &selection)
{
    const double scale = selection.display.scale;
    m_scrollCapture = new ScrollCaptureController(
        m_screens, m_desktop, selection.display, selection.rect, [this, scale](std::optional<QImage> image) {
            // Called from inside the capture's own handlers: it goes later.
            m_scrollCapture->deleteLater();
            m_scrollCapture = nullptr;
            if (image)
                finish(CaptureOutcome::captured({{std::move(*image), scale}}));
            else
                finish(CaptureOutcome::cancelled());
        });
    m_scrollCapture->setParent(this);
    m_scrollCapture->showHUD();
    m_scrollCapture->begin();
}

bool ScrollingCaptureFlow::finishScrollCapture()
{
    if (!m_scrollCapture)
        return false;
    m_scrollCapture->finish();
    return true;
}

} // namespace pixmora
