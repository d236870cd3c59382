#include "AppHarness.h"

#include <QMenu>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

QAction *item(QMenu *menu, const QString &titlePrefix)
{
    for (QAction *action : menu->actions()) {
        if (action->text().startsWith(titlePrefix))
            return action;
    }
    return nullptr;
}

QStringList titles(QMenu *menu)
{
    QStringList result;
    for (QAction *action : menu->actions())
        result << (action->isSeparator() ? QStringLiteral("-") : action->text());
    return result;
}

TEST(StatusMenuTest, ListsOnlyTheCommandsThatExistInOrder)
{
    AppHarness h;
    QMenu *menu = h.app->buildMenu();
    h.app->menuNeedsUpdate();
    EXPECT_EQ(titles(menu), (QStringList{
                                QStringLiteral("Capture Area"), QStringLiteral("Capture Window"),
                                QStringLiteral("Capture Full Screen"), QStringLiteral("Full Screen After 5 Seconds"),
                                QStringLiteral("-"), QStringLiteral("Clipboard Only (No File)"),
                                QStringLiteral("Also Copy to Clipboard (Ctrl+V)"), QStringLiteral("Open After Saving"),
                                QStringLiteral("Shadow on Window Captures"), QStringLiteral("-"),
                                QString::fromUtf8("Save To: not set…"),
                                QStringLiteral("Show Captures Folder in File Manager"), QStringLiteral("-"),
                                QStringLiteral("Launch at Login"), QStringLiteral("Instructions"),
                                QStringLiteral("About Pixmora"), QStringLiteral("-"), QStringLiteral("Quit Pixmora")}));
    EXPECT_EQ(item(menu, QStringLiteral("Capture Area"))->shortcut(), QKeySequence(QStringLiteral("Ctrl+Shift+1")));
    EXPECT_EQ(item(menu, QStringLiteral("Capture Window"))->shortcut(), QKeySequence(QStringLiteral("Ctrl+Shift+2")));
    EXPECT_EQ(item(menu, QStringLiteral("Capture Full Screen"))->shortcut(), QKeySequence(QStringLiteral("Ctrl+Shift+3")));
}

TEST(StatusMenuTest, RefreshShowsFreshDefaultsAndClipboardOnlyDisablesItsDependants)
{
    AppHarness h;
    QMenu *menu = h.app->buildMenu();
    h.app->menuNeedsUpdate();
    QAction *clipboard = item(menu, QStringLiteral("Clipboard Only"));
    QAction *alsoCopy = item(menu, QStringLiteral("Also Copy"));
    QAction *openAfter = item(menu, QStringLiteral("Open After"));
    QAction *shadow = item(menu, QStringLiteral("Shadow"));
    EXPECT_FALSE(clipboard->isChecked());
    EXPECT_TRUE(alsoCopy->isChecked());
    EXPECT_FALSE(openAfter->isChecked());
    EXPECT_TRUE(shadow->isChecked());
    EXPECT_TRUE(alsoCopy->isEnabled());

    clipboard->trigger();
    openAfter->trigger();
    h.app->menuNeedsUpdate();
    EXPECT_TRUE(clipboard->isChecked());
    EXPECT_FALSE(alsoCopy->isEnabled());
    EXPECT_FALSE(openAfter->isEnabled());
    EXPECT_TRUE(openAfter->isChecked()) << "disabled items keep their check marks";
    EXPECT_TRUE(h.app->settings().copyToClipboard());

    clipboard->trigger();
    h.app->menuNeedsUpdate();
    EXPECT_TRUE(alsoCopy->isEnabled());
    alsoCopy->trigger();
    shadow->trigger();
    EXPECT_FALSE(h.app->settings().alsoCopyToClipboard());
    EXPECT_FALSE(h.app->settings().windowShadow());
}

TEST(StatusMenuTest, FolderTitleFollowsTheFolderAndLoginItemItsStatus)
{
    AppHarness h;
    QMenu *menu = h.app->buildMenu();
    const QString folder = h.makeSaveFolder(QStringLiteral("Shots & Clips"));
    h.fake.loginItem.enabled = true;
    h.app->menuNeedsUpdate();
    EXPECT_EQ(item(menu, QStringLiteral("Save To"))->text(), QString::fromUtf8("Save To: Shots && Clips…"));
    EXPECT_TRUE(item(menu, QStringLiteral("Launch at Login"))->isChecked());

    QDir().rename(folder, h.path(QStringLiteral("Renamed")));
    h.fake.bookmarks.moved[folder] = h.path(QStringLiteral("Renamed"));
    h.app->menuNeedsUpdate();
    EXPECT_EQ(item(menu, QStringLiteral("Save To"))->text(), QString::fromUtf8("Save To: Renamed…"));
}

TEST(StatusMenuTest, LaunchAtLoginToggleAlertsWithTheSystemsReason)
{
    AppHarness h;
    h.app->toggleLaunchAtLogin();
    EXPECT_TRUE(h.fake.loginItem.enabled);
    h.fake.loginItem.failure = QStringLiteral("Read-only file system");
    h.app->toggleLaunchAtLogin();
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(h.fake.dialogs.alerts[0].message, QStringLiteral("Could Not Change Launch at Login"));
    EXPECT_EQ(h.fake.dialogs.alerts[0].informative, QStringLiteral("Read-only file system"));
    EXPECT_GE(h.fake.desktop.activations, 1);
}

TEST(StatusMenuTest, InformationBoxesUseTheirExactTexts)
{
    AppHarness h;
    h.app->showAbout();
    h.app->showInstructions();
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 2);
    EXPECT_EQ(h.fake.dialogs.alerts[0].message, QStringLiteral("Pixmora 2.1"));
    EXPECT_EQ(h.fake.dialogs.alerts[0].informative, QStringLiteral("Built on Qt and the X Window System."));
    const QStringList lines = h.fake.dialogs.alerts[1].informative.split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), 10);
    EXPECT_EQ(lines[0], QStringLiteral("Global shortcuts:"));
    EXPECT_EQ(lines[3], QString::fromUtf8("Ctrl+Shift+3 — capture the full screen"));
    EXPECT_EQ(lines[8], QString());
    EXPECT_EQ(lines[9], QStringLiteral("While selecting: Esc cancels the capture."));
}

} // namespace
