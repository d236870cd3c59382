#include "PlatformTestSupport.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <cstdio>

namespace pixmora::e2e {

namespace {
VirtualDesktop *desktop = nullptr;
} // namespace

VirtualDesktop::Result runOnDesktop(const QString &program, const QStringList &arguments)
{
    return desktop->run(program, arguments);
}

Xterm::Xterm(const QString &title, const QString &geometry)
    : pid(desktop->start(QStringLiteral("xterm"), {QStringLiteral("-T"), title, QStringLiteral("-geometry"), geometry}))
    , window(desktop->waitForWindow(QLatin1Char('^') + title + QLatin1Char('$')))
{
}

Xterm::~Xterm() { desktop->stop(pid); }

QImage rootPattern(QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < size.width(); ++x)
            line[x] = qRgb(x & 0xff, y & 0xff, ((x >> 8) << 4) | (y >> 8));
    }
    return image;
}

std::optional<QPoint> firstDifference(const QImage &actual, const QImage &expected)
{
    if (actual.size() != expected.size() || actual.depth() != 32 || expected.depth() != 32)
        return QPoint(-1, -1);
    for (int y = 0; y < actual.height(); ++y) {
        const auto *shown = reinterpret_cast<const QRgb *>(actual.constScanLine(y));
        const auto *wanted = reinterpret_cast<const QRgb *>(expected.constScanLine(y));
        for (int x = 0; x < actual.width(); ++x)
            if (shown[x] != wanted[x])
                return QPoint(x, y);
    }
    return std::nullopt;
}

} // namespace pixmora::e2e

int main(int argc, char **argv)
{
    using pixmora::e2e::VirtualDesktop;
    std::optional<VirtualDesktop> desktop;
    try {
        VirtualDesktop::Options options;
        options.leftAndRight = true;
        options.windowManager = true;
        options.sessionBus = true;  // or Qt's accessibility bridge autolaunches one that outlives us
        desktop.emplace(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "cannot start the virtual desktop: %s\n", error.what());
        return 1;
    }
    pixmora::e2e::desktop = &*desktop;
    qputenv("QT_SCREEN_SCALE_FACTORS", "LEFT=2;RIGHT=1");
    // Made after the desktop, so that Qt disconnects before the server goes.
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
