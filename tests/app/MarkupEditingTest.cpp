#include "AppHarness.h"

#include "app/CaptureFileNames.h"
#include "markup/MarkupCanvasView.h"
#include "preview/PreviewThumbView.h"

#include <QAbstractButton>
#include <QApplication>
#include <QRegularExpression>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

const QImage green = AppHarness::image({60, 40}, qRgb(0, 160, 0));

QStringList files(const QString &folder)
{
    return QDir(folder).entryList({"*.png"}, QDir::Files, QDir::Name);
}

void clickThumbnail()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible() && widget->findChild<PreviewThumbView *>()) {
            QTest::mouseClick(widget->findChild<PreviewThumbView *>(), Qt::LeftButton);
            return;
        }
    }
    ADD_FAILURE() << "no thumbnail";
}

void click(MarkupEditorController &editor, const QString &toolTipOrText)
{
    for (QAbstractButton *button : editor.findChildren<QAbstractButton *>()) {
        if (button->toolTip() == toolTipOrText || button->text() == toolTipOrText) {
            QTest::mouseClick(button, Qt::LeftButton);
            return;
        }
    }
    ADD_FAILURE() << "no button " << toolTipOrText.toStdString();
}

// Closed editors go with deleteLater.
void settle()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

TEST(MarkupEditingTest, TheThumbnailOpensTheEditorOnThePrimaryImageAndDiscardRemovesThatDeliverysFiles)
{
    AppHarness h;
    const QString folder = h.makeSaveFolder();
    h.app->settings().setAlsoCopyToClipboard(true);
    h.app->startFullScreenCapture();
    ASSERT_EQ(files(folder).size(), 2);
    clickThumbnail();
    ASSERT_EQ(h.app->markupEditors().size(), 1u);
    MarkupEditorController &editor = *h.app->markupEditors().front();
    EXPECT_TRUE(editor.isVisible());
    EXPECT_EQ(editor.imageScale(), 2.0);
    EXPECT_EQ(editor.canvas()->document().baseImage(),
              h.fake.screens.captureDisplay(h.fake.screens.displayList.front()));

    // A capture delivered meanwhile keeps its files.
    h.app->deliver({{green, 1.0}});
    ASSERT_EQ(files(folder).size(), 3);
    const QString kept = files(folder).filter(QRegularExpression(R"(\.png$)")).last();
    ASSERT_FALSE(h.fake.clipboard.items.isEmpty());
    click(editor, "Discard this screenshot");
    EXPECT_EQ(files(folder), QStringList{kept}) << "both files of the first capture went";
    EXPECT_TRUE(h.fake.clipboard.items.isEmpty());
    settle();
    EXPECT_TRUE(h.app->markupEditors().empty());
    EXPECT_EQ(h.app->history()->entries().size(), 3u) << "the history keeps its copies";
}

TEST(MarkupEditingTest, DiscardDeletesOnlyWhileTheFolderCanBeHadAndAlwaysClearsAnImageOnTheClipboard)
{
    const struct { const char *what; bool folder; bool fromHistory; bool imageOnClipboard; } cases[] = {
        {"delivered files", true, false, true},
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

TEST(MarkupEditingTest, SaveWritesANewFileInTheFolderElseWhereTheSavePanelSays)
{
    const QRegularExpression editedName(R"(^Screenshot \d{4}-\d\d-\d\d at \d\d\.\d\d\.\d\d\.\d{3}\.png$)");
    {
        AppHarness h;
        const QString folder = h.makeSaveFolder();
        h.app->saveEditedImage(green, 2.0);
        ASSERT_EQ(files(folder).size(), 1);
        EXPECT_TRUE(editedName.match(files(folder).front()).hasMatch());
        const QImage written(QDir(folder).filePath(files(folder).front()));
        EXPECT_EQ(written.convertToFormat(QImage::Format_RGB32), green);
        EXPECT_EQ(AppHarness::dpi(written), 144);
        EXPECT_TRUE(h.fake.dialogs.saveProposals.isEmpty());
        EXPECT_TRUE(h.fake.clipboard.items.isEmpty());
        EXPECT_TRUE(h.app->history()->entries().empty());
    }
    {
        // No folder: the panel proposes the name; cancelled, nothing is written.
        AppHarness h;
        const QString chosen = h.path("Elsewhere.png");
        h.fake.dialogs.saveAnswers = {chosen, std::nullopt};
        h.app->saveEditedImage(green, 1.0);
        h.app->saveEditedImage(green, 1.0);
        ASSERT_EQ(h.fake.dialogs.saveProposals.size(), 2);
        EXPECT_TRUE(editedName.match(h.fake.dialogs.saveProposals[0]).hasMatch());
        EXPECT_EQ(AppHarness::dpi(QImage(chosen)), 72);
        EXPECT_EQ(files(h.path("")).size(), 1);
    }
    {
        // A write into the folder that fails offers the panel.
        AppHarness h;
        const QString folder = h.makeSaveFolder();
        const QDateTime now = QDateTime::currentDateTime();
        for (int ms = 0; ms < 300; ++ms)
            QDir().mkpath(QDir(folder).filePath(captureFileName(captureDateText(now.addMSecs(ms)))));
        h.app->saveEditedImage(green, 1.0);
        EXPECT_EQ(h.fake.dialogs.saveProposals.size(), 1);
        EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty());
    }
}

TEST(MarkupEditingTest, EditorsAreIndependentAndEachClosingReleasesOnlyItself)
{
    AppHarness h;
    const QString folder = h.makeSaveFolder();
    h.app->openMarkupEditor(green, 1.0, {});
    h.app->openMarkupEditor(AppHarness::image({300, 200}, qRgb(9, 9, 9)), 2.0, {});
    ASSERT_EQ(h.app->markupEditors().size(), 2u);
    MarkupEditorController *first = h.app->markupEditors()[0].get();
    MarkupEditorController *second = h.app->markupEditors()[1].get();
    QWidget *canvas = second->canvas();
    QTest::mousePress(canvas, Qt::LeftButton, {}, canvas->rect().center());
    QTest::mouseMove(canvas, canvas->rect().center() + QPoint(40, 30));
    QTest::mouseRelease(canvas, Qt::LeftButton, {}, canvas->rect().center() + QPoint(40, 30));
    QTest::keyClick(first->canvas(), Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(second->canvas()->document().annotations().size(), 1u);

    const QPointer<MarkupEditorController> closed(second);
    click(*second, "Save");
    click(*second, "Done");
    settle();
    ASSERT_EQ(h.app->markupEditors().size(), 1u);
    EXPECT_EQ(h.app->markupEditors()[0].get(), first);
    EXPECT_TRUE(closed.isNull()) << "a closed editor is deleted";
    ASSERT_EQ(files(folder).size(), 1);
    const QImage saved(QDir(folder).filePath(files(folder).front()));
    EXPECT_EQ(saved.size(), QSize(300, 200));
    EXPECT_EQ(AppHarness::dpi(saved), 144);
    first->close();
    settle();
    EXPECT_TRUE(h.app->markupEditors().empty());
}

} // namespace
