#pragma once

#include <QHash>
#include <QImage>
#include <QObject>
#include <QSize>
#include <QString>
#include <QThreadPool>

#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace pixmora {

// Decodes the history's thumbnails off the main thread and keeps them in
// memory until cleared. The tiles a user looks at decode on one thread per
// core; everything else (the window's other tiles, thumbnails readied on
// disk for the next opening) on one background worker, which leaves the
// other cores to the user interface and waits while paused. It runs at
// normal priority: at idle priority (SCHED_IDLE) a busy machine starved it,
// none of 60 thumbnails in 5 s.
// Thumbnails of large files are also kept on disk, in a private folder. A
// thumbnail belongs to one version of its file (its stamp, which is part of
// the cached file's name), so a file replaced under the same name is decoded
// again rather than shown stale.
class HistoryThumbnailLoader {
public:
    // What tells one version of a file from another.
    struct Stamp {
        qint64 bytes = -1;
        qint64 modified = 0;  // ms since 1970
        qint64 changed = 0;   // inode change, ms since 1970: a rename or a rewrite moves it
        bool operator==(const Stamp &) const = default;
    };
    struct File {
        QString path;
        Stamp stamp;
    };

    static constexpr int maxPixelSize = 360;
    // Files from this size on decode slowly enough to keep their thumbnails on disk.
    static constexpr qint64 diskCacheFromBytes = 512 * 1024;

    // The file's stamp now, or nothing when it cannot be read.
    static std::optional<Stamp> stampOf(const QString &path);
    // The image fitted into box (device pixels), up or down, but never over
    // maxPixelSize on its longer side; null when the file does not decode.
    // Large images are scaled while they decode, so the whole never sits in memory.
    static QImage decode(const QString &path, QSize box);

    // onReady(path) is told on the main thread when a thumbnail was decoded
    // (or failed to). cacheFolder: where thumbnails are kept on disk, or nothing.
    HistoryThumbnailLoader(QSize box, std::optional<QString> cacheFolder,
                           std::function<void(const QString &path)> onReady);
    ~HistoryThumbnailLoader();
    HistoryThumbnailLoader(const HistoryThumbnailLoader &) = delete;
    HistoryThumbnailLoader &operator=(const HistoryThumbnailLoader &) = delete;

    // The thumbnail of exactly this version of the file; null while it is not
    // decoded, or when it cannot be.
    QImage thumbnail(const File &file) const;
    bool isDecoded(const File &file) const;
    // What is still to decode becomes these files: the first urgent ones at
    // once, the rest in the background, in this order. Files being decoded
    // now finish.
    void request(const std::vector<File> &files, size_t urgent);
    // Puts the thumbnails of these files on disk in the background, after
    // what is wanted now, without keeping them in memory: the next opening
    // finds them ready.
    void prepareOnDisk(const std::vector<File> &files);
    // While paused, no background work starts (what runs finishes).
    void pauseBackground(bool paused);
    // Forgets every thumbnail and every wish; decodes under way are dropped
    // when they finish.
    void clear();
    // Deletes the thumbnails kept on disk for anything but these files, so
    // that no picture of a deleted capture stays behind.
    void keepOnDiskOnly(const std::vector<File> &files);
    // For tests and benchmarks: nothing is under way, nor queued that could start.
    bool idle() const;
    // For tests and benchmarks: no thumbnail waits to go on disk.
    bool preparedOnDisk() const { return m_later.empty() && m_runningLater == 0; }

private:
    struct Decoded {
        Stamp stamp;
        QImage image;
    };

    struct Wish {
        File file;
        bool keep;  // in memory, for the window
    };

    static QImage load(const File &file, QSize box, const std::optional<QString> &cacheFolder);
    static QString cacheName(const File &file, QSize box);
    void start(QThreadPool &pool, const Wish &wish);
    void startWaiting();
    void finished(const Wish &wish, const QImage &image, quint64 generation, bool later);

    const QSize m_box;
    const std::optional<QString> m_cacheFolder;
    const std::function<void(const QString &)> m_onReady;
    QHash<QString, Decoded> m_decoded;
    std::deque<Wish> m_urgent, m_later;
    int m_runningUrgent = 0, m_runningLater = 0;
    bool m_paused = false;
    quint64 m_generation = 0;  // moves on at clear(), so late results are dropped
    // Results reach the main thread through this object; it outlives the
    // pools, whose destructors wait for their workers.
    QObject m_context;
    QThreadPool m_urgentPool, m_laterPool;
};

} // namespace pixmora
