#include "history/HistoryThumbnailLoader.h"

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
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (!size.isValid() || size.isEmpty() || box.isEmpty())
        return {};
    const QSize fitted = size.scaled(box.boundedTo(QSize(maxPixelSize, maxPixelSize)), Qt::KeepAspectRatio)
                             .expandedTo(QSize(1, 1));
    if (fitted.width() < size.width())
        reader.setScaledSize(fitted);
    QImage image = reader.read();
    if (image.isNull())
        return {};
    if (image.size() != fitted)
        image = image.scaled(fitted, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    // The format the view draws fastest.
    return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
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
            return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
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
    // Never more jobs in the pool than threads: the order of what waits stays ours.
    m_pool.setMaxThreadCount(std::max(1, QThread::idealThreadCount()));
}

HistoryThumbnailLoader::~HistoryThumbnailLoader()
{
    m_waiting.clear();
    m_pool.waitForDone();
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

void HistoryThumbnailLoader::request(const std::vector<File> &files)
{
    m_waiting.clear();
    for (const File &file : files)
        if (!isDecoded(file))
            m_waiting.push_back({file, true});
    startWaiting();
}

bool HistoryThumbnailLoader::onDisk(const File &file) const
{
    return QFileInfo::exists(*m_cacheFolder + QLatin1Char('/') + cacheName(file, m_box));
}

void HistoryThumbnailLoader::prepareOnDisk(const std::vector<File> &files)
{
    if (!m_cacheFolder)
        return;
    for (const File &file : files) {
        const bool waiting = std::any_of(m_waiting.begin(), m_waiting.end(),
                                         [&file](const Wish &wish) { return wish.file.path == file.path; });
        if (file.stamp.bytes >= diskCacheFromBytes && !waiting && !onDisk(file))
            m_waiting.push_back({file, false});
    }
    startWaiting();
}

void HistoryThumbnailLoader::clear()
{
    m_waiting.clear();
    m_decoded.clear();
    m_decoded.squeeze();
    ++m_generation;
}

void HistoryThumbnailLoader::startWaiting()
{
    while (m_running < m_pool.maxThreadCount() && !m_waiting.empty()) {
        const Wish wish = m_waiting.front();
        m_waiting.pop_front();
        ++m_running;
        m_pool.start([this, wish, generation = m_generation, box = m_box, cacheFolder = m_cacheFolder] {
            const QImage image = load(wish.file, box, cacheFolder);
            QMetaObject::invokeMethod(
                &m_context, [this, wish, image, generation] { finished(wish, image, generation); },
                Qt::QueuedConnection);
        });
    }
}

void HistoryThumbnailLoader::finished(const Wish &wish, const QImage &image, quint64 generation)
{
    --m_running;
    if (wish.keep && generation == m_generation) {
        m_decoded.insert(wish.file.path, {wish.file.stamp, image});
        if (m_onReady)
            m_onReady(wish.file.path);
    }
    startWaiting();
}

} // namespace pixmora
