#pragma once

#include <QColor>
#include <QImage>
#include <QString>
#include <QtGlobal>

class QWidget;
class QWindow;

namespace pixmora {

// The desktop around the program: other applications, the file manager, the
// window manager's view of our own windows.
class Desktop {
public:
    virtual ~Desktop() = default;

    virtual void openFile(const QString &path) = 0;
    // Shows the file manager with the item selected (or the folder opened).
    virtual void revealInFileManager(const QString &path) = 0;
    virtual void beep() = 0;

    // The window that has focus now (0 when unknown), and giving it back later.
    virtual quint64 activeWindow() = 0;
    virtual void activateWindow(quint64 window) = 0;

    // Brings our application to the front, ignoring other applications.
    virtual void activateApplication() = 0;

    // Window kinds beyond what Qt's flags express, both on every workspace.
    // Called after the native window exists, before it is shown.
    //
    // A screen-covering overlay above docks and full-screen windows.
    virtual void makeOverlay(QWindow *window) = 0;
    // Key presses go to this shown overlay until it hides or another one
    // gets them.
    virtual void giveKeyboardTo(QWindow *overlay) = 0;
    // Fills a shown overlay with `backdrop` (device pixels, the window's
    // size) under `dim`, without our process painting a screen-sized buffer;
    // false where the window system cannot, and the overlay paints it.
    virtual bool drawOverlayBackdrop(QWindow *overlay, const QImage &backdrop, QColor dim) = 0;
    // A small panel kept above other windows, that never takes the keyboard
    // by appearing; with onClick it takes it when clicked.
    enum class PanelFocus { never, onClick };
    virtual void makeFloatingPanel(QWidget *widget, PanelFocus focus) = 0;
    // Whether a compositing manager blends translucent windows into what lies
    // below them; without one, their transparent pixels show black.
    virtual bool isCompositing() = 0;
};

} // namespace pixmora
