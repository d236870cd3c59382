#include "platform/x11/InodeFolderBookmarks.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

namespace pixmora {
namespace {

// A home folder in a temporary directory, with its data folder inside it.
class FolderBookmarksTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    QString home = root.filePath(QStringLiteral("home"));
    QString data = home + QStringLiteral("/.local/share");
    InodeFolderBookmarks bookmarks{home, data};

    QString makeFolder(const QString &relative)
    {
        const QString path = root.filePath(relative);
        EXPECT_TRUE(QDir().mkpath(path)) << qPrintable(path);
        return path;
    }

    static void move(const QString &from, const QString &to)
    {
        ASSERT_TRUE(QDir().mkpath(QFileInfo(to).path()));
        ASSERT_TRUE(QDir().rename(from, to)) << qPrintable(from) << " -> " << qPrintable(to);
    }

    QByteArray bookmarkOf(const QString &folder)
    {
        const auto bookmark = bookmarks.create(folder);
        EXPECT_TRUE(bookmark.has_value()) << qPrintable(folder);
        return bookmark.value_or(QByteArray());
    }
};

TEST_F(FolderBookmarksTest, FolderInPlaceResolvesFresh)
{
    const QString folder = makeFolder(QStringLiteral("home/Shots"));
    const auto resolved = bookmarks.resolve(bookmarkOf(folder));
    ASSERT_TRUE(resolved);
    EXPECT_EQ(resolved->path, folder);
    EXPECT_FALSE(resolved->stale);
}

// Outside the home folder, as on a second disk: only its old parent is searched.
TEST_F(FolderBookmarksTest, RenamedFolderResolvesStaleToItsNewName)
{
    const QString folder = makeFolder(QStringLiteral("data disk/Shots"));
    const QByteArray bookmark = bookmarkOf(folder);
    const QString renamed = root.filePath(QStringLiteral("data disk/Screenshots"));
    move(folder, renamed);

    const auto resolved = bookmarks.resolve(bookmark);
    ASSERT_TRUE(resolved);
    EXPECT_EQ(resolved->path, renamed);
    EXPECT_TRUE(resolved->stale);

    const auto refreshed = bookmarks.resolve(bookmarkOf(renamed));
    ASSERT_TRUE(refreshed);
    EXPECT_FALSE(refreshed->stale);
}

TEST_F(FolderBookmarksTest, FolderMovedElsewhereUnderHomeIsFoundWithinTheSearchLimits)
{
    const QString folder = makeFolder(QStringLiteral("home/Shots"));
    const QByteArray bookmark = bookmarkOf(folder);

    const QString fourDeep = home + QStringLiteral("/a/b/c/Shots");
    move(folder, fourDeep);
    const auto resolved = bookmarks.resolve(bookmark);
    ASSERT_TRUE(resolved);
    EXPECT_EQ(resolved->path, fourDeep);
    EXPECT_TRUE(resolved->stale);

    const QString fiveDeep = home + QStringLiteral("/a/b/c/d/Shots");
    move(fourDeep, fiveDeep);
    EXPECT_FALSE(bookmarks.resolve(bookmark));

    const QString hidden = home + QStringLiteral("/.cache/Shots");
    move(fiveDeep, hidden);
    EXPECT_FALSE(bookmarks.resolve(bookmark));

    // Reached only through a symbolic link: not followed.
    const QString outside = root.filePath(QStringLiteral("elsewhere/Shots"));
    move(hidden, outside);
    ASSERT_TRUE(QFile::link(QFileInfo(outside).path(), home + QStringLiteral("/link")));
    EXPECT_FALSE(bookmarks.resolve(bookmark));
}

TEST_F(FolderBookmarksTest, DeletedOrReplacedFolderResolvesToNothing)
{
    const QString folder = makeFolder(QStringLiteral("home/Shots"));
    const QByteArray bookmark = bookmarkOf(folder);

    ASSERT_TRUE(QDir(folder).removeRecursively());
    EXPECT_FALSE(bookmarks.resolve(bookmark));

    QFile file(folder);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    EXPECT_FALSE(bookmarks.resolve(bookmark));
    EXPECT_FALSE(bookmarks.create(folder)) << "a file is not a folder";
}

TEST_F(FolderBookmarksTest, GarbageResolvesToNothing)
{
    const QByteArray valid = bookmarkOf(makeFolder(QStringLiteral("home/Shots")));
    QByteArray binary(256, '\0');
    for (int i = 0; i < binary.size(); ++i)
        binary[i] = static_cast<char>(i * 37 + 11);
    QByteArray relativePath = valid;
    relativePath.replace(home.toUtf8(), "home");
    QByteArray badNumber = valid;
    badNumber.insert(valid.indexOf('\n') + 1, 'x');

    for (const QByteArray &garbage :
         {QByteArray(), binary, QByteArray("pixmora-folder 1"), QByteArray("pixmora-folder 1\n\n\n"),
          valid.left(20), relativePath, badNumber, QByteArray("pixmora-folder 9") + valid.mid(16)}) {
        EXPECT_FALSE(bookmarks.resolve(garbage)) << garbage.toHex().constData();
    }
}

TEST_F(FolderBookmarksTest, TrashOfTheDataFolderAndOfOtherMounts)
{
    const QString uid = QString::number(::getuid());
    EXPECT_TRUE(bookmarks.isInTrash(makeFolder(QStringLiteral("home/.local/share/Trash/files/Shots"))));
    EXPECT_TRUE(bookmarks.isInTrash(makeFolder(QStringLiteral("mnt/.Trash-%1/files/Shots/inner").arg(uid))));
    EXPECT_TRUE(bookmarks.isInTrash(makeFolder(QStringLiteral("mnt/.Trash/%1/files/Shots").arg(uid))));

    EXPECT_FALSE(bookmarks.isInTrash(makeFolder(QStringLiteral("home/Shots"))));
    EXPECT_FALSE(bookmarks.isInTrash(makeFolder(QStringLiteral("home/.local/share/Trash/filesystem"))));
    EXPECT_FALSE(bookmarks.isInTrash(makeFolder(QStringLiteral("mnt/.Trash-%1x/files/Shots").arg(uid))));
    EXPECT_FALSE(bookmarks.isInTrash(makeFolder(QStringLiteral("mnt/.Trash/%1/info").arg(uid))));
    EXPECT_FALSE(bookmarks.isInTrash(makeFolder(QStringLiteral("mnt/.Trash/%1999/files/Shots").arg(uid))));
}

// With a data folder that is not hidden, a folder moved to the Trash is still
// found (as a desktop's bookmark would be), and then recognised as trashed.
TEST_F(FolderBookmarksTest, FolderMovedToTheTrashStillResolvesAndIsInTheTrash)
{
    InodeFolderBookmarks visibleData(home, home + QStringLiteral("/data"));
    const QString folder = makeFolder(QStringLiteral("home/Shots"));
    const auto bookmark = visibleData.create(folder);
    ASSERT_TRUE(bookmark);
    const QString trashed = home + QStringLiteral("/data/Trash/files/Shots");
    move(folder, trashed);

    const auto resolved = visibleData.resolve(*bookmark);
    ASSERT_TRUE(resolved);
    EXPECT_EQ(resolved->path, trashed);
    EXPECT_TRUE(visibleData.isInTrash(resolved->path));
}

} // namespace
} // namespace pixmora
