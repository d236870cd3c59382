#include "preview/PreviewThumbView.h"

#include <QBitmap>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace pixmora {

namespace {
constexpr double cornerRadius = 8.0;
constexpr double borderWidth = 1.0;
const QColor borderColor(255, 255, 255, 204);  // white at 0.8
const QColor neutralBackdrop(0xd8, 0xd8, 0xd8);
} // namespace

PreviewThumbView::PreviewThumbView(QImage image, std::function<void()> onClick, Background background, QWidget *parent)
    : QWidget(parent), m_onClick(std::move(onClick)), m_image(std::move(image)), m_background(background)
{
    setCursor(Qt::PointingHandCursor);
}

QRectF PreviewThumbView::fittedRect(QSizeF imageSize, const QRectF &bounds)
{
    if (imageSize.isEmpty())
        return {};
    const double factor = std::min(bounds.width() / imageSize.width(), bounds.height() / imageSize.height());
    QRectF fitted(QPointF(), imageSize * factor);
    fitted.moveCenter(bounds.center());
    return fitted;
}

QRegion PreviewThumbView::roundedShape(QSize size)
{
    QBitmap shape(size);
    shape.fill(Qt::color0);
    QPainter painter(&shape);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::color1);
    painter.drawRoundedRect(QRectF(QPointF(), size), cornerRadius, cornerRadius);
    painter.end();
    return QRegion(shape);
}

void PreviewThumbView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);

    const QRectF bounds = rect();
    QPainterPath rounded;
    rounded.addRoundedRect(bounds, cornerRadius, cornerRadius);
    painter.setClipPath(rounded);
    if (m_background == Background::opaque)
        painter.fillRect(bounds, neutralBackdrop);
    painter.drawImage(fittedRect(m_image.size(), bounds), m_image);

    // The border lies inside the bounds, over the image, like a layer border.
    const double inset = borderWidth / 2;
    painter.setClipping(false);
    painter.setPen(QPen(borderColor, borderWidth));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(bounds.adjusted(inset, inset, -inset, -inset), cornerRadius - inset,
                            cornerRadius - inset);
}

void PreviewThumbView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    if (m_onClick)
        m_onClick();
}

} // namespace pixmora
