#include "history/CaptureHistoryStore.h"

#include "FileSizeLimit.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace pixmora {
namespace {

using Entry = CaptureHistoryStore::Entry;
const QDateTime noon(QDate(2026, 1, 1), QTime(12, 0), Qt::UTC);

class CaptureHistoryStoreTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    QString folder = root.filePath("a/b/History");  // made by the first add
    CaptureHistoryStore store{folder};

    // The size is set, not written, so large files cost nothing.
    QString makeFile(const QString &name, qint64 mebibytes = 0)
    {
        QDir().mkpath(folder);
        QFile file(folder + '/' + name);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(mebibytes * 1024 * 1024)) << name.toStdString();
        return file.fileName();
    }

    static QString nameOf(const QDateTime &date) { return date.toString("yyyy-MM-dd HH-mm-ss-zzz") + ".png"; }
};

// 05:44:59.998 at UTC+5:45 is the last milliseconds of 2026 in UTC. A capture
// that does not fit is not kept, not even in part: a short file would be listed.
TEST_F(CaptureHistoryStoreTest, EachPngGoesUnderAFreeUtcNameInCaptureOrderOrIsNotKeptAtAll)
{
    const QDateTime date(QDate(2027, 1, 1), QTime(5, 44, 59, 998), Qt::OffsetFromUTC, (5 * 60 + 45) * 60);
    for (const char *png : {"first", "second", "third capture"})
        ASSERT_TRUE(store.add(png, date));
    {
        const test::FileSizeLimit fullDisk(4096);
        EXPECT_EQ(store.add(QByteArray(100000, 'x'), noon), std::nullopt);
    }
    EXPECT_EQ(store.entries(), (std::vector<Entry>{{folder + "/2027-01-01 00-00-00-000.png", date.addMSecs(2), 13},
                                                   {folder + "/2026-12-31 23-59-59-999.png", date.addMSecs(1), 6},
                                                   {folder + "/2026-12-31 23-59-59-998.png", date, 5}}));
    EXPECT_EQ(QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System).size(), 3);
}

TEST_F(CaptureHistoryStoreTest, TheNewest300MebibytesStayAndTheNewestCaptureHoweverLarge)
{
    for (int i = 1; i <= 50; ++i)
        makeFile(nameOf(noon.addSecs(i)), 6);
    store.prune();
    EXPECT_EQ(store.entries().size(), 50u) << "exactly 300 MiB fit";
    const auto added = store.add("small", noon.addSecs(51));
    ASSERT_EQ(store.entries().size(), 50u);
    EXPECT_EQ(store.entries().front().path, added);
    EXPECT_EQ(store.entries().back().date, noon.addSecs(2));
    makeFile(nameOf(noon.addSecs(52)), 400);
    store.prune();
    EXPECT_EQ(store.entries().size(), 1u);
}

// One word per change, the trim of the sixty-first capture included; a
// listener taken off hears nothing.
TEST_F(CaptureHistoryStoreTest, ListenersHearOfEveryChangeOnceAndTheSixtyNewestStay)
{
    QList<int> heard;
    store.addListener([&] { heard << int(store.entries().size()); });
    store.removeListener(store.addListener([&] { heard << -1; }));
    for (int i = 0; i < 61; ++i)
        ASSERT_TRUE(store.add("image", noon.addSecs(i)));
    EXPECT_EQ(heard.size(), 61);
    EXPECT_EQ(heard.back(), 60) << "told after the trim";
    EXPECT_EQ(store.entries().back().date, noon.addSecs(1)) << "the oldest went";
    heard.clear();
    store.remove(store.entries().front());
    store.removeAll();
    EXPECT_EQ(store.add("image", QDateTime()), std::nullopt);
    EXPECT_EQ(heard, (QList<int>{59, 0})) << "a failed add changes nothing";
}

// Screenshots hold passwords and chats: whatever the umask, only the user may
// read them. At start, older captures and the folder are made private again,
// and writes that a crash cut short go, but nothing else of the folder.
TEST_F(CaptureHistoryStoreTest, TheFolderAndItsCapturesArePrivateAndAbandonedWritesGo)
{
    constexpr QFile::Permissions othersMay = QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    const QString added = *store.add("png", noon);
    EXPECT_EQ(QFileInfo(folder).permissions() & othersMay, QFile::Permissions());
    EXPECT_EQ(QFileInfo(added).permissions() & othersMay, QFile::Permissions());

    const QString older = makeFile(nameOf(noon.addSecs(-60)));
    ASSERT_TRUE(QFile::setPermissions(older, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther));
    ASSERT_TRUE(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | othersMay));
    const auto leftover = [&](const QString &name, int ageSeconds) {
        QFile file(makeFile(name));
        ASSERT_TRUE(file.open(QIODevice::Append));
        file.setFileTime(QDateTime::currentDateTime().addSecs(-ageSeconds), QFileDevice::FileModificationTime);
    };
    leftover(nameOf(noon) + ".QwErTy", 120);
    leftover(nameOf(noon) + ".AsDfGh", 2);     // perhaps being written by another instance
    leftover("notes.png.QwErTy", 120);         // not a capture's name
    store.secure();
    EXPECT_EQ(QFileInfo(folder).permissions() & othersMay, QFile::Permissions());
    EXPECT_EQ(QFileInfo(older).permissions() & othersMay, QFile::Permissions());
    EXPECT_EQ(QDir(folder).entryList(QDir::Files, QDir::Name),
              (QStringList{nameOf(noon.addSecs(-60)), nameOf(noon), nameOf(noon) + ".AsDfGh", "notes.png.QwErTy"}));
    EXPECT_EQ(store.entries().size(), 2u) << "only captures are listed";
}

} // namespace
} // namespace pixmora
