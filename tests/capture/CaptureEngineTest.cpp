#include "capture/CaptureEngine.h"
#include "platform/ScreenCapture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

using namespace pixmora;

namespace {

// Every pixel tells where it is, so a wrong offset cannot go unnoticed.
QImage coordinateImage(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, qRgb(x % 256, y % 256, (x / 256) * 16 + y / 256));
    return image;
}

DisplayInfo display(quint32 id, QRect frame, double scale)
{
    DisplayInfo info;
    info.id = id;
    info.frame = frame;
    info.availableFrame = frame;
    info.scale = scale;
    return info;
}

// A primary display at scale 1 and a smaller one at scale 2 to its right,
// with a gap below the second one.
const DisplayList twoDisplays = {display(7, {0, 0, 1920, 1080}, 1.0),
                                 display(9, {1920, 0, 960, 540}, 2.0)};

class StubCapture : public ScreenCapture {
public:
    DisplayList displays() override { return twoDisplays; }
    WindowList windows() override { return {}; }
    QImage captureDisplay(const DisplayInfo &) override { return {}; }
    QImage captureRegion(const DisplayInfo &, const QRectF &) override { return {}; }
    QImage captureWindow(const WindowInfo &window, double scale) override
    {
        requestedScale = scale;
        return coordinateImage(int(window.frame.width() * scale), int(window.frame.height() * scale));
    }
    double requestedScale = 0;
};

} // namespace

TEST(BackingScale, WithoutDisplaysIsTwo)
{
    EXPECT_EQ(CaptureEngine::backingScale(7, {}), 2.0);
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({10, 10, 100, 100}, {}), 2.0);
}

TEST(BackingScale, ByDisplayIdFallsBackToMainDisplay)
{
    EXPECT_EQ(CaptureEngine::backingScale(9, twoDisplays), 2.0);
    EXPECT_EQ(CaptureEngine::backingScale(7, twoDisplays), 1.0);
    EXPECT_EQ(CaptureEngine::backingScale(1234, twoDisplays), 1.0);

    // A display without a usable identifier counts as 0, and 0 finds it.
    DisplayList withUnknown = twoDisplays;
    withUnknown.push_back(display(0, {-800, 0, 800, 600}, 1.5));
    EXPECT_EQ(CaptureEngine::backingScale(0, withUnknown), 1.5);
}

TEST(BackingScale, ByWindowCentre)
{
    // Mostly on the primary display, but the centre lies on the second.
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({1500, 100, 1000, 200}, twoDisplays), 2.0);
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({100, 100, 400, 300}, twoDisplays), 1.0);
    // A centre on the seam belongs to the display that starts there.
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({1820, 100, 200, 100}, twoDisplays), 2.0);
    // In the gap below the second display, or off every display: the main one.
    DisplayList mainAtTwo = twoDisplays;
    std::swap(mainAtTwo[0].scale, mainAtTwo[1].scale);
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({2000, 700, 200, 100}, mainAtTwo), 2.0);
    EXPECT_EQ(CaptureEngine::backingScaleForWindowFrame({-5000, -5000, 200, 100}, twoDisplays), 1.0);
}

TEST(Crop, WorkedExampleOnRetinaScreen)
{
    const QImage image = coordinateImage(2880, 1800);
    // (100.3, 500.6, 50.5, 20.2) measured upwards from the bottom of a 900-point screen.
    const QImage cropped = CaptureEngine::crop(image, {100.3, 900 - 520.8, 50.5, 20.2}, {0, 0, 1440, 900});
    ASSERT_EQ(cropped.size(), QSize(101, 40));
    EXPECT_EQ(cropped.pixel(0, 0), image.pixel(200, 758));
    EXPECT_EQ(cropped.pixel(100, 39), image.pixel(300, 797));

    // Each of the four values is floored on its own: 601 x 400, not 602 x 401.
    const QImage truncated = CaptureEngine::crop(image, {10.75, 10.75, 300.5, 200.25}, {0, 0, 1440, 900});
    EXPECT_EQ(truncated.size(), QSize(601, 400));
    EXPECT_EQ(truncated.pixel(0, 0), image.pixel(21, 21));
}

TEST(Crop, SecondaryScreenSubtractsItsOwnOrigin)
{
    const QImage image = coordinateImage(2560, 2048);
    const QRectF selection(30.5, 40.25, 100, 50);
    const QImage atOrigin = CaptureEngine::crop(image, selection, {0, 0, 1280, 1024});
    const QImage elsewhere = CaptureEngine::crop(image, selection.translated(-1280, -200), {-1280, -200, 1280, 1024});
    ASSERT_EQ(atOrigin.size(), QSize(200, 100));
    EXPECT_EQ(elsewhere, atOrigin);
    EXPECT_EQ(elsewhere.pixel(0, 0), image.pixel(61, 80));
}

TEST(Crop, ClipsToTheImageAndRefusesNothing)
{
    const QImage image = coordinateImage(200, 100);
    const QRectF screen(0, 0, 100, 50);

    const QImage pastCorner = CaptureEngine::crop(image, {90, 45, 30, 30}, screen);
    ASSERT_EQ(pastCorner.size(), QSize(20, 10));
    EXPECT_EQ(pastCorner.pixel(0, 0), image.pixel(180, 90));
    const QImage beforeCorner = CaptureEngine::crop(image, {-10, -10, 15, 20}, screen);
    ASSERT_EQ(beforeCorner.size(), QSize(10, 20));
    EXPECT_EQ(beforeCorner.pixel(0, 0), image.pixel(0, 0));

    EXPECT_TRUE(CaptureEngine::crop(image, {200, 10, 20, 20}, screen).isNull());
    EXPECT_TRUE(CaptureEngine::crop(image, {10, 10, 0.4, 20}, screen).isNull());
    EXPECT_TRUE(CaptureEngine::crop(image, {10, 10, 20, 0.49}, screen).isNull());
    EXPECT_EQ(CaptureEngine::crop(image, {10, 10, 0.5, 0.5}, screen).size(), QSize(1, 1));
}

TEST(Crop, SharesPixelsAndOutlivesTheSnapshot)
{
    QImage cropped;
    const uchar *expectedFirstPixel = nullptr;
    QRgb expected = 0;
    {
        QImage snapshot = coordinateImage(400, 300);
        cropped = CaptureEngine::crop(snapshot, {10, 20, 50, 40}, {0, 0, 400, 300});
        expectedFirstPixel = snapshot.constScanLine(20) + 10 * 4;
        expected = snapshot.pixel(10, 20);
        EXPECT_EQ(cropped.constBits(), expectedFirstPixel);
        snapshot.fill(Qt::red);   // the owner painting on its image leaves the crop alone
    }
    EXPECT_EQ(cropped.pixel(0, 0), expected);
    cropped.setPixel(0, 0, qRgb(1, 2, 3));
    EXPECT_EQ(cropped.pixel(0, 0), qRgb(1, 2, 3));
}

namespace {
QImage windowImage(int width, int height)
{
    QImage image = coordinateImage(width, height);
    return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}
} // namespace

TEST(Shadow, GeometryAddsWholeMarginsAndKeepsTheWindow)
{
    for (const double scale : {1.0, 1.5, 2.0, 1.33}) {
        const int margin = int(40 * scale);
        const QImage window = windowImage(300, 200);
        const std::optional<QImage> shadowed = CaptureEngine::compositeShadow(window, scale);
        ASSERT_TRUE(shadowed) << scale;
        EXPECT_EQ(shadowed->size(), QSize(300 + 2 * margin, 200 + 2 * margin)) << scale;
        EXPECT_EQ(shadowed->format(), QImage::Format_ARGB32_Premultiplied);
        EXPECT_EQ(shadowed->copy(margin, margin, 300, 200), window) << scale;
    }
    EXPECT_FALSE(CaptureEngine::compositeShadow(QImage(), 2.0));
}

TEST(Shadow, SoftBlackAndFallingDownwards)
{
    const double scale = 2.0;
    const QImage shadowed = *CaptureEngine::compositeShadow(windowImage(400, 300), scale);
    const int margin = 80;
    const int centreX = margin + 200;
    const auto alphaAt = [&](int x, int y) { return qAlpha(shadowed.pixel(x, y)); };

    for (int y = 0; y < shadowed.height(); y += 7) {
        for (int x = 0; x < shadowed.width(); x += 7) {
            if (x < margin || y < margin || x >= margin + 400 || y >= margin + 300) {
                ASSERT_EQ(shadowed.pixel(x, y) & 0xffffff, 0u) << x << "," << y;
            }
        }
    }

    // Across the window's bottom edge the shadow is a blurred step: 0.45 of
    // the Gaussian's integral (sigma = 24) up to the edge, moved down 16 pixels.
    const auto expectedAlpha = [](double distanceAboveShadowEdge) {
        return 0.45 * 255 * 0.5 * std::erfc(-distanceAboveShadowEdge / 24 / std::sqrt(2.0));
    };
    const int bottom = margin + 300;
    for (const int below : {4, 30, 60})
        EXPECT_NEAR(alphaAt(centreX, bottom + below), expectedAlpha(16 - below), 5) << below;
    EXPECT_NEAR(alphaAt(centreX, margin - 5), expectedAlpha(-21), 5);
    EXPECT_LT(alphaAt(0, 0), 3);
    // Sideways the shadow is symmetric.
    EXPECT_EQ(alphaAt(margin - 10, 300), alphaAt(margin + 400 + 9, 300));
}

TEST(Shadow, OpaqueFormatsCastTheSameShadow)
{
    // An RGB32 window takes a shortcut; an opaque ARGB32 one the general road.
    const QImage rgb = coordinateImage(333, 222);
    const QImage shortcut = *CaptureEngine::compositeShadow(rgb, 1.5);
    const QImage general = *CaptureEngine::compositeShadow(windowImage(333, 222), 1.5);
    ASSERT_EQ(shortcut.size(), general.size());
    int largestDifference = 0;
    for (int y = 0; y < general.height(); ++y)
        for (int x = 0; x < general.width(); ++x)
            largestDifference = std::max(largestDifference, std::abs(qAlpha(shortcut.pixel(x, y)) - qAlpha(general.pixel(x, y))));
    EXPECT_LE(largestDifference, 2);
    EXPECT_EQ(shortcut.copy(60, 60, 333, 222), rgb.convertToFormat(QImage::Format_ARGB32_Premultiplied));
}

TEST(Shadow, FollowsTheWindowsAlpha)
{
    QImage clear(200, 100, QImage::Format_ARGB32_Premultiplied);
    clear.fill(Qt::transparent);
    const QImage shadowed = *CaptureEngine::compositeShadow(clear, 1.0);
    for (int y = 0; y < shadowed.height(); ++y)
        for (int x = 0; x < shadowed.width(); ++x)
            ASSERT_EQ(shadowed.pixel(x, y), 0u);
}

TEST(Shadow, IgnoresTheWindowsDevicePixelRatio)
{
    QImage window = windowImage(120, 80);
    window.setDevicePixelRatio(2.0);
    const QImage shadowed = *CaptureEngine::compositeShadow(window, 2.0);
    QImage plain = window;
    plain.setDevicePixelRatio(1.0);
    EXPECT_EQ(shadowed.copy(80, 80, 120, 80), plain);
}

TEST(CaptureWindow, UsesTheScaleUnderTheCentreAndAddsTheShadowOnRequest)
{
    StubCapture service;
    WindowInfo window;
    window.frame = QRect(2000, 100, 300, 200);

    const CapturedImage plain = CaptureEngine::captureWindow(service, window, false);
    EXPECT_EQ(service.requestedScale, 2.0);
    EXPECT_EQ(plain.scale, 2.0);
    EXPECT_EQ(plain.image, coordinateImage(600, 400));

    const CapturedImage shadowed = CaptureEngine::captureWindow(service, window, true);
    EXPECT_EQ(shadowed.scale, 2.0);
    EXPECT_EQ(shadowed.image.size(), QSize(600 + 160, 400 + 160));
}

class WritePng : public ::testing::Test {
protected:
    QString path(const QString &name) const { return folder.filePath(name); }
    static QByteArray contents(const QString &file)
    {
        QFile f(file);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    QString errorOf(const QByteArray &bytes, const QString &file)
    {
        try {
            CaptureEngine::writePNG(bytes, file);
        } catch (const Error &error) {
            return error.description();
        }
        return {};
    }

    QTemporaryDir folder;
};

TEST_F(WritePng, ReplacesTheFileWithoutLeftovers)
{
    CaptureEngine::writePNG("first version", path("a.png"));
    CaptureEngine::writePNG("second", path("a.png"));
    EXPECT_EQ(contents(path("a.png")), "second");
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"a.png"});
}

TEST_F(WritePng, NamesTheFileAndTheReason)
{
    const QString missing = errorOf("png", path("no such folder/Screenshot.png"));
    EXPECT_TRUE(missing.contains("\"Screenshot.png\"")) << missing.toStdString();
    EXPECT_TRUE(missing.contains("No such file or directory")) << missing.toStdString();

    CaptureEngine::writePNG("a file", path("plain"));
    const QString notFolder = errorOf("png", path("plain/Screenshot.png"));
    EXPECT_TRUE(notFolder.contains("Not a directory")) << notFolder.toStdString();

    // Not even root may create files here.
    const QString protectedPlace = errorOf("png", "/proc/Screenshot.png");
    EXPECT_TRUE(protectedPlace.contains("\"Screenshot.png\"")) << protectedPlace.toStdString();

    const QString empty = errorOf({}, path("empty.png"));
    EXPECT_FALSE(empty.isEmpty());
    EXPECT_FALSE(QFile::exists(path("empty.png")));
}

TEST_F(WritePng, ReadOnlyFolderKeepsTheOldFile)
{
    CaptureEngine::writePNG("old", path("a.png"));
    ASSERT_TRUE(QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::ExeOwner));
    QFile probe(path("probe"));
    if (probe.open(QIODevice::WriteOnly)) {
        QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        GTEST_SKIP() << "folder permissions are not enforced for this user";
    }
    const QString error = errorOf("new", path("a.png"));
    QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    EXPECT_TRUE(error.contains("Permission denied")) << error.toStdString();
    EXPECT_EQ(contents(path("a.png")), "old");
}
