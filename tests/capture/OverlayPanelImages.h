#pragma once

#include "capture/OverlayPanel.h"

#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QRegion>

#include <utility>

namespace pixmora::test {

// The panel as a full repaint draws it.
inline QImage rendered(OverlayPanel &panel)
{
    QImage image(panel.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    panel.paint(painter);
    return image;
}

// Paints `area` of the panel over `image`, as its repaint of that area would.
inline void repaintInto(OverlayPanel &panel, QImage &image, const QRegion &area)
{
    QPainter painter(&image);
    painter.setClipRegion(area);
    panel.paint(painter);
}

// Collects the areas the panel's repaints cover.
class RepaintRecorder : public QObject {
public:
    explicit RepaintRecorder(OverlayPanel &panel)
        : m_panel(panel)
    {
        panel.installEventFilter(this);
    }

    // What was repainted since the last call, pending repaints included.
    QRegion take()
    {
        QCoreApplication::sendPostedEvents();
        return std::exchange(m_repainted, QRegion());
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::UpdateRequest)
            m_repainted += m_panel.pendingRepaint();
        return false;
    }

private:
    OverlayPanel &m_panel;
    QRegion m_repainted;
};

} // namespace pixmora::test
