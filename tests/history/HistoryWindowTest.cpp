#include "history/HistoryItemDelegate.h"
#include "history/HistoryWindowController.h"
#include "image/PngEncoder.h"
#include "platform/fake/FakePlatform.h"

#include "TestImages.h"

#include <QDir>
#include <QFile>
#include <QImageReader>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QMenu>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace pixmora {
namespace {

using Entry = CaptureHistoryStore::Entry;
const QDateTime noon(QDate(2026, 11, 16), QTime(12, 0), Qt::UTC);

QImage filled(QSize size, QColor colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

QImage thumbnailAt(const HistoryWindowController &controller, int row)
{
    return controller.grid()->item(row)->data(Qt::DecorationRole).value<QImage>();
}

bool settled(const HistoryWindowController &controller)
{
    return QTest::qWaitFor([&] { return controller.thumbnails().idle(); }, 10000);
}

TEST(HistoryTextsTest, FooterClearQuestionAndTheScaleReadFromTheFile)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates), german(QLocale::German, QLocale::Germany);
    const struct { qsizetype count; qint64 bytes; QLocale locale; const char *footer; } cases[] = {
        {0, 0, english, "Captures are kept here automatically — the last 60."},
        {1, 2'100'000, english, "1 capture · 2.1 MB · kept on this computer only"},
        {2, 12'400'000, german, "2 captures · 12,4 MB · kept on this computer only"},
        {3, 900, english, "3 captures · 900 bytes · kept on this computer only"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(HistoryWindowController::footerText(c.count, c.bytes, c.locale).toStdString(), c.footer);
    EXPECT_EQ(HistoryWindowController::clearQuestion(1),
              "This deletes the 1 capture kept inside Pixmora. "
              "Screenshots you already saved to your own folder are not touched.");
    EXPECT_TRUE(
        HistoryWindowController::clearQuestion(5).startsWith("This deletes the 5 captures kept inside Pixmora."));

    // The file's resolution over 72 dpi, never under 1.
    const QImage image = filled({4, 3}, Qt::red);
    QByteArray unmarked = encodePng(image, 2);
    unmarked.remove(unmarked.indexOf("pHYs") - 4, 4 + 4 + 9 + 4);
    const struct { QByteArray png; double scale; } scales[] = {
        {encodePng(image, 2), 2}, {encodePng(image, 3), 3}, {encodePng(image, 0.5), 1},  // 36 dpi
        {unmarked, 1}, {"not a png at all", 1},
    };
    for (const auto &c : scales)
        EXPECT_EQ(HistoryWindowController::scaleOfPng(c.png), c.scale) << c.png.size();
}

// Large captures' thumbnails are readied on disk shortly after start and for
// each capture taken while the window is hidden.
// A deleted capture's goes at once, and none is shown for another version of
// its file, not even one of the same size and time.
TEST(HistoryThumbnailCacheTest, ReadiedInTheBackgroundAndNeverShownForAnotherVersionOfTheFile)
{
    QTemporaryDir root;
    CaptureHistoryStore store(root.filePath("History"));
    const QString cache = root.filePath("Thumbnails");
    const QByteArray large = encodePng(test::noise(600, 400), 1);
    ASSERT_GE(large.size(), HistoryThumbnailLoader::diskCacheFromBytes);
    const QString first = *store.add(large, noon);
    ASSERT_TRUE(store.add(encodePng(filled({600, 400}, Qt::red), 1), noon.addSecs(1)));  // small: decodes fast
    FakeClipboard clipboard;
    FakeDialogs dialogs;
    HistoryWindowController controller(store, clipboard, dialogs, {}, cache);
    // Not the files being written, which are renamed into place when complete.
    const auto cached = [&] { return QDir(cache).entryList({"*.png"}, QDir::Files); };
    ASSERT_TRUE(QTest::qWaitFor([&] { return cached().size() == 1; }, 10000)) << "the history found at start";
    EXPECT_EQ(QFileInfo(cache).permissions() & 0x0077, 0) << "only the user reads it";
    ASSERT_TRUE(store.add(large, noon.addSecs(2)));
    ASSERT_TRUE(QTest::qWaitFor([&] { return cached().size() == 2; }, 10000));
    store.remove(store.entries().front());
    ASSERT_EQ(cached().size(), 1);

    ASSERT_TRUE(filled({90, 60}, Qt::green).save(cache + '/' + cached()[0]));
    controller.showWindow();
    ASSERT_TRUE(settled(controller));
    EXPECT_EQ(QColor(thumbnailAt(controller, 1).pixel(0, 0)), QColor(Qt::green)) << "taken from disk";
    const auto stamp = HistoryThumbnailLoader::stampOf(first);
    QFile::remove(first);
    QFile file(first);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(large) == large.size());
    ASSERT_TRUE(file.setFileTime(QDateTime::fromMSecsSinceEpoch(stamp->modified), QFileDevice::FileModificationTime));
    file.close();
    controller.reload();
    EXPECT_TRUE(thumbnailAt(controller, 1).isNull()) << "the old one is not shown for the new file";
    ASSERT_TRUE(settled(controller));
    EXPECT_NE(QColor(thumbnailAt(controller, 1).pixel(0, 0)), QColor(Qt::green)) << "nor taken from disk";
}

class HistoryWindowTest : public ::testing::Test {
protected:
    struct Opened { QImage image; double scale; QString path; };

    QTemporaryDir root;
    CaptureHistoryStore store{root.filePath("History")};
    FakeClipboard clipboard;
    FakeDialogs dialogs;
    std::vector<Opened> opened;
    HistoryWindowController controller{store, clipboard, dialogs,
                                       [this](const QImage &image, double scale, const QString &path) {
                                           opened.push_back({image, scale, path});
                                       }};

    QString add(QSize size, QColor colour, double scale, int second)
    {
        return *store.add(encodePng(filled(size, colour), scale), noon.addSecs(second));
    }
    QListWidget &grid() { return *controller.grid(); }
    QString footer() { return controller.footerLabel()->text(); }
    QImage thumbnailAt(int row) { return pixmora::thumbnailAt(controller, row); }
};

// A scrolling capture of 24000 rows takes more memory decoded than an image
// reader allows unless told. A file that vanished or does not decode opens,
// copies and saves nothing, and nothing breaks.
TEST_F(HistoryWindowTest, WhatDecodesOpensAndCopiesHoweverTallAndNothingElseDoes)
{
    QImageReader::setAllocationLimit(128);  // the process-wide default, which any reader may have raised
    const QString tall = *store.add(encodePng(filled({3200, 24000}, Qt::black), 1), noon);
    const QString corrupt = add({30, 20}, Qt::red, 2, 2);
    const QString vanished = add({30, 20}, Qt::red, 2, 3);
    QFile file(corrupt);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("\x89PNG garbage") > 0);
    file.close();
    const std::vector<Entry> entries = store.entries();
    ASSERT_TRUE(QFile::remove(vanished));  // after it was listed

    dialogs.saveAnswers = {root.filePath("copy.png")};
    for (const Entry &entry : entries) {
        controller.open(entry);
        controller.copy(entry);
        controller.saveCopy(entry);
    }
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].path, tall);
    EXPECT_EQ(opened[0].image.size(), QSize(3200, 24000));
    EXPECT_EQ(clipboard.items.size(), 1);
    EXPECT_EQ(dialogs.saveProposals.size(), 1);
    EXPECT_TRUE(dialogs.alerts.isEmpty());
    controller.showWindow();
    ASSERT_TRUE(settled(controller));
    EXPECT_TRUE(thumbnailAt(0).isNull());
    EXPECT_FALSE(thumbnailAt(1).isNull());
}

// Thumbnails are decoded at the size a tile shows them; closing lets go. Click
// and context menu reach the actions; Delete asks nothing, Clear asks first,
// and the grid and footer follow at once.
TEST_F(HistoryWindowTest, ShowsTheHistoryNewestFirstAndOpensCopiesSavesAndDeletesFromIt)
{
    controller.showWindow();
    EXPECT_TRUE(controller.emptyLabel()->isVisibleTo(controller.window()));
    EXPECT_FALSE(grid().isVisibleTo(controller.window()));
    const QString older = add({960, 540}, Qt::red, 2, 1);
    const QString newer = add({40, 300}, Qt::blue, 1, 2);
    ASSERT_EQ(grid().count(), 2) << "an open window shows a new capture at once";
    EXPECT_FALSE(controller.emptyLabel()->isVisibleTo(controller.window()));
    ASSERT_TRUE(settled(controller));
    const QRect box = HistoryItemDelegate::thumbnailBox(HistoryItemDelegate::captionFont(grid().font()));
    const QImage tall = thumbnailAt(0), wide = thumbnailAt(1);
    EXPECT_EQ(tall.height(), box.height()) << "a small capture is enlarged to fit";
    EXPECT_EQ(wide.width(), box.width());
    EXPECT_NEAR(wide.height(), box.width() * 540 / 960, 1);
    controller.window()->close();
    EXPECT_EQ(grid().count(), 0);
    EXPECT_TRUE(controller.thumbnails().thumbnail({older, *HistoryThumbnailLoader::stampOf(older)}).isNull());

    controller.showWindow();
    QTest::mouseClick(grid().viewport(), Qt::LeftButton, {}, grid().visualItemRect(grid().item(1)).center());
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].path, older);
    EXPECT_EQ(opened[0].scale, 2);
    EXPECT_EQ(opened[0].image.size(), QSize(960, 540));

    std::unique_ptr<QMenu> menu = controller.contextMenu(controller.entries()[1]);
    menu->actions()[1]->trigger();
    QFile olderFile(older);
    ASSERT_TRUE(olderFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(clipboard.items, QList<QByteArray>{olderFile.readAll()}) << "the stored PNG itself";
    const QString copy = root.filePath("copy.png");
    dialogs.saveAnswers = {copy};
    menu->actions()[2]->trigger();
    EXPECT_EQ(dialogs.saveProposals, QStringList{QFileInfo(older).fileName()});
    QFile copied(copy);
    ASSERT_TRUE(copied.open(QIODevice::ReadOnly));
    EXPECT_EQ(copied.readAll(), clipboard.items.value(0));

    menu->actions()[4]->trigger();
    EXPECT_FALSE(QFile::exists(older));
    ASSERT_EQ(grid().count(), 1);
    EXPECT_EQ(footer(), HistoryWindowController::footerText(1, QFileInfo(newer).size(), QLocale::system()));

    add({20, 10}, Qt::green, 1, 3);
    grid().setCurrentRow(0);
    QTest::keyClick(&grid(), Qt::Key_Delete);
    EXPECT_EQ(grid().count(), 1);
    EXPECT_TRUE(QFile::exists(newer)) << "Delete took the selected, newest one";

    dialogs.alertAnswers = {1, 0};
    controller.clearAll();  // cancelled
    ASSERT_EQ(dialogs.alerts.size(), 1);
    EXPECT_TRUE(QFile::exists(newer));
    controller.clearAll();
    EXPECT_FALSE(QFile::exists(newer));
    EXPECT_EQ(grid().count(), 0);
    EXPECT_EQ(footer(), HistoryWindowController::footerText(0, 0, QLocale::system()));
    controller.clearAll();
    EXPECT_EQ(dialogs.alerts.size(), 2) << "nothing to clear, nothing asked";
}

} // namespace
} // namespace pixmora
