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
    // Where nothing blends the window into the desktop, transparent parts of
    // the image (a window's shadow margin) are shown over a neutral backdrop.
    enum class Background { translucent, opaque };

    PreviewThumbView(QImage image, std::function<void()> onClick, Background background, QWidget *parent = nullptr);

    const QImage &image() const { return m_image; }

    // The largest rectangle of the image's proportions inside bounds, centred.
    static QRectF fittedRect(QSizeF imageSize, const QRectF &bounds);
    // The rounded outline as whole pixels, to shape a window that cannot be translucent.
    static QRegion roundedShape(QSize size);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    const std::function<void()> m_onClick;
    const QImage m_image;
    const Background m_background;
};

} // namespace pixmora
