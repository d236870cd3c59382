#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace pixmora {

// Persistent references to folders that survive a rename or move, and the
// questions the save-folder store asks about a folder.
class FolderBookmarks {
public:
    struct Resolved {
        QString path;
        bool stale = false;  // the folder moved; a fresh bookmark should be stored
    };

    virtual ~FolderBookmarks() = default;
    virtual std::optional<QByteArray> create(const QString &folder) = 0;
    virtual std::optional<Resolved> resolve(const QByteArray &bookmark) = 0;
    virtual bool isInTrash(const QString &path) = 0;
};

} // namespace pixmora
