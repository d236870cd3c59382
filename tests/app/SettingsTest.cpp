#include "app/Settings.h"

#include <QTemporaryFile>

#include <gtest/gtest.h>

using namespace pixmora;

// Each garbage value would read as the opposite of its default if taken loosely.
TEST(SettingsTest, GarbageValuesAndAnUnreadableFileReadAsTheDefaults)
{
    const QByteArray garbage("copyToClipboard=yes please\nopenAfterCapture=17\nalsoCopyToClipboard=0\n"
                             "windowShadow=a, b\nsaveFolderBookmark=not data\n");
    for (const QByteArray &contents : {garbage, QByteArray("\xff\xfe garbage [[[ = = \n\x01\x02")}) {
        QTemporaryFile file;
        ASSERT_TRUE(file.open() && file.write(contents) == contents.size() && file.flush());
        const Settings settings(file.fileName());
        EXPECT_FALSE(settings.copyToClipboard());
        EXPECT_FALSE(settings.openAfterCapture());
        EXPECT_TRUE(settings.alsoCopyToClipboard());
        EXPECT_TRUE(settings.windowShadow());
        EXPECT_TRUE(settings.saveFolderBookmark().isEmpty());
    }
}
