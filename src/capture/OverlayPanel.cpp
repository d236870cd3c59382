#include "capture/OverlayPanel.h"

#include "platform/Desktop.h"

#include <QCoreApplication>
#include <QExposeEvent>
#include <QGuiApplication>
#include <QPainter>

namespace pixmora {

OverlayPanel::OverlayPanel(const DisplayInfo &display, Desktop &desktop, QImage backdrop, QColor dim)
    : m_display(display),
      m_desktop(desktop),
      m_frozenImage(std::move(backdrop)),
      // Setting the ratio on a shared image would copy all its pixels; this
      // read-only image reads them in place. At the display's own ratio
      // QPainter copies them to the screen 1:1.
      m_backdrop(m_frozenImage.constBits(), m_frozenImage.width(), m_frozenImage.height(),
                 m_frozenImage.bytesPerLine(), m_frozenImage.format()),
      m_dim(dim),
      m_store(this)
{
    setFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint);
    setGeometry(display.frame);
    m_backdrop.setDevicePixelRatio(display.scale);
    create();  // the window system's settings need the native window, before it is mapped
    desktop.makeOverlay(this);
}

OverlayPanel::~OverlayPanel() = default;

void OverlayPanel::present()
{
    show();  // a window is mapped on top of everything already there
}

void OverlayPanel::takeKeyboard()
{
    // A closed panel may still get the pointer's enter queued before it closed.
    if (!isVisible())
        return;
    requestActivate();
    m_desktop.giveKeyboardTo(this);
}

void OverlayPanel::update(const QRegion &area)
{
    m_pending += area & rect();
    if (!m_pending.isEmpty())
        scheduleRepaint();
}

void OverlayPanel::scheduleRepaint()
{
    if (m_updatePosted)
        return;
    m_updatePosted = true;
    // Low priority, as for widgets: a burst of pointer moves becomes one
    // repaint, and so do the two exposures Qt reports for every map.
    QCoreApplication::postEvent(this, new QEvent(QEvent::UpdateRequest), Qt::LowEventPriority);
}

bool OverlayPanel::event(QEvent *event)
{
    if (event->type() == QEvent::Enter)
        takeKeyboard();
    if (event->type() != QEvent::UpdateRequest)
        return QWindow::event(event);
    m_updatePosted = false;
    QRegion area = std::exchange(m_pending, QRegion());
    if (std::exchange(m_contentLost, false)) {
        // Qt gives no trustworthy exposed area: everything is redrawn, the
        // backdrop by the window system where it can.
        const bool backdropDrawn = m_desktop.drawOverlayBackdrop(this, m_backdrop, m_dim);
        area = backdropDrawn ? area + decorations() : QRegion(rect());
    }
    repaint(area);
    return true;
}

void OverlayPanel::exposeEvent(QExposeEvent *)
{
    if (!isExposed())
        return;
    m_contentLost = true;
    scheduleRepaint();
}

void OverlayPanel::repaint(const QRegion &area)
{
    if (!isExposed() || area.isEmpty())
        return;
    if (m_store.size() != size())
        m_store.resize(size());
    m_store.beginPaint(area);
    if (QPaintDevice *device = m_store.paintDevice()) {
        QPainter painter(device);
        painter.setClipRegion(area);
        paint(painter);
    }
    m_store.endPaint();
    m_store.flush(area);
}

void OverlayPanel::paintBackdrop(QPainter &painter) const
{
    // A snapshot a pixel short of the panel (rounding at fractional scales)
    // must not leave the rest unpainted.
    if (!QRectF(QPointF(0, 0), m_backdrop.deviceIndependentSize()).contains(rect()))
        painter.fillRect(rect(), Qt::black);
    painter.drawImage(QPointF(0, 0), m_backdrop);
}

} // namespace pixmora
