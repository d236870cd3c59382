#pragma once

#include "platform/FolderBookmarks.h"

namespace pixmora {

// A folder reference made of the folder's path and its device and inode
// numbers: a rename or a move within the same file system keeps the inode, so
// the folder is found again by looking for it where it is likely to have gone.
class InodeFolderBookmarks : public FolderBookmarks {
public:
    // Home and data folders come from the environment at each use.
    InodeFolderBookmarks() = default;
    // Fixed home and data ($XDG_DATA_HOME) folders.
    InodeFolderBookmarks(QString homeFolder, QString dataFolder);

    std::optional<QByteArray> create(const QString &folder) override;
    std::optional<Resolved> resolve(const QByteArray &bookmark) override;
    bool isInTrash(const QString &path) override;

private:
    QString homeFolder() const;
    QString dataFolder() const;

    QString m_homeFolder;
    QString m_dataFolder;
};

} // namespace pixmora
