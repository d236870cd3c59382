#include "AppHarness.h"

#include "app/StatusMenu.h"

#include <QCoreApplication>
#include <QMenu>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

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
    QList<quint32> grabbed;
    for (const FakeHotKeys::Grab &grab : h.fake.hotKeys.grabs)
        grabbed << grab.keyCode;
    EXPECT_EQ(grabbed, (QList<quint32>{HotKeyCenter::keyCode1, HotKeyCenter::keyCode3, HotKeyCenter::keyCode4}));
    h.fake.hotKeys.press(h.fake.hotKeys.grabs[1].id);
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 0) << "not inside the platform's callback";
    QCoreApplication::processEvents();
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 2) << "Control-Shift-3 captures the full screen";

    FakePlatform again;  // a second launch with the same settings
    AppDelegate relaunched(again.platform(), h.path("Pixmora.conf"), std::nullopt);
    relaunched.applicationDidFinishLaunching();
    QCoreApplication::processEvents();
    EXPECT_TRUE(again.dialogs.alerts.isEmpty());

    h.fake.loginItem.failure = "Read-only file system";
    h.app->toggleLaunchAtLogin();
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 2);
    EXPECT_EQ(h.fake.dialogs.alerts[1].message, "Could Not Change Launch at Login");
    EXPECT_EQ(h.fake.dialogs.alerts[1].informative, "Read-only file system");
}

// The capture that readies the path after start is thrown away: nothing goes
// to the folder, the clipboard or the history.
TEST(StartupTest, TheWarmUpCaptureAfterStartDeliversNothing)
{
    AppHarness h;
    const QString shots = h.makeSaveFolder();
    h.app->applicationDidFinishLaunching();
    QTest::qWait(AppDelegate::captureWarmUpDelayMs + 100);
    EXPECT_EQ(h.fake.screens.displayCaptureCount, 1) << "the main display, once";
    EXPECT_EQ(h.fake.clipboard.writeCount, 0);
    EXPECT_TRUE(QDir(shots).isEmpty());
    EXPECT_TRUE(h.app->history()->entries().empty());
}

// Every item in its place with its shortcut and, when it opens, the state of
// its setting. Fresh settings: the clipboard copy and the shadow are on, the
// others off; clipboard-only mode keeps the check marks of the items it disables.
TEST(StatusMenuTest, HoldsEveryCommandInOrderAsTheSettingsAreWhenItOpens)
{
    AppHarness h;
    h.app->applicationDidFinishLaunching();
    StatusMenu &status = *h.app->statusMenu();
    const auto shown = [&] {
        status.menuNeedsUpdate();
        QStringList items;
        for (const QAction *action : status.menu()->actions())
            items << (action->isSeparator() ? QString("---")
                                            : action->text() + (!action->isCheckable() ? "" : action->isChecked() ? " [x]" : " [ ]")
                                                  + (action->isEnabled() ? "" : " (off)")
                                                  + (action->shortcut().isEmpty() ? "" : " " + action->shortcut().toString()));
        return items;
    };
    EXPECT_EQ(shown(), (QStringList{"Capture Area Ctrl+Shift+1", "Capture Window Ctrl+Shift+2",
                                    "Capture Full Screen Ctrl+Shift+3", "Capture Scrolling Ctrl+Shift+4",
                                    "Full Screen After 5 Seconds", "---",
                                    "Clipboard Only (No File) [ ]", "Also Copy to Clipboard (Ctrl+V) [x]",
                                    "Open After Saving [ ]", "Shadow on Window Captures [x]", "---", "Save To: not set…",
                                    "Show Captures Folder in File Manager", "Recent Captures…", "---",
                                    "Launch at Login [ ]", "Instructions", "About Pixmora", "---",
                                    "Quit Pixmora Ctrl+Q"}));
    status.toggleClipboard();
    status.toggleOpenAfter();
    status.toggleShadow();
    h.fake.loginItem.enabled = true;
    h.makeSaveFolder("Shots & Clips");
    const QStringList after = shown();
    EXPECT_EQ(after.mid(6, 6), (QStringList{"Clipboard Only (No File) [x]", "Also Copy to Clipboard (Ctrl+V) [x] (off)",
                                            "Open After Saving [x] (off)", "Shadow on Window Captures [ ]", "---",
                                            "Save To: Shots && Clips…"}));
    EXPECT_EQ(after[15], "Launch at Login [x]");
}

// Made once, brought forward and reloaded at every opening.
TEST(StatusMenuTest, RecentCapturesOpensOneWindowAndReloadsItEachTime)
{
    AppHarness h;
    h.app->applicationDidFinishLaunching();
    h.app->showHistory();
    HistoryWindowController *window = h.app->historyWindow();
    ASSERT_TRUE(window && window->window()->isVisible());
    window->window()->close();
    h.app->deliver({{AppHarness::image({40, 30}, qRgb(200, 0, 0)), 2.0}});
    h.app->showHistory();
    EXPECT_EQ(h.app->historyWindow(), window);
    EXPECT_TRUE(window->window()->isVisible());
    EXPECT_EQ(window->entries().size(), 1u);
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
