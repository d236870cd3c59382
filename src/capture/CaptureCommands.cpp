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
