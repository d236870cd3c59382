#include "AppHarness.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

TEST(StartupTest, FirstLaunchAsksOnceAndRegistersTheShortcut)
{
    AppHarness h;
    h.fake.dialogs.alertAnswers.push_back(0);  // "Launch at Login"
    h.app->applicationDidFinishLaunching();
    EXPECT_TRUE(h.app->settings().didAskLaunchAtLogin()) << "stored before the question is shown";
    EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty()) << "the question waits until start-up has finished";
    QCoreApplication::processEvents();
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(h.fake.dialogs.alerts[0].message, QStringLiteral("Launch Pixmora at Login?"));
    EXPECT_EQ(h.fake.dialogs.alerts[0].buttons, (QStringList{QStringLiteral("Launch at Login"), QStringLiteral("Not Now")}));
    EXPECT_TRUE(h.fake.loginItem.enabled);

    ASSERT_EQ(h.fake.hotKeys.grabs.size(), 3u);
    for (quint32 index = 0; index < 3; ++index) {
        EXPECT_EQ(h.fake.hotKeys.grabs[index].id, index + 1);
        EXPECT_EQ(h.fake.hotKeys.grabs[index].keyCode, 18u + index);
        EXPECT_EQ(h.fake.hotKeys.grabs[index].modifiers, 0x1200u);
    }

    AppHarness second;
    second.app.reset();
    second.app = std::make_unique<AppDelegate>(second.fake.platform(), h.path(QStringLiteral("Pixmora.conf")), std::nullopt);
    second.app->applicationDidFinishLaunching();
    QCoreApplication::processEvents();
    EXPECT_TRUE(second.fake.dialogs.alerts.isEmpty());
}

TEST(StartupTest, NoQuestionWhenTheLoginItemIsAlreadyEnabled)
{
    AppHarness h;
    h.fake.loginItem.enabled = true;
    h.app->applicationDidFinishLaunching();
    QCoreApplication::processEvents();
    EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty());
    EXPECT_TRUE(h.app->settings().didAskLaunchAtLogin());
}

} // namespace
