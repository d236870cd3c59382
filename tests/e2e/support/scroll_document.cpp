// A long document in a scrolling view, for end-to-end tests of scrolling
// captures: lines of prose, pictures and a blank stretch, the same pixels on
// every run. With --truth it first writes the whole document as one PNG (the
// ground truth); with --report it writes where its viewport lies on the
// root window (x y width height, device pixels) once it is on screen.
// --width and --repeat make it wider and longer, for benchmarks.
//
//   pixmora_scroll_document [--truth FILE] [--report FILE] [--width PIXELS]
//                           [--repeat TIMES] [-geometry WxH+X+Y]

#include <QApplication>
#include <QCommandLineParser>
#include <QFile>
#include <QPaintEvent>
#include <QPainter>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>

#include <algorithm>
#include <cstdint>
#include <random>

namespace {

constexpr int defaultWidth = 720;
constexpr int documentHeight = 5200;

QImage makeDocument(int documentWidth)
{
    static const char *const words[] = {
        "scroll", "capture", "the", "window", "of", "a", "long", "page", "stitched", "into", "one", "image",
        "while", "frames", "arrive", "four", "times", "each", "second", "and", "rows", "that", "move", "up",
        "are", "compared", "with", "what", "came", "before", "quietly", "because", "nobody", "likes", "seams",
        "tall", "narrow", "paragraph", "number", "column", "table", "river", "mountain", "lantern", "harbour"};
    // std::mt19937 yields the same numbers everywhere; its distributions may not.
    std::mt19937 engine{20240613};
    const auto below = [&](int n) { return int(engine() % std::uint32_t(n)); };
    QImage document(documentWidth, documentHeight, QImage::Format_RGB32);
    document.fill(Qt::white);
    QPainter painter(&document);
    painter.setRenderHint(QPainter::Antialiasing);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(15);
    painter.setFont(font);
    const int lineHeight = 22;
    int y = 16;
    int paragraph = 0;
    while (y < documentHeight - 40) {
        ++paragraph;
        if (paragraph % 7 == 0) {
            // A picture: bands and discs of colour.
            const int height = 140 + below(160);
            const QRect frame(40 + below(80), y, documentWidth - 160 - below(120), height);
            QLinearGradient gradient(frame.topLeft(), frame.bottomRight());
            gradient.setColorAt(0, QColor::fromHsv(below(360), 160, 230));
            gradient.setColorAt(1, QColor::fromHsv(below(360), 200, 120));
            painter.fillRect(frame, gradient);
            for (int disc = 0; disc < 6; ++disc) {
                painter.setBrush(QColor::fromHsv(below(360), 120 + below(120), 150 + below(100)));
                painter.setPen(Qt::NoPen);
                const int radius = 10 + below(40);
                painter.drawEllipse(QPoint(frame.left() + below(frame.width()), frame.top() + below(height)),
                                    radius, radius);
            }
            y += height + 24;
            continue;
        }
        if (paragraph == 12) {
            y += 260;  // a blank stretch, shorter than the view
            continue;
        }
        painter.setPen(QColor(20 + below(40), 20 + below(40), 30 + below(60)));
        const int lines = 2 + below(6);
        for (int line = 0; line < lines && y < documentHeight - 40; ++line, y += lineHeight) {
            QString text = QStringLiteral("%1.%2 ").arg(paragraph).arg(line + 1);
            const int count = 6 + below(8);
            for (int word = 0; word < count; ++word)
                text += QString::fromLatin1(words[below(int(std::size(words)))]) + QLatin1Char(' ');
            painter.drawText(QPoint(24 + below(30), y + 16), text.trimmed());
        }
        y += 12 + below(16);
    }
    return document;
}

// The document `times` times over, one below the other.
class Page : public QWidget {
public:
    Page(QImage document, int times) : m_document(std::move(document))
    {
        setFixedSize(m_document.width(), m_document.height() * times);
    }

protected:
    void paintEvent(QPaintEvent *event) override
    {
        QPainter painter(this);
        const QRect exposed = event->rect();
        for (int top = exposed.top() / m_document.height() * m_document.height(); top <= exposed.bottom();
             top += m_document.height())
            painter.drawImage(0, top, m_document);
    }

private:
    const QImage m_document;
};

} // namespace

int main(int argc, char **argv)
{
    // One device pixel per document pixel, whatever scale the tests give Pixmora.
    qunsetenv("QT_SCREEN_SCALE_FACTORS");
    qputenv("QT_ENABLE_HIGHDPI_SCALING", "0");
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("pixmora-scroll-document"));
    QCommandLineParser parser;
    const QCommandLineOption truth(QStringLiteral("truth"), QStringLiteral("Write the document to FILE."),
                                   QStringLiteral("FILE"));
    const QCommandLineOption report(QStringLiteral("report"), QStringLiteral("Write the viewport's place to FILE."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption width(QStringLiteral("width"), QStringLiteral("The document's width."),
                                   QStringLiteral("PIXELS"), QString::number(defaultWidth));
    const QCommandLineOption repeat(QStringLiteral("repeat"), QStringLiteral("Show the document this many times."),
                                    QStringLiteral("TIMES"), QStringLiteral("1"));
    parser.addOptions({truth, report, width, repeat});
    parser.addHelpOption();
    parser.process(app);

    const QImage document = makeDocument(std::max(400, parser.value(width).toInt()));
    if (parser.isSet(truth) && !document.save(parser.value(truth))) {
        qCritical("cannot write %s", qPrintable(parser.value(truth)));
        return 1;
    }

    QScrollArea view;
    view.setWindowTitle(QStringLiteral("Scroll Document"));
    view.setWidget(new Page(document, std::max(1, parser.value(repeat).toInt())));
    view.setFrameShape(QFrame::NoFrame);
    view.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    view.resize(document.width() + view.verticalScrollBar()->sizeHint().width(), 900);
    view.show();  // -geometry, handled by QApplication, overrides the size and sets the place

    if (parser.isSet(report)) {
        // Once the window manager has placed the window.
        QTimer::singleShot(500, &view, [&] {
            const QWidget *viewport = view.viewport();
            const double ratio = viewport->devicePixelRatioF();
            const QPoint topLeft = viewport->mapToGlobal(QPoint(0, 0));
            QFile file(parser.value(report));
            if (file.open(QIODevice::WriteOnly))
                file.write(QStringLiteral("%1 %2 %3 %4\n").arg(int(topLeft.x() * ratio)).arg(int(topLeft.y() * ratio))
                               .arg(int(viewport->width() * ratio)).arg(int(viewport->height() * ratio)).toUtf8());
        });
    }
    return app.exec();
}
