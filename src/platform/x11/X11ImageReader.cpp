#include "platform/x11/X11ImageReader.h"

#include "platform/Error.h"
#include "platform/x11/X11Connection.h"

#include <xcb/shm.h>

#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>

#include <cstring>

namespace pixmora {

namespace {

constexpr int releaseDelayMs = 2000;
constexpr int bytesPerPixel = 4;

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

// Large images get their own mapping backed by huge pages and populated in
// one call: page-faulting 33 MB on first touch costs over 100 ms here. The
// mapping goes back to the system as soon as the last QImage copy is dropped.
QImage allocateImage(QSize size, QImage::Format format)
{
    const std::size_t bytesPerLine = std::size_t(size.width()) * bytesPerPixel;
    const std::size_t bytes = bytesPerLine * size.height();
    constexpr std::size_t ownMappingThreshold = 4u << 20;
    if (bytes < ownMappingThreshold)
        return QImage(size, format);

    void *memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw Error(QStringLiteral("Not enough memory for the screen image."));
    madvise(memory, bytes, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
    madvise(memory, bytes, MADV_POPULATE_WRITE);
#endif
    struct Mapping {
        void *memory;
        std::size_t bytes;
    };
    auto *mapping = new Mapping{memory, bytes};
    auto unmap = [](void *info) {
        auto *m = static_cast<Mapping *>(info);
        munmap(m->memory, m->bytes);
        delete m;
    };
    return QImage(static_cast<uchar *>(memory), size.width(), size.height(),
                  static_cast<qsizetype>(bytesPerLine), format, unmap, mapping);
}

QImage blankImage(QSize size, QImage::Format format, bool covered)
{
    QImage image = allocateImage(size, format);
    if (!covered)
        image.fill(format == QImage::Format_RGB32 ? 0xff000000u : 0u);
    return image;
}

// The one copy out of the server's buffer. X leaves the padding byte of
// 24-bit pixels undefined, and RGB32 wants it 0xff.
void copyRows(const uchar *source, std::size_t sourceStride, QImage &target, QPoint at, QSize size)
{
    const bool opaque = target.format() == QImage::Format_RGB32;
    const qsizetype targetStride = target.bytesPerLine();
    uchar *targetBits = target.bits();
    for (int row = 0; row < size.height(); ++row) {
        const auto *from = reinterpret_cast<const quint32 *>(source + row * sourceStride);
        auto *to = reinterpret_cast<quint32 *>(targetBits + (at.y() + row) * targetStride) + at.x();
        if (opaque) {
            for (int x = 0; x < size.width(); ++x)
                to[x] = from[x] | 0xff000000u;
        } else {
            std::memcpy(to, from, std::size_t(size.width()) * bytesPerPixel);
        }
    }
}

} // namespace

X11ImageReader::X11ImageReader(X11Connection &x11)
    : m_x11(x11)
{
    xcb_connection_t *c = m_x11.connection();
    const xcb_query_extension_reply_t *ext = xcb_get_extension_data(c, &xcb_shm_id);
    if (ext && ext->present) {
        XcbReply<xcb_shm_query_version_reply_t> version(
            xcb_shm_query_version_reply(c, xcb_shm_query_version(c), nullptr));
        m_shmAvailable = version != nullptr;
    }
    m_releaseTimer.setSingleShot(true);
    m_releaseTimer.setInterval(releaseDelayMs);
    m_releaseTimer.callOnTimeout([this] { releaseSegment(); });
}

X11ImageReader::~X11ImageReader()
{
    releaseSegment();
}

void X11ImageReader::releaseSegment()
{
    if (!m_segment.data)
        return;
    if (m_x11.isAlive()) {
        xcb_shm_detach(m_x11.connection(), m_segment.id);
        xcb_flush(m_x11.connection());
    }
    shmdt(m_segment.data);
    m_segment = {};
}

bool X11ImageReader::ensureSegment(std::size_t bytes)
{
    if (m_segment.data && m_segment.size >= bytes)
        return true;
    releaseSegment();

    xcb_connection_t *c = m_x11.connection();
    const int shmId = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (shmId < 0)
        return false;
    void *data = shmat(shmId, nullptr, 0);
    if (data == reinterpret_cast<void *>(-1)) {
        shmctl(shmId, IPC_RMID, nullptr);
        return false;
    }
    const quint32 id = xcb_generate_id(c);
    XcbReply<xcb_generic_error_t> error(
        xcb_request_check(c, xcb_shm_attach_checked(c, id, static_cast<uint32_t>(shmId), 0)));
    // Marked for removal at once: the segment then disappears with its last
    // user, even if this process dies.
    shmctl(shmId, IPC_RMID, nullptr);
    if (error) {
        shmdt(data);
        return false;
    }
    m_segment = Segment{id, static_cast<uchar *>(data), bytes};
    return true;
}

QImage X11ImageReader::read(xcb_drawable_t drawable, const QRect &area, const QRect &bounds)
{
    if (!m_x11.isAlive())
        throw Error(QStringLiteral("The connection to the X display was lost."));
    if (area.isEmpty())
        throw Error(QStringLiteral("The area to capture is empty."));
    const QRect clip = area.intersected(bounds);
    if (clip.isEmpty())
        throw Error(QStringLiteral("The area to capture is not on the screen."));

    m_releaseTimer.start();
    if (m_shmAvailable) {
        if (ensureSegment(std::size_t(clip.width()) * clip.height() * bytesPerPixel))
            return readShared(drawable, area, clip);
        m_shmAvailable = false;  // the server cannot reach our memory (another host or namespace)
    }
    return readPlain(drawable, area, clip);
}

QImage X11ImageReader::readShared(xcb_drawable_t drawable, const QRect &area, const QRect &clip)
{
    xcb_connection_t *c = m_x11.connection();
    xcb_generic_error_t *rawError = nullptr;
    XcbReply<xcb_shm_get_image_reply_t> reply(xcb_shm_get_image_reply(
        c,
        xcb_shm_get_image(c, drawable, static_cast<int16_t>(clip.x()), static_cast<int16_t>(clip.y()),
                          static_cast<uint16_t>(clip.width()), static_cast<uint16_t>(clip.height()),
                          ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment.id, 0),
        &rawError));
    XcbReply<xcb_generic_error_t> error(rawError);
    if (!reply)
        throw serverError(error.get());

    QImage image = blankImage(area.size(), formatForDepth(c, reply->depth), clip == area);
    copyRows(m_segment.data, std::size_t(clip.width()) * bytesPerPixel, image,
             clip.topLeft() - area.topLeft(), clip.size());
    return image;
}

QImage X11ImageReader::readPlain(xcb_drawable_t drawable, const QRect &area, const QRect &clip)
{
    // Bands keep each reply small.
    constexpr int bandRows = 128;
    xcb_connection_t *c = m_x11.connection();
    QImage image;
    for (int top = clip.top(); top <= clip.bottom(); top += bandRows) {
        const int rows = std::min(bandRows, clip.bottom() + 1 - top);
        xcb_generic_error_t *rawError = nullptr;
        XcbReply<xcb_get_image_reply_t> reply(xcb_get_image_reply(
            c,
            xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, static_cast<int16_t>(clip.x()),
                          static_cast<int16_t>(top), static_cast<uint16_t>(clip.width()),
                          static_cast<uint16_t>(rows), ~0u),
            &rawError));
        XcbReply<xcb_generic_error_t> error(rawError);
        if (!reply)
            throw serverError(error.get());
        if (image.isNull())
            image = blankImage(area.size(), formatForDepth(c, reply->depth), clip == area);
        copyRows(xcb_get_image_data(reply.get()), std::size_t(clip.width()) * bytesPerPixel, image,
                 QPoint(clip.x(), top) - area.topLeft(), QSize(clip.width(), rows));
    }
    return image;
}

} // namespace pixmora
