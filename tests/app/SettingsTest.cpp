#include "app/Settings.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pixmora;

namespace {

struct SettingsFolder {
    QTemporaryDir root;
    QString path = root.filePath("Pixmora.conf");
    void write(const QString &name, const QByteArray &contents)
    {
        QFile file(root.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size());
    }
    QStringList files() const { return QDir(root.path()).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot); }
    bool isPrivate() const { return (QFileInfo(path).permissions() & 0x0777) == 0x0600; }
};

// Each garbage value would read as the opposite of its default if taken loosely.
TEST(SettingsTest, GarbageValuesReadAsTheDefaults)
{
    SettingsFolder folder;
    folder.write("Pixmora.conf", "copyToClipboard=yes please\nopenAfterCapture=17\nalsoCopyToClipboard=0\n"
                                 "windowShadow=a, b\nsaveFolderBookmark=not data\n");
    const Settings settings(folder.path);
    EXPECT_FALSE(settings.copyToClipboard());
    EXPECT_FALSE(settings.openAfterCapture());
    EXPECT_TRUE(settings.alsoCopyToClipboard());
    EXPECT_TRUE(settings.windowShadow());
    EXPECT_TRUE(settings.saveFolderBookmark().isEmpty());
    EXPECT_EQ(folder.files(), QStringList{"Pixmora.conf"}) << "odd values are no damage";
}

// Not text or too large: each is set aside once
// and the defaults apply; what is written then is a fresh, private file.
TEST(SettingsTest, ADamagedFileIsSetAsideOnceAndTheDefaultsApply)
{
    const QList<QByteArray> damaged{QByteArray("\xff\xfe garbage [[[ = = \n\x01\x02"), QByteArray("copyToClipboard=true\n\0x", 23),
                                    QByteArray(2 << 20, 'a')};
    for (const QByteArray &contents : damaged) {
        SCOPED_TRACE(contents.left(40).toHex().constData());
        SettingsFolder folder;
        folder.write("Pixmora.conf", contents);
        const Settings settings(folder.path);
        EXPECT_FALSE(settings.copyToClipboard());
        EXPECT_EQ(folder.files(), QStringList{"Pixmora.conf.damaged"});
        Settings(folder.path).setOpenAfterCapture(true);
        EXPECT_TRUE(settings.openAfterCapture());
        EXPECT_TRUE(folder.isPrivate());
        EXPECT_LT(QFileInfo(folder.path).size(), 100);
    }
}

// At start an existing file is made private, and a write of it that a crash
// cut short (QSaveFile's "<name>.XXXXXX") goes; a fresh one may be in progress.
TEST(SettingsTest, SecuringMakesTheFilePrivateAndRemovesAbandonedWrites)
{
    SettingsFolder folder;
    folder.write("Pixmora.conf", "[General]\ncopyToClipboard=true\n");
    QFile(folder.path).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);
    for (const auto &[name, ageSeconds] : {std::pair{"Pixmora.conf.AbCdEf", 120}, {"Pixmora.conf.GhIjKl", 5},
                                           {"Pixmora.conf.Ab1dEf", 120}, {"Other.conf.AbCdEf", 120}}) {
        folder.write(name, {});
        QFile file(folder.root.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::Append));
        file.setFileTime(QDateTime::currentDateTime().addSecs(-ageSeconds), QFileDevice::FileModificationTime);
    }
    Settings settings(folder.path);
    settings.secure();
    EXPECT_TRUE(settings.copyToClipboard());
    EXPECT_TRUE(folder.isPrivate());
    EXPECT_EQ(folder.files(), (QStringList{"Other.conf.AbCdEf", "Pixmora.conf", "Pixmora.conf.Ab1dEf", "Pixmora.conf.GhIjKl"}));
}

} // namespace
