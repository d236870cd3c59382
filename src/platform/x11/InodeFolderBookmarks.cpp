#include "platform/x11/InodeFolderBookmarks.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringList>

#include <deque>
#include <memory>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pixmora {

namespace {

// Text, so that the settings file stays readable:
// header line, device, inode, then the path (which may itself hold newlines).
constexpr char bookmarkHeader[] = "pixmora-folder 1";

// A moved folder is looked for this deep under the home folder, giving up
// after reading this many directory entries: a folder that is gone is looked
// for at every question, and a huge home folder must not stall the menu or a
// capture.
constexpr int homeSearchDepth = 4;
constexpr int searchBudget = 4000;

struct FolderIdentity {
    quint64 device = 0;
    quint64 inode = 0;
    bool operator==(const FolderIdentity &) const = default;
};

struct Bookmark {
    QString path;
    FolderIdentity identity;
};

std::optional<FolderIdentity> directoryIdentity(const QByteArray &path, bool followLinks)
{
    struct stat info {};
    const int result = followLinks ? ::stat(path.constData(), &info) : ::lstat(path.constData(), &info);
    if (result != 0 || !S_ISDIR(info.st_mode))
        return std::nullopt;
    return FolderIdentity{static_cast<quint64>(info.st_dev), static_cast<quint64>(info.st_ino)};
}

std::optional<Bookmark> parseBookmark(const QByteArray &bytes)
{
    const qsizetype headerEnd = bytes.indexOf('\n');
    const qsizetype deviceEnd = headerEnd < 0 ? -1 : bytes.indexOf('\n', headerEnd + 1);
    const qsizetype inodeEnd = deviceEnd < 0 ? -1 : bytes.indexOf('\n', deviceEnd + 1);
    if (inodeEnd < 0 || bytes.left(headerEnd) != bookmarkHeader)
        return std::nullopt;
    bool deviceOk = false;
    bool inodeOk = false;
    Bookmark bookmark;
    bookmark.identity.device = bytes.mid(headerEnd + 1, deviceEnd - headerEnd - 1).toULongLong(&deviceOk);
    bookmark.identity.inode = bytes.mid(deviceEnd + 1, inodeEnd - deviceEnd - 1).toULongLong(&inodeOk);
    bookmark.path = QFile::decodeName(bytes.mid(inodeEnd + 1));
    if (!deviceOk || !inodeOk || !bookmark.path.startsWith(QLatin1Char('/')))
        return std::nullopt;
    return bookmark;
}

QByteArray joinPath(const QByteArray &folder, const char *name)
{
    return folder.endsWith('/') ? folder + name : folder + '/' + name;
}

// Breadth first, so that a folder near the top is found before the budget
// runs out in some deep tree. Hidden folders and symbolic links are skipped,
// and so are other file systems, where the inode cannot be.
std::optional<QString> findDirectory(const FolderIdentity &target, const QString &root, int maxDepth)
{
    struct Pending {
        QByteArray path;
        int depth;
    };
    std::deque<Pending> pending{{QFile::encodeName(root), 1}};
    int budget = searchBudget;
    while (!pending.empty()) {
        const Pending folder = pending.front();
        pending.pop_front();
        const std::unique_ptr<DIR, int (*)(DIR *)> dir(::opendir(folder.path.constData()), ::closedir);
        if (!dir)
            continue;
        while (const dirent *entry = ::readdir(dir.get())) {
            if (--budget < 0)
                return std::nullopt;
            if (entry->d_name[0] == '.')
                continue;
            if (entry->d_type != DT_DIR && entry->d_type != DT_UNKNOWN)
                continue;
            const QByteArray path = joinPath(folder.path, entry->d_name);
            const auto identity = directoryIdentity(path, false);
            if (!identity)
                continue;
            if (*identity == target)
                return QFile::decodeName(path);
            if (folder.depth < maxDepth && identity->device == target.device)
                pending.push_back({path, folder.depth + 1});
        }
    }
    return std::nullopt;
}

QString normalizedPath(const QString &path)
{
    const QFileInfo info(path);
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : canonical;
}

bool isWithin(const QString &path, const QString &folder)
{
    return path == folder || path.startsWith(folder + QLatin1Char('/'));
}

// A removable or extra mount keeps its own trash at its top:
// .Trash-<uid>/files, or .Trash/<uid>/files when the administrator made .Trash.
bool isInMountTrash(const QString &path)
{
    const QString uid = QString::number(::getuid());
    const QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const QString files = QStringLiteral("files");
    for (qsizetype i = 0; i + 1 < parts.size(); ++i) {
        if (parts[i] == QLatin1String(".Trash-") + uid && parts[i + 1] == files)
            return true;
        if (parts[i] == QLatin1String(".Trash") && i + 2 < parts.size() && parts[i + 1] == uid
            && parts[i + 2] == files)
            return true;
    }
    return false;
}

} // namespace

InodeFolderBookmarks::InodeFolderBookmarks(QString homeFolder, QString dataFolder)
    : m_homeFolder(std::move(homeFolder)), m_dataFolder(std::move(dataFolder))
{
}

QString InodeFolderBookmarks::homeFolder() const
{
    return m_homeFolder.isEmpty() ? QDir::homePath() : m_homeFolder;
}

QString InodeFolderBookmarks::dataFolder() const
{
    return m_dataFolder.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
                                  : m_dataFolder;
}

std::optional<QByteArray> InodeFolderBookmarks::create(const QString &folder)
{
    const QString path = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    const auto identity = directoryIdentity(QFile::encodeName(path), true);
    if (!identity)
        return std::nullopt;
    return QByteArray(bookmarkHeader) + '\n' + QByteArray::number(identity->device) + '\n'
           + QByteArray::number(identity->inode) + '\n' + QFile::encodeName(path);
}

std::optional<FolderBookmarks::Resolved> InodeFolderBookmarks::resolve(const QByteArray &bytes)
{
    const auto bookmark = parseBookmark(bytes);
    if (!bookmark)
        return std::nullopt;
    if (directoryIdentity(QFile::encodeName(bookmark->path), true) == bookmark->identity)
        return Resolved{bookmark->path, false};
    const QString oldParent = QFileInfo(bookmark->path).path();
    if (auto moved = findDirectory(bookmark->identity, oldParent, 1))
        return Resolved{*moved, true};
    if (auto moved = findDirectory(bookmark->identity, homeFolder(), homeSearchDepth))
        return Resolved{*moved, true};
    return std::nullopt;
}

bool InodeFolderBookmarks::isInTrash(const QString &path)
{
    const QString folder = normalizedPath(path);
    return isWithin(folder, normalizedPath(dataFolder() + QStringLiteral("/Trash/files")))
           || isInMountTrash(folder);
}

} // namespace pixmora
