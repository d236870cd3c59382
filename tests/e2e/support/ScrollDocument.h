#pragma once

#include <QRect>
#include <QStringList>

#include <optional>

namespace pixmora::e2e {

class VirtualDesktop;

// The long document of scroll_document.cpp in its scrolling view, on a
// virtual desktop, and where its viewport lies (root-window pixels).
struct ScrollDocument {
    QRect viewport;

    // Starts `program` with `arguments` and waits until it reports its
    // viewport (the report goes into `folder`); nothing when it does not show
    // within 15 s.
    static std::optional<ScrollDocument> start(VirtualDesktop &desktop, const QString &program, const QString &folder,
                                               const QStringList &arguments);
    // What the benchmarks scroll: 1700 pixels wide, eight times over, in a
    // 1720 x 1400 window at (40, 40); the program beside the benchmark's own folder.
    static std::optional<ScrollDocument> startForBenchmark(VirtualDesktop &desktop, const QString &folder);
};

} // namespace pixmora::e2e
