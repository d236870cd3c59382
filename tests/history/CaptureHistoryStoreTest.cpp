#include "history/CaptureHistoryStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <ctime>

namespace pixmora {
namespace {

constexpr qint64 mebibyte = 1024 * 1024;

QDateTime utc(int year, int month, int day, int hour, int minute, int second, int msec)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, msec), Qt::UTC);
}

class CaptureHistoryStoreTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    QString folder = root.filePath(QStringLiteral("History"));
    CaptureHistoryStore store{folder};

    // Files of any size cost nothing: the size is set, not written.
    QString makeFile(const QString &name, qint64 size = 4)
    {
        EXPECT_TRUE(QDir().mkpath(folder));
        QFile file(folder + QLatin1Char('/') + name);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        EXPECT_TRUE(file.resize(size));
        return file.fileName();
    }

    static QString nameOf(const QDateTime &date)
    {
        return date.toUTC().toString(QStringLiteral("yyyy-MM-dd HH-mm-ss-zzz")) + QStringLiteral(".png");
    }

    QStringList listedNames() const
    {
        QStringList names;
        for (const auto &entry : store.entries())
            names << QFileInfo(entry.path).fileName();
        return names;
    }

    QStringList filesOnDisk() const
    {
        return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
    }
};

// Local time five hours and three quarters ahead of UTC for one test.
class ScopedTimeZone {
public:
    ScopedTimeZone() : m_old(qgetenv("TZ")), m_hadOld(qEnvironmentVariableIsSet("TZ"))
    {
        qputenv("TZ", "NPT-5:45");
        ::tzset();
    }
    ~ScopedTimeZone()
    {
        if (m_hadOld)
            qputenv("TZ", m_old);
        else
            qunsetenv("TZ");
        ::tzset();
    }

private:
    QByteArray m_old;
    bool m_hadOld;
};

TEST_F(CaptureHistoryStoreTest, AddWritesThePngUnderItsUtcTimeAndListsIt)
{
    const ScopedTimeZone kathmandu;
    const QByteArray png("\x89PNG\r\n\x1a\n-pretend-image-data", 26);
    const QDateTime localTime(QDate(2026, 11, 17), QTime(2, 12, 7, 123));

    const auto path = store.add(png, localTime);
    ASSERT_TRUE(path);
    EXPECT_EQ(*path, folder + QStringLiteral("/2026-11-16 20-27-07-123.png"));
    QFile written(*path);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(), png);

    const auto entries = store.entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0], (CaptureHistoryStore::Entry{*path, utc(2026, 11, 16, 20, 27, 7, 123), png.size()}));
    EXPECT_EQ(filesOnDisk(), QStringList{QStringLiteral("2026-11-16 20-27-07-123.png")}) << "no temporary left";
}

TEST_F(CaptureHistoryStoreTest, CapturesOfOneMillisecondKeepEveryImageInOrder)
{
    const QDateTime date = utc(2026, 12, 31, 23, 59, 59, 998);
    const QList<QByteArray> images{"first", "second", "third"};
    for (const QByteArray &image : images)
        ASSERT_TRUE(store.add(image, date));

    EXPECT_EQ(listedNames(), (QStringList{QStringLiteral("2027-01-01 00-00-00-000.png"),
                                          QStringLiteral("2026-12-31 23-59-59-999.png"),
                                          QStringLiteral("2026-12-31 23-59-59-998.png")}));
    const auto entries = store.entries();
    for (size_t i = 0; i < entries.size(); ++i) {
        QFile file(entries[i].path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(file.readAll(), images[2 - static_cast<qsizetype>(i)]);
    }
}

TEST_F(CaptureHistoryStoreTest, OnlyExactlyNamedPngFilesAreEntries)
{
    const QStringList foreign{QStringLiteral("notes.png"),
                              QStringLiteral(".2026-11-16 20-27-07-123.png"),
                              QStringLiteral("2026-11-16 20-27-07-123.jpg"),
                              QStringLiteral("2026-13-16 20-27-07-123.png"),
                              QStringLiteral("2026-11-16 20-27-07-12.png"),
                              QStringLiteral("2026-11-16 20-27-07-123 (2).png"),
                              QStringLiteral("2026-11-16T20-27-07-123.png")};
    for (const QString &name : foreign)
        makeFile(name);
    makeFile(QStringLiteral("2026-11-16 20-27-07-123.PNG"), 10);
    makeFile(QStringLiteral("2025-01-02 03-04-05-006.png"), 20);
    makeFile(QStringLiteral("2026-11-16 20-27-07-124.png"), 30);

    const auto entries = store.entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].date, utc(2026, 11, 16, 20, 27, 7, 124));
    EXPECT_EQ(entries[1], (CaptureHistoryStore::Entry{folder + QStringLiteral("/2026-11-16 20-27-07-123.PNG"),
                                                      utc(2026, 11, 16, 20, 27, 7, 123), 10}));
    EXPECT_EQ(entries[2].date, utc(2025, 1, 2, 3, 4, 5, 6));

    store.remove(entries[1]);
    EXPECT_EQ(listedNames(), (QStringList{QStringLiteral("2026-11-16 20-27-07-124.png"),
                                          QStringLiteral("2025-01-02 03-04-05-006.png")}));

    store.removeAll();
    EXPECT_TRUE(store.entries().empty());
    QStringList expected = foreign;
    expected.sort();
    EXPECT_EQ(filesOnDisk(), expected);
}

TEST_F(CaptureHistoryStoreTest, TheSixtyFirstCaptureDropsTheOldest)
{
    makeFile(QStringLiteral("notes.png"));
    const QDateTime start = utc(2026, 1, 1, 12, 0, 0, 0);
    for (int i = 0; i < 61; ++i)
        ASSERT_TRUE(store.add("image", start.addSecs(i)));

    const QStringList names = listedNames();
    EXPECT_EQ(names.size(), 60);
    EXPECT_EQ(names.first(), nameOf(start.addSecs(60)));
    EXPECT_EQ(names.last(), nameOf(start.addSecs(1)));
    EXPECT_TRUE(QFile::exists(folder + QStringLiteral("/notes.png")));
}

TEST_F(CaptureHistoryStoreTest, SizeLimitKeepsTheNewestThreeHundredMebibytes)
{
    const QDateTime start = utc(2026, 1, 1, 12, 0, 0, 0);
    for (int i = 0; i < 60; ++i)
        makeFile(nameOf(start.addSecs(i)), 6 * mebibyte);
    makeFile(QStringLiteral("big but foreign.png"), 400 * mebibyte);

    const auto added = store.add("small", start.addSecs(60));
    ASSERT_TRUE(added);

    const auto entries = store.entries();
    ASSERT_EQ(entries.size(), 50u);
    EXPECT_EQ(entries.front().path, *added);
    EXPECT_EQ(QFileInfo(entries.back().path).fileName(), nameOf(start.addSecs(11)));
}

TEST_F(CaptureHistoryStoreTest, NewestEntryStaysHoweverLarge)
{
    makeFile(nameOf(utc(2026, 1, 1, 12, 0, 0, 0)), 1);
    const QString huge = makeFile(nameOf(utc(2026, 1, 1, 12, 0, 1, 0)), 400 * mebibyte);

    store.prune();
    const auto entries = store.entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].path, huge);
    EXPECT_EQ(entries[0].bytes, 400 * mebibyte);
}

// A dangling link is an entry whose size cannot be read.
TEST_F(CaptureHistoryStoreTest, UnreadableSizeCountsAsZero)
{
    const QDateTime start = utc(2026, 1, 1, 12, 0, 0, 0);
    for (int i = 0; i < 50; ++i)
        makeFile(nameOf(start.addSecs(i + 1)), 6 * mebibyte);
    const QString link = folder + QLatin1Char('/') + nameOf(start);
    ASSERT_TRUE(QFile::link(root.filePath(QStringLiteral("missing")), link));

    store.prune();
    const auto entries = store.entries();
    ASSERT_EQ(entries.size(), 51u) << "the link's bytes must not push the total over the limit";
    EXPECT_EQ(entries.back().path, link);
    EXPECT_EQ(entries.back().bytes, 0);
}

TEST_F(CaptureHistoryStoreTest, MissingFolderIsCreatedButABlockedOneFailsQuietly)
{
    CaptureHistoryStore nested(root.filePath(QStringLiteral("a/b/History")));
    EXPECT_TRUE(nested.add("image", utc(2026, 1, 1, 12, 0, 0, 0)));
    EXPECT_EQ(nested.entries().size(), 1u);

    ASSERT_TRUE(QFile(root.filePath(QStringLiteral("file"))).open(QIODevice::WriteOnly));
    CaptureHistoryStore blocked(root.filePath(QStringLiteral("file/History")));
    EXPECT_EQ(blocked.add("image", utc(2026, 1, 1, 12, 0, 0, 0)), std::nullopt);
    EXPECT_TRUE(blocked.entries().empty());
    EXPECT_EQ(QFileInfo(root.filePath(QStringLiteral("file"))).size(), 0);
}

TEST_F(CaptureHistoryStoreTest, DefaultDirectoryLiesInTheDataFolder)
{
    const QByteArray oldData = qgetenv("XDG_DATA_HOME");
    const bool hadData = qEnvironmentVariableIsSet("XDG_DATA_HOME");
    const QString data = root.filePath(QStringLiteral("data"));
    qputenv("XDG_DATA_HOME", data.toLocal8Bit());
    const auto directory = CaptureHistoryStore::defaultDirectory();
    const QString blocked = root.filePath(QStringLiteral("blocked"));
    ASSERT_TRUE(QDir().mkpath(blocked));
    ASSERT_TRUE(QFile(blocked + QStringLiteral("/Pixmora")).open(QIODevice::WriteOnly));
    qputenv("XDG_DATA_HOME", blocked.toLocal8Bit());
    const auto unavailable = CaptureHistoryStore::defaultDirectory();
    if (hadData)
        qputenv("XDG_DATA_HOME", oldData);
    else
        qunsetenv("XDG_DATA_HOME");

    EXPECT_EQ(directory, data + QStringLiteral("/Pixmora/History"));
    EXPECT_TRUE(QFileInfo(data + QStringLiteral("/Pixmora")).isDir());
    EXPECT_FALSE(QFileInfo::exists(data + QStringLiteral("/Pixmora/History")));
    EXPECT_EQ(unavailable, std::nullopt);
}

} // namespace
} // namespace pixmora
