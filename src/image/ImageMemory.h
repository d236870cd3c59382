#pragma once

#include <QImage>
#include <QSize>

namespace pixmora {

// Makes a new image with uninitialised pixels, or a null image when there is
// no memory for it.
using ImageAllocator = QImage (*)(QSize size, QImage::Format format);

// Where large fresh images (captures, scroll strips, composed pages) get
// their pixels. The platform may install a cheaper source than the heap:
// first-touching fresh pages can cost more than filling them.
QImage allocateImage(QSize size, QImage::Format format);

// Installed at start-up, before other threads allocate; nullptr restores
// the default, a plain QImage.
void setImageAllocator(ImageAllocator allocator);

} // namespace pixmora
