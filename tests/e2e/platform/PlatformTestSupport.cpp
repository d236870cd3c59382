#include "PlatformTestSupport.h"

#include "platform/x11/X11Connection.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPainter>
#include <QWindow>

#include <xcb/xcb.h>

namespace pixmora::e2e {

void processEvents()
{
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

bool waitFor(const std::function<bool()> &condition, int timeoutMs)
{
    return VirtualDesktop::waitUntil(condition, timeoutMs, processEvents);
}

VirtualDesktop::Result runOnDesktop(const QString &program, const QStringList &arguments)
{
    return testDesktop().run(program, arguments, 10000, processEvents);
}

bool waitUntilDesktopIsEmpty()
{
    X11Connection x11;
    xcb_connection_t *c = x11.connection();
    const QRect screen(0, 0, x11.screen()->width_in_pixels, x11.screen()->height_in_pixels);
    auto anythingShown = [&] {
        XcbReply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, x11.root()), nullptr));
        const xcb_window_t *children = xcb_query_tree_children(tree.get());
        for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
            XcbReply<xcb_get_window_attributes_reply_t> state(
                xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, children[i]), nullptr));
            XcbReply<xcb_get_geometry_reply_t> geometry(
                xcb_get_geometry_reply(c, xcb_get_geometry(c, children[i]), nullptr));
            // Window managers keep 1 x 1 helper windows mapped.
            if (state && geometry && state->map_state == XCB_MAP_STATE_VIEWABLE && geometry->width > 1
                && QRect(geometry->x, geometry->y, geometry->width, geometry->height).intersects(screen))
                return true;
        }
        return false;
    };
    return waitFor([&] { return !anythingShown(); });
}

QImage rootPattern(QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < size.width(); ++x)
            line[x] = qRgb(x & 0xff, y & 0xff, ((x >> 8) << 4) | (y >> 8));
    }
    return image;
}

void paintRoot(const QImage &image)
{
    X11Connection x11;
    xcb_connection_t *c = x11.connection();
    const xcb_pixmap_t pixmap = xcb_generate_id(c);
    xcb_create_pixmap(c, x11.screen()->root_depth, pixmap, x11.root(), static_cast<uint16_t>(image.width()),
                      static_cast<uint16_t>(image.height()));
    const xcb_gcontext_t gc = xcb_generate_id(c);
    xcb_create_gc(c, gc, pixmap, 0, nullptr);
    constexpr int bandRows = 64;
    for (int top = 0; top < image.height(); top += bandRows) {
        const int rows = std::min(bandRows, image.height() - top);
        xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, gc, static_cast<uint16_t>(image.width()),
                      static_cast<uint16_t>(rows), 0, static_cast<int16_t>(top), 0, x11.screen()->root_depth,
                      static_cast<uint32_t>(image.bytesPerLine() * rows), image.constScanLine(top));
    }
    const uint32_t background = pixmap;
    xcb_change_window_attributes(c, x11.root(), XCB_CW_BACK_PIXMAP, &background);
    xcb_clear_area(c, 0, x11.root(), 0, 0, 0, 0);
    xcb_free_gc(c, gc);
    xcb_free_pixmap(c, pixmap);
    XcbReply<xcb_get_input_focus_reply_t> sync(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
}

std::optional<QPoint> firstDifference(const QImage &actual, const QImage &expected)
{
    if (actual.size() != expected.size())
        return QPoint(-1, -1);
    for (int y = 0; y < actual.height(); ++y)
        for (int x = 0; x < actual.width(); ++x)
            if ((actual.pixel(x, y) | 0xff000000u) != (expected.pixel(x, y) | 0xff000000u))
                return QPoint(x, y);
    return std::nullopt;
}

SolidWindow::SolidWindow(const QString &title, QColor colour, const QRect &geometry)
{
    setWindowTitle(title);
    setAutoFillBackground(true);
    QPalette palette;
    palette.setColor(QPalette::Window, colour);
    setPalette(palette);
    setGeometry(geometry);
}

bool waitUntilMapped(QWidget &widget)
{
    return waitFor([&] {
        return widget.windowHandle() && widget.windowHandle()->isExposed();
    });
}

} // namespace pixmora::e2e
