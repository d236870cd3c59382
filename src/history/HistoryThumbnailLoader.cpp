#include "history/HistoryThumbnailLoader.h"

#include "history/CaptureHistoryStore.h"
#include "image/PngThumbnail.h"
#include "platform/AtomicFile.h"
#include "platform/Logging.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QSet>
#include <QThread>

#include <algorithm>

namespace pixmora {

std::optional<HistoryThumbnailLoader::Stamp> HistoryThumbnailLoader::stampOf(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    return Stamp{info.size(), info.lastModified().toMSecsSinceEpoch(), info.metadataChangeTime().toMSecsSinceEpoch()};
}

QImage HistoryThumbnailLoader::decode(const QString &path, QSize box)
{
    const QSize bound = box.boundedTo(QSize(maxPixelSize, maxPixelSize));
    QFile file(path);
    if (bound.isEmpty() || !file.open(QIODevice::ReadOnly))
        return {};
    QImageReader reader(&file);
    reader.setAllocationLimit(CaptureHistoryStore::largestImageMegabytes);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > bound.width() || size.height() > bound.height())) {
        const QSize fitted = size.scaled(bound, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
        // Mapped rather than read: the bytes of a tall capture would stay in
        // this thread's heap long after.
        if (uchar *png = reader.format() == "png" ? file.map(0, file.size()) : nullptr) {
            const QImage thumbnail = decodePngThumbnail(QByteArrayView(png, file.size()), fitted);
            file.unmap(png);
            if (!thumbnail.isNull())
                return thumbnail;
        }
        reader.setScaledSize(fitted);
    }
    QImage image = reader.read();
    if (image.isNull())
        return {};
    const QSize fitted = image.size().scaled(bound, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
    if (image.size() != fitted)
        image = image.scaled(fitted, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    // The formats the view draws fastest: an opaque one is a plain copy.
    return image.convertToFormat(image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                                         : QImage::Format_RGB32);
}

// The stamp and the size are in the name: a changed file or another screen
// never finds an old thumbnail.
QString HistoryThumbnailLoader::cacheName(const File &file, QSize box)
{
    const QString key = QStringLiteral("%1\n%2 %3 %4\n%5x%6")
                            .arg(file.path)
                            .arg(file.stamp.bytes)
                            .arg(file.stamp.modified)
                            .arg(file.stamp.changed)
                            .arg(box.width())
                            .arg(box.height());
    return QString::fromLatin1(QCryptographicHash::hash(key.toUtf8(), QCryptographicHash::Sha1).toHex()) +
           QStringLiteral(".png");
}

QImage HistoryThumbnailLoader::load(const File &file, QSize box, const std::optional<QString> &cacheFolder)
{
    const bool cached = cacheFolder && file.stamp.bytes >= diskCacheFromBytes;
    const QString cachePath = cached ? *cacheFolder + QLatin1Char('/') + cacheName(file, box) : QString();
    if (cached) {
        const QImage image(cachePath, "png");
        if (!image.isNull())
            return image.convertToFormat(image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                                                 : QImage::Format_RGB32);
    }
    const QImage image = decode(file.path, box);
    if (!cached || image.isNull())
        return image;
    // Thumbnails show captures: only the user may look into the folder.
    if (!QFileInfo::exists(*cacheFolder) &&
        (!QDir().mkpath(*cacheFolder) ||
         !QFile::setPermissions(*cacheFolder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))) {
        qCWarning(lcHistory).noquote() << "Could not make the thumbnail folder" << *cacheFolder;
        return image;
    }
    QBuffer png;
    png.open(QIODevice::WriteOnly);
    image.save(&png, "png", 0);
    if (const std::optional<QString> reason = writeFileAtomically(cachePath, png.data()))
        qCWarning(lcHistory).noquote() << "Could not keep a thumbnail:" << cachePath << *reason;
    return image;
}

void HistoryThumbnailLoader::keepOnDiskOnly(const std::vector<File> &files)
{
    if (!m_cacheFolder)
        return;
    QSet<QString> wanted;
    for (const File &file : files)
        wanted.insert(cacheName(file, m_box));
    const QStringList cached = QDir(*m_cacheFolder).entryList({QStringLiteral("*.png")}, QDir::Files);
    for (const QString &name : cached)
        if (!wanted.contains(name) && !QFile::remove(*m_cacheFolder + QLatin1Char('/') + name))
            qCWarning(lcHistory).noquote() << "Could not delete the thumbnail" << name;
}

HistoryThumbnailLoader::HistoryThumbnailLoader(QSize box, std::optional<QString> cacheFolder,
                                               std::function<void(const QString &path)> onReady)
    : m_box(box), m_cacheFolder(std::move(cacheFolder)), m_onReady(std::move(onReady))
{
    // Never more jobs in a pool than threads: the order of what waits stays ours.
    m_urgentPool.setMaxThreadCount(std::max(1, QThread::idealThreadCount()));
    m_laterPool.setMaxThreadCount(1);
}

HistoryThumbnailLoader::~HistoryThumbnailLoader()
{
    m_urgent.clear();
    m_later.clear();
    m_urgentPool.waitForDone();
    m_laterPool.waitForDone();
}

QImage HistoryThumbnailLoader::thumbnail(const File &file) const
{
    const auto found = m_decoded.constFind(file.path);
    return found != m_decoded.cend() && found->stamp == file.stamp ? found->image : QImage();
}

bool HistoryThumbnailLoader::isDecoded(const File &file) const
{
    const auto found = m_decoded.constFind(file.path);
    return found != m_decoded.cend() && found->stamp == file.stamp;
}

bool HistoryThumbnailLoader::idle() const
{
    return m_urgent.empty() && m_runningUrgent == 0 && m_runningLater == 0 && (m_paused || m_later.empty());
}

void HistoryThumbnailLoader::request(const std::vector<File> &files, size_t urgent)
{
    m_urgent.clear();
    m_later.clear();
    for (size_t i = 0; i < files.size(); ++i)
        if (!isDecoded(files[i]))
            (i < urgent ? m_urgent : m_later).push_back({files[i], true});
    startWaiting();
}

void HistoryThumbnailLoader::prepareOnDisk(const std::vector<File> &files)
{
    if (!m_cacheFolder)
        return;
    for (const File &file : files) {
        const bool waiting = std::any_of(m_later.begin(), m_later.end(),
                                         [&file](const Wish &wish) { return wish.file.path == file.path; });
        if (file.stamp.bytes >= diskCacheFromBytes && !waiting)
            m_later.push_back({file, false});
    }
    startWaiting();
}

void HistoryThumbnailLoader::pauseBackground(bool paused)
{
    m_paused = paused;
    startWaiting();
}

void HistoryThumbnailLoader::clear()
{
    m_urgent.clear();
    m_later.clear();
    m_decoded.clear();
    m_decoded.squeeze();
    ++m_generation;
}

void HistoryThumbnailLoader::start(QThreadPool &pool, const Wish &wish)
{
    const bool later = &pool == &m_laterPool;
    ++(later ? m_runningLater : m_runningUrgent);
    pool.start([this, wish, later, generation = m_generation, box = m_box, cacheFolder = m_cacheFolder] {
        // A thumbnail readied for the disk may be there already.
        const bool wanted =
            wish.keep || !QFileInfo::exists(*cacheFolder + QLatin1Char('/') + cacheName(wish.file, box));
        const QImage image = wanted ? load(wish.file, box, cacheFolder) : QImage();
        QMetaObject::invokeMethod(
            &m_context, [this, wish, image, generation, later] { finished(wish, image, generation, later); },
            Qt::QueuedConnection);
    });
}

void HistoryThumbnailLoader::startWaiting()
{
    while (m_runningUrgent < m_urgentPool.maxThreadCount() && !m_urgent.empty()) {
        start(m_urgentPool, m_urgent.front());
        m_urgent.pop_front();
    }
    // Background work waits for the tiles in view: with them it would take a
    // core from the user interface while every core decodes.
    const bool urgentWork = m_runningUrgent > 0 || !m_urgent.empty();
    if (!m_paused && !urgentWork && m_runningLater == 0 && !m_later.empty()) {
        start(m_laterPool, m_later.front());
        m_later.pop_front();
    }
}

void HistoryThumbnailLoader::finished(const Wish &wish, const QImage &image, quint64 generation, bool later)
{
    --(later ? m_runningLater : m_runningUrgent);
    if (wish.keep && generation == m_generation) {
        m_decoded.insert(wish.file.path, {wish.file.stamp, image});
        if (m_onReady)
            m_onReady(wish.file.path);
    }
    startWaiting();
}

} // namespace pixmora
