#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QString>

namespace pixmora {

// The area overlay's geometry, in view coordinates (points, origin top-left, y down).
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
} // namespace pixmora
