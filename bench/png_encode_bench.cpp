// PNG encoding of a realistic 4K desktop, ours against QImage::save, and the
// window shadow. `--write-desktop=FILE` also saves the synthetic desktop, to
// show it on an X server and compare with other screenshot tools.

#include "image/WindowShadow.h"
#include "image/PngEncoder.h"

#include <QBuffer>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QLinearGradient>
#include <QPainter>
#include <QRandomGenerator>

#include <benchmark/benchmark.h>

#include <cstring>

using namespace pixmora;

namespace {

// Gradient wallpaper, a top panel and four windows of text in real fonts.
QImage syntheticDesktop()
{
    QImage image(3840, 2160, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient wallpaper(0, 0, image.width(), image.height());
    wallpaper.setColorAt(0, QColor(0x1d, 0x35, 0x57));
    wallpaper.setColorAt(0.6, QColor(0x45, 0x7b, 0x9d));
    wallpaper.setColorAt(1, QColor(0xa8, 0xda, 0xdc));
    painter.fillRect(image.rect(), wallpaper);

    QRandomGenerator random(2024);
    const QStringList words = QStringLiteral(
        "the capture engine writes every display into a file named after the moment "
        "of capture while history keeps the last sixty images and a thumbnail fades in "
        "window shadow selection scale pixels points desktop folder clipboard settings "
        "return const auto image width height format buffer stream deflate filter row "
        "menu shortcut control shift preview editor arrow rectangle text undo redo").split(' ');
    const auto sentence = [&](int count) {
        QStringList picked;
        for (int i = 0; i < count; ++i)
            picked << words[random.bounded(int(words.size()))];
        return picked.join(' ');
    };

    painter.fillRect(0, 0, image.width(), 36, QColor(0x2b, 0x2b, 0x2b));
    painter.setPen(QColor(0xee, 0xee, 0xee));
    painter.setFont(QFont("DejaVu Sans", 11));
    painter.drawText(QRect(16, 0, 800, 36), Qt::AlignVCenter, "Activities    Files    Terminal    Editor");
    painter.drawText(QRect(image.width() - 400, 0, 380, 36), Qt::AlignVCenter | Qt::AlignRight, "Tue 14:32");

    struct Window {
        QRect frame;
        QColor background;
        QColor ink;
        const char *family;
        int pointSize;
        bool code;
    };
    const Window windows[] = {
        {{120, 110, 1500, 950}, QColor(0x1e, 0x1e, 0x1e), QColor(0xc8, 0xe6, 0xc9), "DejaVu Sans Mono", 11, true},
        {{1450, 260, 1800, 1250}, QColor(0xfa, 0xfa, 0xfa), QColor(0x20, 0x20, 0x20), "DejaVu Sans Mono", 10, true},
        {{380, 1020, 1650, 1040}, Qt::white, QColor(0x33, 0x33, 0x33), "DejaVu Sans", 12, false},
        {{2500, 1350, 1150, 700}, QColor(0xf0, 0xf0, 0xf0), QColor(0x10, 0x10, 0x10), "DejaVu Sans", 10, false},
    };
    const QColor accents[] = {QColor(0xd7, 0x3a, 0x49), QColor(0x00, 0x5c, 0xc5),
                              QColor(0x6f, 0x42, 0xc1), QColor(0x22, 0x86, 0x3a)};
    int windowIndex = 0;
    for (const Window &window : windows) {
        painter.fillRect(window.frame, window.background);
        const QRect titleBar(window.frame.x(), window.frame.y(), window.frame.width(), 34);
        painter.fillRect(titleBar, QColor(0xdd, 0xdd, 0xdd));
        painter.setPen(QColor(0x22, 0x22, 0x22));
        painter.setFont(QFont("DejaVu Sans", 10, QFont::Bold));
        painter.drawText(titleBar, Qt::AlignCenter, sentence(4));
        const QFont font(window.family, window.pointSize);
        painter.setFont(font);
        const int lineHeight = QFontMetrics(font).height() + 3;
        int line = 0;
        for (int y = titleBar.bottom() + 10; y + lineHeight < window.frame.bottom() - 8; y += lineHeight, ++line) {
            const int indent = window.code ? 8 + 32 * random.bounded(4) : 16;
            painter.setPen(window.code && line % 5 == 2 ? accents[(line / 5) % 4] : window.ink);
            const QString text = window.code
                ? QStringLiteral("%1  ").arg(line + 1, 4) + sentence(3 + random.bounded(9)) + ";"
                : sentence(12 + random.bounded(10));
            painter.drawText(QRect(window.frame.x() + indent, y, window.frame.width() - indent - 16, lineHeight),
                             Qt::AlignVCenter | Qt::TextSingleLine, text);
            if (!window.code && line % 9 == 8)
                y += lineHeight;   // paragraph gap
        }
        painter.setPen(accents[windowIndex++ % 4]);
        painter.drawRect(window.frame.adjusted(0, 0, -1, -1));
    }
    return image;
}

const QImage &desktop()
{
    static const QImage image = syntheticDesktop();
    return image;
}

void BM_EncodePng(benchmark::State &state)
{
    QByteArray png;
    for (auto _ : state) {
        png = encodePng(desktop(), 1.0);
        benchmark::DoNotOptimize(png.data());
    }
    state.counters["bytes"] = double(png.size());
}
BENCHMARK(BM_EncodePng)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime()
    ->Repetitions(5)->ReportAggregatesOnly(true);

void BM_QImageSave(benchmark::State &state)
{
    QByteArray png;
    for (auto _ : state) {
        png.clear();
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        desktop().save(&buffer, "PNG");
        benchmark::DoNotOptimize(png.data());
    }
    state.counters["bytes"] = double(png.size());
}
BENCHMARK(BM_QImageSave)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime()
    ->Repetitions(5)->ReportAggregatesOnly(true);

// An opaque window's shadow is a blurred rectangle; a translucent one's needs
// the whole two-dimensional blur of its alpha.
void BM_WindowShadow(benchmark::State &state)
{
    const QImage::Format format = state.range(0) ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
    const QImage window = desktop().copy(1450, 260, 2000, 1500).convertToFormat(format);
    for (auto _ : state) {
        std::optional<QImage> shadowed = compositeShadow(window, 2.0);
        benchmark::DoNotOptimize(shadowed->constBits());
    }
}
BENCHMARK(BM_WindowShadow)->ArgName("translucent")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)
    ->UseRealTime()->MeasureProcessCPUTime()->Repetitions(5)->ReportAggregatesOnly(true);

// Resident memory of this process in KiB, from the kernel's status file.
long residentKilobytes()
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    }
    return -1;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);

    const QImage &image = desktop();
    const char *writeOption = "--write-desktop=";
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], writeOption, std::strlen(writeOption)) == 0)
            image.save(QString::fromLocal8Bit(argv[i] + std::strlen(writeOption)));
    }

    // The very first call pays for fresh buffers; the benchmarks then run warm.
    const long residentBefore = residentKilobytes();
    QElapsedTimer timer;
    timer.start();
    const qsizetype firstSize = encodePng(image, 1.0).size();
    benchmark::AddCustomContext("first_encode_ms", std::to_string(timer.nsecsElapsed() / 1e6));
    benchmark::AddCustomContext("first_encode_bytes", std::to_string(firstSize));
    benchmark::AddCustomContext("rss_growth_after_first_encode_kb", std::to_string(residentKilobytes() - residentBefore));

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
