#pragma once

#include <QRect>
#include <QString>
#include <QtGlobal>

#include <vector>

namespace pixmora {

// One display as the rest of the program sees it. Frames are in Qt's global
// logical coordinates (points, origin top-left of the virtual desktop, y down).
struct DisplayInfo {
    quint32 id = 0;          // stable identifier (RandR monitor on X11)
    QRect frame;             // whole display
    QRect availableFrame;    // without panels and docks
    double scale = 1.0;      // device pixels per point
    QString name;
};

// A top-level window that could be captured. Frame includes decorations.
struct WindowInfo {
    quint64 id = 0;
    QRect frame;             // global logical coordinates
    QString title;
    QString appName;
    qint64 pid = 0;
    int layer = 0;           // 0 normal, 3 keep-above, >= 20 docks and panels, < 0 desktop
    bool onScreen = true;
    bool ownWindow = false;  // belongs to this process
};

using DisplayList = std::vector<DisplayInfo>;
using WindowList = std::vector<WindowInfo>;

} // namespace pixmora
