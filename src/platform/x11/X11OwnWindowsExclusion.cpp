#include "platform/x11/X11OwnWindowsExclusion.h"

#include "platform/Error.h"
#include "platform/Logging.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ImageTransfer.h"
#include "platform/x11/X11WindowList.h"

#include <QGuiApplication>
#include <QPainter>
#include <QRegion>
#include <QWindow>

#include <xcb/composite.h>

#include <algorithm>

namespace pixmora {

namespace {

// The windows of this process on screen, as the root's children that hold
// them (window-manager frames).
std::vector<xcb_window_t> ownFrames(X11Connection &x11, QRegion *covered)
{
    std::vector<xcb_window_t> clients;
    for (QWindow *window : QGuiApplication::topLevelWindows())
        if (window->isVisible() && window->handle())
            clients.push_back(static_cast<xcb_window_t>(window->winId()));
    std::vector<xcb_window_t> frames;
    for (const WindowFrame &frame : findFrames(x11, clients)) {
        if (frame.window == XCB_WINDOW_NONE || !frame.viewable)
            continue;
        frames.push_back(frame.window);
        if (covered)
            *covered += frame.native;
    }
    return frames;
}

struct TopLevel {
    xcb_window_t window;
    QRect native;  // border included, as the window's pixmap is
};

// The root's viewable children that show pixels, topmost first, without ours.
std::vector<TopLevel> windowsBeneathOurs(X11Connection &x11, const std::vector<xcb_window_t> &ours)
{
    xcb_connection_t *c = x11.connection();
    XcbReply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, x11.root()), nullptr));
    if (!tree)
        return {};
    const xcb_window_t *children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    std::vector<std::pair<xcb_get_geometry_cookie_t, xcb_get_window_attributes_cookie_t>> cookies;
    cookies.reserve(size_t(count));
    for (int i = 0; i < count; ++i)
        cookies.emplace_back(xcb_get_geometry(c, children[i]), xcb_get_window_attributes(c, children[i]));
    std::vector<TopLevel> windows;
    for (int i = count - 1; i >= 0; --i) {  // the tree lists bottom to top
        XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, cookies[size_t(i)].first, nullptr));
        XcbReply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(c, cookies[size_t(i)].second, nullptr));
        if (!geometry || !attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE
            || attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT
            || std::ranges::find(ours, children[i]) != ours.end())
            continue;
        const int border = 2 * geometry->border_width;
        windows.push_back({children[i], QRect(geometry->x, geometry->y, geometry->width + border,
                                              geometry->height + border)});
    }
    return windows;
}

// Puts `source`, which shows `sourceArea`, into `target`, which shows
// `targetArea`, wherever `part` lies; opaque, since the screen shows no
// window's alpha without a compositor.
void paste(QImage &target, const QRect &targetArea, const QImage &source, const QRect &sourceArea, const QRegion &part)
{
    QPainter painter(&target);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.translate(-targetArea.topLeft());
    painter.setClipRegion(part);
    if (source.hasAlphaChannel())
        painter.fillRect(sourceArea, Qt::black);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.drawImage(sourceArea.topLeft(), source);
}

} // namespace

X11OwnWindowsExclusion::X11OwnWindowsExclusion(X11Connection &x11, const QRect &area, X11OwnWindowsExclusion *&active)
    : m_x11(x11), m_active(active)
{
    m_active = this;
    xcb_connection_t *c = m_x11.connection();
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(c, &xcb_composite_id);
    if (!extension || !extension->present) {
        qCWarning(lcPlatform) << "The X server lacks the Composite extension: Pixmora's own windows may show in "
                                 "scrolling captures.";
        return;
    }
    XcbReply<xcb_composite_query_version_reply_t>(xcb_composite_query_version_reply(
        c, xcb_composite_query_version(c, XCB_COMPOSITE_MAJOR_VERSION, XCB_COMPOSITE_MINOR_VERSION), nullptr));
    XcbReply<xcb_generic_error_t> error(xcb_request_check(
        c, xcb_composite_redirect_subwindows_checked(c, m_x11.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC)));
    m_redirected = !error;
    if (error)
        qCWarning(lcPlatform) << "The X server refused to keep the windows' contents (X error" << error->error_code
                              << "): Pixmora's own windows may show in scrolling captures.";

    // No window keeps the desktop's own pixels: remember the bare part of the area.
    const std::vector<xcb_window_t> ours = ownFrames(m_x11, nullptr);
    QRegion bare(area);
    for (const TopLevel &window : windowsBeneathOurs(m_x11, ours))
        bare -= window.native;
    const QRect root(0, 0, m_x11.screen()->width_in_pixels, m_x11.screen()->height_in_pixels);
    for (const QRect &rect : bare & root) {
        try {
            m_bareDesktop.emplace_back(rect, m_x11.images().read(m_x11.root(), rect, root));
        } catch (const Error &failure) {
            qCWarning(lcPlatform) << "The desktop beneath a scrolling capture could not be read:"
                                  << failure.description();
        }
    }
}

X11OwnWindowsExclusion::~X11OwnWindowsExclusion()
{
    if (m_active == this)
        m_active = nullptr;
    if (m_redirected && m_x11.isAlive()) {
        xcb_composite_unredirect_subwindows(m_x11.connection(), m_x11.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        xcb_flush(m_x11.connection());
    }
}

void X11OwnWindowsExclusion::uncover(QImage &image, const QRect &area, const QRect &bounds)
{
    QRegion covered;
    const std::vector<xcb_window_t> ours = ownFrames(m_x11, &covered);
    covered &= area & bounds;
    if (covered.isEmpty())
        return;

    // What each window beneath shows there, topmost first, read from its own pixmap.
    xcb_connection_t *c = m_x11.connection();
    for (const TopLevel &window : windowsBeneathOurs(m_x11, ours)) {
        const QRegion part = covered & window.native;
        if (part.isEmpty())
            continue;
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        XcbReply<xcb_generic_error_t> error(
            xcb_request_check(c, xcb_composite_name_window_pixmap_checked(c, window.window, pixmap)));
        if (error)
            continue;  // not redirected (it appeared unmapped, or without Composite): look further down
        try {
            const QRect whole(QPoint(0, 0), window.native.size());
            for (const QRect &rect : part) {
                const QImage pixels = m_x11.images().read(pixmap, rect.translated(-window.native.topLeft()), whole);
                paste(image, area, pixels, rect, rect);
            }
            covered -= part;
        } catch (const Error &) {
            // gone or resized meanwhile: what lies further down is the best guess
        }
        xcb_free_pixmap(c, pixmap);
        if (covered.isEmpty())
            return;
    }
    for (const auto &[rect, pixels] : m_bareDesktop) {
        if (const QRegion part = covered & rect; !part.isEmpty()) {
            paste(image, area, pixels, rect, part);
            covered -= part;
        }
    }
    // Desktop that a window uncovered since the start: no pixels of it anywhere, but ours must not show.
    if (!covered.isEmpty()) {
        QPainter painter(&image);
        painter.translate(-area.topLeft());
        painter.setClipRegion(covered);
        painter.fillRect(area, Qt::black);
    }
}

} // namespace pixmora
