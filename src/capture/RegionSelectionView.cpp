#include "capture/RegionSelectionView.h"

#include "capture/RegionSelectionController.h"
#include "capture/SelectionGeometry.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace pixmora {

namespace {

constexpr double labelPadX = 5.0, labelPadY = 2.5, labelCornerRadius = 4.0;
constexpr double hintPadX = 12.0, hintPadY = 6.0;
// Antialiased edges and the border reach at most this far past the shapes' boxes.
constexpr double paintSlack = 2.0;

const QColor dimColor = QColor::fromRgbF(0, 0, 0, 0.25);
const QColor hintBackground = QColor::fromRgbF(0, 0, 0, 0.72);
const QColor labelBackground = QColor::fromRgbF(0, 0, 0, 0.7);

QFont overlayFont(const QFont &base, int pixelSize)
{
    // Sizes are points of the overlay, which are Qt's logical pixels.
    QFont font = base;
    font.setPixelSize(pixelSize);
    font.setWeight(QFont::Medium);
    return font;
}

QSizeF textSize(const QFont &font, const QString &text)
{
    const QFontMetricsF metrics(font);
    return {metrics.horizontalAdvance(text), metrics.height()};
}

// The whole logical pixels lying entirely inside rect.
QRect pixelsInside(const QRectF &rect)
{
    const QPoint topLeft(int(std::ceil(rect.left())), int(std::ceil(rect.top())));
    const QPoint bottomRight(int(std::floor(rect.right())), int(std::floor(rect.bottom())));
    return QRect(topLeft, bottomRight - QPoint(1, 1));
}

} // namespace

RegionSelectionView::RegionSelectionView(QPointer<RegionSelectionController> controller, std::optional<QString> hint,
                                         const DisplayInfo &display, QImage snapshot, Desktop &desktop)
    : OverlayPanel(display, desktop, std::move(snapshot), dimColor),
      m_controller(std::move(controller)),
      m_hint(std::move(hint)),
      m_hintFont(overlayFont(QGuiApplication::font(), 14)),
      m_labelFont(overlayFont(QGuiApplication::font(), 12))
{
    setCursor(Qt::CrossCursor);
}

std::optional<QRectF> RegionSelectionView::selection() const
{
    if (!m_dragStart)
        return std::nullopt;
    return SelectionGeometry::normalizedRect(*m_dragStart, m_dragCurrent);
}

QRectF RegionSelectionView::hintCapsule() const
{
    if (!m_hint)
        return {};
    const QRectF text = SelectionGeometry::hintTextRect(textSize(m_hintFont, *m_hint), size());
    return text.adjusted(-hintPadX, -hintPadY, hintPadX, hintPadY);
}

QRectF RegionSelectionView::sizeLabelBox(const QRectF &selection) const
{
    const QSizeF labelSize = textSize(m_labelFont, SelectionGeometry::sizeLabelText(selection.size()));
    return SelectionGeometry::sizeLabelRect(selection, labelSize, size());
}

void RegionSelectionView::paint(QPainter &painter)
{
    paintBackdrop(painter);
    const std::optional<QRectF> selected = selection();
    QPainterPath dimmed;  // odd-even: the selection is a hole
    dimmed.addRect(rect());
    if (selected)
        dimmed.addRect(*selected);
    painter.fillPath(dimmed, dimColor);

    painter.setRenderHint(QPainter::Antialiasing);
    if (!selected) {
        if (m_hint) {
            const QRectF capsule = hintCapsule();
            const double radius = capsule.height() / 2;
            painter.setPen(Qt::NoPen);
            painter.setBrush(hintBackground);
            painter.drawRoundedRect(capsule, radius, radius);
            painter.setFont(m_hintFont);
            painter.setPen(Qt::white);
            painter.drawText(capsule, Qt::AlignCenter, *m_hint);
        }
        return;
    }

    // The line lies just outside the selected pixels.
    painter.setPen(QPen(Qt::white, 1.0, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(selected->adjusted(-0.5, -0.5, 0.5, 0.5));

    const QRectF label = sizeLabelBox(*selected);
    painter.setPen(Qt::NoPen);
    painter.setBrush(labelBackground);
    painter.drawRoundedRect(label.adjusted(-labelPadX, -labelPadY, labelPadX, labelPadY), labelCornerRadius,
                            labelCornerRadius);
    painter.setFont(m_labelFont);
    painter.setPen(Qt::white);
    painter.drawText(label, Qt::AlignCenter, SelectionGeometry::sizeLabelText(selected->size()));
}

QRegion RegionSelectionView::decorations() const
{
    if (const std::optional<QRectF> selected = selection())
        return decorationArea(*selected) + QRegion(selected->toAlignedRect());
    return m_hint ? QRegion(hintCapsule().toAlignedRect().adjusted(-1, -1, 1, 1)) : QRegion();
}

// The pixels that the border and the size label of this selection cover.
QRegion RegionSelectionView::decorationArea(const QRectF &selection) const
{
    const QRectF outer = selection.adjusted(-paintSlack, -paintSlack, paintSlack, paintSlack);
    QRegion area(outer.toAlignedRect());
    area -= QRegion(pixelsInside(selection.adjusted(paintSlack, paintSlack, -paintSlack, -paintSlack)));
    const QRectF label = sizeLabelBox(selection).adjusted(-labelPadX, -labelPadY, labelPadX, labelPadY);
    area += label.adjusted(-paintSlack, -paintSlack, paintSlack, paintSlack).toAlignedRect();
    return area;
}

QPointF RegionSelectionView::insideBounds(QPointF point) const
{
    return {std::clamp(point.x(), 0.0, double(width())), std::clamp(point.y(), 0.0, double(height()))};
}

void RegionSelectionView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    if (!m_controller || event->button() != Qt::LeftButton)
        return;
    takeKeyboard();
    // The hint goes away; a drag whose mouse-up never arrived goes as a whole.
    QRegion changed = m_dragStart ? QRegion(rect()) : QRegion(hintCapsule().toAlignedRect());
    m_dragStart = m_dragCurrent = insideBounds(event->position());
    changed += decorationArea(*selection());
    update(changed);
}

void RegionSelectionView::mouseMoveEvent(QMouseEvent *event)
{
    event->accept();
    if (!m_controller || !m_dragStart)
        return;
    const QRectF before = *selection();
    m_dragCurrent = insideBounds(event->position());
    const QRectF after = *selection();
    if (after == before)
        return;
    // Only the band between the two rectangles changes its dimming; the
    // borders and labels redraw where they were and where they are now.
    QRegion changed = QRegion(before.toAlignedRect()).xored(QRegion(after.toAlignedRect()));
    changed += decorationArea(before);
    changed += decorationArea(after);
    update(changed);
}

void RegionSelectionView::mouseReleaseEvent(QMouseEvent *event)
{
    event->accept();
    if (!m_controller || event->button() != Qt::LeftButton || !m_dragStart)
        return;
    m_dragCurrent = insideBounds(event->position());
    const QRectF global = selection()->translated(display().frame.topLeft());
    m_controller->finish(global, &display());
}

void RegionSelectionView::keyPressEvent(QKeyEvent *event)
{
    // Every other key is swallowed: nothing behind the overlay should see it.
    event->accept();
    if (m_controller && event->key() == Qt::Key_Escape)
        m_controller->cancel();
}

} // namespace pixmora
