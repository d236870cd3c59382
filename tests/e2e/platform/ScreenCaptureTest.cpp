#include "PlatformTestSupport.h"

#include "platform/Error.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ImageTransfer.h"
#include "platform/x11/X11ScreenCapture.h"

#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>

namespace pixmora::e2e {
namespace {

class ScreenCaptureTest : public ::testing::Test {
protected:
    std::optional<WindowInfo> find(quint64 id)
    {
        const WindowList windows = capture.windows();
        const auto it = std::ranges::find(windows, id, &WindowInfo::id);
        return it == windows.end() ? std::nullopt : std::optional(*it);
    }
    bool onScreen(quint64 id) { return find(id) && find(id)->onScreen; }

    // Makes the image the root window's background, what shows where no window is.
    void paintRoot(const QImage &image)
    {
        xcb_connection_t *c = x11.connection();
        const uint8_t depth = x11.screen()->root_depth;
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        xcb_create_pixmap(c, depth, pixmap, x11.root(), uint16_t(image.width()), uint16_t(image.height()));
        const xcb_gcontext_t gc = xcb_generate_id(c);
        xcb_create_gc(c, gc, pixmap, 0, nullptr);
        for (int top = 0; top < image.height(); top += 64) {
            const int rows = std::min(64, image.height() - top);
            xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, gc, uint16_t(image.width()), uint16_t(rows), 0,
                          int16_t(top), 0, depth, uint32_t(image.bytesPerLine() * rows), image.constScanLine(top));
        }
        xcb_change_window_attributes(c, x11.root(), XCB_CW_BACK_PIXMAP, &pixmap);
        xcb_clear_area(c, 0, x11.root(), 0, 0, 0, 0);
        xcb_free_gc(c, gc);
        xcb_free_pixmap(c, pixmap);
        XcbReply<xcb_get_input_focus_reply_t>(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));  // round trip
    }

    X11Connection x11;
    X11ScreenCapture capture{x11};
    DisplayList displays = capture.displays();
};

TEST_F(ScreenCaptureTest, MonitorsAreCapturedInDevicePixelsFlooredAtTheirScale)
{
    // Qt's geometry and scale, the primary monitor first, identifiers that survive a new query.
    ASSERT_EQ(displays.size(), 2u);
    const DisplayInfo &left = displays[0];
    const DisplayInfo &right = displays[1];
    EXPECT_EQ(left.name, QGuiApplication::primaryScreen()->name());
    EXPECT_EQ(left.frame, QRect(0, 0, 960, 1080));
    EXPECT_EQ(left.scale, 2.0);
    EXPECT_EQ(right.frame, QRect(1920, 0, 1920, 2160));
    EXPECT_EQ(right.scale, 1.0);
    EXPECT_TRUE(std::ranges::equal(capture.displays(), displays, {}, &DisplayInfo::id, &DisplayInfo::id));

    const QImage pattern = rootPattern(QSize(3840, 2160));
    paintRoot(pattern);
    // Windows of earlier tests close asynchronously: wait until only the pattern shows.
    EXPECT_TRUE(QTest::qWaitFor([&] {
        return !firstDifference(capture.captureDisplay(left), pattern.copy(0, 0, 1920, 2160))
               && !firstDifference(capture.captureDisplay(right), pattern.copy(1920, 0, 1920, 2160));
    }));

    struct Case { const DisplayInfo &display; QRectF points; QRect pixels; };  // null points: the whole display
    const Case cases[] = {
        {left, {}, {0, 0, 1920, 2160}},
        {right, {}, {1920, 0, 1920, 2160}},
        {left, {100.25, 50.5, 300.5, 200.25}, {200, 101, 601, 400}},
        {right, {2000.5, 10.75, 100.7, 50.2}, {2000, 10, 100, 50}},
        // Only 60 of the 100 points lie on LEFT: the rest is black, not RIGHT.
        {left, {900, 0, 100, 10}, {1800, 0, 200, 20}},
        // 1023 pixels a row: the 2 MB halves of the shared segment hold 512
        // rows, so 1500 rows arrive in three bands, the last one short.
        {right, {1921, 3, 1023, 1500}, {1921, 3, 1023, 1500}},
    };
    std::vector<QImage> images;
    for (const Case &c : cases)
        images.push_back(c.points.isNull() ? capture.captureDisplay(c.display)
                                           : capture.captureRegion(c.display, c.points));
    EXPECT_TRUE(x11.images().usesSharedMemory());
    // Checked after all captures: reusing the shared buffer must not change earlier images.
    for (size_t i = 0; i < images.size(); ++i) {
        SCOPED_TRACE(::testing::Message() << "case " << i);
        const QRect shown = cases[i].pixels & (&cases[i].display == &left ? cases[0].pixels : cases[1].pixels);
        QImage expected(cases[i].pixels.size(), QImage::Format_RGB32);
        expected.fill(Qt::black);
        QPainter(&expected).drawImage(shown.topLeft() - cases[i].pixels.topLeft(), pattern.copy(shown));
        EXPECT_EQ(firstDifference(images[i], expected), std::nullopt);
    }

    DisplayInfo unplugged = displays[0];
    unplugged.id = 12345;
    EXPECT_THROW(capture.captureDisplay(unplugged), Error);
}

TEST_F(ScreenCaptureTest, WindowsAreListedTopmostFirstWithTheirOwners)
{
    const Xterm xterm(QStringLiteral("pixmora-e2e-xterm"), QStringLiteral("60x10+2300+400"));
    SolidWindow own(Qt::darkCyan, QRect(2500, 200, 200, 150));
    own.show();
    ASSERT_TRUE(QTest::qWaitFor([&] { return onScreen(xterm.window) && onScreen(own.winId()); }));

    const WindowInfo foreign = *find(xterm.window);
    EXPECT_EQ(foreign.title, QStringLiteral("pixmora-e2e-xterm"));
    EXPECT_EQ(foreign.appName, QStringLiteral("XTerm"));
    EXPECT_EQ(foreign.pid, xterm.pid);
    EXPECT_FALSE(foreign.ownWindow);
    EXPECT_EQ(foreign.layer, 0);
    EXPECT_TRUE(find(own.winId())->ownWindow);
    const WindowList windows = capture.windows();
    EXPECT_LT(std::ranges::find(windows, own.winId(), &WindowInfo::id),
              std::ranges::find(windows, xterm.window, &WindowInfo::id)) << "the last one shown is on top";

    runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("windowminimize"), QString::number(xterm.window)});
    EXPECT_TRUE(QTest::qWaitFor([&] { return find(xterm.window) && !find(xterm.window)->onScreen; }));
}

// On LEFT, at scale 2, a frame in pixels rather than points would miss the window.
TEST_F(ScreenCaptureTest, AWindowIsCapturedWithItsFrameAtTheRequestedScale)
{
    const QColor colour(20, 180, 60);
    const std::pair<QRect, double> cases[] = {
        {QRect(2200, 900, 300, 200), 1.0}, {QRect(2200, 900, 300, 200), 2.0}, {QRect(200, 300, 151, 101), 2.0}};
    WindowInfo last;
    for (const auto &[geometry, scale] : cases) {
        SCOPED_TRACE(::testing::Message() << "scale " << scale << " " << ::testing::PrintToString(geometry));
        SolidWindow window(colour, geometry);
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
        ASSERT_TRUE(QTest::qWaitFor([&] { return onScreen(window.winId()); }));
        QTest::qWait(50);
        last = *find(window.winId());
        const QImage image = capture.captureWindow(last, scale);
        ASSERT_EQ(image.size(), last.frame.size() * scale);
        const QPoint client = window.geometry().topLeft() - last.frame.topLeft();
        EXPECT_EQ(image.pixelColor((window.geometry().center() - last.frame.topLeft()) * scale), colour);
        EXPECT_EQ(image.pixelColor((client + QPoint(2, 2)) * scale), colour);
        EXPECT_NE(image.pixelColor((client - QPoint(0, 5)) * scale), colour) << "the title bar belongs to the capture";
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return !find(last.id); }));
    EXPECT_THROW(capture.captureWindow(last, 1.0), Error);
}

} // namespace
} // namespace pixmora::e2e
