#include "platform/x11/HugePageImages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <limits>

namespace pixmora {

namespace {

constexpr std::size_t hugePageBytes = std::size_t(2) << 20;
// Below one huge page an image gains nothing from a mapping of its own.
constexpr std::size_t ownMappingThreshold = hugePageBytes;
// The part of a mapping after its last whole huge page stays on small pages,
// which keep faulting one by one even when populated in advance. So the
// mapping is rounded up to whole huge pages, as long as that wastes at most
// an eighth of the image.
constexpr std::size_t roundingWasteDivisor = 8;

std::size_t roundUp(std::size_t bytes, std::size_t unit)
{
    return (bytes + unit - 1) / unit * unit;
}

struct Mapping {
    void *start;
    std::size_t length;
};

void unmap(void *info)
{
    const auto *mapping = static_cast<Mapping *>(info);
    munmap(mapping->start, mapping->length);
    delete mapping;
}

// `length` bytes at a 2 MiB boundary, where the kernel can put huge pages
// from the first byte on; nullptr when there is no memory.
void *mapHugePageAligned(std::size_t length)
{
    const std::size_t reserved = length + hugePageBytes;
    void *raw = mmap(nullptr, reserved, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED)
        return nullptr;
    auto *base = static_cast<uchar *>(raw);
    const std::size_t head = roundUp(reinterpret_cast<std::uintptr_t>(base), hugePageBytes)
                             - reinterpret_cast<std::uintptr_t>(base);
    if (head > 0)
        munmap(base, head);
    if (reserved - head - length > 0)
        munmap(base + head + length, reserved - head - length);
    return base + head;
}

} // namespace

QImage allocateHugePageImage(QSize size, QImage::Format format)
{
    const int bitsPerPixel = QImage::toPixelFormat(format).bitsPerPixel();
    if (size.isEmpty() || bitsPerPixel == 0)
        return QImage(size, format);
    // QImage's own row layout: each row padded to 32 bits.
    const std::size_t bytesPerLine = (std::size_t(size.width()) * std::size_t(bitsPerPixel) + 31) / 32 * 4;
    if (bytesPerLine > std::size_t(std::numeric_limits<qsizetype>::max()) / std::size_t(size.height()))
        return {};
    const std::size_t bytes = bytesPerLine * std::size_t(size.height());
    if (bytes < ownMappingThreshold)
        return QImage(size, format);

    const std::size_t wholeHugePages = roundUp(bytes, hugePageBytes);
    const std::size_t length = wholeHugePages - bytes <= bytes / roundingWasteDivisor
                                   ? wholeHugePages
                                   : roundUp(bytes, std::size_t(sysconf(_SC_PAGESIZE)));
    void *start = mapHugePageAligned(length);
    if (!start)
        return {};
    auto *mapping = new Mapping{start, length};
    madvise(start, length, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
    // Older kernels refuse the advice (EINVAL) and fault the pages in on first touch.
    if (madvise(start, length, MADV_POPULATE_WRITE) != 0 && errno == ENOMEM) {
        unmap(mapping);
        return {};
    }
#endif
    QImage image(static_cast<uchar *>(start), size.width(), size.height(), qsizetype(bytesPerLine), format,
                 unmap, mapping);
    if (image.isNull())
        unmap(mapping);  // Qt refused the size and took no ownership
    return image;
}

} // namespace pixmora
