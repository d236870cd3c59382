#include "platform/AtomicFile.h"

#include "FileSizeLimit.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pixmora;

// Small and large, new or replacing: a failed write leaves the old file whole
// and nothing beside it.
TEST(AtomicFile, WritesTheFileWholeOrLeavesTheFolderAsItWasAndSaysWhy)
{
    QTemporaryDir folder;
    const QString target = folder.filePath("a.png");
    const auto contents = [&] {
        QFile file(target);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    EXPECT_EQ(writeFileAtomically(target, "first version"), std::nullopt);
    EXPECT_EQ(writeFileAtomically(target, "old"), std::nullopt);
    EXPECT_EQ(contents(), "old");
    EXPECT_EQ(writeFileAtomically(folder.filePath("missing/a.png"), "x"), "No such file or directory");
    for (const int size : {6000, 100000}) {
        std::optional<QString> reasons[2];
        {
            const test::FileSizeLimit fullDisk(4096);
            reasons[0] = writeFileAtomically(target, QByteArray(size, 'x'));
            reasons[1] = writeFileAtomically(folder.filePath("new.png"), QByteArray(size, 'x'));
        }
        EXPECT_EQ(reasons[0], "File too large") << size;
        EXPECT_EQ(reasons[1], "File too large") << size;
        EXPECT_EQ(contents(), "old");
        EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"a.png"});
    }
}
