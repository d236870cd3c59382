#pragma once

#include "VirtualDesktop.h"

#include <QDebug>
#include <QImage>

#include <optional>
#include <ostream>

// Readable failure messages.
inline void PrintTo(const QPoint &value, std::ostream *out) { *out << qPrintable(QDebug::toString(value)); }

namespace pixmora::e2e {

// main() runs all tests on one desktop: 3840 x 2160 pixels, monitors LEFT and
// RIGHT (Qt scales LEFT by 2), openbox and a session bus.

VirtualDesktop::Result runOnDesktop(const QString &program, const QStringList &arguments);

// An xterm with a known title, stopped when this goes.
struct Xterm {
    Xterm(const QString &title, const QString &geometry);
    ~Xterm();

    const pid_t pid;
    const quint64 window;
};

// A pattern in which every pixel of the screen has its own colour.
QImage rootPattern(QSize size);

// The first pixel where two equally sized 32-bit images differ, padding byte
// included (an RGB32 image must read 0xff there), or nothing.
std::optional<QPoint> firstDifference(const QImage &actual, const QImage &expected);

} // namespace pixmora::e2e
