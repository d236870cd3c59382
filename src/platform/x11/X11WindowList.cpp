#include "platform/x11/X11WindowList.h"

#include "platform/x11/ScreenLayout.h"
#include "platform/x11/X11Connection.h"

#include <QFile>
#include <QGuiApplication>
#include <QSet>
#include <QWindow>

#include <xcb/xcb_icccm.h>

#include <unistd.h>

#include <algorithm>

namespace pixmora {

namespace {

constexpr uint32_t allDesktops = 0xFFFFFFFF;
constexpr int dockLayer = 20;
constexpr int keepAboveLayer = 3;
constexpr int desktopLayer = -1;

struct PendingWindow {
    xcb_window_t client = XCB_WINDOW_NONE;
    xcb_get_property_cookie_t netName, name, wmClass, pid, type, state, desktop;
};

PendingWindow requestProperties(X11Connection &x11, xcb_window_t client)
{
    xcb_connection_t *c = x11.connection();
    xcb_ewmh_connection_t *ewmh = x11.ewmh();
    return PendingWindow{client,
                         xcb_ewmh_get_wm_name(ewmh, client),
                         xcb_icccm_get_wm_name(c, client),
                         xcb_icccm_get_wm_class(c, client),
                         xcb_ewmh_get_wm_pid(ewmh, client),
                         xcb_ewmh_get_wm_window_type(ewmh, client),
                         xcb_ewmh_get_wm_state(ewmh, client),
                         xcb_ewmh_get_wm_desktop(ewmh, client)};
}

QString readTitle(X11Connection &x11, const PendingWindow &pending)
{
    QString title;
    xcb_ewmh_get_utf8_strings_reply_t utf8{};
    if (xcb_ewmh_get_wm_name_reply(x11.ewmh(), pending.netName, &utf8, nullptr)) {
        title = QString::fromUtf8(utf8.strings, utf8.strings_len);
        xcb_ewmh_get_utf8_strings_reply_wipe(&utf8);
    }
    xcb_icccm_get_text_property_reply_t text{};
    if (xcb_icccm_get_wm_name_reply(x11.connection(), pending.name, &text, nullptr)) {
        if (title.isEmpty()) {
            title = text.encoding == x11.ewmh()->UTF8_STRING
                        ? QString::fromUtf8(text.name, text.name_len)
                        : QString::fromLatin1(text.name, text.name_len);
        }
        xcb_icccm_get_text_property_reply_wipe(&text);
    }
    return title;
}

QString readClassName(X11Connection &x11, const PendingWindow &pending)
{
    QString className;
    xcb_icccm_get_wm_class_reply_t wmClass{};
    if (xcb_icccm_get_wm_class_reply(x11.connection(), pending.wmClass, &wmClass, nullptr)) {
        className = QString::fromLocal8Bit(wmClass.class_name);
        xcb_icccm_get_wm_class_reply_wipe(&wmClass);
    }
    return className;
}

QString processName(qint64 pid)
{
    if (pid <= 0)
        return {};
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    if (!comm.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLocal8Bit(comm.readAll()).trimmed();
}

std::vector<xcb_atom_t> readAtoms(X11Connection &x11, xcb_get_property_cookie_t cookie)
{
    std::vector<xcb_atom_t> atoms;
    xcb_ewmh_get_atoms_reply_t reply{};
    if (xcb_ewmh_get_atoms_reply(x11.ewmh(), cookie, &reply, nullptr)) {
        atoms.assign(reply.atoms, reply.atoms + reply.atoms_len);
        xcb_ewmh_get_atoms_reply_wipe(&reply);
    }
    return atoms;
}

bool contains(const std::vector<xcb_atom_t> &atoms, xcb_atom_t atom)
{
    return std::find(atoms.begin(), atoms.end(), atom) != atoms.end();
}

QSet<xcb_window_t> ownWindowIds()
{
    QSet<xcb_window_t> ids;
    for (QWindow *window : QGuiApplication::allWindows())
        if (window->handle())
            ids.insert(static_cast<xcb_window_t>(window->winId()));
    return ids;
}

} // namespace

std::vector<WindowFrame> findFrames(X11Connection &x11, const std::vector<xcb_window_t> &clients)
{
    xcb_connection_t *c = x11.connection();
    std::vector<WindowFrame> frames(clients.size());
    std::vector<xcb_window_t> current = clients;
    std::vector<size_t> climbing(clients.size());
    for (size_t i = 0; i < climbing.size(); ++i)
        climbing[i] = i;

    // Window managers nest clients only a level or two deep; the bound guards
    // against a tree that changes under us.
    for (int level = 0; level < 16 && !climbing.empty(); ++level) {
        std::vector<xcb_query_tree_cookie_t> cookies;
        cookies.reserve(climbing.size());
        for (size_t index : climbing)
            cookies.push_back(xcb_query_tree(c, current[index]));
        std::vector<size_t> stillClimbing;
        for (size_t k = 0; k < climbing.size(); ++k) {
            const size_t index = climbing[k];
            XcbReply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, cookies[k], nullptr));
            if (!tree)
                continue;  // gone
            if (tree->parent == tree->root || tree->parent == XCB_WINDOW_NONE) {
                frames[index].window = current[index];
            } else {
                current[index] = tree->parent;
                stillClimbing.push_back(index);
            }
        }
        climbing = std::move(stillClimbing);
    }

    std::vector<xcb_get_geometry_cookie_t> geometry(frames.size());
    std::vector<xcb_get_window_attributes_cookie_t> attributes(frames.size());
    for (size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].window != XCB_WINDOW_NONE) {
            geometry[i] = xcb_get_geometry(c, frames[i].window);
            attributes[i] = xcb_get_window_attributes(c, frames[i].window);
        }
    }
    for (size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].window == XCB_WINDOW_NONE)
            continue;
        XcbReply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(c, geometry[i], nullptr));
        XcbReply<xcb_get_window_attributes_reply_t> state(
            xcb_get_window_attributes_reply(c, attributes[i], nullptr));
        if (!size || !state) {
            frames[i].window = XCB_WINDOW_NONE;
            continue;
        }
        const int border = 2 * size->border_width;
        frames[i].native = QRect(size->x, size->y, size->width + border, size->height + border);
        frames[i].viewable = state->map_state == XCB_MAP_STATE_VIEWABLE;
    }
    return frames;
}

WindowList listWindows(X11Connection &x11, const ScreenLayout &layout)
{
    xcb_ewmh_connection_t *ewmh = x11.ewmh();
    const int screen = x11.screenNumber();

    auto stackingCookie = xcb_ewmh_get_client_list_stacking(ewmh, screen);
    auto desktopCookie = xcb_ewmh_get_current_desktop(ewmh, screen);
    std::vector<xcb_window_t> clients;
    xcb_ewmh_get_windows_reply_t stacking{};
    if (xcb_ewmh_get_client_list_stacking_reply(ewmh, stackingCookie, &stacking, nullptr)) {
        clients.assign(stacking.windows, stacking.windows + stacking.windows_len);
        xcb_ewmh_get_windows_reply_wipe(&stacking);
    }
    uint32_t currentDesktop = 0;
    xcb_ewmh_get_current_desktop_reply(ewmh, desktopCookie, &currentDesktop, nullptr);
    std::reverse(clients.begin(), clients.end());  // the property lists bottom to top

    std::vector<PendingWindow> pending;
    pending.reserve(clients.size());
    for (xcb_window_t client : clients)
        pending.push_back(requestProperties(x11, client));
    const std::vector<WindowFrame> frames = findFrames(x11, clients);

    const QSet<xcb_window_t> ownIds = ownWindowIds();
    const qint64 ownPid = getpid();
    WindowList windows;
    windows.reserve(clients.size());
    for (size_t i = 0; i < pending.size(); ++i) {
        const PendingWindow &p = pending[i];
        // Every cookie is answered, also for windows that vanished meanwhile.
        WindowInfo info;
        info.id = p.client;
        info.title = readTitle(x11, p);
        info.appName = readClassName(x11, p);
        uint32_t pid = 0;
        if (xcb_ewmh_get_wm_pid_reply(ewmh, p.pid, &pid, nullptr))
            info.pid = pid;
        const std::vector<xcb_atom_t> types = readAtoms(x11, p.type);
        const std::vector<xcb_atom_t> states = readAtoms(x11, p.state);
        uint32_t desktop = currentDesktop;
        xcb_ewmh_get_wm_desktop_reply(ewmh, p.desktop, &desktop, nullptr);
        if (frames[i].window == XCB_WINDOW_NONE)
            continue;

        if (info.appName.isEmpty())
            info.appName = processName(info.pid);
        if (contains(types, ewmh->_NET_WM_WINDOW_TYPE_DOCK))
            info.layer = dockLayer;
        else if (contains(types, ewmh->_NET_WM_WINDOW_TYPE_DESKTOP))
            info.layer = desktopLayer;
        else if (contains(states, ewmh->_NET_WM_STATE_ABOVE))
            info.layer = keepAboveLayer;
        const bool onAllDesktops = desktop == allDesktops || contains(states, ewmh->_NET_WM_STATE_STICKY);
        info.onScreen = frames[i].viewable
                        && (onAllDesktops || desktop == currentDesktop)
                        && !contains(states, ewmh->_NET_WM_STATE_HIDDEN);
        info.ownWindow = info.pid == ownPid || ownIds.contains(p.client) || ownIds.contains(frames[i].window);
        if (const ScreenPlacement *placement = layout.screenForNative(frames[i].native))
            info.frame = placement->toLogical(frames[i].native);
        for (const ScreenPlacement &display : layout.screens())
            if (display.native.intersects(frames[i].native))
                info.displays.push_back({display.id, display.toLogical(frames[i].native)});
        windows.push_back(std::move(info));
    }
    return windows;
}

} // namespace pixmora
