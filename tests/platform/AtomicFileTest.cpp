#include "platform/AtomicFile.h"

#include "FileSizeLimit.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pixmora;

// A small file fails only when the buffer is flushed, a large one at once;
// either way the old file stays whole and no partial file is left beside it.
TEST(AtomicFile, ReplacesTheFileWholeOrLeavesItAsItWasAndSaysWhy)
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
        std::optional<QString> reason;
        {
            const test::FileSizeLimit fullDisk(4096);
            reason = writeFileAtomically(target, QByteArray(size, 'x'));
        }
        EXPECT_EQ(reason, "File too large") << size;
        EXPECT_EQ(contents(), "old");
        EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"a.png"});
    }
}
