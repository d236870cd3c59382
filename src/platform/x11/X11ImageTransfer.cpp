#include "platform/x11/X11ImageTransfer.h"

#include "platform/Error.h"
#include "platform/x11/HugePageImages.h"
#include "platform/x11/X11Connection.h"

#include <xcb/shm.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>

namespace pixmora {

namespace {

constexpr int bytesPerPixel = 4;
constexpr std::size_t halfSegmentBytes = 2u << 20;

Error serverError(const xcb_generic_error_t *error)
{
    return Error(QStringLiteral("The screen could not be read (X error %1).")
                     .arg(error ? error->error_code : 0));
}

// Only 32-bit little-endian pixels (depth 24 or 32) are read; that is every
// true-colour X server in practice.
QImage::Format formatForDepth(xcb_connection_t *c, uint8_t depth)
{
    const xcb_setup_t *setup = xcb_get_setup(c);
    bool thirtyTwoBits = false;
    for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem > 0; xcb_format_next(&it))
        if (it.data->depth == depth)
            thirtyTwoBits = it.data->bits_per_pixel == 32;
    if (!thirtyTwoBits || setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST
        || (depth != 24 && depth != 32))
        throw Error(QStringLiteral("The display's pixel format (depth %1) is not supported.").arg(depth));
    return depth == 32 ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
}

// The one copy out of the server's buffer. X leaves the padding byte of
// 24-bit pixels undefined, and RGB32 wants it 0xff.
void copyRows(const QImage &band, QImage &target, QPoint at)
{
    const bool opaque = target.format() == QImage::Format_RGB32;
    const std::size_t rowBytes = std::size_t(band.width()) * bytesPerPixel;
    for (int row = 0; row < band.height(); ++row) {
        const auto *from = reinterpret_cast<const quint32 *>(band.constScanLine(row));
        auto *to = reinterpret_cast<quint32 *>(target.scanLine(at.y() + row)) + at.x();
        if (opaque) {
            for (int x = 0; x < band.width(); ++x)
                to[x] = from[x] | 0xff000000u;
        } else {
            std::memcpy(to, from, rowBytes);
        }
    }
}

void makeOpaque(QImage &band)
{
    auto *pixels = reinterpret_cast<quint32 *>(band.bits());
    const qsizetype count = qsizetype(band.width()) * band.height();
    for (qsizetype i = 0; i < count; ++i)
        pixels[i] |= 0xff000000u;
}

// Source-over of a premultiplied colour, rounded as QPainter rounds it.
inline quint32 veiled(quint32 pixel, quint32 veil, quint32 keep)
{
    quint64 t = ((quint64(pixel) | (quint64(pixel) << 24)) & 0x00ff00ff00ff00ffULL) * keep;
    t = (t + ((t >> 8) & 0x00ff00ff00ff00ffULL) + 0x0080008000800080ULL) >> 8;
    t &= 0x00ff00ff00ff00ffULL;
    return veil + (quint32(t) | quint32(t >> 24));
}

void copyVeiled(const uchar *source, uchar *target, int pixels, QRgb veil)
{
    const quint32 keep = 255 - qAlpha(veil);
    if (keep == 255) {
        std::memcpy(target, source, std::size_t(pixels) * bytesPerPixel);
        return;
    }
    const auto *from = reinterpret_cast<const quint32 *>(source);
    auto *to = reinterpret_cast<quint32 *>(target);
    for (int x = 0; x < pixels; ++x)
        to[x] = veiled(from[x], veil, keep);
}

// One band of rows in flight: a shared-memory read into one half of the
// segment (bands alternate between the halves), or a plain GetImage.
struct BandRequest {
    QRect rows;
    unsigned int sequence = 0;
};

} // namespace

X11ImageTransfer::X11ImageTransfer(X11Connection &x11)
    : m_x11(x11)
{
    xcb_connection_t *c = m_x11.connection();
    const xcb_query_extension_reply_t *ext = xcb_get_extension_data(c, &xcb_shm_id);
    if (ext && ext->present) {
        XcbReply<xcb_shm_query_version_reply_t> version(
            xcb_shm_query_version_reply(c, xcb_shm_query_version(c), nullptr));
        m_shmAvailable = version != nullptr;
    }
}

X11ImageTransfer::~X11ImageTransfer()
{
    if (!m_segmentData)
        return;
    if (m_x11.isAlive()) {
        xcb_shm_detach(m_x11.connection(), m_segment);
        xcb_flush(m_x11.connection());
    }
    shmdt(m_segmentData);
}

bool X11ImageTransfer::attachSegment()
{
    if (m_segmentData)
        return true;
    xcb_connection_t *c = m_x11.connection();
    const int shmId = shmget(IPC_PRIVATE, 2 * halfSegmentBytes, IPC_CREAT | 0600);
    if (shmId < 0)
        return false;
    void *data = shmat(shmId, nullptr, 0);
    if (data == reinterpret_cast<void *>(-1)) {
        shmctl(shmId, IPC_RMID, nullptr);
        return false;
    }
    const quint32 segment = xcb_generate_id(c);
    XcbReply<xcb_generic_error_t> error(
        xcb_request_check(c, xcb_shm_attach_checked(c, segment, static_cast<uint32_t>(shmId), 0)));
    // Marked for removal at once: it disappears with its last user, even if we crash.
    shmctl(shmId, IPC_RMID, nullptr);
    if (error) {
        shmdt(data);
        return false;
    }
    m_segment = segment;
    m_segmentData = static_cast<uchar *>(data);
    return true;
}

void X11ImageTransfer::readBands(xcb_drawable_t drawable, const QRect &area, const QRect &bounds, Padding padding,
                                 const std::function<void(QImage &band, QPoint at)> &consume)
{
    if (!m_x11.isAlive())
        throw Error(QStringLiteral("The connection to the X display was lost."));
    if (area.isEmpty())
        throw Error(QStringLiteral("The area to capture is empty."));
    const QRect clip = area.intersected(bounds);
    if (clip.isEmpty())
        throw Error(QStringLiteral("The area to capture is not on the screen."));
    if (m_shmAvailable && !attachSegment())
        m_shmAvailable = false;  // the server cannot reach our memory (another host or namespace)

    xcb_connection_t *c = m_x11.connection();
    const bool shared = m_shmAvailable;
    const int bandRows = std::max<int>(1, int(halfSegmentBytes / (std::size_t(clip.width()) * bytesPerPixel)));
    auto request = [&](int band) {
        const QRect rows(clip.x(), clip.y() + band * bandRows, clip.width(),
                         std::min(bandRows, clip.height() - band * bandRows));
        const auto x = static_cast<int16_t>(rows.x());
        const auto y = static_cast<int16_t>(rows.y());
        const auto width = static_cast<uint16_t>(rows.width());
        const auto height = static_cast<uint16_t>(rows.height());
        const unsigned int sequence =
            shared ? xcb_shm_get_image(c, drawable, x, y, width, height, ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment,
                                       uint32_t((band % 2) * halfSegmentBytes))
                         .sequence
                   : xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, x, y, width, height, ~0u).sequence;
        return BandRequest{rows, sequence};
    };

    // What came back for a band: the reply keeps the pixels of a plain read alive.
    struct Band {
        XcbReply<void> reply;
        uint8_t depth = 0;
        uchar *pixels = nullptr;
    };
    auto await = [&](const BandRequest &requested, int band) {
        xcb_generic_error_t *rawError = nullptr;
        Band answer;
        if (shared) {
            XcbReply<xcb_shm_get_image_reply_t> reply(
                xcb_shm_get_image_reply(c, xcb_shm_get_image_cookie_t{requested.sequence}, &rawError));
            if (reply) {
                answer.depth = reply->depth;
                answer.pixels = m_segmentData + (band % 2) * halfSegmentBytes;
                answer.reply.reset(reply.release());
            }
        } else {
            XcbReply<xcb_get_image_reply_t> reply(
                xcb_get_image_reply(c, xcb_get_image_cookie_t{requested.sequence}, &rawError));
            if (reply) {
                answer.depth = reply->depth;
                answer.pixels = xcb_get_image_data(reply.get());
                answer.reply.reset(reply.release());
            }
        }
        XcbReply<xcb_generic_error_t> error(rawError);
        if (!answer.reply)
            throw serverError(error.get());
        return answer;
    };

    // The next band is always requested before the current one is handed
    // over, so that the server and this process work at the same time.
    const int bands = (clip.height() + bandRows - 1) / bandRows;
    BandRequest pending = request(0);
    for (int band = 0; band < bands; ++band) {
        const BandRequest current = pending;
        const bool more = band + 1 < bands;
        if (more)
            pending = request(band + 1);
        try {
            const Band answer = await(current, band);
            const QSize size = current.rows.size();
            QImage view(answer.pixels, size.width(), size.height(), qsizetype(size.width()) * bytesPerPixel,
                        formatForDepth(c, answer.depth));
            if (padding == Padding::Opaque && view.format() == QImage::Format_RGB32)
                makeOpaque(view);
            consume(view, current.rows.topLeft() - area.topLeft());
        } catch (...) {
            if (more)
                xcb_discard_reply(c, pending.sequence);  // no reply is left behind
            throw;
        }
    }
}

QImage X11ImageTransfer::read(xcb_drawable_t drawable, const QRect &area, const QRect &bounds, QImage recycled)
{
    QImage image;
    readBands(drawable, area, bounds, Padding::AsSent, [&](QImage &band, QPoint at) {
        if (image.isNull()) {
            image = recycled.size() == area.size() && recycled.format() == band.format() && recycled.isDetached()
                        ? std::move(recycled)
                        : allocateHugePageImage(area.size(), band.format());
            if (image.isNull())
                throw Error(QStringLiteral("Not enough memory for the screen image."));
            if (area != area.intersected(bounds))
                image.fill(image.format() == QImage::Format_RGB32 ? 0xff000000u : 0u);
        }
        copyRows(band, image, at);
    });
    return image;
}

bool X11ImageTransfer::write(const QImage &image, xcb_drawable_t drawable, uint8_t depth, QRgb veil)
{
    const std::size_t rowBytes = std::size_t(image.width()) * bytesPerPixel;
    if (image.isNull() || rowBytes > halfSegmentBytes || (depth != 24 && depth != 32)
        || (image.format() != QImage::Format_RGB32 && image.format() != QImage::Format_ARGB32_Premultiplied))
        return false;
    if (!m_x11.isAlive() || !m_shmAvailable || !attachSegment())
        return false;

    xcb_connection_t *c = m_x11.connection();
    const xcb_gcontext_t gc = xcb_generate_id(c);
    xcb_create_gc(c, gc, drawable, 0, nullptr);
    // A half is filled again only once the server has answered for the band
    // it held; meanwhile it copies out of the other half.
    xcb_void_cookie_t inFlight[2] = {};
    bool busy[2] = {false, false};
    bool ok = true;
    auto settle = [&](int half) {
        if (!busy[half])
            return;
        busy[half] = false;
        XcbReply<xcb_generic_error_t> error(xcb_request_check(c, inFlight[half]));
        ok = ok && !error;
    };
    const int bandRows = int(halfSegmentBytes / rowBytes);
    for (int top = 0, band = 0; top < image.height() && ok; top += bandRows, ++band) {
        const int half = band % 2;
        settle(half);
        if (!ok)
            break;
        const int rows = std::min(bandRows, image.height() - top);
        uchar *target = m_segmentData + half * halfSegmentBytes;
        for (int row = 0; row < rows; ++row)
            copyVeiled(image.constScanLine(top + row), target + row * rowBytes, image.width(), veil);
        inFlight[half] = xcb_shm_put_image_checked(
            c, drawable, gc, uint16_t(image.width()), uint16_t(rows), 0, 0, uint16_t(image.width()), uint16_t(rows),
            0, int16_t(top), depth, XCB_IMAGE_FORMAT_Z_PIXMAP, 0, m_segment, uint32_t(half * halfSegmentBytes));
        busy[half] = true;
    }
    settle(0);
    settle(1);
    xcb_free_gc(c, gc);
    return ok;
}

} // namespace pixmora
