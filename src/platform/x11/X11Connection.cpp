#include "platform/x11/X11Connection.h"

#include "platform/Error.h"
#include "platform/x11/X11ImageTransfer.h"

#include <QGuiApplication>

namespace pixmora {

namespace {

// Qt connects to $DISPLAY; its screen part picks the root window.
int defaultScreenNumber()
{
    int screen = 0;
    char *host = nullptr;
    int display = 0;
    if (xcb_parse_display(nullptr, &host, &display, &screen) == 0)
        screen = 0;
    std::free(host);
    return screen;
}

} // namespace

X11Connection::X11Connection()
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        throw Error(QStringLiteral("Pixmora needs an X11 display (the xcb platform)."));
    m_connection = x11->connection();

    const int wanted = defaultScreenNumber();
    auto roots = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    m_screen = roots.data;
    for (int i = 0; roots.rem > 0; ++i, xcb_screen_next(&roots)) {
        if (i == wanted) {
            m_screen = roots.data;
            m_screenNumber = i;
            break;
        }
    }
    if (!m_screen)
        throw Error(QStringLiteral("The X display has no screen."));

    xcb_intern_atom_cookie_t *cookies = xcb_ewmh_init_atoms(m_connection, &m_ewmh);
    if (!xcb_ewmh_init_atoms_replies(&m_ewmh, cookies, nullptr))
        throw Error(QStringLiteral("The X display did not answer."));
    m_images = std::make_unique<X11ImageTransfer>(*this);
}

std::optional<QString> X11Connection::displayProblem()
{
    const QString display = qEnvironmentVariable("DISPLAY");
    if (display.isEmpty())
        return QStringLiteral("no X display (DISPLAY is not set)");
    xcb_connection_t *probe = xcb_connect(nullptr, nullptr);
    const bool failed = xcb_connection_has_error(probe) != 0;
    xcb_disconnect(probe);
    if (failed)
        return QStringLiteral("cannot open the X display \"%1\"").arg(display);
    return std::nullopt;
}

X11Connection::~X11Connection()
{
    m_images.reset();
    xcb_ewmh_connection_wipe(&m_ewmh);
}

bool X11Connection::isAlive() const
{
    return xcb_connection_has_error(m_connection) == 0;
}

} // namespace pixmora
