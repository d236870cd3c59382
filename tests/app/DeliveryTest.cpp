#include "AppHarness.h"

#include "app/CaptureFileNames.h"
#include "markup/MarkupCanvasView.h"
#include "markup/MarkupEditorController.h"
#include "preview/PreviewThumbView.h"

#include <QApplication>
#include <QRegularExpression>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

const QImage red = AppHarness::image({40, 30}, qRgb(255, 0, 0));
const QImage blue = AppHarness::image({20, 10}, qRgb(0, 0, 255));

PreviewThumbView *visibleThumbnail()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible() && widget->findChild<PreviewThumbView *>())
            return widget->findChild<PreviewThumbView *>();
    }
    return nullptr;
}

// A full-screen capture delivers one image per display, in display order.
TEST(DeliveryTest, EachModeSendsTheCapturesWhereTheyBelong)
{
    enum Folder { usable, unset, trashed };
    struct Case {
        const char *mode;
        bool clipboardOnly, alsoCopy;
        Folder folder;
        int onClipboard, saved;
    };
    for (const Case &c : {Case{"clipboard only", true, false, usable, 2, 0}, Case{"folder", false, true, usable, 1, 2},
                          Case{"folder, no copy", false, false, usable, 0, 2}, Case{"unset", false, true, unset, 2, 0},
                          Case{"trashed", false, true, trashed, 2, 0}, Case{"no copy", false, false, unset, 0, 0}}) {
        SCOPED_TRACE(c.mode);
        AppHarness h;
        const QString folder = h.makeSaveFolder();
        if (c.folder == unset)
            h.app->settings().setSaveFolderBookmark({});
        if (c.folder == trashed)
            h.fake.bookmarks.trashed << folder;
        h.app->settings().setCopyToClipboard(c.clipboardOnly);
        h.app->settings().setAlsoCopyToClipboard(c.alsoCopy);
        h.app->settings().setOpenAfterCapture(true);
        h.app->startFullScreenCapture();
        QList<QImage> screens;
        for (const DisplayInfo &display : h.fake.screens.displayList)
            screens << h.fake.screens.captureDisplay(display);
        ASSERT_EQ(h.fake.clipboard.items.size(), c.onClipboard);
        for (int i = 0; i < c.onClipboard; ++i)
            EXPECT_EQ(QImage::fromData(h.fake.clipboard.items[i]).convertToFormat(QImage::Format_RGB32), screens[i]);
        const QStringList &opened = h.fake.desktop.openedFiles;  // in the order saved
        ASSERT_EQ(opened.size(), c.saved) << "open after saving opens what was saved, nothing else";
        EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), c.saved);
        for (int i = 0; i < c.saved; ++i) {
            const QImage saved(opened[i]);
            EXPECT_EQ(saved.convertToFormat(QImage::Format_RGB32), screens[i]);
            EXPECT_EQ(AppHarness::dpi(saved), i == 0 ? 144 : 72);
        }
        if (c.saved) {
            const QString name = QFileInfo(opened[0]).fileName();
            const QRegularExpression pattern(R"(^Screenshot \d{4}-\d\d-\d\d at \d\d\.\d\d\.\d\d\.\d{3}\.png$)");
            EXPECT_TRUE(pattern.match(name).hasMatch()) << name.toStdString();
            EXPECT_EQ(QFileInfo(opened[1]).fileName(), name.chopped(4) + " (2).png");
        }
        const auto history = h.app->history()->entries();
        EXPECT_EQ(history.size(), 2u) << "captures of one millisecond must not overwrite each other";
        EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty());
        // The thumbnail opens the primary image in an editor, whose discard removes this delivery's
        // files, not those of one delivered meanwhile, and the image on the clipboard; the history keeps its copies.
        ASSERT_NE(visibleThumbnail(), nullptr);
        QTest::mouseClick(visibleThumbnail(), Qt::LeftButton);
        ASSERT_EQ(h.app->markupEditors().size(), 1u);
        EXPECT_EQ(h.app->markupEditors().front()->canvas()->document().baseImage(), screens[0]);
        h.app->deliver({{red, 1.0}});
        QStringList kept;
        for (const QString &path : opened.mid(c.saved))
            kept << QFileInfo(path).fileName();
        h.app->markupEditors().front()->discardAction();
        EXPECT_EQ(QDir(folder).entryList(QDir::Files), kept);
        EXPECT_TRUE(h.fake.clipboard.items.isEmpty());
        EXPECT_EQ(h.app->history()->entries().size(), 3u);
    }
}

// Folders standing where the files should go make those writes fail.
TEST(DeliveryTest, AFailedWriteAlertsWithTheCountAndTheRestIsStillDelivered)
{
    for (const auto &[blocked, count] :
         {std::pair{QList<int>{2}, " 1 of 2 files were saved."}, std::pair{QList<int>{1, 2}, ""}}) {
        AppHarness h;
        const QString folder = h.makeSaveFolder();
        // Folders stand where the names of every millisecond from now until a
        // second after the last one is made would go, however slow this runs.
        QDateTime moment = QDateTime::currentDateTime();
        for (int made = 0; moment < QDateTime::currentDateTime().addMSecs(1000); ++made) {
            ASSERT_LT(made, 100000) << "the folders cannot be made faster than time passes";
            for (int position : blocked)
                QDir().mkpath(QDir(folder).filePath(captureFileName(captureDateText(moment), position)));
            moment = moment.addMSecs(1);
        }
        h.app->deliver({{red, 1.0}, {blue, 1.0}});
        ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
        EXPECT_EQ(h.fake.dialogs.alerts[0].message, "Could Not Save the Screenshot");
        const QString informative = h.fake.dialogs.alerts[0].informative;
        EXPECT_TRUE(informative.endsWith("\nThe screenshot is still on the clipboard." + QString(count)))
            << informative.toStdString();
        EXPECT_EQ(h.fake.clipboard.items.size(), 1);
        EXPECT_EQ(h.app->history()->entries().size(), 2u);
    }
}

// Display 1 has 1600 x 1200 pixels: a capture up to twice that stays decoded for
// a quick editor; a taller one is kept only as PNG and decoded on the click,
// also beyond the 128 MB a PNG reader takes unless told.
TEST(DeliveryTest, TheThumbnailKeepsTheFullPixelsOnlyOfCapturesNoLargerThanTwoDisplays)
{
    for (const auto &[height, kept] : {std::pair{2400, true}, std::pair{2401, false}, std::pair{21000, false}}) {
        SCOPED_TRACE(height);
        AppHarness h;
        QImage capture(1600, height, QImage::Format_RGB32);
        for (int y = 0; y < height; ++y)
            std::fill_n(reinterpret_cast<QRgb *>(capture.scanLine(y)), capture.width(), qRgb(y & 255, y >> 8, 90));
        h.app->deliver({{capture, 2.0}});
        EXPECT_EQ(!capture.isDetached(), kept);
        ASSERT_NE(visibleThumbnail(), nullptr);
        QTest::mouseClick(visibleThumbnail(), Qt::LeftButton);
        ASSERT_EQ(h.app->markupEditors().size(), 1u);
        EXPECT_EQ(h.app->markupEditors().front()->canvas()->document().baseImage().convertToFormat(QImage::Format_RGB32),
                  capture);
        EXPECT_EQ(h.app->markupEditors().front()->imageScale(), 2.0);
    }
}

} // namespace
