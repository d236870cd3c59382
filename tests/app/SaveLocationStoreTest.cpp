#include "app/SaveLocationStore.h"

#include "app/Settings.h"
#include "platform/fake/FakePlatform.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pixmora;

// Set as the command line sets it: only an existing folder is taken.
TEST(SaveLocationStoreTest, TheFolderIsFollowedWhenMovedAndNotUsedWhenTrashedDeletedOrReplaced)
{
    QTemporaryDir root;
    Settings settings{root.filePath("Pixmora.conf")};
    FakeFolderBookmarks bookmarks;
    SaveLocationStore store{settings, bookmarks};
    const QString folder = root.filePath("Shots"), file = root.filePath("file"), renamed = root.filePath("Screenshots");
    ASSERT_TRUE(QDir().mkpath(folder) && QFile(file).open(QIODevice::WriteOnly));
    EXPECT_FALSE(store.setFolder(file));
    EXPECT_FALSE(store.setFolder(root.filePath("missing")));
    EXPECT_EQ(store.currentFolder(), std::nullopt);
    ASSERT_TRUE(store.setFolder(root.filePath("Shots/../Shots/")));
    EXPECT_EQ(store.currentFolder(), folder);
    ASSERT_TRUE(QDir().rename(folder, renamed));
    bookmarks.moved[folder] = renamed;
    EXPECT_EQ(store.currentFolder(), renamed);
    EXPECT_EQ(settings.saveFolderBookmark(), bookmarks.create(renamed)) << "the moved folder's bookmark is refreshed";
    const QByteArray bookmark = settings.saveFolderBookmark();
    bookmarks.trashed << renamed;
    EXPECT_EQ(store.currentFolder(), std::nullopt);
    bookmarks.trashed.clear();
    ASSERT_TRUE(QDir(renamed).removeRecursively());
    EXPECT_EQ(store.currentFolder(), std::nullopt);
    EXPECT_EQ(settings.saveFolderBookmark(), bookmark) << "kept, in case the folder comes back";
}
