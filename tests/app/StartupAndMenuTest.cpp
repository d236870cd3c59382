#include "AppHarness.h"

#include <QCoreApplication>
#include <QMenu>

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
    ASSERT_EQ(h.fake.hotKeys.grabs.size(), 2u);
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

TEST(StatusMenuTest, SaveToNamesTheFolderAfterARenameAndReadsNotSetOnceItIsTrashed)
{
    AppHarness h;
    QAction *saveTo = h.app->buildMenu()->actions()[10];
    const auto title = [&] {
        h.app->menuNeedsUpdate();
        return saveTo->text();
    };
    EXPECT_EQ(title(), "Save To: not set…");
    const QString folder = h.makeSaveFolder("Shots & Clips");
    EXPECT_EQ(title(), "Save To: Shots && Clips…");
    const QString renamed = h.path("Renamed");
    QDir().rename(folder, renamed);
    h.fake.bookmarks.moved[folder] = renamed;
    EXPECT_EQ(title(), "Save To: Renamed…");
    h.fake.bookmarks.trashed << renamed;
    EXPECT_EQ(title(), "Save To: not set…");
}

} // namespace
