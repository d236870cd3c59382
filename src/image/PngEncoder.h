#pragma once

#include <QByteArray>
#include <QImage>

#include <memory>

namespace pixmora {

// PNG bytes of the image, with a pHYs resolution of 72 * scale dots per inch
// (a scale that is not positive counts as 1). Opaque images become 8-bit RGB,
// all others 8-bit RGBA with straight alpha. Empty for a null image or when
// memory runs out.
//
// Fast rather than small: Up filter, a low zlib level, each band of rows
// split in two halves that are deflated on two threads; libdeflate's
// vectorised checksums (zlib's Adler-32 alone took a sixth of the time).
// Between images the encoder keeps its zlib state and output buffers (about
// 2 MB after a 4K desktop; an output buffer over 2 MiB is freed after use),
// because touching fresh pages costs more than compressing. Safe to use from
// any thread; an image encoded while another is gets fresh buffers of its own.
QByteArray encodePng(const QImage &image, double scale);

// The same encoding for an image that arrives band by band, top to bottom,
// so that the whole image never has to sit in memory: the screen, encoded as
// it is read. Holds the kept buffers from construction to destruction.
class PngStreamEncoder {
public:
    // `keepAlpha` false writes RGB whatever the rows' format; otherwise rows
    // in a format with alpha are written as RGBA.
    explicit PngStreamEncoder(double scale, bool keepAlpha = true);
    ~PngStreamEncoder();
    Q_DISABLE_COPY_MOVE(PngStreamEncoder)

    // The next rows, read only during the call. False, and every later call
    // fails too, when memory runs out or the rows' width or alpha differ
    // from the first ones.
    bool addRows(const QImage &rows);
    // The PNG of all rows added; empty when none were or one call failed.
    QByteArray finish();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace pixmora
