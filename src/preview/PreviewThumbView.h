#pragma once

#include <QImage>
#include <QWidget>

#include <functional>

namespace pixmora {

// The clickable face of the floating thumbnail: the image fitted into rounded
// corners with a thin light border. Every mouse press counts as a click.
class PreviewThumbView : public QWidget {
    Q_OBJECT

public:
    PreviewThumbView(QImage image, std::function<void()> onClick, QWidget *parent = nullptr);

    const QImage &image() const { return m_image; }

    // The largest rectangle of the image's proportions inside bounds, centred.
    static QRectF fittedRect(QSizeF imageSize, const QRectF &bounds);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    const std::function<void()> m_onClick;
    const QImage m_image;
};

} // namespace pixmora
