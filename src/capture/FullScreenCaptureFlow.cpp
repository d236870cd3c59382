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
        for (const DisplayInfo &display : displays)
            images.append(CaptureEngine::captureDisplayAsPng(m_screens, display,
                                                             CaptureEngine::backingScale(display.id, displays)));
        if (images.isEmpty())
            throw CaptureEngine::noDisplayError();
    } catch (const Error &error) {
        finish(CaptureOutcome::failed(error));
        return;
    }
    finish(CaptureOutcome::captured(std::move(images)));
}

} // namespace pixmora
