// Renders an SVG icon into a square PNG of the given size, for the hicolor
// sizes that the package ships next to the scalable icon.
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>

int main(int argc, char **argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: render_icon SVG PIXELS PNG\n");
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QSvgRenderer renderer(QString::fromLocal8Bit(argv[1]));
    const int pixels = QByteArray(argv[2]).toInt();
    if (!renderer.isValid() || pixels <= 0) {
        std::fprintf(stderr, "render_icon: cannot render %s at %s pixels\n", argv[1], argv[2]);
        return 1;
    }
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    renderer.render(&painter);
    painter.end();
    if (!image.save(QString::fromLocal8Bit(argv[3]), "PNG")) {
        std::fprintf(stderr, "render_icon: cannot write %s\n", argv[3]);
        return 1;
    }
    return 0;
}
