#include "PlatformTestSupport.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ImageTransfer.h"
#include "platform/x11/X11ScreenCapture.h"

#include <QPainter>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace pixmora::e2e {
namespace {

class ScreenCaptureTest : public ::testing::Test {
protected:
    // Makes the image the root window's background, what shows where no window
    // is. Sent with the fourth byte 0, which X keeps as it is given.
    void paintRoot(const QImage &opaque)
    {
        QImage image = opaque.convertToFormat(QImage::Format_RGB32);
        for (int y = 0; y < image.height(); ++y) {
            auto *pixels = reinterpret_cast<QRgb *>(image.scanLine(y));
            for (int x = 0; x < image.width(); ++x)
                pixels[x] &= 0x00ffffffu;
        }
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
    ASSERT_EQ(displays.size(), 2u);
    const DisplayInfo &left = displays[0];
    const DisplayInfo &right = displays[1];
    const QRect leftPixels(0, 0, 1920, 2160);
    const QRect rightPixels(1920, 0, 1920, 2160);
    const QImage pattern = rootPattern(QSize(3840, 2160));
    paintRoot(pattern);
    // Windows of earlier tests close asynchronously: wait until only the pattern shows.
    EXPECT_TRUE(QTest::qWaitFor([&] {
        return !firstDifference(capture.captureDisplay(left), pattern.copy(leftPixels))
               && !firstDifference(capture.captureDisplay(right), pattern.copy(rightPixels));
    }));
    // Streamed, a display comes in several bands that make up the same
    // pixels, opaque although X sends the fourth byte as it likes.
    for (const auto &[display, pixels] : {std::pair{&left, leftPixels}, std::pair{&right, rightPixels}}) {
        QImage streamed(pixels.size(), QImage::Format_RGB32);
        int rows = 0, bands = 0;
        capture.streamDisplay(*display, [&](const QImage &band) {
            if (band.format() != QImage::Format_RGB32 || band.width() != pixels.width()
                || rows + band.height() > pixels.height())
                return;
            for (int y = 0; y < band.height(); ++y)
                std::memcpy(streamed.scanLine(rows + y), band.constScanLine(y), std::size_t(band.width()) * 4);
            rows += band.height();
            ++bands;
        });
        EXPECT_GT(bands, 1);
        EXPECT_EQ(rows, pixels.height());
        EXPECT_EQ(firstDifference(streamed, pattern.copy(pixels)), std::nullopt);
    }

    struct Case { const DisplayInfo &display; QRectF points; QRect pixels; };
    const Case cases[] = {
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
        images.push_back(capture.captureRegion(c.display, c.points));
    EXPECT_TRUE(x11.images().usesSharedMemory());
    // Checked after all captures: reusing the shared buffer must not change earlier images.
    for (size_t i = 0; i < images.size(); ++i) {
        SCOPED_TRACE(::testing::Message() << "case " << i);
        const QRect shown = cases[i].pixels & (&cases[i].display == &left ? leftPixels : rightPixels);
        QImage expected(cases[i].pixels.size(), QImage::Format_RGB32);
        expected.fill(Qt::black);
        QPainter(&expected).drawImage(shown.topLeft() - cases[i].pixels.topLeft(), pattern.copy(shown));
        EXPECT_EQ(firstDifference(images[i], expected), std::nullopt);
    }
}

} // namespace
} // namespace pixmora::e2e
