#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace pixmora {

// A private folder holding the most recent captures as PNG files named by
// their capture time in UTC. The names are the only index, so files added or
// deleted behind the store's back show up at the next listing. Only the user
// may enter the folder (0700) or read its captures (0600).
class CaptureHistoryStore {
public:
    struct Entry {
        QString path;
        QDateTime date;
        qint64 bytes = 0;  // 0 when the size cannot be read
        bool operator==(const Entry &) const = default;
    };

    static constexpr qint64 maxItems = 60;
    static constexpr qint64 maxBytes = 300 * 1024 * 1024;
    // What a decoded capture may take: the widest desktop (32767 pixels) by
    // the tallest scrolling capture (24000 rows) in 32-bit pixels, 3 GB.
    // QImageReader refuses anything over 256 MB unless told.
    static constexpr int largestImageMegabytes = 3000;

    // $XDG_DATA_HOME/Pixmora/History; the Pixmora folder is created here, the
    // History folder on the first add. Nothing when Pixmora cannot be had.
    static std::optional<QString> defaultDirectory();

    explicit CaptureHistoryStore(QString directory);

    const QString &directory() const { return m_directory; }
    // At start: makes the folder and its captures private again, and removes
    // what interrupted writes left behind.
    void secure();

    // Writes an already encoded PNG and trims the history; the file's path,
    // or nothing when it could not be written.
    std::optional<QString> add(const QByteArray &png, const QDateTime &date);

    // Newest first.
    std::vector<Entry> entries() const;

    // Keeps at most maxItems files and, the newest one excepted, maxBytes.
    void prune();
    void remove(const Entry &entry);
    // Files that are not entries stay.
    void removeAll();

    // Called after every change the store makes: a capture kept (and the
    // history trimmed), an entry or all of them removed. Listeners are told
    // in the order they were added; the id takes one off again.
    int addListener(std::function<void()> onChange);
    void removeListener(int id);

private:
    bool makeFolder() const;
    QString freeFileName(const QDateTime &date) const;
    void deleteFile(const Entry &entry);
    void notifyListeners();

    QString m_directory;
    std::map<int, std::function<void()>> m_listeners;
    int m_nextListenerId = 1;
};

} // namespace pixmora
