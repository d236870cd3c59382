#pragma once

#include <QString>
#include <QtGlobal>

class QWidget;

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

    // Window kinds beyond what Qt's flags express: a screen-covering overlay
    // above docks and full-screen windows, or a floating panel, both on every
    // workspace. Called after the widget's native window exists.
    virtual void makeOverlay(QWidget *widget) = 0;
    virtual void makeFloatingPanel(QWidget *widget) = 0;
};

} // namespace pixmora
