#pragma once

#include "history/CaptureHistoryStore.h"
#include "history/HistoryThumbnailLoader.h"

#include <QHash>
#include <QObject>
#include <QSet>

#include <functional>
#include <memory>
#include <vector>

class QLabel;
class QListWidget;
class QLocale;
class QMenu;
class QPushButton;
class QWidget;

namespace pixmora {

class Clipboard;
class Dialogs;

// The "Recent Captures" window: the history as a grid of thumbnails, newest
// first, with a footer telling how many captures are kept and how much room
// they take. A click opens a capture, a right click offers more. The window
// is made at its first showing and kept; closing only hides it and lets go of
// the thumbnails. While it shows, it follows every change of the store; while
// hidden, it readies the thumbnails of new captures on disk.
class HistoryWindowController : public QObject {
public:
    using Entry = CaptureHistoryStore::Entry;
    // The decoded capture, its scale (pixels per point, read from the file)
    // and its file.
    using OnOpen = std::function<void(const QImage &image, double scale, const QString &path)>;

    // thumbnailCache: where thumbnails are kept between openings, or nothing.
    HistoryWindowController(CaptureHistoryStore &store, Clipboard &clipboard, Dialogs &dialogs, OnOpen onOpen,
                            std::optional<QString> thumbnailCache = std::nullopt);
    ~HistoryWindowController() override;

    // Nothing before the first showing.
    QWidget *window() const { return m_window.get(); }
    // Reloads, centres the window on the screen and brings it to the front.
    void showWindow();
    void reload();
    // Captures come first: no thumbnail is readied in the background while
    // one runs.
    void pauseBackgroundWork(bool paused);

    void open(const Entry &entry);
    void copy(const Entry &entry);
    void saveCopy(const Entry &entry);
    void remove(const Entry &entry);
    // Asks first; nothing when the history is empty.
    void clearAll();
    // Open in Markup Editor, Copy, Save a Copy…, Delete; owned by the caller.
    std::unique_ptr<QMenu> contextMenu(const Entry &entry);

    static QString footerText(qsizetype count, qint64 bytes, const QLocale &locale);
    static QString clearQuestion(qsizetype count);
    // Pixels per point: the resolution a PNG records over 72 dpi, never under 1.
    static double scaleOfPng(QByteArrayView png);

    // For tests and benchmarks.
    const std::vector<Entry> &entries() const { return m_entries; }
    QListWidget *grid() const { return m_grid; }
    QLabel *footerLabel() const { return m_footerLabel; }
    QLabel *emptyLabel() const { return m_emptyLabel; }
    const HistoryThumbnailLoader &thumbnails() const { return *m_thumbnails; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildUI();
    void rememberPaths(const std::vector<HistoryThumbnailLoader::File> &files);
    static std::vector<HistoryThumbnailLoader::File> filesOf(const std::vector<Entry> &entries);
    void requestThumbnails();
    void showThumbnail(const QString &path);
    void releaseThumbnails();
    const Entry *entryAt(int row) const;
    void popUpContextMenu(QPoint position);

    static constexpr int prepareAfterStartMs = 1000;

    CaptureHistoryStore &m_store;
    Clipboard &m_clipboard;
    Dialogs &m_dialogs;
    const OnOpen m_onOpen;
    int m_listenerId = 0;
    std::vector<Entry> m_entries;
    std::vector<HistoryThumbnailLoader::File> m_files;  // the entries' files with their stamps
    QHash<QString, int> m_rowOfPath;
    QSet<QString> m_seenPaths;  // the captures whose thumbnails were made or asked for
    std::unique_ptr<HistoryThumbnailLoader> m_thumbnails;
    std::unique_ptr<QWidget> m_window;  // goes first: its widgets call back into this object
    QListWidget *m_grid = nullptr;
    QLabel *m_emptyLabel = nullptr;
    QLabel *m_footerLabel = nullptr;
};

} // namespace pixmora
