#include "history/HistoryItemDelegate.h"

#include <QImage>
#include <QPainter>
#include <QtMath>

#include <cmath>

namespace pixmora {

namespace {

constexpr int captionGap = 6;
constexpr int captionSideMargin = 6;
constexpr qreal cornerRadius = 8;

} // namespace

QFont HistoryItemDelegate::captionFont(const QFont &base)
{
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * 0.85);
    return font;
}

QRect HistoryItemDelegate::thumbnailBox(const QFont &captionFont)
{
    const int captionHeight = QFontMetrics(captionFont).height();
    return QRect(margin, margin, tileSize.width() - 2 * margin,
                 tileSize.height() - 2 * margin - captionGap - captionHeight);
}

QSize HistoryItemDelegate::sizeHint(const QStyleOptionViewItem &, const QModelIndex &) const { return tileSize; }

// An antialiased rounded rectangle costs more than the rest of a tile
// together, so each kind is drawn once and then copied.
const QImage &HistoryItemDelegate::background(QSize size, qreal ratio, const QPalette &palette, bool selected) const
{
    QColor fill = palette.color(QPalette::Text);
    fill.setAlphaF(0.07f);
    const QColor ring = palette.color(QPalette::Highlight);
    Background &cached = m_backgrounds[selected ? 1 : 0];
    if (!cached.image.isNull() && cached.size == size && cached.ratio == ratio && cached.fill == fill.rgba() &&
        cached.ring == ring.rgba())
        return cached.image;
    QImage image(QSize(qCeil(size.width() * ratio), qCeil(size.height() * ratio)),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF tile = QRectF(QPointF(), QSizeF(size)).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(tile, cornerRadius, cornerRadius);
    if (selected) {
        painter.setPen(QPen(ring, 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(tile.adjusted(1, 1, -1, -1), cornerRadius, cornerRadius);
    }
    painter.end();
    cached = {size, ratio, fill.rgba(), ring.rgba(), image};
    return cached.image;
}

void HistoryItemDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    painter->save();
    const qreal ratio = painter->device()->devicePixelRatioF();
    painter->drawImage(option.rect.topLeft(), background(option.rect.size(), ratio, option.palette,
                                                         option.state & QStyle::State_Selected));

    const QFont font = captionFont(option.font);
    const QRect box = thumbnailBox(font).translated(option.rect.topLeft());
    const QImage thumbnail = index.data(Qt::DecorationRole).value<QImage>();
    if (!thumbnail.isNull()) {
        // Shown at its own size when it fits: decoded for this screen, it then needs no scaling.
        QSizeF shown = QSizeF(thumbnail.size()) / ratio;
        if (shown.width() > box.width() || shown.height() > box.height())
            shown.scale(box.size(), Qt::KeepAspectRatio);
        // On whole device pixels, so that the copy stays exact.
        const auto snapped = [ratio](qreal at) { return std::round(at * ratio) / ratio; };
        const QPointF topLeft(snapped(box.x() + (box.width() - shown.width()) / 2),
                              snapped(box.y() + (box.height() - shown.height()) / 2));
        painter->drawImage(QRectF(topLeft, shown), thumbnail);
    }

    QColor captionColour = option.palette.color(QPalette::Text);
    captionColour.setAlphaF(0.6f);
    painter->setPen(captionColour);
    painter->setFont(font);
    const QRect caption(option.rect.left() + captionSideMargin, box.bottom() + 1 + captionGap,
                        option.rect.width() - 2 * captionSideMargin, QFontMetrics(font).height());
    painter->drawText(caption, Qt::AlignCenter, index.data(Qt::DisplayRole).toString());
    painter->restore();
}

} // namespace pixmora
