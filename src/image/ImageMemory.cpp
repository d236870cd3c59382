#include "image/ImageMemory.h"

#include <atomic>

namespace pixmora {

namespace {

QImage plainImage(QSize size, QImage::Format format)
{
    return QImage(size, format);
}

std::atomic<ImageAllocator> installedAllocator{plainImage};

} // namespace

QImage allocateImage(QSize size, QImage::Format format)
{
    return installedAllocator.load(std::memory_order_acquire)(size, format);
}

void setImageAllocator(ImageAllocator allocator)
{
    installedAllocator.store(allocator ? allocator : plainImage, std::memory_order_release);
}

} // namespace pixmora
