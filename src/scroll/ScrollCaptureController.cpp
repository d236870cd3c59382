#include "scroll/ScrollCaptureController.h"

#include "platform/Desktop.h"
#include "platform/Error.h"
#include "platform/Logging.h"
#include "platform/ScreenCapture.h"
#include "scroll/ScrollHUDPanel.h"
#include "scroll/ScrollStitcher.h"

#include <QGuiApplication>
#include <QLocale>
#include <QScreen>

#include <algorithm>
#include <utility>

namespace pixmora {

ScrollCaptureController::ScrollCaptureController(ScreenCapture &screens, Desktop &desktop, const DisplayInfo &display,
                                                 const QRectF &rect, Completion completion)
    : m_screens(screens),
      m_desktop(desktop),
      m_display(display),
      m_rect(rect),
      m_scale(display.scale),
      m_completion(std::move(completion))
{
    m_timer.setInterval(frameInterval);
    m_timer.callOnTimeout(this, &ScrollCaptureController::captureTick);
}

ScrollCaptureController::~ScrollCaptureController()
{
    delete m_hud;
}

QPointF ScrollCaptureController::hudPosition(const QRectF &rect, QSizeF hud, const QRectF &visible)
{
    double x = rect.center().x() - hud.width() / 2;
    double y = rect.bottom() + hudMargin;
    if (y + hud.height() > visible.bottom())
        y = rect.top() - hudMargin - hud.height();
    if (y < visible.top())
        y = rect.bottom() - hudMargin - hud.height();
    x = std::max(visible.left() + hudScreenInset, x);
    x = std::min(visible.right() - hud.width() - hudScreenInset, x);
    return {x, y};
}

QString ScrollCaptureController::statusText(qint64 stitchedPixels, double scale)
{
    const auto points = qint64(double(stitchedPixels) / scale);
    return QLocale().toString(points) + QString::fromUtf8(" px — scroll on, then click Done");
}

void ScrollCaptureController::showHUD()
{
    if (m_hud || m_finished)
        return;
    const QPointF position = hudPosition(m_rect, ScrollHUDPanel::panelSize, m_display.availableFrame);
    // Before the HUD appears: what it will cover must stay readable.
    try {
        m_exclusion = m_screens.excludeOwnWindows(m_display, m_rect, QRectF(position, ScrollHUDPanel::panelSize));
    } catch (const Error &error) {
        qCWarning(lcScroll) << "Pixmora's own windows may show in this scrolling capture:" << error.description();
    }
    m_hud = new ScrollHUDPanel([this] { cancel(); }, [this] { finish(); });
    m_hud->move(position.toPoint());
    m_hud->winId();  // the window manager hints need the native window
    m_desktop.makeFloatingPanel(m_hud, Desktop::PanelFocus::onClick);
    m_hud->show();
}

void ScrollCaptureController::begin()
{
    QTimer::singleShot(0, this, &ScrollCaptureController::start);
}

void ScrollCaptureController::start()
{
    if (m_finished || m_started)
        return;
    const DisplayList displays = m_screens.displays();
    const auto found = std::ranges::find(displays, m_display.id, &DisplayInfo::id);
    if (found == displays.end()) {
        qCWarning(lcScroll) << "The display" << m_display.name << "is gone; the scrolling capture ends.";
        end(std::nullopt);
        return;
    }
    m_display = *found;
    m_started = true;
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, &ScrollCaptureController::displaysChanged);
    captureTick();
    if (!m_finished)
        m_timer.start();
}

void ScrollCaptureController::displaysChanged()
{
    if (m_finished)
        return;
    const DisplayList displays = m_screens.displays();
    if (std::ranges::find(displays, m_display.id, &DisplayInfo::id) != displays.end())
        return;
    qCWarning(lcScroll) << "The display" << m_display.name << "went away; the scrolling capture ends with what it has.";
    finish();
}

void ScrollCaptureController::captureTick()
{
    if (m_finished || !m_started)
        return;
    QImage frame;
    try {
        frame = m_screens.captureRegion(m_display, m_rect);
    } catch (const Error &error) {
        // The next tick tries again; saying so every quarter second helps no one.
        if (!std::exchange(m_reportedCaptureFailure, true))
            qCWarning(lcScroll) << "A scrolling capture frame failed and was skipped:" << error.description();
        return;
    }
    integrate(frame);
}

void ScrollCaptureController::integrate(const QImage &frame)
{
    if (m_finished)
        return;
    if (!m_stitcher) {
        // A frame too small makes none; the next one is tried as a first frame again.
        m_stitcher = ScrollStitcher::create(frame, maxTotalHeight);
        updateStatus();
        return;
    }
    const AppendResult result = m_stitcher->append(frame);
    switch (result.kind) {
    case AppendResult::Kind::appended:
        setHint({});
        updateStatus();
        break;
    case AppendResult::Kind::noMovement:
        break;
    case AppendResult::Kind::noMatch:
        setHint(QString::fromUtf8("Couldn't align — scroll a bit slower."));
        break;
    case AppendResult::Kind::limitReached:
        setHint({});
        updateStatus();
        finish();
        break;
    }
}

void ScrollCaptureController::updateStatus()
{
    if (m_stitcher && m_hud)
        m_hud->setStatus(statusText(m_stitcher->totalHeight(), m_scale));
}

void ScrollCaptureController::setHint(const QString &text)
{
    if (m_hud)
        m_hud->setHint(text);
}

void ScrollCaptureController::finish()
{
    if (m_finished)
        return;
    std::optional<QImage> image;
    if (m_stitcher) {
        QImage composed = m_stitcher->compose();
        // The slices go before delivery starts: the tall image is enough to keep.
        m_stitcher.reset();
        if (composed.isNull())
            qCWarning(lcScroll) << "The stitched image could not be built; nothing is delivered.";
        else
            image = std::move(composed);
    }
    end(std::move(image));
}

void ScrollCaptureController::cancel()
{
    if (!m_finished)
        end(std::nullopt);
}

void ScrollCaptureController::end(std::optional<QImage> image)
{
    m_finished = true;
    m_timer.stop();
    m_stitcher.reset();
    m_exclusion.reset();
    // Possibly from inside one of its own handlers.
    if (m_hud) {
        m_hud->hide();
        m_hud->deleteLater();
    }
    if (Completion completion = std::exchange(m_completion, nullptr))
        completion(std::move(image));
}

} // namespace pixmora
