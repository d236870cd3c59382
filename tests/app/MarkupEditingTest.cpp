#include "AppHarness.h"


#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

const QImage green = AppHarness::image({60, 40}, qRgb(0, 160, 0));

QStringList files(const QString &folder)
{
    return QDir(folder).entryList({"*.png"}, QDir::Files, QDir::Name);
}

// Files in a folder that went to the Trash, or a capture opened from the history, are not deleted.
TEST(MarkupEditingTest, DiscardDeletesOnlyWhileTheFolderCanBeHadAndAlwaysClearsAnImageOnTheClipboard)
{
    const struct { const char *what; bool folder; bool fromHistory; bool imageOnClipboard; } cases[] = {
        {"opened from the history", true, true, true},
        {"folder gone", false, false, true},
        {"clipboard holds text", true, false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        AppHarness h;
        const QString folder = h.makeSaveFolder();
        const QString file = QDir(folder).filePath("Screenshot 1.png");
        ASSERT_TRUE(green.save(file));
        if (!c.folder)
            h.fake.bookmarks.trashed << folder;
        if (c.imageOnClipboard)
            h.fake.clipboard.setPngImages({"png"});
        else
            h.fake.clipboard.setText("words");
        h.app->discardCapture(c.fromHistory ? QStringList() : QStringList{file, QDir(folder).filePath("gone.png")});
        EXPECT_EQ(QFile::exists(file), c.fromHistory || !c.folder);
        EXPECT_TRUE(h.fake.clipboard.items.isEmpty());
        EXPECT_EQ(h.fake.clipboard.text.has_value(), !c.imageOnClipboard) << "text is not an image";
    }
}

// A new file in the folder, nothing on the clipboard or in the history; without a folder
// the save panel proposes the name.
TEST(MarkupEditingTest, SaveWritesANewFileInTheFolderElseWhereTheSavePanelSays)
{
    const QRegularExpression editedName(R"(^Screenshot \d{4}-\d\d-\d\d at \d\d\.\d\d\.\d\d\.\d{3}\.png$)");
    for (const bool folderSet : {true, false}) {
        AppHarness h;
        const QString folder = folderSet ? h.makeSaveFolder() : h.path("");
        h.fake.dialogs.saveAnswers = {h.path("Elsewhere.png"), std::nullopt};
        h.app->saveEditedImage(green, 2.0);
        if (!folderSet)
            h.app->saveEditedImage(green, 2.0);  // the panel cancelled: nothing is written
        ASSERT_EQ(files(folder).size(), 1);
        EXPECT_EQ(h.fake.dialogs.saveProposals.size(), folderSet ? 0 : 2);
        EXPECT_TRUE(editedName.match(folderSet ? files(folder).front() : h.fake.dialogs.saveProposals.value(0)).hasMatch());
        const QImage written(QDir(folder).filePath(files(folder).front()));
        EXPECT_EQ(written.convertToFormat(QImage::Format_RGB32), green);
        EXPECT_EQ(AppHarness::dpi(written), 144);
        EXPECT_TRUE(h.fake.clipboard.items.isEmpty());
        EXPECT_TRUE(h.app->history()->entries().empty());
    }
}

} // namespace
