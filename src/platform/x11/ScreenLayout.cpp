#include "platform/x11/ScreenLayout.h"

#include "platform/x11/X11Connection.h"

#include <QGuiApplication>
#include <QScreen>

#include <xcb/randr.h>

#include <cmath>
#include <map>

namespace pixmora {

namespace {

struct Monitor {
    xcb_atom_t atom = XCB_ATOM_NONE;
    QRect native;
};

// RandR 1.5 monitors by name; empty when the server lacks them.
std::map<QString, Monitor> randrMonitors(X11Connection &x11)
{
    xcb_connection_t *c = x11.connection();
    const xcb_query_extension_reply_t *ext = xcb_get_extension_data(c, &xcb_randr_id);
    if (!ext || !ext->present)
        return {};
    XcbReply<xcb_randr_get_monitors_reply_t> reply(
        xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, x11.root(), 1), nullptr));
    if (!reply)
        return {};

    std::vector<std::pair<Monitor, xcb_get_atom_name_cookie_t>> pending;
    for (auto it = xcb_randr_get_monitors_monitors_iterator(reply.get()); it.rem > 0;
         xcb_randr_monitor_info_next(&it)) {
        const xcb_randr_monitor_info_t *m = it.data;
        pending.push_back({Monitor{m->name, QRect(m->x, m->y, m->width, m->height)},
                           xcb_get_atom_name(c, m->name)});
    }
    std::map<QString, Monitor> monitors;
    for (auto &[monitor, cookie] : pending) {
        XcbReply<xcb_get_atom_name_reply_t> name(xcb_get_atom_name_reply(c, cookie, nullptr));
        if (name)
            monitors[QString::fromUtf8(xcb_get_atom_name_name(name.get()),
                                       xcb_get_atom_name_name_length(name.get()))] = monitor;
    }
    return monitors;
}

// FNV-1a: stable across runs, unlike qHash.
quint32 stableHash(const QString &name)
{
    quint32 hash = 2166136261u;
    for (const char byte : name.toUtf8()) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 16777619u;
    }
    return hash == 0 ? 1 : hash;
}

} // namespace

int devicePixels(double points, double scale)
{
    return static_cast<int>(std::floor(points * scale + 1e-6));
}

QPoint ScreenPlacement::toNative(QPointF logicalPoint) const
{
    const QPointF offset = (logicalPoint - QPointF(logical.topLeft())) * scale;
    return native.topLeft() + QPoint(static_cast<int>(std::floor(offset.x() + 1e-6)),
                                     static_cast<int>(std::floor(offset.y() + 1e-6)));
}

QRect ScreenPlacement::toLogical(const QRect &nativeRect) const
{
    // Edges are rounded separately so that adjacent rectangles stay adjacent.
    auto edge = [this](int nativeValue, int nativeOrigin, int logicalOrigin) {
        return logicalOrigin + static_cast<int>(std::lround((nativeValue - nativeOrigin) / scale));
    };
    const int left = edge(nativeRect.left(), native.left(), logical.left());
    const int top = edge(nativeRect.top(), native.top(), logical.top());
    const int right = edge(nativeRect.left() + nativeRect.width(), native.left(), logical.left());
    const int bottom = edge(nativeRect.top() + nativeRect.height(), native.top(), logical.top());
    return QRect(left, top, right - left, bottom - top);
}

ScreenLayout ScreenLayout::current(X11Connection &x11)
{
    const std::map<QString, Monitor> monitors = randrMonitors(x11);
    QList<QScreen *> screens = QGuiApplication::screens();
    if (QScreen *primary = QGuiApplication::primaryScreen()) {
        screens.removeOne(primary);
        screens.prepend(primary);
    }

    ScreenLayout layout;
    for (QScreen *screen : screens) {
        ScreenPlacement placement;
        placement.name = screen->name();
        placement.logical = screen->geometry();
        placement.available = screen->availableGeometry();
        placement.scale = screen->devicePixelRatio();
        if (auto it = monitors.find(placement.name); it != monitors.end()) {
            placement.id = it->second.atom;
            placement.native = it->second.native;
        } else {
            placement.id = stableHash(placement.name);
            placement.native = QRect(placement.logical.topLeft(),
                                     QSize(devicePixels(placement.logical.width(), placement.scale),
                                           devicePixels(placement.logical.height(), placement.scale)));
        }
        layout.m_screens.push_back(placement);
    }
    return layout;
}

const ScreenPlacement *ScreenLayout::findById(quint32 id) const
{
    for (const ScreenPlacement &screen : m_screens)
        if (screen.id == id)
            return &screen;
    return nullptr;
}

namespace {

const ScreenPlacement *largestOverlap(const std::vector<ScreenPlacement> &screens, const QRect &rect,
                                      QRect ScreenPlacement::*area)
{
    const ScreenPlacement *best = screens.empty() ? nullptr : &screens.front();
    qint64 bestArea = 0;
    for (const ScreenPlacement &screen : screens) {
        const QRect overlap = (screen.*area).intersected(rect);
        const qint64 overlapArea = qint64(overlap.width()) * overlap.height();
        if (overlapArea > bestArea) {
            bestArea = overlapArea;
            best = &screen;
        }
    }
    return best;
}

} // namespace

const ScreenPlacement *ScreenLayout::screenForNative(const QRect &nativeRect) const
{
    return largestOverlap(m_screens, nativeRect, &ScreenPlacement::native);
}

const ScreenPlacement *ScreenLayout::screenForLogical(const QRect &logicalRect) const
{
    return largestOverlap(m_screens, logicalRect, &ScreenPlacement::logical);
}

} // namespace pixmora
