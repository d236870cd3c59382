#pragma once

#include "capture/DisplaySnapshots.h"
#include "capture/OverlayPanel.h"
#include "platform/Displays.h"

#include <QFont>
#include <QImage>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QRectF>
#include <QRegion>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace pixmora {

class Desktop;
class RegionSelectionView;

// A rectangle chosen on the area overlay, in global logical points, with the
// display it was drawn on.
struct RegionSelection {
    QRectF rect;
    DisplayInfo display;
};

// The overlay's geometry, in view coordinates (points, origin top-left, y down).
namespace SelectionGeometry {

QRectF normalizedRect(QPointF a, QPointF b);
// Anything under 2 points on either side is a click, not a selection.
bool isAccepted(const QRectF &selection);
// "640 × 480": whole points, truncated toward zero.
QString sizeLabelText(QSizeF size);
// The size label's text box: 15 points below the selection's bottom edge and
// right-aligned 10 points in from its right edge; inside the selection, 5 points
// above its bottom edge, when there is no room below; at the selection's left
// edge when it would leave the view on the left.
QRectF sizeLabelRect(const QRectF &selection, QSizeF labelSize, QSizeF viewSize);
// The hint's text box: centred, 64 points below the top edge.
QRectF hintTextRect(QSizeF textSize, QSizeF viewSize);

} // namespace SelectionGeometry

// Lets the user drag a rectangle on a frozen image of every display. Owned by
// the capture flow that created it; its panels live until it finishes.
class RegionSelectionController : public QObject {
    Q_OBJECT

public:
    using Completion = std::function<void(std::optional<RegionSelection>)>;

    RegionSelectionController(std::optional<QString> hint, DisplaySnapshots snapshots, DisplayList displays,
                              Desktop &desktop, Completion completion);
    ~RegionSelectionController() override;

    // Covers every display that has a snapshot. With none, the overlay cancels
    // itself from the event loop.
    void begin();
    // Closes the overlay and calls the completion: with the selection when
    // both are given and the rectangle is large enough, else with nothing.
    // Only the first call counts. The completion may destroy the controller.
    void finish(std::optional<QRectF> rect, const DisplayInfo *display);

    bool isFinished() const { return m_finished; }
    QList<RegionSelectionView *> panels() const;

private:
    std::vector<std::unique_ptr<RegionSelectionView>> m_panels;
    Completion m_completion;
    const std::optional<QString> m_hint;
    const DisplaySnapshots m_snapshots;
    const DisplayList m_displays;
    Desktop &m_desktop;
    bool m_finished = false;
    quint64 m_previousWindow = 0;
};

// One display's panel of the overlay: its frozen image, dimmed outside the
// selection, the hint until the drag starts, then the selection's border and
// size label.
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
    bool event(QEvent *event) override;
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
