#include "app/Settings.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTemporaryFile>

#include <gtest/gtest.h>

using namespace pixmora;

// Each garbage value would read as the opposite of its default if taken loosely.
TEST(SettingsTest, GarbageValuesReadAsTheDefaults)
{
    const QByteArray garbage("copyToClipboard=yes please\nopenAfterCapture=17\nalsoCopyToClipboard=0\n"
                             "windowShadow=a, b\nsaveFolderBookmark=not data\n");
    QTemporaryFile file;
    ASSERT_TRUE(file.open() && file.write(garbage) == garbage.size() && file.flush());
    const Settings settings(file.fileName());
    EXPECT_FALSE(settings.copyToClipboard());
    EXPECT_FALSE(settings.openAfterCapture());
    EXPECT_TRUE(settings.alsoCopyToClipboard());
    EXPECT_TRUE(settings.windowShadow());
    EXPECT_TRUE(settings.saveFolderBookmark().isEmpty());
    EXPECT_TRUE(QFileInfo::exists(file.fileName())) << "odd values are no damage";
}

namespace {

struct SettingsFolder {
    QTemporaryDir root;
    QString path = root.filePath("Pixmora.conf");
    void write(const QByteArray &contents, QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner
                                                                           | QFile::ReadGroup | QFile::ReadOther)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size());
        file.setPermissions(permissions);
    }
    QStringList files() const { return QDir(root.path()).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot); }
};

} // namespace

// Too large, not text, not settings, not even a file: each is set aside once
// and the defaults apply; what is written then is a fresh, private file.
TEST(SettingsTest, ADamagedFileIsSetAsideOnceAndTheDefaultsApply)
{
    const QList<QByteArray> damaged{QByteArray("\xff\xfe garbage [[[ = = \n\x01\x02"), QByteArray("copyToClipboard=true\n\0x", 23),
                                    QByteArray("[General]\ncopyToClipboard=true\njust words\n")};
    for (const QByteArray &contents : damaged) {
        SettingsFolder folder;
        folder.write(contents);
        const Settings settings(folder.path);
        EXPECT_FALSE(settings.copyToClipboard());
        EXPECT_EQ(folder.files(), QStringList{"Pixmora.conf.damaged"});
        Settings(folder.path).setOpenAfterCapture(true);
        EXPECT_TRUE(settings.openAfterCapture());
        EXPECT_FALSE(settings.copyToClipboard());
        EXPECT_EQ(QFileInfo(folder.path).permissions() & 0x0777, 0x0600) << contents.toHex().constData();
        EXPECT_LT(QFileInfo(folder.path).size(), 100);
    }
    SettingsFolder huge;
    {
        QFile file(huge.path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(50 * 1000 * 1000));
    }
    EXPECT_TRUE(Settings(huge.path).alsoCopyToClipboard());
    EXPECT_EQ(huge.files(), QStringList{"Pixmora.conf.damaged"});
    SettingsFolder directory;
    ASSERT_TRUE(QDir().mkdir(directory.path));
    EXPECT_TRUE(Settings(directory.path).windowShadow());
    EXPECT_EQ(directory.files(), QStringList{"Pixmora.conf.damaged"});
}

// At start an existing file is made private, and a write of it that a crash
// cut short (QSaveFile's "<name>.XXXXXX") goes; a fresh one may be in progress.
TEST(SettingsTest, SecuringMakesTheFilePrivateAndRemovesAbandonedWrites)
{
    SettingsFolder folder;
    folder.write("[General]\ncopyToClipboard=true\n");
    const auto leftover = [&](const QString &name, int ageSeconds) {
        QFile file(folder.root.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.setFileTime(QDateTime::currentDateTime().addSecs(-ageSeconds), QFileDevice::FileModificationTime);
    };
    leftover("Pixmora.conf.AbCdEf", 120);
    leftover("Pixmora.conf.GhIjKl", 5);
    leftover("Pixmora.conf.Ab1dEf", 120);
    leftover("Other.conf.AbCdEf", 120);
    Settings settings(folder.path);
    settings.secure();
    EXPECT_TRUE(settings.copyToClipboard());
    EXPECT_EQ(QFileInfo(folder.path).permissions() & 0x0777, 0x0600);
    EXPECT_EQ(folder.files(), (QStringList{"Other.conf.AbCdEf", "Pixmora.conf", "Pixmora.conf.Ab1dEf", "Pixmora.conf.GhIjKl"}));
}
