#include "PlatformTestSupport.h"

#include "platform/x11/BackingStorePopulator.h"

#include <QApplication>
#include <QBackingStore>
#include <QPainter>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

namespace pixmora::e2e {
namespace {

// The share of the window's surface that is in memory, from 0 to 1.
double residentShare(QWidget &window)
{
    QPaintDevice *device = window.backingStore()->paintDevice();
    if (!device || device->devType() != QInternal::Image)
        return -1;
    const auto *surface = static_cast<const QImage *>(device);
    const std::uintptr_t page = std::uintptr_t(sysconf(_SC_PAGESIZE));
    const auto first = reinterpret_cast<std::uintptr_t>(surface->constBits());
    const std::uintptr_t start = first / page * page;
    const std::uintptr_t length = first + std::uintptr_t(surface->sizeInBytes()) - start;
    std::vector<unsigned char> pages((length + page - 1) / page);
    if (mincore(reinterpret_cast<void *>(start), length, pages.data()) != 0)
        return -1;
    std::size_t resident = 0;
    for (const unsigned char state : pages)
        resident += state & 1;
    return double(resident) / double(pages.size());
}

// A window that notes how much of its surface is in memory as each of its
// paints begins, before it touches any of it.
struct SurfaceWatcher : QWidget {
    SurfaceWatcher()
    {
        // Mapped by the server itself: a window manager still starting up may never map it.
        setWindowFlags(Qt::Window | Qt::BypassWindowManagerHint);
        setAttribute(Qt::WA_OpaquePaintEvent);
        setGeometry(2000, 100, 1600, 1000);  // on RIGHT, at scale 1
    }
    void paintEvent(QPaintEvent *) override
    {
        shares.push_back(residentShare(*this));
        QPainter(this).fillRect(rect(), Qt::darkCyan);
    }
    bool paintsAgain()
    {
        const std::size_t before = shares.size();
        return QTest::qWaitFor([&] { return shares.size() > before; });
    }
    std::vector<double> shares;
};

TEST(BackingStorePopulator, AWindowsSurfaceIsInMemoryBeforeItsFirstPaintAndAgainWhenItGrows)
{
    {
        // Without it, a new window's surface is not in memory yet: what makes the check below worth making.
        SurfaceWatcher window;
        window.show();
        ASSERT_TRUE(window.paintsAgain());
        EXPECT_LT(window.shares.front(), 0.5);
    }
    BackingStorePopulator populator;
    qApp->installEventFilter(&populator);
    SurfaceWatcher window;
    window.show();
    ASSERT_TRUE(window.paintsAgain());
    EXPECT_EQ(window.shares.front(), 1.0);
    window.resize(2000, 1400);
    ASSERT_TRUE(window.paintsAgain());
    EXPECT_EQ(window.shares.back(), 1.0);
}

} // namespace
} // namespace pixmora::e2e
