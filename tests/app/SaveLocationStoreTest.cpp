#include "app/SaveLocationStore.h"

#include "app/Settings.h"
#include "platform/fake/FakePlatform.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace pixmora {
namespace {

class RecordingDialogs : public FakeDialogs {
public:
    QStringList panelMessages, panelConfirmButtons;

    std::optional<QString> chooseFolder(const QString &startFolder, const QString &message,
                                        const QString &confirmButton) override
    {
        panelMessages << message;
        panelConfirmButtons << confirmButton;
        return FakeDialogs::chooseFolder(startFolder, message, confirmButton);
    }
};

class UnbookmarkableFolders : public FakeFolderBookmarks {
public:
    std::optional<QByteArray> create(const QString &) override { return std::nullopt; }
};

// Points $HOME (and the user-dirs lookup under $XDG_CONFIG_HOME) at a
// temporary folder for one test.
class ScopedHome {
public:
    explicit ScopedHome(const QString &home)
        : m_home(qgetenv("HOME")), m_config(qgetenv("XDG_CONFIG_HOME")),
          m_hadConfig(qEnvironmentVariableIsSet("XDG_CONFIG_HOME"))
    {
        qputenv("HOME", home.toLocal8Bit());
        qputenv("XDG_CONFIG_HOME", (home + QStringLiteral("/.config")).toLocal8Bit());
    }
    ~ScopedHome()
    {
        qputenv("HOME", m_home);
        if (m_hadConfig)
            qputenv("XDG_CONFIG_HOME", m_config);
        else
            qunsetenv("XDG_CONFIG_HOME");
    }

private:
    QByteArray m_home, m_config;
    bool m_hadConfig;
};

class SaveLocationStoreTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    Settings settings{root.filePath(QStringLiteral("Pixmora.conf"))};
    FakeFolderBookmarks bookmarks;
    RecordingDialogs dialogs;
    FakeDesktop desktop;
    SaveLocationStore store{settings, bookmarks, dialogs, desktop};

    QString makeFolder(const QString &name)
    {
        const QString path = root.filePath(name);
        EXPECT_TRUE(QDir().mkpath(path));
        return path;
    }

    QString chooseExisting(const QString &name)
    {
        const QString folder = makeFolder(name);
        settings.setSaveFolderBookmark(*bookmarks.create(folder));
        return folder;
    }

    void expectNoAccessAlert()
    {
        ASSERT_EQ(dialogs.alerts.size(), 1);
        EXPECT_EQ(dialogs.alerts[0].message, QStringLiteral("Could Not Access the Save Folder"));
        EXPECT_EQ(dialogs.alerts[0].informative, QStringLiteral("Use \"Save To…\" to choose the folder again."));
        EXPECT_EQ(dialogs.alerts[0].buttons, QStringList{QStringLiteral("OK")});
    }
};

TEST_F(SaveLocationStoreTest, FreshInstallAsksOnRevealAndCancellingDoesNothingElse)
{
    EXPECT_EQ(store.currentFolder(), std::nullopt);

    store.revealFolder();
    EXPECT_EQ(dialogs.folderPanelStarts.size(), 1);
    EXPECT_TRUE(dialogs.alerts.isEmpty());
    EXPECT_TRUE(desktop.revealedPaths.isEmpty());
    EXPECT_TRUE(settings.saveFolderBookmark().isEmpty());
}

TEST_F(SaveLocationStoreTest, PanelStartsOnTheDesktopElseAtHomeAndStoresTheChoice)
{
    const QString home = makeFolder(QStringLiteral("home"));
    const ScopedHome scopedHome(home);
    const QString folder = makeFolder(QStringLiteral("Shots"));
    dialogs.folderAnswers = {folder, std::nullopt};

    EXPECT_TRUE(store.promptForFolder());
    EXPECT_EQ(store.currentFolder(), folder);
    EXPECT_EQ(desktop.activations, 1);
    EXPECT_EQ(dialogs.panelMessages.value(0),
              QStringLiteral("Choose where Pixmora saves your screenshots (Desktop is a good default)"));
    EXPECT_EQ(dialogs.panelConfirmButtons.value(0), QStringLiteral("Choose"));

    makeFolder(QStringLiteral("home/Desktop"));
    EXPECT_FALSE(store.promptForFolder()) << "cancelled";
    EXPECT_EQ(store.currentFolder(), folder) << "a cancelled panel keeps the folder";

    EXPECT_EQ(dialogs.folderPanelStarts, (QStringList{home, home + QStringLiteral("/Desktop")}));
}

TEST_F(SaveLocationStoreTest, ConfirmedFolderThatCannotBeBookmarkedStillCountsAsChosen)
{
    UnbookmarkableFolders unbookmarkable;
    SaveLocationStore failing(settings, unbookmarkable, dialogs, desktop);
    dialogs.folderAnswers = {makeFolder(QStringLiteral("Shots")), makeFolder(QStringLiteral("Shots"))};

    EXPECT_TRUE(failing.promptForFolder());
    EXPECT_TRUE(settings.saveFolderBookmark().isEmpty());

    failing.revealFolder();
    EXPECT_EQ(dialogs.folderPanelStarts.size(), 2);
    EXPECT_TRUE(desktop.revealedPaths.isEmpty());
    expectNoAccessAlert();
}

TEST_F(SaveLocationStoreTest, MovedFolderIsFollowedAndItsBookmarkRefreshed)
{
    const QString folder = chooseExisting(QStringLiteral("Shots"));
    const QString renamed = root.filePath(QStringLiteral("Screenshots"));
    ASSERT_TRUE(QDir().rename(folder, renamed));
    bookmarks.moved[folder] = renamed;

    EXPECT_EQ(store.currentFolder(), renamed);
    EXPECT_EQ(settings.saveFolderBookmark(), bookmarks.create(renamed));
}

TEST_F(SaveLocationStoreTest, TrashedMissingOrReplacedFolderIsNotUsedButStaysStored)
{
    const QString folder = chooseExisting(QStringLiteral("Shots"));
    const QByteArray bookmark = settings.saveFolderBookmark();

    bookmarks.trashed << folder;
    EXPECT_EQ(store.currentFolder(), std::nullopt);
    bookmarks.trashed.clear();
    ASSERT_EQ(store.currentFolder(), folder);

    // Resolves, but to something that is not a folder any more.
    const QString file = root.filePath(QStringLiteral("file"));
    ASSERT_TRUE(QFile(file).open(QIODevice::WriteOnly));
    bookmarks.moved[folder] = file;
    EXPECT_EQ(store.currentFolder(), std::nullopt);
    bookmarks.moved.clear();

    ASSERT_TRUE(QDir(folder).removeRecursively());
    EXPECT_EQ(store.currentFolder(), std::nullopt);

    EXPECT_EQ(settings.saveFolderBookmark(), bookmark);
}

TEST_F(SaveLocationStoreTest, SetFolderStoresWhatTheConfirmedPanelStores)
{
    const QString folder = makeFolder(QStringLiteral("Shots"));
    dialogs.folderAnswers = {folder};
    ASSERT_TRUE(store.promptForFolder());
    const QByteArray fromPanel = settings.saveFolderBookmark();
    settings.setSaveFolderBookmark(QByteArray());

    EXPECT_TRUE(store.setFolder(root.filePath(QStringLiteral("Shots/../Shots/"))));
    EXPECT_EQ(settings.saveFolderBookmark(), fromPanel);
    EXPECT_EQ(desktop.activations, 1) << "only the panel brings the application forward";

    const QString file = root.filePath(QStringLiteral("file.txt"));
    ASSERT_TRUE(QFile(file).open(QIODevice::WriteOnly));
    EXPECT_FALSE(store.setFolder(file));
    EXPECT_FALSE(store.setFolder(root.filePath(QStringLiteral("missing"))));
    EXPECT_EQ(settings.saveFolderBookmark(), fromPanel);
}

TEST_F(SaveLocationStoreTest, RevealShowsTheFolderOrAlertsWhenItIsStillMissing)
{
    const QString folder = chooseExisting(QStringLiteral("Shots"));
    store.revealFolder();
    EXPECT_EQ(desktop.revealedPaths, QStringList{folder});
    EXPECT_TRUE(dialogs.folderPanelStarts.isEmpty());

    // Gone: the panel comes up; a confirmed folder is revealed at once.
    ASSERT_TRUE(QDir(folder).removeRecursively());
    const QString other = makeFolder(QStringLiteral("Other"));
    dialogs.folderAnswers = {other};
    store.revealFolder();
    EXPECT_EQ(desktop.revealedPaths, (QStringList{folder, other}));
    EXPECT_TRUE(dialogs.alerts.isEmpty());

    // The confirmed folder vanishes before it can be revealed.
    bookmarks.trashed << other;
    dialogs.folderAnswers = {other};
    store.revealFolder();
    EXPECT_EQ(desktop.revealedPaths.size(), 2);
    expectNoAccessAlert();
}

TEST_F(SaveLocationStoreTest, WithoutAUserInterfaceThePanelReadsAsCancelled)
{
    SaveLocationStore headless(settings, bookmarks);
    EXPECT_FALSE(headless.promptForFolder());
    headless.revealFolder();
    EXPECT_TRUE(settings.saveFolderBookmark().isEmpty());

    const QString folder = makeFolder(QStringLiteral("Shots"));
    EXPECT_TRUE(headless.setFolder(folder));
    EXPECT_EQ(store.currentFolder(), folder);
}

} // namespace
} // namespace pixmora
