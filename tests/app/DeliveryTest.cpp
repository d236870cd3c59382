#include "AppHarness.h"

#include "FileSizeLimit.h"
#include "TestImages.h"
#include "image/PngEncoder.h"
#include "markup/MarkupCanvasView.h"
#include "markup/MarkupEditorController.h"
#include "preview/PreviewThumbView.h"

#include <QApplication>
#include <QImageReader>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

// A full-screen capture delivers one image per display, in display order.
TEST(DeliveryTest, EachModeSendsTheCapturesWhereTheyBelong)
{
    const struct {
        const char *mode;
        bool clipboardOnly, alsoCopy, folderSet;
        int onClipboard, saved;
    } cases[] = {{"clipboard only", true, false, true, 2, 0}, {"folder", false, true, true, 1, 2},
                 {"no folder", false, true, false, 2, 0},      {"no copy", false, false, false, 0, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode);
        AppHarness h;
        const QString folder = h.makeSaveFolder();
        if (!c.folderSet)
            h.app->settings().setSaveFolderBookmark({});
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
        EXPECT_EQ(h.app->history()->entries().size(), 2u) << "captures of one millisecond must not overwrite each other";
        EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty());
    }
}

// On a full disk only small files can still be written: one alert names the
// file and the reason and counts what was saved; the clipboard holds the capture.
TEST(DeliveryTest, AFailedWriteAlertsWithTheCountAndTheRestIsStillDelivered)
{
    const QImage small = AppHarness::image({40, 30}, qRgb(255, 0, 0)), large = noise(300, 200);
    for (const auto &[second, count] : {std::pair{small, " 1 of 2 files were saved."}, std::pair{large, ""}}) {
        AppHarness h;
        h.makeSaveFolder();
        {
            const FileSizeLimit fullDisk(4096);
            h.app->deliver({{large, 1.0}, {second, 1.0}});
        }
        ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
        EXPECT_EQ(h.fake.dialogs.alerts[0].message, "Could Not Save the Screenshot");
        const QString informative = h.fake.dialogs.alerts[0].informative;
        EXPECT_TRUE(informative.startsWith("Could not write \"Screenshot ") &&
                    informative.endsWith(".png\": File too large.\nThe screenshot is still on the clipboard." + QString(count)))
            << informative.toStdString();
        ASSERT_EQ(h.fake.clipboard.items.size(), 1);
        EXPECT_EQ(QImage::fromData(h.fake.clipboard.items[0]).convertToFormat(QImage::Format_RGB32), large);
    }
}

PreviewThumbView *visibleThumbnail()
{
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (auto *thumbnail = widget->isVisible() ? widget->findChild<PreviewThumbView *>() : nullptr)
            return thumbnail;
    return nullptr;
}

// Display 1 has 1600 x 1200 pixels: a capture up to twice that stays decoded for
// a quick editor; a taller one is kept only as PNG and decoded on the click,
// also beyond the 128 MB a PNG reader takes unless told.
TEST(DeliveryTest, TheThumbnailKeepsTheFullPixelsOnlyOfCapturesNoLargerThanTwoDisplays)
{
    QImageReader::setAllocationLimit(128);  // the process-wide default, which an earlier decode may have raised
    for (const auto &[height, kept] : {std::pair{2400, true}, std::pair{21000, false}}) {
        SCOPED_TRACE(height);
        AppHarness h;
        QImage capture(1600, height, QImage::Format_RGB32);
        for (int y = 0; y < height; ++y)
            std::fill_n(reinterpret_cast<QRgb *>(capture.scanLine(y)), capture.width(), qRgb(y & 255, y >> 8, 90));
        h.app->deliver({{capture, 2.0}});
        EXPECT_EQ(!capture.isDetached(), kept);
        QTest::mouseClick(visibleThumbnail(), Qt::LeftButton);
        ASSERT_EQ(h.app->markupEditors().size(), 1u);
        const MarkupEditorController *editor = h.app->markupEditors().front().get();
        EXPECT_EQ(editor->canvas()->document().baseImage().convertToFormat(QImage::Format_RGB32), capture);
        EXPECT_EQ(editor->imageScale(), 2.0);
    }
}

// A display encoded as it was read comes as PNG alone: its thumbnail is the
// one its pixels would get, reduced or, when small, whole, and a click edits
// the pixels in full.
TEST(DeliveryTest, ACaptureDeliveredAsPngAloneGetsTheSameThumbnailAndIsEditedInFull)
{
    for (const QSize size : {QSize(1600, 1200), QSize(120, 80)}) {
        SCOPED_TRACE(size.width());
        const QImage capture = noise(size.width(), size.height());
        AppHarness h;
        h.app->deliver({{capture, 2.0}});
        const auto look = [](const PreviewThumbView *view) { return std::pair(view->size(), view->image().size()); };
        const auto fromPixels = look(visibleThumbnail());
        h.app->deliver({{QImage(), 2.0, encodePng(capture, 2.0)}});
        PreviewThumbView *thumbnail = visibleThumbnail();
        EXPECT_EQ(look(thumbnail), fromPixels);
        QTest::mouseClick(thumbnail, Qt::LeftButton);
        ASSERT_EQ(h.app->markupEditors().size(), 1u);
        const MarkupEditorController *editor = h.app->markupEditors().front().get();
        EXPECT_EQ(editor->canvas()->document().baseImage().convertToFormat(QImage::Format_RGB32), capture);
        EXPECT_EQ(editor->imageScale(), 2.0);
    }
}

} // namespace
