#pragma once

#include "capture/CaptureFlow.h"

namespace pixmora {

class ScreenCapture;

// Every display captured live, at once: one PNG per display, in display
// order, each at its own display's scale. Any failure ends it with that error
// and nothing is delivered.
class FullScreenCaptureFlow : public CaptureFlow {
    Q_OBJECT

public:
    explicit FullScreenCaptureFlow(ScreenCapture &screens);

protected:
    void run() override;

private:
    ScreenCapture &m_screens;
};

} // namespace pixmora
