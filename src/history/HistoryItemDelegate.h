#pragma once

#include <QImage>
#include <QStyledItemDelegate>

#include <array>

namespace pixmora {

// Draws one capture of the history grid: a rounded tile with the thumbnail
// (the item's decoration, a QImage) above its date and time. Thumbnails come
// decoded at the size they are shown, so drawing one is a plain copy.
class HistoryItemDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    static constexpr QSize tileSize{200, 150};
    static constexpr int margin = 8;

    using QStyledItemDelegate::QStyledItemDelegate;

    // Where the thumbnail goes in a tile at the origin, in points.
    static QRect thumbnailBox(const QFont &captionFont);
    static QFont captionFont(const QFont &base);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

private:
    struct Background {
        QSize size;
        qreal ratio = 0;
        QRgb fill = 0, ring = 0;
        QImage image;
    };

    const QImage &background(QSize size, qreal ratio, const QPalette &palette, bool selected) const;

    mutable std::array<Background, 2> m_backgrounds;  // plain, selected
};

} // namespace pixmora
