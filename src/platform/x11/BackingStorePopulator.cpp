#include "platform/x11/BackingStorePopulator.h"

#include "platform/Logging.h"

#include <QBackingStore>
#include <QEvent>
#include <QImage>
#include <QWidget>

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace pixmora {

BackingStorePopulator::BackingStorePopulator(QObject *parent) : QObject(parent) {}

// Qt makes or resizes a window's surface just before its widgets paint, so
// the first paint event of a window is the moment to populate it.
bool BackingStorePopulator::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Paint && watched->isWidgetType())
        populate(static_cast<QWidget *>(watched)->window());
    return false;
}

void BackingStorePopulator::populate(QWidget *window)
{
    QBackingStore *store = window->backingStore();
    QPaintDevice *device = store ? store->paintDevice() : nullptr;
    if (!device || device->devType() != QInternal::Image)
        return;
    const auto *surface = static_cast<const QImage *>(device);
    const uchar *first = surface->constBits();
    const auto known = m_populated.constFind(window);
    if (!first || (known != m_populated.constEnd() && *known == first))
        return;
    if (known == m_populated.constEnd())
        connect(window, &QObject::destroyed, this, [this, window] { m_populated.remove(window); });
    m_populated.insert(window, first);
#ifdef MADV_POPULATE_WRITE
    const std::uintptr_t pageSize = std::uintptr_t(sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<std::uintptr_t>(first) / pageSize * pageSize;
    const auto end = reinterpret_cast<std::uintptr_t>(first) + std::uintptr_t(surface->sizeInBytes());
    if (madvise(reinterpret_cast<void *>(start), end - start, MADV_POPULATE_WRITE) == 0 || m_failureLogged)
        return;
    // Only slower: the pages fault in as the window paints.
    m_failureLogged = true;
    qCInfo(lcPlatform) << "Could not populate a window's surface in advance:" << std::strerror(errno);
#endif
}

} // namespace pixmora
