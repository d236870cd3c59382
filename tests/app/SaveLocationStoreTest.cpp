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
    FakeDesktop desktop;
    SaveLocationStore store{settings, bookmarks, dialogs, desktop};
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

TEST_F(SaveLocationStoreTest, RevealAsksForAMissingFolderAndAlertsWhenItStillCannotBeReached)
{
    const QString folder = root.filePath("Shots");
    dialogs.folderAnswers = {std::nullopt, folder, std::nullopt, folder};
    store.revealFolder();  // a fresh install asks; the panel is cancelled
    ASSERT_TRUE(QDir().mkpath(folder));
    store.revealFolder();
    store.revealFolder();  // shown without asking
    EXPECT_FALSE(store.promptForFolder());
    EXPECT_EQ(store.currentFolder(), folder) << "a cancelled panel keeps the folder";
    EXPECT_EQ(desktop.revealedPaths, (QStringList{folder, folder}));
    EXPECT_EQ(dialogs.folderPanelStarts.size(), 3);
    bookmarks.trashed << folder;  // then confirmed again, but in the Trash
    store.revealFolder();
    EXPECT_EQ(desktop.revealedPaths.size(), 2);
    ASSERT_EQ(dialogs.alerts.size(), 1);
    EXPECT_EQ(dialogs.alerts[0].message, "Could Not Access the Save Folder");
    EXPECT_EQ(dialogs.alerts[0].informative, "Use \"Save To…\" to choose the folder again.");
}

} // namespace
} // namespace pixmora
