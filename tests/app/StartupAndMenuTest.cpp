#include "AppHarness.h"

#include "app/StatusMenu.h"

#include <QCoreApplication>
#include <QMenu>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

QAction *item(const StatusMenu &status, const QString &title)
{
    for (QAction *action : status.menu()->actions())
        if (action->text() == title)
            return action;
    ADD_FAILURE() << "no menu item " << title.toStdString();
    return nullptr;
}

// A shortcut held by another program is refused; the others still run their own commands.
TEST(StartupTest, RegistersTheShortcutsOffersLaunchAtLoginOnceAndSaysWhyAChangeFailed)
{
    AppHarness h;
    h.fake.hotKeys.refusedKeyCodes << HotKeyCenter::keyCode2;
    h.app->applicationDidFinishLaunching();
    EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty()) << "the question waits until start-up has finished";
    QCoreApplication::processEvents();
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(h.fake.dialogs.alerts[0].message, "Launch Pixmora at Login?");
    EXPECT_EQ(h.fake.dialogs.alerts[0].buttons, (QStringList{"Launch at Login", "Not Now"}));
    EXPECT_TRUE(h.fake.loginItem.enabled) << "the first button was answered";
    ASSERT_EQ(h.fake.hotKeys.grabs.size(), 3u);
    EXPECT_EQ(h.fake.hotKeys.grabs[2].keyCode, HotKeyCenter::keyCode4);
    EXPECT_EQ(h.fake.hotKeys.grabs[2].id, 4u) << "registered fourth";
    EXPECT_EQ(h.fake.hotKeys.grabs[1].keyCode, HotKeyCenter::keyCode3);
    EXPECT_EQ(h.fake.hotKeys.grabs[1].modifiers, HotKeyCenter::controlKey | HotKeyCenter::shiftKey);
    h.fake.hotKeys.press(h.fake.hotKeys.grabs[1].id);
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 0) << "not inside the platform's callback";
    QCoreApplication::processEvents();
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 2) << "Control-Shift-3 captures the full screen";

    FakePlatform again;  // a second launch with the same settings
    AppDelegate relaunched(again.platform(), h.path("Pixmora.conf"), std::nullopt);
    relaunched.applicationDidFinishLaunching();
    AppHarness enabled;  // a first launch with the login item already on
    enabled.fake.loginItem.enabled = true;
    enabled.app->applicationDidFinishLaunching();
    QCoreApplication::processEvents();
    EXPECT_TRUE(again.dialogs.alerts.isEmpty());
    EXPECT_TRUE(enabled.fake.dialogs.alerts.isEmpty());

    h.fake.loginItem.failure = "Read-only file system";
    h.app->toggleLaunchAtLogin();
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 2);
    EXPECT_EQ(h.fake.dialogs.alerts[1].message, "Could Not Change Launch at Login");
    EXPECT_EQ(h.fake.dialogs.alerts[1].informative, "Read-only file system");
}

// Fresh settings: the clipboard copy and the shadow are on, the others off;
// clipboard-only mode keeps the check marks of the items it disables. Where the
// folder moved or went is the save-folder store's (SaveLocationStoreTest).
TEST(StatusMenuTest, ChecksEnablesAndNamesTheFolderAsTheSettingsAreWhenItOpens)
{
    AppHarness h;
    SaveLocationStore saveLocation(h.app->settings(), h.fake.bookmarks);
    StatusMenu status(h.app->settings(), saveLocation, h.fake.loginItem, {});
    QAction *clipboardOnly = item(status, "Clipboard Only (No File)");
    QAction *alsoCopy = item(status, "Also Copy to Clipboard (Ctrl+V)");
    QAction *openAfter = item(status, "Open After Saving"), *shadow = item(status, "Shadow on Window Captures");
    QAction *saveTo = item(status, "Save To…"), *launchAtLogin = item(status, "Launch at Login");
    const auto states = [&] {
        status.menuNeedsUpdate();
        QList<bool> result;
        for (QAction *item : {clipboardOnly, alsoCopy, openAfter, shadow, launchAtLogin})
            result << item->isChecked();
        return result << alsoCopy->isEnabled() << openAfter->isEnabled();
    };
    EXPECT_EQ(states(), (QList<bool>{false, true, false, true, false, true, true}));
    status.toggleClipboard();
    status.toggleOpenAfter();
    status.toggleShadow();
    h.fake.loginItem.enabled = true;
    EXPECT_EQ(states(), (QList<bool>{true, true, true, false, true, false, false}));

    EXPECT_EQ(saveTo->text(), "Save To: not set…");
    h.makeSaveFolder("Shots & Clips");
    status.menuNeedsUpdate();
    EXPECT_EQ(saveTo->text(), "Save To: Shots && Clips…");
}

// Every item in its place with its shortcut; check marks only where there is a setting.
TEST(StatusMenuTest, HoldsEveryCommandInOrder)
{
    AppHarness h;
    h.app->applicationDidFinishLaunching();
    QStringList shown;
    for (const QAction *action : h.app->statusMenu()->menu()->actions())
        shown << (action->isSeparator() ? QString("---")
                                        : action->text() + (action->isCheckable() ? " [x]" : "") +
                                              (action->shortcut().isEmpty() ? "" : " " + action->shortcut().toString()));
    EXPECT_EQ(shown, (QStringList{"Capture Area Ctrl+Shift+1", "Capture Window Ctrl+Shift+2",
                                  "Capture Full Screen Ctrl+Shift+3", "Capture Scrolling Ctrl+Shift+4",
                                  "Full Screen After 5 Seconds", "---",
                                  "Clipboard Only (No File) [x]", "Also Copy to Clipboard (Ctrl+V) [x]",
                                  "Open After Saving [x]", "Shadow on Window Captures [x]", "---", "Save To…",
                                  "Show Captures Folder in File Manager", "Recent Captures…", "---",
                                  "Launch at Login [x]", "Instructions", "About Pixmora", "---",
                                  "Quit Pixmora Ctrl+Q"}));
}

// Made once, brought forward and reloaded at every opening; without a
// history folder there is only the alert.
TEST(StatusMenuTest, RecentCapturesOpensOneWindowAndReloadsItEachTime)
{
    AppHarness h;
    h.app->applicationDidFinishLaunching();
    QCoreApplication::processEvents();
    h.fake.dialogs.alerts.clear();
    item(*h.app->statusMenu(), "Recent Captures…")->trigger();
    HistoryWindowController *window = h.app->historyWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->window()->isVisible());
    EXPECT_TRUE(window->entries().empty());
    EXPECT_EQ(h.fake.desktop.activations, 1);
    window->window()->close();
    h.app->deliver({{AppHarness::image({40, 30}, qRgb(200, 0, 0)), 2.0}});
    h.app->showHistory();
    EXPECT_EQ(h.app->historyWindow(), window);
    EXPECT_TRUE(window->window()->isVisible());
    ASSERT_EQ(window->entries().size(), 1u);
    window->open(window->entries()[0]);
    ASSERT_EQ(h.app->markupEditors().size(), 1u);
    EXPECT_EQ(h.app->markupEditors().front()->imageScale(), 2.0) << "read from the file";
    EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty());

    FakePlatform fake;
    AppDelegate withoutHistory(fake.platform(), h.path("Other.conf"), std::nullopt);
    withoutHistory.applicationDidFinishLaunching();
    fake.dialogs.alerts.clear();
    withoutHistory.showHistory();
    EXPECT_EQ(withoutHistory.historyWindow(), nullptr);
    ASSERT_EQ(fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(fake.dialogs.alerts[0].message, "History Unavailable");
    EXPECT_EQ(fake.dialogs.alerts[0].informative, "Pixmora could not open its own storage folder.");
}

TEST(StatusMenuTest, RevealAsksForAMissingFolderAndAlertsWhenItStillCannotBeReached)
{
    AppHarness h;
    const QString folder = h.path("Shots");
    h.fake.dialogs.folderAnswers = {std::nullopt, folder, std::nullopt, folder};
    h.app->revealFolder();  // a fresh install asks; the panel is cancelled
    ASSERT_TRUE(QDir().mkpath(folder));
    h.app->revealFolder();
    h.app->revealFolder();  // shown without asking
    h.app->chooseFolder();  // cancelled: the folder stays
    EXPECT_EQ(h.fake.desktop.revealedPaths, (QStringList{folder, folder}));
    EXPECT_EQ(h.fake.dialogs.folderPanelStarts.size(), 3);
    h.fake.bookmarks.trashed << folder;  // then confirmed again, but in the Trash
    h.app->revealFolder();
    EXPECT_EQ(h.fake.desktop.revealedPaths.size(), 2);
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(h.fake.dialogs.alerts[0].message, "Could Not Access the Save Folder");
    EXPECT_EQ(h.fake.dialogs.alerts[0].informative, "Use \"Save To…\" to choose the folder again.");
}

} // namespace
