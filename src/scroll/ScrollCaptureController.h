#pragma once

#include "platform/Displays.h"
#include "scroll/ScrollHUDPanel.h"

#include <QImage>
#include <QObject>
#include <QPointer>
#include <QRectF>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace pixmora {

class Desktop;
class OwnWindowsExclusion;
class ScreenCapture;
class ScrollStitcher;

// One scrolling capture, from the chosen rectangle to one tall image: while
// the user scrolls the content beneath, it captures the rectangle four times
// a second, stitches the frames and shows the stitched height in a small
// panel (the HUD) with Cancel and Done. It ends with Done (or Return after a
// click into the HUD, or finish() from the owner), with Cancel or Escape,
// when the image reaches 24000 pixels, or when its display goes away.
class ScrollCaptureController : public QObject {
    Q_OBJECT

public:
    // Called once: with the stitched image (device pixels at the display's
    // scale), or with nothing when cancelled or when nothing was stitched.
    // It may be called from inside the HUD's event handler: the owner drops
    // the controller with deleteLater().
    using Completion = std::function<void(std::optional<QImage>)>;

    static constexpr qint64 maxTotalHeight = 24000;
    static constexpr std::chrono::milliseconds frameInterval{250};
    static constexpr int hudMargin = 12;
    static constexpr int hudScreenInset = 8;

    // rect: global points on `display`.
    ScrollCaptureController(ScreenCapture &screens, Desktop &desktop, const DisplayInfo &display, const QRectF &rect,
                            Completion completion);
    ~ScrollCaptureController() override;

    // Shows the HUD next to the rectangle without taking the keyboard.
    void showHUD();
    // From the event loop: finds the display again, takes the first frame and
    // starts the frame clock. A display that is gone ends the capture.
    void begin();
    // Captures one frame and stitches it. Failed captures are skipped.
    void captureTick();
    // Done: delivers what has been stitched so far. Does nothing once finished.
    void finish();
    void cancel();

    bool isFinished() const { return m_finished; }
    ScrollHUDPanel *hud() const { return m_hud; }

    // Top-left corner of the HUD (size `hud`) for a rectangle on a screen
    // whose usable part is `visible`: centred 12 points below the rectangle,
    // else above it, else inside it at its bottom; 8 points inside the sides.
    static QPointF hudPosition(const QRectF &rect, QSizeF hud, const QRectF &visible);
    // "1,200 px — scroll on, then click Done" for 2400 pixels at scale 2,
    // grouped as the locale groups digits.
    static QString statusText(qint64 stitchedPixels, double scale);

private:
    void start();
    void integrate(const QImage &frame);
    void updateStatus();
    void setHint(const QString &text);
    void displaysChanged();
    void end(std::optional<QImage> image);

    ScreenCapture &m_screens;
    Desktop &m_desktop;
    DisplayInfo m_display;
    const QRectF m_rect;
    const double m_scale;
    Completion m_completion;
    std::unique_ptr<OwnWindowsExclusion> m_exclusion;
    QPointer<ScrollHUDPanel> m_hud;
    QTimer m_timer;
    std::unique_ptr<ScrollStitcher> m_stitcher;
    bool m_started = false;
    bool m_finished = false;
    bool m_reportedCaptureFailure = false;
};

} // namespace pixmora
