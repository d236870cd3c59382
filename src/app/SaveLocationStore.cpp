#include "app/SaveLocationStore.h"

#include "app/Settings.h"
#include "platform/Dialogs.h"
#include "platform/FolderBookmarks.h"
#include "platform/Logging.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace pixmora {

SaveLocationStore::SaveLocationStore(Settings &settings, FolderBookmarks &bookmarks, Dialogs *dialogs)
    : m_settings(settings), m_bookmarks(bookmarks), m_dialogs(dialogs)
{
}

std::optional<QString> SaveLocationStore::currentFolder()
{
    const QByteArray bookmark = m_settings.saveFolderBookmark();
    if (bookmark.isEmpty())
        return std::nullopt;
    const auto resolved = m_bookmarks.resolve(bookmark);
    if (!resolved || !QFileInfo(resolved->path).isDir() || m_bookmarks.isInTrash(resolved->path))
        return std::nullopt;
    if (resolved->stale) {
        if (const auto fresh = m_bookmarks.create(resolved->path))
            m_settings.setSaveFolderBookmark(*fresh);
        else
            qCWarning(lcApp) << "Could not refresh the bookmark of the moved save folder" << resolved->path;
    }
    return resolved->path;
}

bool SaveLocationStore::promptForFolder()
{
    if (!m_dialogs)
        return false;
    const QString desktopFolder = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    const QString startFolder = QFileInfo(desktopFolder).isDir() ? desktopFolder : QDir::homePath();
    const auto chosen = m_dialogs->chooseFolder(
        startFolder, QStringLiteral("Choose where Pixmora saves your screenshots (Desktop is a good default)"),
        QStringLiteral("Choose"));
    if (!chosen || chosen->isEmpty())
        return false;
    rememberFolder(*chosen);  // chosen, even when it cannot be remembered
    return true;
}

bool SaveLocationStore::setFolder(const QString &path)
{
    const QFileInfo folder(path);
    if (!folder.isDir())
        return false;
    return rememberFolder(QDir::cleanPath(folder.absoluteFilePath()));
}

// A folder that cannot be bookmarked leaves the previous choice in place.
bool SaveLocationStore::rememberFolder(const QString &folder)
{
    const std::optional<QByteArray> bookmark = m_bookmarks.create(folder);
    if (!bookmark) {
        qCWarning(lcApp) << "Could not make a bookmark of the save folder" << folder;
        return false;
    }
    m_settings.setSaveFolderBookmark(*bookmark);
    return true;
}

} // namespace pixmora
