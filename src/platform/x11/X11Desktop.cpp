#include "platform/x11/X11Desktop.h"

#include "platform/Logging.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ImageTransfer.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QPointer>
#include <QTimer>
#include <QUrl>
#include <QWidget>
#include <QWindow>

#include <algorithm>
#include <vector>

namespace pixmora {

namespace {

constexpr uint32_t allDesktops = 0xFFFFFFFF;

xcb_window_t windowOf(QWidget *widget)
{
    return static_cast<xcb_window_t>(widget->winId());
}

// Changing the flags of a visible widget makes Qt hide it; it is shown again.
void addWindowFlags(QWidget *widget, Qt::WindowFlags flags)
{
    if ((widget->windowFlags() & flags) == flags)
        return;
    const bool wasVisible = widget->isVisible();
    widget->setWindowFlags(widget->windowFlags() | flags);
    if (wasVisible)
        widget->show();
}

// Before mapping, the window manager reads _NET_WM_STATE and _NET_WM_DESKTOP
// from the window (Qt merges its own states into what it finds); once
// mapped, it only listens to requests.
void requestStates(X11Connection &x11, QWidget *widget, const std::vector<xcb_atom_t> &states)
{
    xcb_connection_t *c = x11.connection();
    xcb_ewmh_connection_t *ewmh = x11.ewmh();
    const xcb_window_t window = windowOf(widget);
    if (widget->isVisible()) {
        for (xcb_atom_t state : states)
            xcb_ewmh_request_change_wm_state(ewmh, x11.screenNumber(), window, XCB_EWMH_WM_STATE_ADD, state,
                                             XCB_ATOM_NONE, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
        xcb_ewmh_request_change_wm_desktop(ewmh, x11.screenNumber(), window, allDesktops,
                                           XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
    } else {
        std::vector<xcb_atom_t> merged;
        xcb_ewmh_get_atoms_reply_t current{};
        if (xcb_ewmh_get_wm_state_reply(ewmh, xcb_ewmh_get_wm_state(ewmh, window), &current, nullptr)) {
            merged.assign(current.atoms, current.atoms + current.atoms_len);
            xcb_ewmh_get_atoms_reply_wipe(&current);
        }
        for (xcb_atom_t state : states)
            if (std::find(merged.begin(), merged.end(), state) == merged.end())
                merged.push_back(state);
        xcb_ewmh_set_wm_state(ewmh, window, static_cast<uint32_t>(merged.size()), merged.data());
        xcb_ewmh_set_wm_desktop(ewmh, window, allDesktops);
    }
    xcb_flush(c);
}

} // namespace

// Overlays bypass the window manager, so nothing gives them the keyboard:
// while one is on screen, the keyboard is grabbed for the one given it last,
// else for the newest.
class OverlayKeyboardGrab : public QObject {
public:
    explicit OverlayKeyboardGrab(X11Connection &x11)
        : m_x11(x11)
    {
        m_retry.setSingleShot(true);
        m_retry.callOnTimeout([this] { update(); });
    }

    ~OverlayKeyboardGrab() override
    {
        if (m_grabbed && m_x11.isAlive()) {
            xcb_ungrab_keyboard(m_x11.connection(), XCB_CURRENT_TIME);
            xcb_flush(m_x11.connection());
        }
    }

    void watch(QWindow *overlay)
    {
        overlay->installEventFilter(this);
        connect(overlay, &QObject::destroyed, this, [this] { hide(nullptr); });
        if (overlay->isVisible())
            show(overlay);
    }

    // At once: key presses that follow the overlay's appearance must not
    // reach the window below.
    void giveTo(QWindow *overlay)
    {
        if (!overlay->isVisible() || (m_grabbed && m_shown.back() == overlay))
            return;
        forget(overlay);
        m_shown.push_back(overlay);
        m_attempts = 0;
        update();
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *window = static_cast<QWindow *>(watched);
        if (event->type() == QEvent::Show)
            show(window);
        else if (event->type() == QEvent::Hide)
            hide(window);
        return false;
    }

private:
    // Qt announces a window before mapping it; the grab waits for the map.
    void show(QWindow *overlay)
    {
        forget(overlay);
        m_shown.push_back(overlay);
        m_attempts = 0;
        m_retry.start(0);
    }

    // nullptr: forget overlays that were deleted.
    void hide(QWindow *overlay)
    {
        if (forget(overlay)) {
            m_attempts = 0;
            update();
        }
    }

    bool forget(QWindow *overlay)
    {
        return std::erase_if(m_shown, [overlay](const QPointer<QWindow> &w) { return !w || w == overlay; }) > 0;
    }

    // The grab fails until the server has mapped the window, or while
    // another client (an open menu) holds the keyboard: retried for a second.
    void update()
    {
        xcb_connection_t *c = m_x11.connection();
        if (m_shown.empty() || !m_shown.back()->isVisible()) {
            if (m_grabbed)
                xcb_ungrab_keyboard(c, XCB_CURRENT_TIME);
            m_grabbed = false;
            xcb_flush(c);
            return;
        }
        QWindow *overlay = m_shown.back();
        overlay->requestActivate();
        XcbReply<xcb_grab_keyboard_reply_t> reply(xcb_grab_keyboard_reply(
            c,
            xcb_grab_keyboard(c, 0, static_cast<xcb_window_t>(overlay->winId()), XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC,
                              XCB_GRAB_MODE_ASYNC),
            nullptr));
        m_grabbed = reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
        if (!m_grabbed && ++m_attempts < 50)
            m_retry.start(20);
        else if (!m_grabbed)
            qCWarning(lcPlatform) << "Another program holds the keyboard: the overlay gets no key presses.";
    }

    X11Connection &m_x11;
    std::vector<QPointer<QWindow>> m_shown;
    bool m_grabbed = false;
    int m_attempts = 0;
    QTimer m_retry;
};

X11Desktop::X11Desktop(X11Connection &x11)
    : m_x11(x11), m_keyboardGrab(std::make_unique<OverlayKeyboardGrab>(x11))
{
}

X11Desktop::~X11Desktop() = default;

void X11Desktop::openFile(const QString &path)
{
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(path)))
        qCWarning(lcPlatform) << "No application opened" << path;
}

void X11Desktop::revealInFileManager(const QString &path)
{
    // ShowItems selects the item in its folder (a folder too is shown
    // selected in its parent); without a file manager service on the session
    // bus, that parent folder is opened.
    const QString parent = QFileInfo(path).absolutePath();
    auto openParent = [parent] {
        if (!QDesktopServices::openUrl(QUrl::fromLocalFile(parent)))
            qCWarning(lcPlatform) << "No file manager opened" << parent;
    };
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        openParent();
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString(QUrl::FullyEncoded)}
         << QString();
    // Asynchronous: a file manager started by D-Bus activation may take seconds.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), qApp);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [openParent](QDBusPendingCallWatcher *finished) {
                         if (finished->isError())
                             openParent();
                         finished->deleteLater();
                     });
}

void X11Desktop::beep()
{
    QApplication::beep();
}

quint64 X11Desktop::activeWindow()
{
    xcb_ewmh_connection_t *ewmh = m_x11.ewmh();
    xcb_window_t active = XCB_WINDOW_NONE;
    if (!xcb_ewmh_get_active_window_reply(ewmh, xcb_ewmh_get_active_window(ewmh, m_x11.screenNumber()),
                                          &active, nullptr))
        return 0;
    return active;
}

void X11Desktop::activateWindow(quint64 window)
{
    if (window == 0)
        return;
    // Source "pager": window managers honour it without focus-stealing checks.
    xcb_ewmh_request_change_active_window(m_x11.ewmh(), m_x11.screenNumber(), static_cast<xcb_window_t>(window),
                                          XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER, XCB_CURRENT_TIME, XCB_WINDOW_NONE);
    xcb_flush(m_x11.connection());
}

void X11Desktop::activateApplication()
{
    QWidget *target = QApplication::activeModalWidget();
    if (!target)
        target = QApplication::activeWindow();
    if (!target || !target->isVisible())
        return;
    target->raise();
    target->activateWindow();
    activateWindow(windowOf(target));
}

// Overlays are override-redirect windows rather than EWMH full-screen ones:
// openbox (like most window managers) raises a full-screen window above docks
// only while it has the focus, so with one overlay per monitor all but one
// would sink below panels and other full-screen windows. Unmanaged windows
// stay where they are mapped (on top), on every workspace, at the exact
// geometry given; the price is taking the keyboard ourselves.
void X11Desktop::makeOverlay(QWindow *window)
{
    window->setFlags(window->flags() | Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint
                     | Qt::X11BypassWindowManagerHint);
    m_keyboardGrab->watch(window);
}

void X11Desktop::giveKeyboardTo(QWindow *overlay)
{
    m_keyboardGrab->giveTo(overlay);
}

// Straight into the window, dimmed on the way through the shared segment:
// a pixmap or a backing store of the screen's size would be fresh memory,
// and touching that costs more than everything else the overlay does.
// Qt leaves the window's background empty, so mapping it changes nothing
// on screen until this draws.
bool X11Desktop::drawOverlayBackdrop(QWindow *overlay, const QImage &backdrop, QColor dim)
{
    if (backdrop.isNull() || !m_x11.isAlive())
        return false;
    xcb_connection_t *c = m_x11.connection();
    const auto window = static_cast<xcb_window_t>(overlay->winId());
    XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    if (!geometry || QSize(geometry->width, geometry->height) != backdrop.size())
        return false;
    const bool writable = backdrop.format() == QImage::Format_RGB32
                          || backdrop.format() == QImage::Format_ARGB32_Premultiplied;
    const QImage pixels = writable ? backdrop : backdrop.convertToFormat(QImage::Format_RGB32);
    return m_x11.images().write(pixels, window, geometry->depth, qPremultiply(dim.rgba()));
}

// Shown without activation, Qt gives the window a user time of 0, which tells
// the window manager not to focus it; a panel that refuses the focus also
// says so in its WM_HINTS, so that a click does not focus it either.
void X11Desktop::makeFloatingPanel(QWidget *widget, PanelFocus focus)
{
    widget->setAttribute(Qt::WA_ShowWithoutActivating);
    addWindowFlags(widget, focus == PanelFocus::never ? Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus
                                                      : Qt::WindowStaysOnTopHint);
    xcb_ewmh_connection_t *ewmh = m_x11.ewmh();
    requestStates(m_x11, widget,
                  {ewmh->_NET_WM_STATE_STICKY, ewmh->_NET_WM_STATE_ABOVE, ewmh->_NET_WM_STATE_SKIP_TASKBAR,
                   ewmh->_NET_WM_STATE_SKIP_PAGER});
}

// A compositing manager owns the _NET_WM_CM_S<screen> selection while it runs.
bool X11Desktop::isCompositing()
{
    xcb_ewmh_connection_t *ewmh = m_x11.ewmh();
    xcb_window_t owner = XCB_NONE;
    return xcb_ewmh_get_wm_cm_owner_reply(ewmh, xcb_ewmh_get_wm_cm_owner(ewmh, m_x11.screenNumber()), &owner, nullptr)
           && owner != XCB_NONE;
}

} // namespace pixmora
