#include "platform/x11/X11OwnWindowsExclusion.h"

#include "platform/Error.h"
#include "platform/Logging.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ImageTransfer.h"
#include "platform/x11/X11WindowList.h"

#include <QGuiApplication>
#include <QPainter>
#include <QWindow>

#include <xcb/composite.h>

#include <algorithm>

namespace pixmora {

namespace {

std::vector<xcb_window_t> visibleOwnClients()
{
    std::vector<xcb_window_t> clients;
    for (QWindow *window : QGuiApplication::topLevelWindows())
        if (window->isVisible() && window->handle())
            clients.push_back(static_cast<xcb_window_t>(window->winId()));
    std::ranges::sort(clients);
    return clients;
}

// The root's viewable children that show pixels and meet `area`, topmost
// first, without `ours`; `all` gets every one of them, wherever it is.
std::vector<std::pair<xcb_window_t, QRect>> windowsMeeting(X11Connection &x11, const QRect &area,
                                                           const std::vector<xcb_window_t> &ours, QRegion &all)
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
    std::vector<std::pair<xcb_window_t, QRect>> windows;
    for (int i = count - 1; i >= 0; --i) {  // the tree lists bottom to top
        XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, cookies[size_t(i)].first, nullptr));
        XcbReply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(c, cookies[size_t(i)].second, nullptr));
        if (!geometry || !attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE
            || attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT || std::ranges::find(ours, children[i]) != ours.end())
            continue;
        const int border = 2 * geometry->border_width;
        const QRect native(geometry->x, geometry->y, geometry->width + border, geometry->height + border);
        all += native;
        if (native.intersects(area))
            windows.emplace_back(children[i], native);
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

X11OwnWindowsExclusion::X11OwnWindowsExclusion(X11Connection &x11, const QRect &area, const QRect &panel,
                                               X11OwnWindowsExclusion *&active)
    : m_x11(x11), m_active(active)
{
    m_active = this;
    if (!(ownArea() + panel).intersects(area))
        return;
    xcb_connection_t *c = m_x11.connection();
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(c, &xcb_composite_id);
    if (!extension || !extension->present) {
        qCWarning(lcPlatform) << "The X server lacks the Composite extension: Pixmora's own windows may show in "
                                 "scrolling captures.";
        return;
    }
    XcbReply<xcb_composite_query_version_reply_t>(xcb_composite_query_version_reply(
        c, xcb_composite_query_version(c, XCB_COMPOSITE_MAJOR_VERSION, XCB_COMPOSITE_MINOR_VERSION), nullptr));

    std::vector<xcb_window_t> ours;
    for (const WindowFrame &frame : findFrames(m_x11, m_ownClients))
        ours.push_back(frame.window);
    QRegion windows;
    std::vector<std::pair<Beneath, xcb_void_cookie_t>> requests;
    for (const auto &[window, native] : windowsMeeting(m_x11, area, ours, windows))
        requests.push_back({{window, native}, xcb_composite_redirect_window_checked(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC)});
    for (const auto &[window, cookie] : requests) {
        XcbReply<xcb_generic_error_t> error(xcb_request_check(c, cookie));
        if (error)
            qCWarning(lcPlatform) << "The X server refused to keep a window's contents (X error" << error->error_code
                                  << "): Pixmora's own windows may show in scrolling captures.";
        else
            m_redirected.push_back(window);
    }

    // No window keeps the desktop's own pixels: remember the bare part of the area.
    const QRect root(0, 0, m_x11.screen()->width_in_pixels, m_x11.screen()->height_in_pixels);
    for (const QRect &rect : (QRegion(area) - windows) & root) {
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
    if (m_redirected.empty() || !m_x11.isAlive())
        return;
    xcb_connection_t *c = m_x11.connection();
    std::vector<xcb_void_cookie_t> requests;
    for (const Beneath &window : m_redirected)
        requests.push_back(xcb_composite_unredirect_window_checked(c, window.window, XCB_COMPOSITE_REDIRECT_AUTOMATIC));
    // A window closed meanwhile answers with an error that says nothing.
    for (const xcb_void_cookie_t cookie : requests)
        XcbReply<xcb_generic_error_t>(xcb_request_check(c, cookie));
}

const QRegion &X11OwnWindowsExclusion::ownArea()
{
    std::vector<xcb_window_t> clients = visibleOwnClients();
    if (clients == m_ownClients && m_ownAreaSettled)
        return m_ownArea;
    m_ownClients = std::move(clients);
    m_ownArea = QRegion();
    // A window Qt shows may not be mapped yet: then it is looked for again next time.
    m_ownAreaSettled = true;
    for (const WindowFrame &frame : findFrames(m_x11, m_ownClients)) {
        if (frame.window != XCB_WINDOW_NONE && frame.viewable)
            m_ownArea += frame.native;
        else
            m_ownAreaSettled = false;
    }
    return m_ownArea;
}

void X11OwnWindowsExclusion::uncover(QImage &image, const QRect &area, const QRect &bounds)
{
    QRegion covered = ownArea() & (area & bounds);
    if (covered.isEmpty() || (m_redirected.empty() && m_bareDesktop.empty()))
        return;

    // What each window beneath shows there, topmost first, read from its own pixmap.
    xcb_connection_t *c = m_x11.connection();
    for (const Beneath &window : m_redirected) {
        const QRegion part = covered & window.native;
        if (part.isEmpty())
            continue;
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        XcbReply<xcb_generic_error_t> error(
            xcb_request_check(c, xcb_composite_name_window_pixmap_checked(c, window.window, pixmap)));
        if (error)
            continue;  // gone or unmapped meanwhile: look further down
        try {
            const QRect whole(QPoint(0, 0), window.native.size());
            for (const QRect &rect : part) {
                const QImage pixels = m_x11.images().read(pixmap, rect.translated(-window.native.topLeft()), whole);
                paste(image, area, pixels, rect, rect);
            }
            covered -= part;
        } catch (const Error &) {
            // resized meanwhile: what lies further down is the best guess
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
