#include "app/SaveLocationStore.h"

#include "app/Settings.h"
#include "platform/fake/FakePlatform.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace pixmora {
namespace {

class SaveLocationStoreTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    Settings settings{root.filePath("Pixmora.conf")};
    FakeFolderBookmarks bookmarks;
    FakeDialogs dialogs;
    SaveLocationStore store{settings, bookmarks, &dialogs};
};

// Set as the command line sets it: only an existing folder is taken.
TEST_F(SaveLocationStoreTest, TheFolderIsFollowedWhenMovedAndNotUsedWhenTrashedDeletedOrReplaced)
{
    SaveLocationStore headless(settings, bookmarks);
    const QString folder = root.filePath("Shots"), file = root.filePath("file");
    ASSERT_TRUE(QDir().mkpath(folder) && QFile(file).open(QIODevice::WriteOnly));
    EXPECT_FALSE(headless.setFolder(file));
    EXPECT_FALSE(headless.setFolder(root.filePath("missing")));
    EXPECT_EQ(store.currentFolder(), std::nullopt);
    ASSERT_TRUE(headless.setFolder(root.filePath("Shots/../Shots/")));
    EXPECT_EQ(store.currentFolder(), folder);
    const QString renamed = root.filePath("Screenshots");
    ASSERT_TRUE(QDir().rename(folder, renamed));
    bookmarks.moved[folder] = renamed;
    EXPECT_EQ(store.currentFolder(), renamed);
    EXPECT_EQ(settings.saveFolderBookmark(), bookmarks.create(renamed)) << "the moved folder's bookmark is refreshed";
    const QByteArray bookmark = settings.saveFolderBookmark();
    bookmarks.trashed << renamed;
    EXPECT_EQ(store.currentFolder(), std::nullopt);
    bookmarks.trashed.clear();
    bookmarks.moved[renamed] = file;
    EXPECT_EQ(store.currentFolder(), std::nullopt) << "what the bookmark leads to is no folder";
    bookmarks.moved.clear();
    ASSERT_TRUE(QDir(renamed).removeRecursively());
    EXPECT_EQ(store.currentFolder(), std::nullopt);
    EXPECT_EQ(settings.saveFolderBookmark(), bookmark) << "kept, in case the folder comes back";
}

} // namespace
} // namespace pixmora
