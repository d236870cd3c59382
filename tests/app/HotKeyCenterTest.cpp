#include "app/HotKeyCenter.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

using namespace pixmora;

TEST(HotKeyCenterTest, IdsFollowRegistrationOrderAlsoWhenRefused)
{
    FakeHotKeys platform;
    platform.refusedKeyCodes << HotKeyCenter::keyCode2;
    HotKeyCenter center(platform);
    for (quint32 key : {HotKeyCenter::keyCode1, HotKeyCenter::keyCode2, HotKeyCenter::keyCode3, HotKeyCenter::keyCode4})
        center.registerHotKey(key, 0x1200, [] {});
    ASSERT_EQ(platform.grabs.size(), 3u);
    EXPECT_EQ(platform.grabs[0].id, 1u);
    EXPECT_EQ(platform.grabs[1].id, 3u);
    EXPECT_EQ(platform.grabs[1].keyCode, HotKeyCenter::keyCode3);
    EXPECT_EQ(platform.grabs[1].modifiers, 0x1200u);
    EXPECT_EQ(platform.grabs[2].id, 4u);
    EXPECT_EQ(center.acceptedIds(), (std::vector<quint32>{1, 3, 4}));
}

TEST(HotKeyCenterTest, APressRunsItsActionLaterOnTheMainThread)
{
    FakeHotKeys platform;
    HotKeyCenter center(platform);
    QList<int> ran;
    center.registerHotKey(HotKeyCenter::keyCode1, 0x1200, [&] { ran << 1; });
    center.registerHotKey(HotKeyCenter::keyCode3, 0x1200, [&] { ran << 3; });
    platform.press(2);
    platform.press(99);  // never registered
    EXPECT_TRUE(ran.isEmpty()) << "the action must not run inside the platform's callback";
    QCoreApplication::processEvents();
    EXPECT_EQ(ran, QList<int>{3});
}

TEST(HotKeyCenterTest, OutOfRangeArgumentsAreRefusedAndQueuedPressesDieWithTheRegistry)
{
    FakeHotKeys platform;
    bool ran = false;
    {
        HotKeyCenter center(platform);
        center.registerHotKey(-1, 0x1200, [] {});
        center.registerHotKey(20, qint64(1) << 33, [] {});
        EXPECT_TRUE(platform.grabs.empty());
        center.registerHotKey(20, 0x1200, [&] { ran = true; });
        EXPECT_EQ(platform.grabs.at(0).id, 1u);
        platform.press(1);
    }
    QCoreApplication::processEvents();
    EXPECT_FALSE(ran);
}
