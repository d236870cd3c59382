#include "app/Settings.h"

#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pixmora;

namespace {

class SettingsTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path() const { return dir.filePath(QStringLiteral("Pixmora.conf")); }
    void writeRaw(const QString &key, const QVariant &value)
    {
        QSettings raw(path(), QSettings::IniFormat);
        raw.setValue(key, value);
    }
};

TEST_F(SettingsTest, FreshSettingsUseTheDefaults)
{
    Settings settings(path());
    EXPECT_FALSE(settings.copyToClipboard());
    EXPECT_FALSE(settings.openAfterCapture());
    EXPECT_FALSE(settings.didAskLaunchAtLogin());
    EXPECT_FALSE(settings.didRequestScreenRecording());
    EXPECT_TRUE(settings.alsoCopyToClipboard());
    EXPECT_TRUE(settings.windowShadow());
    EXPECT_TRUE(settings.saveFolderBookmark().isEmpty());
}

TEST_F(SettingsTest, GarbageValuesReadAsTheirDefaults)
{
    writeRaw(QStringLiteral("copyToClipboard"), QStringLiteral("yes please"));
    writeRaw(QStringLiteral("openAfterCapture"), 17);
    writeRaw(QStringLiteral("alsoCopyToClipboard"), QStringLiteral("nope"));
    writeRaw(QStringLiteral("windowShadow"), QStringList{QStringLiteral("a"), QStringLiteral("b")});
    writeRaw(QStringLiteral("saveFolderBookmark"), QStringLiteral("not data"));
    Settings settings(path());
    EXPECT_FALSE(settings.copyToClipboard());
    EXPECT_FALSE(settings.openAfterCapture());
    EXPECT_TRUE(settings.alsoCopyToClipboard());
    EXPECT_TRUE(settings.windowShadow());
    EXPECT_TRUE(settings.saveFolderBookmark().isEmpty());
}

TEST_F(SettingsTest, ValuesSurviveANewReaderAndChangesFromElsewhereAreSeen)
{
    Settings writer(path());
    Settings reader(path());
    writer.setAlsoCopyToClipboard(false);
    writer.setCopyToClipboard(true);
    writer.setSaveFolderBookmark(QByteArray("\x00\x01bookmark", 10));
    EXPECT_FALSE(reader.alsoCopyToClipboard());
    EXPECT_TRUE(reader.copyToClipboard());
    EXPECT_EQ(reader.saveFolderBookmark(), QByteArray("\x00\x01bookmark", 10));
}

TEST_F(SettingsTest, AnUnreadableFileReadsAsDefaults)
{
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("\xff\xfe garbage [[[ = = \n\x01\x02");
    file.close();
    Settings settings(path());
    EXPECT_TRUE(settings.windowShadow());
    EXPECT_FALSE(settings.copyToClipboard());
}

} // namespace
