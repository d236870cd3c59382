#include "platform/x11/X11ScreenCapture.h"
#include "platform/x11/X11ImageTransfer.h"

#include "platform/Error.h"
#include "platform/x11/ScreenLayout.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11OwnWindowsExclusion.h"
#include "platform/x11/X11WindowList.h"

#include <QScopeGuard>

#include <xcb/composite.h>

#include <cmath>
#include <cstdlib>
#include <utility>

namespace pixmora {

namespace {

const ScreenPlacement &placementOf(const ScreenLayout &layout, const DisplayInfo &display)
{
    if (const ScreenPlacement *placement = layout.findById(display.id))
        return *placement;
    throw Error(QStringLiteral("The display \"%1\" is no longer connected.").arg(display.name));
}

} // namespace

X11ScreenCapture::X11ScreenCapture(X11Connection &x11)
    : m_x11(x11)
{
}

DisplayList X11ScreenCapture::displays()
{
    const ScreenLayout layout = ScreenLayout::current(m_x11);
    DisplayList displays;
    for (const ScreenPlacement &screen : layout.screens())
        displays.push_back(DisplayInfo{screen.id, screen.logical, screen.available, screen.scale, screen.name});
    return displays;
}

WindowList X11ScreenCapture::windows()
{
    return listWindows(m_x11, ScreenLayout::current(m_x11));
}

QRect X11ScreenCapture::rootBounds() const
{
    const xcb_screen_t *screen = m_x11.screen();
    return QRect(0, 0, screen->width_in_pixels, screen->height_in_pixels);
}

// Pixmora shows nothing of its own while it takes a full-screen capture, so
// the root window is read as it is.
QImage X11ScreenCapture::captureDisplay(const DisplayInfo &display)
{
    const ScreenLayout layout = ScreenLayout::current(m_x11);
    return m_x11.images().read(m_x11.root(), placementOf(layout, display).native, rootBounds());
}

void X11ScreenCapture::streamDisplay(const DisplayInfo &display,
                                     const std::function<void(const QImage &band)> &consume)
{
    const ScreenLayout layout = ScreenLayout::current(m_x11);
    const QRect native = placementOf(layout, display).native;
    if (!rootBounds().contains(native)) {
        consume(captureDisplay(display));  // partly off the root: blackened as a whole
        return;
    }
    m_x11.images().readBands(m_x11.root(), native, rootBounds(), X11ImageTransfer::Padding::Opaque,
                             [&](QImage &band, QPoint) { consume(band); });
}

namespace {

QRect nativeArea(const ScreenPlacement &screen, const QRectF &rect)
{
    return QRect(screen.toNative(rect.topLeft()),
                 QSize(devicePixels(rect.width(), screen.scale), devicePixels(rect.height(), screen.scale)));
}

} // namespace

// Without an exclusion our own windows show: without a compositor X keeps no
// pixels of what they cover, and unmapping them for the instant of a capture
// flickers and makes the window manager restack them.
QImage X11ScreenCapture::captureRegion(const DisplayInfo &display, const QRectF &rect)
{
    const ScreenLayout layout = ScreenLayout::current(m_x11);
    const ScreenPlacement &screen = placementOf(layout, display);
    const QRect area = nativeArea(screen, rect);
    // What lies off this display stays black: a neighbouring monitor never leaks in.
    const QRect bounds = screen.native.intersected(rootBounds());
    // The root is read in bands and what our windows cover from other windows'
    // pixmaps afterwards: without the grab, a window that repaints in between
    // (a document being scrolled) shows in one frame at two scroll positions.
    xcb_connection_t *c = m_x11.connection();
    xcb_grab_server(c);
    const auto ungrab = qScopeGuard([&] {
        if (m_x11.isAlive()) {
            xcb_ungrab_server(c);
            xcb_flush(c);
        }
    });
    QImage image = m_x11.images().read(m_x11.root(), area, bounds,
                                       m_exclusion ? std::exchange(m_exclusion->lastFrame, {}) : QImage());
    if (m_exclusion) {
        m_exclusion->uncover(image, area, bounds);
        m_exclusion->lastFrame = image;
    }
    return image;
}

std::unique_ptr<OwnWindowsExclusion> X11ScreenCapture::excludeOwnWindows(const DisplayInfo &display,
                                                                         const QRectF &rect, const QRectF &panel)
{
    const ScreenLayout layout = ScreenLayout::current(m_x11);
    const ScreenPlacement &screen = placementOf(layout, display);
    return std::make_unique<X11OwnWindowsExclusion>(m_x11, nativeArea(screen, rect),
                                                    panel.isEmpty() ? QRect() : nativeArea(screen, panel), m_exclusion);
}

bool X11ScreenCapture::compositorRunning()
{
    xcb_connection_t *c = m_x11.connection();
    const xcb_query_extension_reply_t *ext = xcb_get_extension_data(c, &xcb_composite_id);
    if (!ext || !ext->present)
        return false;
    const xcb_atom_t selection = m_x11.ewmh()->_NET_WM_CM_Sn[m_x11.screenNumber()];
    XcbReply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr));
    return owner && owner->owner != XCB_WINDOW_NONE;
}

QImage X11ScreenCapture::captureWindow(const WindowInfo &window, double scale)
{
    const QSize size(devicePixels(window.frame.width(), scale), devicePixels(window.frame.height(), scale));
    if (size.isEmpty())
        throw Error(QStringLiteral("The window has no area to capture."));
    const WindowFrame frame = findFrames(m_x11, {static_cast<xcb_window_t>(window.id)}).front();
    if (frame.window == XCB_WINDOW_NONE)
        throw Error(QStringLiteral("The window \"%1\" is no longer open.").arg(window.title));
    if (!frame.viewable)
        throw Error(QStringLiteral("The window \"%1\" is not on screen.").arg(window.title));

    QImage image;
    if (compositorRunning()) {
        // A redirected window keeps its own pixels, also where others cover it.
        xcb_connection_t *c = m_x11.connection();
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        XcbReply<xcb_generic_error_t> error(
            xcb_request_check(c, xcb_composite_name_window_pixmap_checked(c, frame.window, pixmap)));
        if (!error) {
            try {
                image = m_x11.images().read(pixmap, QRect(QPoint(0, 0), frame.native.size()),
                                      QRect(QPoint(0, 0), frame.native.size()));
            } catch (const Error &) {
                // unredirected after all (full-screen windows often are): read the screen
            }
            xcb_free_pixmap(c, pixmap);
        }
    }
    if (image.isNull())
        image = m_x11.images().read(m_x11.root(), frame.native, rootBounds());

    if (image.size() == size)
        return image;
    // A rounding pixel is cut or padded; a real size difference (another
    // scale, a window resized since it was listed) is scaled.
    const QSize difference = image.size() - size;
    if (std::abs(difference.width()) <= std::ceil(scale) && std::abs(difference.height()) <= std::ceil(scale))
        return image.copy(QRect(QPoint(0, 0), size));
    return image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

} // namespace pixmora
