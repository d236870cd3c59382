#include "preview/PreviewPresenter.h"

#include "platform/Desktop.h"
#include "platform/Logging.h"
#include "platform/ScreenCapture.h"
#include "preview/PreviewThumbView.h"

#include <QPointer>
#include <QPropertyAnimation>
#include <QVBoxLayout>

#include <algorithm>
#include <utility>

namespace pixmora {

namespace {
constexpr QSizeF maximumSize(260, 180);
constexpr QSizeF minimumSize(60, 40);
constexpr QPoint cornerMargin(16, 16);

// Keeps no more pixels than the screen shows: a 4K capture must not stay in
// memory for as long as its thumbnail does.
QImage reducedForScreen(const QImage &image, QSizeF thumbnail, double screenScale)
{
    const QSizeF shownPoints = PreviewThumbView::fittedRect(image.size(), QRectF(QPointF(), thumbnail)).size();
    const QSize shownPixels = (shownPoints * screenScale).toSize();
    if (shownPixels.width() >= image.width() && shownPixels.height() >= image.height())
        return image;
    return image.scaled(shownPixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}
} // namespace

PreviewPresenter::PreviewPresenter(ScreenCapture &screens, Desktop &desktop, PreviewTimings timings)
    : m_screens(screens), m_desktop(desktop), m_timings(timings)
{
    m_dismissTimer.setSingleShot(true);
    m_dismissTimer.setTimerType(Qt::PreciseTimer);  // a coarse timer may be 300 ms off at six seconds
    m_dismissTimer.setInterval(m_timings.visible);
    QObject::connect(&m_dismissTimer, &QTimer::timeout, &m_lifetime, [this] { dismiss(true); });
}

PreviewPresenter::~PreviewPresenter()
{
    delete m_panel;
    for (QWidget *panel : m_fadingPanels)
        delete panel;
}

QSizeF PreviewPresenter::thumbnailSize(QSizeF pointSize)
{
    const double factor = std::min({maximumSize.width() / pointSize.width(),
                                    maximumSize.height() / pointSize.height(), 1.0});
    return (pointSize * factor).expandedTo(minimumSize);
}

void PreviewPresenter::show(const QImage &image, double scale, std::function<void()> onEdit)
{
    dismiss(false);
    m_onEdit = std::move(onEdit);

    const DisplayList displays = m_screens.displays();
    if (displays.empty()) {
        qCWarning(lcPreview) << "No display to show the thumbnail on.";
        return;
    }
    const DisplayInfo &screen = displays.front();

    QWidget *panel = createPanel(image, scale, screen);
    panel->setWindowOpacity(0.0);
    panel->show();
    auto *fadeIn = new QPropertyAnimation(panel, "windowOpacity", panel);
    fadeIn->setDuration(int(m_timings.fadeIn.count()));
    fadeIn->setStartValue(0.0);
    fadeIn->setEndValue(1.0);
    fadeIn->start(QAbstractAnimation::DeleteWhenStopped);

    m_panel = panel;
    m_dismissTimer.start();
}

void PreviewPresenter::dismiss(bool animated)
{
    m_dismissTimer.stop();
    if (!animated) {
        for (QWidget *panel : std::exchange(m_fadingPanels, {}))
            remove(panel);
        if (m_panel)
            remove(std::exchange(m_panel, nullptr));
        releaseOnEditWhenNothingShows();
        return;
    }
    if (!m_panel)
        return;
    QWidget *panel = std::exchange(m_panel, nullptr);
    m_fadingPanels.push_back(panel);
    // Starting this stops a fade-in that may still run on the same property.
    auto *fade = new QPropertyAnimation(panel, "windowOpacity", panel);
    fade->setDuration(int(m_timings.fadeOut.count()));
    fade->setEndValue(0.0);
    QObject::connect(fade, &QAbstractAnimation::finished, &m_lifetime, [this, panel] {
        std::erase(m_fadingPanels, panel);
        remove(panel);
        releaseOnEditWhenNothingShows();
    });
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

QWidget *PreviewPresenter::createPanel(const QImage &image, double scale, const DisplayInfo &screen)
{
    const QSizeF size = thumbnailSize(QSizeF(image.size()) / scale);
    QRect frame(QPoint(), size.toSize());
    frame.moveBottomRight(screen.availableFrame.bottomRight() - cornerMargin);

    auto *panel = new QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint
                                           | Qt::WindowDoesNotAcceptFocus);
    panel->setObjectName(QStringLiteral("PixmoraPreview"));
    panel->setWindowTitle(QStringLiteral("Pixmora Preview"));
    panel->setAttribute(Qt::WA_ShowWithoutActivating);
    panel->setGeometry(frame);
    // Without a compositor, translucent corners would show black: the window is shaped instead.
    const bool translucent = m_desktop.isCompositing();
    if (translucent)
        panel->setAttribute(Qt::WA_TranslucentBackground);
    else
        panel->setMask(PreviewThumbView::roundedShape(frame.size()));

    auto onClick = [this, presenterAlive = QPointer<QObject>(&m_lifetime)] {
        if (!presenterAlive)
            return;
        // A copy, so that an onEdit that replaces the thumbnail does not destroy itself mid-call.
        if (const auto edit = m_onEdit)
            edit();
        if (presenterAlive)
            dismiss(false);
    };
    auto *layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    using Background = PreviewThumbView::Background;
    layout->addWidget(new PreviewThumbView(reducedForScreen(image, size, screen.scale), std::move(onClick),
                                           translucent ? Background::translucent : Background::opaque));

    panel->winId();  // the window manager hints need the native window
    m_desktop.makeFloatingPanel(panel, Desktop::PanelFocus::never);
    return panel;
}

void PreviewPresenter::releaseOnEditWhenNothingShows()
{
    // What onEdit captured (often the whole capture) is not kept once nothing can be clicked.
    if (!m_panel && m_fadingPanels.empty())
        m_onEdit = nullptr;
}

// Deferred: a click removes the panel from inside its own mouse handler.
void PreviewPresenter::remove(QWidget *panel)
{
    panel->hide();
    panel->deleteLater();
}

} // namespace pixmora
