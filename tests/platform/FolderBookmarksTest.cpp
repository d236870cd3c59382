#include "platform/x11/InodeFolderBookmarks.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

namespace pixmora {
namespace {

class FolderBookmarksTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    QString home = root.filePath("home");
    InodeFolderBookmarks bookmarks{home, home + "/.local/share"};

    QString makeFolder(const QString &path)
    {
        EXPECT_TRUE(QDir().mkpath(path));
        return path;
    }

    // What the bookmark resolves to: the path, marked when the folder moved.
    std::string resolved(const QByteArray &bookmark)
    {
        const auto found = bookmarks.resolve(bookmark);
        return !found ? "nothing" : found->path.toStdString() + (found->stale ? " (moved)" : "");
    }

    // Moves a folder and answers what a bookmark made before resolves to.
    std::string resolvedAfterMove(const QString &from, const QString &to)
    {
        const QByteArray bookmark = bookmarks.create(from).value_or(QByteArray());
        EXPECT_TRUE(QDir().mkpath(QFileInfo(to).path()) && QDir().rename(from, to)) << to.toStdString();
        return resolved(bookmark);
    }
};

// A folder is looked for in its old parent, as on a second disk, and then in the home folder.
TEST_F(FolderBookmarksTest, AMovedFolderIsFoundAndADeletedOrReplacedOneOrGarbageResolveToNothing)
{
    const QString renamed = root.filePath("disk/Screenshots");
    EXPECT_EQ(resolvedAfterMove(makeFolder(root.filePath("disk/Shots")), renamed), renamed.toStdString() + " (moved)");
    EXPECT_EQ(resolvedAfterMove(makeFolder(home + "/a/Old"), home + "/b/Old"), home.toStdString() + "/b/Old (moved)");
    const QString folder = makeFolder(home + "/Shots");
    const QByteArray valid = *bookmarks.create(folder);
    EXPECT_EQ(resolved(valid), folder.toStdString());
    QByteArray badNumber = valid, relativePath = valid;
    badNumber.insert(valid.indexOf('\n') + 1, 'x');
    relativePath.replace(home.toUtf8(), "home");
    for (const QByteArray &garbage : {QByteArray(), QByteArray("pixmora-folder 1\n\n\n"), valid.left(20), badNumber,
                                      relativePath, "pixmora-folder 9" + valid.mid(16)})
        EXPECT_EQ(resolved(garbage), "nothing") << garbage.toHex().constData();
    ASSERT_TRUE(QDir(folder).removeRecursively());
    EXPECT_EQ(resolved(valid), "nothing");
    ASSERT_TRUE(QFile(folder).open(QIODevice::WriteOnly));
    EXPECT_EQ(resolved(valid), "nothing");
    EXPECT_EQ(bookmarks.create(folder), std::nullopt) << "a file is not a folder";
}

TEST_F(FolderBookmarksTest, TheTrashOfTheDataFolderAndOfOtherMountsIsRecognised)
{
    const QString uid = QString::number(::getuid()), mount = root.filePath("mount/");
    for (const auto &[path, inTrash] : QList<std::pair<QString, bool>>{
             {home + "/.local/share/Trash/files/Shots", true},
             {mount + ".Trash-" + uid + "/files/Shots/inner", true},
             {mount + ".Trash-" + uid + "x/files/Shots", false}})
        EXPECT_EQ(bookmarks.isInTrash(makeFolder(path)), inTrash) << path.toStdString();
}

} // namespace
} // namespace pixmora
