#include "PlatformTestSupport.h"

#include "platform/Error.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ImageTransfer.h"
#include "platform/x11/X11ScreenCapture.h"

#include <QGuiApplication>
#include <QScreen>

#include <gtest/gtest.h>

#include <cstring>

namespace pixmora::e2e {
namespace {

class DisplayCaptureTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_TRUE(waitUntilDesktopIsEmpty());
        pattern = new QImage(rootPattern(testDesktop().size()));
        paintRoot(*pattern);
    }
    static void TearDownTestSuite()
    {
        delete pattern;
        pattern = nullptr;
    }

    const DisplayInfo &display(const QString &name)
    {
        for (const DisplayInfo &info : displays)
            if (info.name == name)
                return info;
        throw std::runtime_error("no display " + name.toStdString());
    }

    static QImage *pattern;
    X11Connection x11;
    X11ScreenCapture capture{x11};
    DisplayList displays = capture.displays();
};

QImage *DisplayCaptureTest::pattern = nullptr;

TEST_F(DisplayCaptureTest, ListsBothMonitorsWithQtGeometryScaleAndRandrIdentity)
{
    ASSERT_EQ(displays.size(), 2u);
    EXPECT_EQ(displays.front().name, QGuiApplication::primaryScreen()->name());

    const DisplayInfo &left = display(QStringLiteral("LEFT"));
    EXPECT_EQ(left.frame, QRect(0, 0, 960, 1080));
    EXPECT_EQ(left.scale, 2.0);
    const DisplayInfo &right = display(QStringLiteral("RIGHT"));
    EXPECT_EQ(right.frame, QRect(1920, 0, 1920, 2160));
    EXPECT_EQ(right.scale, 1.0);
    EXPECT_TRUE(left.frame.contains(left.availableFrame));

    // The identifier is the monitor's name atom, the same on every query.
    auto atom = [this](const char *name) {
        XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            x11.connection(), xcb_intern_atom(x11.connection(), 1, uint16_t(std::strlen(name)), name), nullptr));
        return reply ? reply->atom : 0u;
    };
    EXPECT_EQ(left.id, atom("LEFT"));
    EXPECT_EQ(right.id, atom("RIGHT"));
    EXPECT_NE(left.id, right.id);
    const DisplayList again = capture.displays();
    ASSERT_EQ(again.size(), 2u);
    EXPECT_EQ(again[0].id, displays[0].id);
    EXPECT_EQ(again[1].id, displays[1].id);
}

TEST_F(DisplayCaptureTest, FullDisplayCapturesAreTheMonitorsDevicePixels)
{
    for (const auto &[name, native] : {std::pair{QStringLiteral("LEFT"), QRect(0, 0, 1920, 2160)},
                                       std::pair{QStringLiteral("RIGHT"), QRect(1920, 0, 1920, 2160)}}) {
        SCOPED_TRACE(name.toStdString());
        const QImage image = capture.captureDisplay(display(name));
        EXPECT_EQ(image.format(), QImage::Format_RGB32);
        EXPECT_EQ(image.pixel(0, 0) >> 24, 0xffu) << "padding byte must read as opaque";
        EXPECT_EQ(firstDifference(image, pattern->copy(native)), std::nullopt);
        // The shared buffer is reused: a second capture reads the screen again.
        EXPECT_EQ(firstDifference(capture.captureDisplay(display(name)), pattern->copy(native)), std::nullopt);
    }
}

TEST_F(DisplayCaptureTest, RegionsAreFlooredToDevicePixelsOnEachMonitorsScale)
{
    // LEFT at scale 2: 300.5 x 200.25 points are 601 x 400 pixels from (200, 101).
    const QImage left = capture.captureRegion(display(QStringLiteral("LEFT")), QRectF(100.25, 50.5, 300.5, 200.25));
    ASSERT_EQ(left.size(), QSize(601, 400));
    EXPECT_EQ(firstDifference(left, pattern->copy(200, 101, 601, 400)), std::nullopt);

    // RIGHT at scale 1 starts at x = 1920 in points and in pixels.
    const QImage right = capture.captureRegion(display(QStringLiteral("RIGHT")), QRectF(2000.5, 10.75, 100.7, 50.2));
    ASSERT_EQ(right.size(), QSize(100, 50));
    EXPECT_EQ(firstDifference(right, pattern->copy(2000, 10, 100, 50)), std::nullopt);
}

TEST_F(DisplayCaptureTest, RegionPastTheMonitorEdgeIsBlackNotTheNeighbour)
{
    // LEFT is 960 points wide: 60 of the 100 points lie on it.
    const QImage image = capture.captureRegion(display(QStringLiteral("LEFT")), QRectF(900, 0, 100, 10));
    ASSERT_EQ(image.size(), QSize(200, 20));
    EXPECT_EQ(firstDifference(image.copy(0, 0, 120, 20), pattern->copy(1800, 0, 120, 20)), std::nullopt);
    QImage black(80, 20, QImage::Format_RGB32);
    black.fill(Qt::black);
    EXPECT_EQ(firstDifference(image.copy(120, 0, 80, 20), black), std::nullopt);
}

TEST_F(DisplayCaptureTest, UnknownDisplayOrEmptyRegionThrows)
{
    DisplayInfo unplugged = displays.front();
    unplugged.id = 12345;
    EXPECT_THROW(capture.captureDisplay(unplugged), Error);
    EXPECT_THROW(capture.captureRegion(displays.front(), QRectF(10, 10, 0.2, 40)), Error);
}

TEST_F(DisplayCaptureTest, TallOddWidthRegionCrossesSeveralSharedBuffers)
{
    // 1023 pixels a row: the 2 MB halves of the shared segment hold 512 rows,
    // so 1500 rows arrive in three bands, the last one short.
    EXPECT_TRUE(x11.images().usesSharedMemory());
    const QImage image = capture.captureRegion(display(QStringLiteral("RIGHT")), QRectF(1921, 3, 1023, 1500));
    EXPECT_EQ(firstDifference(image, pattern->copy(1921, 3, 1023, 1500)), std::nullopt);
}

} // namespace
} // namespace pixmora::e2e
