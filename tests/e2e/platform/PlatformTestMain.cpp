#include "PlatformTestSupport.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>

namespace pixmora::e2e {

namespace {
VirtualDesktop *desktop = nullptr;
}

VirtualDesktop &testDesktop()
{
    return *desktop;
}

} // namespace pixmora::e2e

int main(int argc, char **argv)
{
    using pixmora::e2e::VirtualDesktop;
    std::unique_ptr<VirtualDesktop> desktop;
    try {
        VirtualDesktop::Options options;
        options.size = QSize(3840, 2160);
        options.monitors = VirtualDesktop::leftAndRight(options.size);
        options.windowManager = true;
        options.sessionBus = true;  // or Qt's accessibility bridge autolaunches one that outlives us
        desktop = std::make_unique<VirtualDesktop>(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "cannot start the virtual desktop: %s\n", error.what());
        return 1;
    }
    pixmora::e2e::desktop = desktop.get();

    // The desktop outlives the application: Qt must disconnect before the server goes.
    setenv("DISPLAY", desktop->display().toLocal8Bit().constData(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    setenv("QT_SCREEN_SCALE_FACTORS", "LEFT=2;RIGHT=1", 1);
    setenv("DBUS_SESSION_BUS_ADDRESS",
           desktop->environment().value(QStringLiteral("DBUS_SESSION_BUS_ADDRESS")).toLocal8Bit().constData(), 1);
    unsetenv("WAYLAND_DISPLAY");
    int result = 0;
    {
        QApplication app(argc, argv);
        ::testing::InitGoogleTest(&argc, argv);
        result = RUN_ALL_TESTS();
    }
    pixmora::e2e::desktop = nullptr;
    return result;
}
