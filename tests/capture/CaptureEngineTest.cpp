#include "capture/CaptureEngine.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <thread>

using namespace pixmora;

namespace {

// Noise: a wrong offset cannot go unnoticed, and the encoder meets every byte value.
QImage noise(int width, int height, QImage::Format format = QImage::Format_RGB32, bool translucent = false)
{
    QImage image(width, height, QImage::Format_ARGB32);
    QRandomGenerator random(7);
    for (int y = 0; y < height; ++y)
        random.fillRange(reinterpret_cast<quint32 *>(image.scanLine(y)), width);
    return (translucent ? image : image.convertToFormat(QImage::Format_RGB32)).convertToFormat(format);
}

} // namespace

TEST(BackingScale, ByDisplayIdOrWindowCentreElseTheMainDisplay)
{
    // The main display at scale 1 and a smaller one at scale 2 to its right, with a gap below it.
    const DisplayList displays = {{7, {0, 0, 1920, 1080}, {}, 1.0, {}}, {9, {1920, 0, 960, 540}, {}, 2.0, {}}};
    EXPECT_EQ(CaptureEngine::backingScale(9, displays), 2.0);
    EXPECT_EQ(CaptureEngine::backingScale(1234, displays), 1.0);
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({10, 10, 100, 100}, {}), 2.0);
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({1500, 100, 1000, 200}, displays), 2.0);  // mostly on the first
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({1820, 100, 200, 100}, displays), 2.0);   // centre on the seam
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({2000, 700, 200, 100}, displays), 1.0);   // in the gap
}

TEST(Crop, FloorsEachValueSubtractsTheScreensOriginAndClipsToTheImage)
{
    const QImage image = noise(1440, 900);
    const QRectF screen(0, 0, 720, 450), leftScreen(-720, -200, 720, 450);
    const struct { QRectF selection; QRectF screen; QRect pixels; } cases[] = {
        {{100.3, 450 - 70.8, 50.5, 20.2}, screen, {200, 758, 101, 40}},  // y measured up from the bottom: 50.6
        {{10.75, 10.75, 300.5, 200.25}, screen, {21, 21, 601, 400}},
        {{-720 + 30.5, -200 + 40.25, 100, 50}, leftScreen, {61, 80, 200, 100}},
        {{710, 440, 30, 30}, screen, {1420, 880, 20, 20}},
        {{-10, -10, 15, 20}, screen, {0, 0, 10, 20}},
        {{10, 10, 0.5, 0.5}, screen, {20, 20, 1, 1}},
        {{720, 10, 20, 20}, screen, {}},
        {{10, 10, 0.4, 20}, screen, {}},
        {{10, 10, 20, 0.49}, screen, {}},
    };
    for (const auto &[selection, screenFrame, pixels] : cases) {
        SCOPED_TRACE(testing::Message() << selection.x() << "," << selection.y());
        EXPECT_EQ(CaptureEngine::crop(image, selection, screenFrame), pixels.isEmpty() ? QImage() : image.copy(pixels));
    }
}

TEST(Shadow, WholeMarginsAroundTheUnchangedWindowAndASoftBlackShadowBelowIt)
{
    const QImage rgb = noise(300, 200);
    for (const double scale : {1.0, 1.33, 1.5, 2.0}) {
        SCOPED_TRACE(scale);
        const int margin = int(40 * scale);
        const QImage argb = rgb.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        // RGB32 takes a shortcut for rectangles; ARGB32 follows the alpha.
        const QImage shortcut = CaptureEngine::compositeShadow(rgb, scale).value();
        const QImage general = CaptureEngine::compositeShadow(argb, scale).value();
        ASSERT_EQ(general.size(), QSize(300 + 2 * margin, 200 + 2 * margin));
        EXPECT_EQ(general.copy(margin, margin, 300, 200), argb);
        EXPECT_EQ(shortcut.copy(margin, margin, 300, 200), argb);
        for (int y = 0; y < general.height(); ++y)
            for (int x = 0; x < general.width(); ++x)
                ASSERT_NEAR(qAlpha(shortcut.pixel(x, y)), qAlpha(general.pixel(x, y)), 2) << x << "," << y;
        // Black at 0.45, blurred: half of that on its edge, 8 points below the window's.
        const QRgb onEdge = general.pixel(margin + 150, margin + 200 + int(std::lround(8 * scale)));
        EXPECT_NEAR(qAlpha(onEdge), 0.45 * 255 / 2, 5);
        EXPECT_EQ(onEdge & 0xffffff, 0u);
    }
    EXPECT_FALSE(CaptureEngine::compositeShadow(QImage(), 2.0));
    QImage clear(200, 100, QImage::Format_ARGB32_Premultiplied);
    clear.fill(Qt::transparent);  // casts no shadow; copy() pads with transparent pixels
    EXPECT_EQ(CaptureEngine::compositeShadow(clear, 1.0).value(), clear.copy(-40, -40, 280, 180));
}

TEST(Png, RoundTripsEveryFormatAsRgbWhenOpaqueElseRgbaAt72DpiTimesScale)
{
    const struct { QImage::Format format; bool translucent; int colourType; double scale; int dpi; } cases[] = {
        {QImage::Format_RGB32, false, 2, 1.0, 72}, {QImage::Format_ARGB32_Premultiplied, false, 2, 2.0, 144},
        {QImage::Format_RGB888, false, 2, 3.0, 216}, {QImage::Format_Grayscale8, false, 2, 0.0, 72},
        {QImage::Format_ARGB32_Premultiplied, true, 6, 1.5, 108}, {QImage::Format_ARGB32, true, 6, 1.0, 72},
        {QImage::Format_RGBA8888, true, 6, 2.0, 144},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.format << (c.translucent ? " translucent" : ""));
        const QImage image = noise(97, 61, c.format, c.translucent);
        const QByteArray png = CaptureEngine::pngData(image, c.scale);
        ASSERT_GT(png.size(), 25);
        EXPECT_EQ(png.at(8 + 8 + 9), c.colourType);
        const QImage read = QImage::fromData(png);
        EXPECT_EQ(read.convertToFormat(QImage::Format_ARGB32_Premultiplied),
                  image.convertToFormat(QImage::Format_ARGB32_Premultiplied));
        EXPECT_EQ(read.dotsPerMeterX(), std::lround(c.dpi / 0.0254));
        EXPECT_EQ(read.dotsPerMeterY(), read.dotsPerMeterX());
    }
    EXPECT_TRUE(CaptureEngine::pngData(QImage(), 2.0).isEmpty());
}

TEST(Png, ALargeImageEncodedOnTwoThreadsAtOnceStaysIntact)
{
    const QImage image = noise(1000, 701, QImage::Format_ARGB32_Premultiplied, true);  // two bands, odd height
    QByteArray png, sameOnTheOtherThread;
    std::thread other([&] { sameOnTheOtherThread = CaptureEngine::pngData(image, 1.0); });
    png = CaptureEngine::pngData(image, 1.0);
    other.join();
    EXPECT_EQ(png, sameOnTheOtherThread);
    // The decoder checks every chunk's CRC and the stream's Adler-32.
    EXPECT_EQ(QImage::fromData(png).convertToFormat(QImage::Format_ARGB32_Premultiplied), image);
}

TEST(WritePng, ReplacesTheFileAtomicallyOrNamesTheFileAndTheReason)
{
    const auto writeError = [](const QByteArray &bytes, const QString &path) {
        try {
            CaptureEngine::writePNG(bytes, path);
        } catch (const Error &error) {
            return error.description();
        }
        return QString();
    };
    QTemporaryDir folder;
    const QString target = folder.filePath("a.png");
    const auto contents = [&] {
        QFile file(target);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    CaptureEngine::writePNG("first version", target);
    CaptureEngine::writePNG("old", target);
    CaptureEngine::writePNG("a file", folder.filePath("plain"));
    EXPECT_EQ(contents(), "old");
    EXPECT_EQ(writeError("png", folder.filePath("no such folder/Screenshot.png")),
              "Could not write \"Screenshot.png\": No such file or directory.");
    EXPECT_EQ(writeError("png", folder.filePath("plain/Screenshot.png")),
              "Could not write \"Screenshot.png\": Not a directory.");
    EXPECT_TRUE(writeError({}, folder.filePath("empty.png")).startsWith("Could not write \"empty.png\": "));

    // A file size limit fails writes as a full disk does, even for root; a
    // small file fails only when the buffer is flushed, a large one at once.
    for (const int size : {6000, 100000}) {
        rlimit saved;
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
        const rlimit small{.rlim_cur = 4096, .rlim_max = saved.rlim_max};
        const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        const QString fullDisk = writeError(QByteArray(size, 'x'), target);
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, previousHandler);
        EXPECT_TRUE(fullDisk.startsWith("Could not write \"a.png\": ")) << size << fullDisk.toStdString();
        EXPECT_EQ(contents(), "old");
        EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList({"a.png", "plain"}));
    }
}
