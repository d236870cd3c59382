#pragma once

#include <QImage>
#include <QSize>

namespace pixmora {

// An image with uninitialised pixels; from a few megabytes up, in its own
// mapping on transparent huge pages, populated in one call. Faulting fresh
// memory in 4 KiB at a time costs over 100 ms for 33 MB on the virtual
// machines Pixmora runs on; huge pages take a few. The mapping goes back to
// the system with the last copy of the image. A null image when there is no
// memory. Needs no X server; fit for setImageAllocator().
QImage allocateHugePageImage(QSize size, QImage::Format format);

} // namespace pixmora
