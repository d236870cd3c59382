#include "capture/SelectionGeometry.h"

#include <QChar>

#include <algorithm>
#include <cmath>

namespace pixmora::SelectionGeometry {

namespace {
constexpr double minimumSide = 2.0;
constexpr double labelGap = 15.0, labelInset = 10.0, labelInsideLift = 5.0;
constexpr double hintTop = 64.0;
} // namespace

QRectF normalizedRect(QPointF a, QPointF b)
{
    return QRectF(QPointF(std::min(a.x(), b.x()), std::min(a.y(), b.y())),
                  QSizeF(std::abs(a.x() - b.x()), std::abs(a.y() - b.y())));
}

bool isAccepted(const QRectF &selection)
{
    return selection.width() >= minimumSide && selection.height() >= minimumSide;
}

QString sizeLabelText(QSizeF size)
{
    return QStringLiteral("%1 %2 %3").arg(qint64(size.width())).arg(QChar(0x00D7)).arg(qint64(size.height()));
}

QRectF sizeLabelRect(const QRectF &selection, QSizeF labelSize, QSizeF viewSize)
{
    double x = selection.right() - labelSize.width() - labelInset;
    double y = selection.bottom() + labelGap;
    if (y + labelSize.height() > viewSize.height())
        y = selection.bottom() - labelInsideLift - labelSize.height();
    if (x < 0)
        x = selection.left();
    return QRectF(QPointF(x, y), labelSize);
}

QRectF hintTextRect(QSizeF textSize, QSizeF viewSize)
{
    return QRectF(QPointF(viewSize.width() / 2 - textSize.width() / 2, hintTop), textSize);
}

} // namespace pixmora::SelectionGeometry
