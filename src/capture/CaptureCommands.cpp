// The frame every capture flow shares: commands and their delays, the
// one-flow-at-a-time guard, the capture error alert; and the full-screen flow.
#include "app/AppDelegate.h"

#include <QPointer>
#include <QTimer>

namespace pixmora {

bool AppDelegate::beginCaptureFlow()
{
    if (m_captureFlowActive)
        return false;
    m_captureFlowActive = true;
    m_previewPresenter.dismiss(false);
    return true;
}

void AppDelegate::endCaptureFlow() { m_captureFlowActive = false; }

void AppDelegate::showCaptureError(const Error &error)
{
    showAlert(QStringLiteral("Could Not Capture the Screen"), error.description());
}

// Every display captured once, before an overlay covers them.
DisplaySnapshots AppDelegate::snapshotDisplays(const DisplayList &displays)
{
    DisplaySnapshots snapshots;
    for (const DisplayInfo &display : displays)
        snapshots[display.id] = CaptureEngine::captureDisplay(m_platform.screens, display);
    if (snapshots.empty())
        throw CaptureEngine::noDisplayError();
    return snapshots;
}

void AppDelegate::startRegionCapture()
{
    if (!beginCaptureFlow())
        return;
    DisplayList displays;
    DisplaySnapshots snapshots;
    try {
        displays = m_platform.screens.displays();
        snapshots = snapshotDisplays(displays);
    } catch (const Error &error) {
        endCaptureFlow();
        showCaptureError(error);
        return;
    }
    const QPointer<AppDelegate> self(this);
    m_regionController = new RegionSelectionController(
        std::nullopt, snapshots, displays, m_platform.desktop,
        [self, snapshots](std::optional<RegionSelection> selection) {
            if (!self)
                return;
            // The overlay calls this from its own event handler: it goes later.
            self->m_regionController->deleteLater();
            self->m_regionController = nullptr;
            if (selection) {
                const auto snapshot = snapshots.find(selection->display.id);
                if (snapshot != snapshots.end()) {
                    QImage cropped = CaptureEngine::crop(snapshot->second, selection->rect, selection->display.frame);
                    if (!cropped.isNull())
                        self->deliver({{std::move(cropped), selection->display.scale}});
                }
            }
            self->endCaptureFlow();
        });
    m_regionController->begin();
}

void AppDelegate::startWindowCapture()
{
    if (!beginCaptureFlow())
        return;
    WindowList windows;
    DisplayList displays;
    DisplaySnapshots backdrops;
    try {
        windows = m_platform.screens.windows();
        displays = m_platform.screens.displays();
        backdrops = snapshotDisplays(displays);
    } catch (const Error &error) {
        endCaptureFlow();
        showCaptureError(error);
        return;
    }
    const QPointer<AppDelegate> self(this);
    m_windowPicker = new WindowPickerController(
        std::move(windows), std::move(displays), std::move(backdrops), m_platform.desktop,
        [self](std::optional<WindowInfo> window) {
            if (!self)
                return;
            self->m_windowPicker->deleteLater();
            self->m_windowPicker = nullptr;
            if (!window) {
                self->endCaptureFlow();
                return;
            }
            // The picker's panels must be off the screen before the window is captured.
            QTimer::singleShot(windowCaptureDelayMs, self.data(), [self, picked = *window] { self->performWindowCapture(picked); });
        });
    m_windowPicker->begin();
}

void AppDelegate::performWindowCapture(const WindowInfo &window)
{
    try {
        const CapturedImage captured = CaptureEngine::captureWindow(m_platform.screens, window, m_settings.windowShadow());
        deliver({captured});
    } catch (const Error &error) {
        showCaptureError(error);
    }
    endCaptureFlow();
}

void AppDelegate::captureFullScreenFromMenu()
{
    QTimer::singleShot(fullScreenMenuDelayMs, this, &AppDelegate::startFullScreenCapture);
}

void AppDelegate::captureFullScreenDelayed()
{
    QTimer::singleShot(fullScreenDelayedMs, this, &AppDelegate::startFullScreenCapture);
}

void AppDelegate::startFullScreenCapture()
{
    if (!beginCaptureFlow())
        return;
    QList<CapturedImage> images;
    try {
        const DisplayList displays = m_platform.screens.displays();
        for (const DisplayInfo &display : displays) {
            QImage image = CaptureEngine::captureDisplay(m_platform.screens, display);
            images.append({std::move(image), CaptureEngine::backingScale(display.id, displays)});
        }
        if (images.isEmpty())
            throw CaptureEngine::noDisplayError();
    } catch (const Error &error) {
        showCaptureError(error);
        endCaptureFlow();
        return;
    }
    deliver(images);
    endCaptureFlow();
}

} // namespace pixmora
