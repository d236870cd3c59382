#pragma once

#include "platform/Displays.h"

#include <QBackingStore>
#include <QColor>
#include <QImage>
#include <QRegion>
#include <QWindow>

class QPainter;

namespace pixmora {

class Desktop;

// A frameless window that covers one display above everything else (panels,
// docks, full-screen windows), on every workspace, and takes the keyboard
// when the pointer enters it. The area overlay and the window picker derive
// their views from it, one per display (see OverlayController).
//
// It shows a frozen image of its display under a uniform dim, and paints
// only what changes. Where the window system can draw that dimmed image
// itself, the panel appears without painting a single full-screen frame: a
// fresh screen-sized buffer costs far more to touch than everything else the
// overlay does.
class OverlayPanel : public QWindow {
    Q_OBJECT

public:
    // backdrop: the display's frozen image in device pixels (may be null).
    OverlayPanel(const DisplayInfo &display, Desktop &desktop, QImage backdrop, QColor dim);
    ~OverlayPanel() override;

    const DisplayInfo &display() const { return m_display; }

    void present();
    // Key presses come here until another panel takes them.
    void takeKeyboard();

    // Repaints that area soon (panel coordinates, points).
    void update(const QRegion &area);
    // What the next repaint will paint.
    QRegion pendingRepaint() const { return m_pending; }

    // Draws the whole panel as it should look; the painter may be clipped to
    // the part wanted.
    virtual void paint(QPainter &painter) = 0;

protected:
    // Where the panel differs from its backdrop under the uniform dim.
    virtual QRegion decorations() const = 0;
    // The frozen image, undimmed: the view lays the dim over it.
    void paintBackdrop(QPainter &painter) const;
    QRect rect() const { return QRect(QPoint(0, 0), size()); }

    bool event(QEvent *event) override;
    void exposeEvent(QExposeEvent *event) override;

private:
    void scheduleRepaint();
    void repaint(const QRegion &area);

    DisplayInfo m_display;
    Desktop &m_desktop;
    QImage m_frozenImage;  // owns the pixels that m_backdrop reads
    QImage m_backdrop;     // device pixels, at the display's ratio
    QColor m_dim;
    QBackingStore m_store;
    QRegion m_pending;
    bool m_updatePosted = false;
    bool m_contentLost = false;  // exposed since the last repaint
};

} // namespace pixmora
