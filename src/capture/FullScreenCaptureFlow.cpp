#include "capture/FullScreenCaptureFlow.h"

#include "capture/CaptureEngine.h"
#include "platform/ScreenCapture.h"

namespace pixmora {

FullScreenCaptureFlow::FullScreenCaptureFlow(ScreenCapture &screens) : m_screens(screens) {}

void FullScreenCaptureFlow::run()
{
    QList<CapturedImage> images;
    try {
        const DisplayList displays = m_screens.displays();
        for (const DisplayInfo &display : displays) {
            QImage image = CaptureEngine::captureDisplay(m_screens, display);
            images.append({std::move(image), CaptureEngine::backingScale(display.id, displays)});
        }
        if (images.isEmpty())
            throw CaptureEngine::noDisplayError();
    } catch (const Error &error) {
        finish(CaptureOutcome::failed(error));
        return;
    }
    finish(CaptureOutcome::captured(std::move(images)));
}

} // namespace pixmora
