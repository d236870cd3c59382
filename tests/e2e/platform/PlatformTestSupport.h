#pragma once

#include "VirtualDesktop.h"

#include <QColor>
#include <QImage>
#include <QWidget>

#include <functional>
#include <optional>
#include <ostream>

// Readable values in failure messages.
inline void PrintTo(const QRect &rect, std::ostream *out)
{
    *out << "QRect(" << rect.x() << ", " << rect.y() << ", " << rect.width() << " x " << rect.height() << ")";
}
inline void PrintTo(const QPoint &point, std::ostream *out)
{
    *out << "QPoint(" << point.x() << ", " << point.y() << ")";
}
inline void PrintTo(const QSize &size, std::ostream *out)
{
    *out << "QSize(" << size.width() << " x " << size.height() << ")";
}
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace pixmora::e2e {

// The desktop that main() starts for all tests of this program: 3840 x 2160,
// monitors LEFT and RIGHT (Qt scales LEFT by 2), openbox.
VirtualDesktop &testDesktop();

void processEvents();
// Waits while Qt handles events.
bool waitFor(const std::function<bool()> &condition, int timeoutMs = 5000);
// Runs a command on the test desktop while Qt keeps handling events.
VirtualDesktop::Result runOnDesktop(const QString &program, const QStringList &arguments);

// Waits until no window shows on the screen any more (closing ones are
// unmapped asynchronously by the server and the window manager).
bool waitUntilDesktopIsEmpty();

// A pattern in which every pixel of the root window has its own colour.
QImage rootPattern(QSize size);
// Makes the image the root window's background (what shows where no window is).
void paintRoot(const QImage &image);

// The first pixel where two equally sized images differ, or nothing.
std::optional<QPoint> firstDifference(const QImage &actual, const QImage &expected);

// A top-level window of ours filled with one colour.
class SolidWindow : public QWidget {
public:
    SolidWindow(const QString &title, QColor colour, const QRect &geometry);
};

// Waits until the window manager has framed and mapped a shown widget.
bool waitUntilMapped(QWidget &widget);

} // namespace pixmora::e2e
