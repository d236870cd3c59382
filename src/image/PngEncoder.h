#pragma once

#include <QByteArray>
#include <QImage>

namespace pixmora {

// PNG bytes of the image, with a pHYs resolution of 72 * scale dots per inch
// (a scale that is not positive counts as 1). Opaque images become 8-bit RGB,
// all others 8-bit RGBA with straight alpha. Empty for a null image or when
// memory runs out.
//
// Fast rather than small: Up filter, a low zlib level, and the image split in
// two bands that are deflated on two threads; libdeflate's vectorised
// checksums (zlib's Adler-32 alone took a sixth of the time). Between calls the encoder keeps
// its zlib state and output buffers (about 2 MB after a 4K desktop; an output
// buffer over 2 MiB is freed after use), because touching fresh pages costs
// more than compressing. Safe to call from any thread; concurrent calls take
// turns, since they share those buffers.
QByteArray encodePng(const QImage &image, double scale);

} // namespace pixmora
