#pragma once

#include "capture/OverlayPanel.h"

#include <QFont>
#include <QPointer>
#include <QRectF>
#include <QString>

#include <optional>

namespace pixmora {

class RegionSelectionController;

// One display's panel of the area overlay: its frozen image, dimmed outside
// the selection, the hint until the drag starts, then the selection's border
// and size label. Escape cancels; mouse-up reports the rectangle.
class RegionSelectionView : public OverlayPanel {
    Q_OBJECT

public:
    RegionSelectionView(QPointer<RegionSelectionController> controller, std::optional<QString> hint,
                        const DisplayInfo &display, QImage snapshot, Desktop &desktop);

    // In view coordinates; absent until the mouse goes down.
    std::optional<QRectF> selection() const;
    // Where the hint's capsule is drawn; empty without a hint.
    QRectF hintCapsule() const;

    void paint(QPainter &painter) override;

protected:
    QRegion decorations() const override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    QPointF insideBounds(QPointF point) const;
    QRectF sizeLabelBox(const QRectF &selection) const;
    QRegion decorationArea(const QRectF &selection) const;

    QPointer<RegionSelectionController> m_controller;
    std::optional<QString> m_hint;
    QFont m_hintFont, m_labelFont;
    std::optional<QPointF> m_dragStart;
    QPointF m_dragCurrent;
};

} // namespace pixmora
