#pragma once

#include <QRect>
#include <QString>
#include <QtGlobal>

#include <optional>
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

// Where a window lies in the points of one display. Displays of different
// scales measure points differently, so a window across two of them has a
// frame of its own on each.
struct WindowOnDisplay {
    quint32 displayId = 0;
    QRect frame;
};

// A top-level window that could be captured. Frame includes decorations.
struct WindowInfo {
    quint64 id = 0;
    QRect frame;             // global logical coordinates, in the points of the display holding most of it
    QString title;
    QString appName;
    qint64 pid = 0;
    int layer = 0;           // 0 normal, 3 keep-above, >= 20 docks and panels, < 0 desktop
    bool onScreen = true;
    bool ownWindow = false;  // belongs to this process
    // Every display the window touches; empty where all displays share one
    // point space and `frame` holds everywhere.
    std::vector<WindowOnDisplay> displays = {};

    // The window's frame in the points of that display, or nothing when it does not touch it.
    std::optional<QRect> frameOn(quint32 displayId) const
    {
        if (displays.empty())
            return frame;
        for (const WindowOnDisplay &part : displays)
            if (part.displayId == displayId)
                return part.frame;
        return std::nullopt;
    }
};

using DisplayList = std::vector<DisplayInfo>;
using WindowList = std::vector<WindowInfo>;

} // namespace pixmora
