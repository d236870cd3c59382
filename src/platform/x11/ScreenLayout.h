#pragma once

#include <QRect>
#include <QString>

#include <vector>

namespace pixmora {

class X11Connection;

// Where a Qt screen lies on the X root window. Qt keeps a screen's top-left
// corner at its native position and divides only its size by the device
// pixel ratio, so with mixed ratios logical and native coordinates differ per
// screen: native = nativeOrigin + (logical - logicalOrigin) * scale.
struct ScreenPlacement {
    quint32 id = 0;        // RandR monitor name atom, else a hash of the name
    QString name;
    QRect logical;         // QScreen::geometry()
    QRect available;       // QScreen::availableGeometry()
    QRect native;          // device pixels on the root window
    double scale = 1.0;

    QPoint toNative(QPointF logicalPoint) const;
    QRect toLogical(const QRect &nativeRect) const;
};

class ScreenLayout {
public:
    // Qt's screens, primary first, matched with the RandR monitors by name.
    static ScreenLayout current(X11Connection &x11);

    const std::vector<ScreenPlacement> &screens() const { return m_screens; }
    const ScreenPlacement *findById(quint32 id) const;
    // The screen that shows most of a native rectangle (the primary when none does).
    const ScreenPlacement *screenForNative(const QRect &nativeRect) const;
    const ScreenPlacement *screenForLogical(const QRect &logicalRect) const;

private:
    std::vector<ScreenPlacement> m_screens;
};

// Pixels covered by a length in points: floor, forgiving floating-point noise.
int devicePixels(double points, double scale);

} // namespace pixmora
