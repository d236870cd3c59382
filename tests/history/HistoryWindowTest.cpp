#include "history/HistoryItemDelegate.h"
#include "history/HistoryWindowController.h"
#include "image/PngEncoder.h"
#include "platform/fake/FakePlatform.h"

#include "TestImages.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QMenu>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <gtest/gtest.h>
#include <zlib.h>

#include <functional>

namespace pixmora {
namespace {

using Entry = CaptureHistoryStore::Entry;
const QDateTime noon(QDate(2026, 11, 16), QTime(12, 0), Qt::UTC);

bool waitUntil(const std::function<bool()> &condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return condition();
}

QImage filled(QSize size, QColor colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

// A black 8-bit RGB PNG without a resolution, deflated row by row, so that
// a tall one costs no full-size image to make.
QByteArray blackPng(quint32 width, quint32 height)
{
    const auto chunk = [](QByteArray &png, const char *type, const QByteArray &data) {
        const QByteArray typed = type + data;
        char number[4];
        qToBigEndian<quint32>(quint32(data.size()), number);
        png.append(number, 4).append(typed);
        qToBigEndian<quint32>(quint32(crc32(0, reinterpret_cast<const Bytef *>(typed.data()), uInt(typed.size()))),
                              number);
        png.append(number, 4);
    };
    QByteArray header(13, 0);
    qToBigEndian<quint32>(width, header.data());
    qToBigEndian<quint32>(height, header.data() + 4);
    header[8] = 8;  // bits
    header[9] = 2;  // RGB
    z_stream stream{};
    deflateInit(&stream, 1);
    const QByteArray row(qsizetype(width) * 3 + 1, 0);
    QByteArray data(qsizetype(deflateBound(&stream, uLong(row.size()) * height)), 0);
    stream.next_out = reinterpret_cast<Bytef *>(data.data());
    stream.avail_out = uInt(data.size());
    for (quint32 y = 0; y < height; ++y) {
        stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(row.data()));
        stream.avail_in = uInt(row.size());
        deflate(&stream, y + 1 == height ? Z_FINISH : Z_NO_FLUSH);
    }
    data.truncate(qsizetype(stream.total_out));
    deflateEnd(&stream);
    QByteArray png("\x89PNG\r\n\x1a\n");
    chunk(png, "IHDR", header);
    chunk(png, "IDAT", data);
    chunk(png, "IEND", {});
    return png;
}

TEST(HistoryTextsTest, FooterAndClearQuestionCountAndMeasureInTheLocalesStyle)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates), german(QLocale::German, QLocale::Germany);
    const struct {
        qsizetype count;
        qint64 bytes;
        QLocale locale;
        const char *footer;
    } cases[] = {
        {0, 0, english, "Captures are kept here automatically — the last 60."},
        {1, 2'100'000, english, "1 capture · 2.1 MB · kept on this computer only"},
        {2, 12'400'000, english, "2 captures · 12.4 MB · kept on this computer only"},
        {2, 12'400'000, german, "2 captures · 12,4 MB · kept on this computer only"},
        {60, 314'572'800, english, "60 captures · 314.6 MB · kept on this computer only"},
        {3, 900, english, "3 captures · 900 bytes · kept on this computer only"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(HistoryWindowController::footerText(c.count, c.bytes, c.locale).toStdString(), c.footer);
    EXPECT_EQ(HistoryWindowController::clearQuestion(1),
              "This deletes the 1 capture kept inside Pixmora. "
              "Screenshots you already saved to your own folder are not touched.");
    EXPECT_TRUE(
        HistoryWindowController::clearQuestion(5).startsWith("This deletes the 5 captures kept inside Pixmora."));
}

// The scale a capture opens with is its file's resolution over 72 dpi, never under 1.
TEST(HistoryTextsTest, ScaleComesFromTheFilesResolution)
{
    const QImage image = filled({4, 3}, Qt::red);
    const struct {
        QByteArray png;
        double scale;
    } cases[] = {
        {encodePng(image, 2), 2}, {encodePng(image, 3), 3}, {encodePng(image, 0.5), 1},  // 36 dpi
        {blackPng(4, 3), 1}, {"not a png at all", 1}, {QByteArray(), 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(HistoryWindowController::scaleOfPng(c.png), c.scale) << c.png.size();
}

// The next opening finds large captures' thumbnails on disk, but never one
// of another version of the file.
TEST(HistoryThumbnailLoaderTest, KeepsLargeThumbnailsOnDiskForExactlyTheirFile)
{
    QTemporaryDir root;
    const QString cache = root.filePath("Thumbnails");
    const QString large = root.filePath("large.png"), small = root.filePath("small.png");
    const auto write = [](const QString &path, const QByteArray &png) {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(png) == png.size();
    };
    ASSERT_TRUE(write(large, encodePng(test::noise(600, 400), 1)));
    ASSERT_TRUE(write(small, encodePng(filled({600, 400}, Qt::red), 1)));
    ASSERT_GE(QFileInfo(large).size(), HistoryThumbnailLoader::diskCacheFromBytes);
    const auto files = [&] {
        return std::vector<HistoryThumbnailLoader::File>{{large, *HistoryThumbnailLoader::stampOf(large)},
                                                         {small, *HistoryThumbnailLoader::stampOf(small)}};
    };
    const auto load = [&](const HistoryThumbnailLoader::File &file) {
        HistoryThumbnailLoader loader({90, 60}, cache, {});
        loader.request({file}, 1);
        EXPECT_TRUE(waitUntil([&] { return loader.idle(); }));
        return loader.thumbnail(file);
    };
    EXPECT_EQ(load(files()[0]).size(), QSize(90, 60));
    EXPECT_EQ(QColor(load(files()[1]).pixel(0, 0)), QColor(Qt::red));
    const QStringList kept = QDir(cache).entryList(QDir::Files);
    ASSERT_EQ(kept.size(), 1) << "a small file decodes fast enough";
    EXPECT_EQ(QFileInfo(cache).permissions() & 0x0077, 0) << "only the user reads it";

    ASSERT_TRUE(filled({90, 60}, Qt::green).save(cache + '/' + kept[0]));
    EXPECT_EQ(QColor(load(files()[0]).pixel(0, 0)), QColor(Qt::green)) << "taken from disk";
    ASSERT_TRUE(write(large, encodePng(test::noise(600, 400).mirrored(), 1)));
    EXPECT_NE(QColor(load(files()[0]).pixel(0, 0)), QColor(Qt::green)) << "the file changed";
    EXPECT_EQ(QDir(cache).entryList(QDir::Files).size(), 2);
}

// Shortly after start the history found there is readied on disk, then each
// capture taken while the window is hidden; a deleted capture's thumbnail
// goes at once.
TEST(HistoryWindowCacheTest, ReadiesThumbnailsOnDiskInTheBackgroundAndForgetsDeletedOnes)
{
    QTemporaryDir root;
    CaptureHistoryStore store(root.filePath("History"));
    const QString cache = root.filePath("Thumbnails");
    const QByteArray large = encodePng(test::noise(600, 400), 1);
    ASSERT_TRUE(store.add(large, noon));
    FakeClipboard clipboard;
    FakeDialogs dialogs;
    HistoryWindowController controller(store, clipboard, dialogs, {}, cache);
    const auto cached = [&] { return QDir(cache).entryList(QDir::Files).size(); };
    ASSERT_TRUE(waitUntil([&] { return cached() == 1; })) << "the history found at start";
    controller.pauseBackgroundWork(true);
    ASSERT_TRUE(store.add(large, noon.addSecs(1)));
    ASSERT_TRUE(store.add(large, noon.addSecs(2)));
    QTest::qWait(300);
    EXPECT_EQ(cached(), 1) << "nothing while a capture runs";
    controller.pauseBackgroundWork(false);
    ASSERT_TRUE(waitUntil([&] { return cached() == 3; }));
    store.remove(store.entries().front());
    EXPECT_EQ(cached(), 2);
}

class HistoryWindowTest : public ::testing::Test {
protected:
    struct Opened {
        QImage image;
        double scale;
        QString path;
    };

    QTemporaryDir root;
    QString folder = root.filePath("History");
    CaptureHistoryStore store{folder};
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
    QImage thumbnailAt(int row) { return grid().item(row)->data(Qt::DecorationRole).value<QImage>(); }
    bool thumbnailsSettled() { return controller.thumbnails().idle(); }
    QPoint centreOf(int row) { return grid().visualItemRect(grid().item(row)).center(); }
};

// Decoded off the main thread at the size a tile shows them; closing lets go.
TEST_F(HistoryWindowTest, ShowsTheHistoryNewestFirstWithThumbnailsAndLetsGoOnClose)
{
    controller.showWindow();
    EXPECT_TRUE(controller.window()->isVisible());
    EXPECT_EQ(controller.window()->windowTitle(), "Recent Captures");
    EXPECT_TRUE(controller.emptyLabel()->isVisibleTo(controller.window()));
    EXPECT_FALSE(grid().isVisibleTo(controller.window()));
    EXPECT_EQ(footer(), "Captures are kept here automatically — the last 60.");

    add({3840, 2160}, Qt::red, 2, 1);
    add({40, 300}, Qt::blue, 1, 2);
    ASSERT_EQ(grid().count(), 2) << "an open window shows a new capture at once";
    EXPECT_FALSE(controller.emptyLabel()->isVisibleTo(controller.window()));
    const qint64 bytes = store.entries()[0].bytes + store.entries()[1].bytes;
    EXPECT_EQ(footer(), HistoryWindowController::footerText(2, bytes, QLocale::system()));
    EXPECT_EQ(grid().item(0)->text(), QLocale::system().toString(noon.addSecs(2).toLocalTime(), QLocale::ShortFormat));
    EXPECT_EQ(grid().item(0)->toolTip(), "Click to edit · right-click for more");

    ASSERT_TRUE(waitUntil([&] { return thumbnailsSettled(); }));
    const QRect box = HistoryItemDelegate::thumbnailBox(HistoryItemDelegate::captionFont(grid().font()));
    const QImage tall = thumbnailAt(0), wide = thumbnailAt(1);
    EXPECT_EQ(tall.height(), box.height()) << "a small capture is enlarged to fit";
    EXPECT_EQ(wide.width(), box.width());
    EXPECT_NEAR(wide.height(), box.width() * 2160 / 3840, 1);
    EXPECT_EQ(QColor(wide.pixel(wide.width() / 2, wide.height() / 2)), QColor(Qt::red));
    EXPECT_EQ(QColor(tall.pixel(tall.width() / 2, tall.height() / 2)), QColor(Qt::blue));

    controller.window()->close();
    EXPECT_EQ(grid().count(), 0);
    const QString first = store.entries()[0].path;
    EXPECT_TRUE(controller.thumbnails().thumbnail({first, *HistoryThumbnailLoader::stampOf(first)}).isNull());
    add({10, 10}, Qt::green, 1, 3);
    EXPECT_EQ(grid().count(), 0) << "a hidden window waits for its next opening";
    controller.showWindow();
    EXPECT_EQ(grid().count(), 3);
}

// A file replaced under the same name is decoded again, however fast it changed.
TEST_F(HistoryWindowTest, AThumbnailBelongsToOneVersionOfItsFile)
{
    const QString path = add({300, 200}, Qt::red, 1, 1);
    controller.showWindow();
    ASSERT_TRUE(waitUntil([&] { return !thumbnailAt(0).isNull(); }));
    EXPECT_EQ(QColor(thumbnailAt(0).pixel(5, 5)), QColor(Qt::red));
    const auto before = HistoryThumbnailLoader::stampOf(path);
    const QByteArray blue = encodePng(filled({300, 200}, Qt::blue), 1);
    ASSERT_EQ(blue.size(), QFileInfo(path).size()) << "same size, so only the time tells them apart";
    QFile::remove(path);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(blue) == blue.size());
    ASSERT_TRUE(file.setFileTime(QDateTime::fromMSecsSinceEpoch(before->modified), QFileDevice::FileModificationTime));
    file.close();
    controller.reload();
    EXPECT_TRUE(thumbnailAt(0).isNull()) << "the red one is not shown for the blue file";
    ASSERT_TRUE(waitUntil([&] { return !thumbnailAt(0).isNull(); }));
    EXPECT_EQ(QColor(thumbnailAt(0).pixel(5, 5)), QColor(Qt::blue));
}

// Nothing opens, copies or saves from a file that vanished or does not decode, and nothing breaks.
TEST_F(HistoryWindowTest, VanishedAndCorruptFilesAreQuietlyLeftAlone)
{
    const QString good = add({30, 20}, Qt::red, 2, 1);
    const QString corrupt = add({30, 20}, Qt::red, 2, 2);
    const QString vanished = add({30, 20}, Qt::red, 2, 3);
    QFile file(corrupt);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("\x89PNG garbage") > 0);
    file.close();
    controller.showWindow();
    ASSERT_TRUE(waitUntil([&] { return thumbnailsSettled(); }));
    EXPECT_TRUE(thumbnailAt(1).isNull());
    EXPECT_FALSE(thumbnailAt(2).isNull());
    ASSERT_TRUE(QFile::remove(vanished));  // behind the open window's back

    dialogs.saveAnswers = {root.filePath("copy.png")};
    for (const Entry &entry : std::vector<Entry>(controller.entries().begin(), controller.entries().begin() + 2)) {
        controller.open(entry);
        controller.copy(entry);
        controller.saveCopy(entry);
    }
    EXPECT_TRUE(opened.empty());
    EXPECT_EQ(clipboard.writeCount, 0);
    EXPECT_TRUE(dialogs.saveProposals.isEmpty());
    EXPECT_TRUE(dialogs.alerts.isEmpty());
    controller.open(controller.entries()[2]);
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].path, good);
}

// A scrolling capture of 24000 rows by 3200 pixels takes 307 MB decoded.
TEST_F(HistoryWindowTest, TheTallestCapturesOpenAndCopy)
{
    ASSERT_TRUE(store.add(blackPng(3200, 24000), noon));
    controller.open(store.entries()[0]);
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].image.size(), QSize(3200, 24000));
    opened.clear();
    controller.copy(store.entries()[0]);
    EXPECT_EQ(clipboard.items.size(), 1);
}

// Click, context menu and keyboard all reach the same actions; Delete asks
// nothing, Clear asks first, and the grid and footer follow at once.
TEST_F(HistoryWindowTest, OpensCopiesSavesAndDeletesFromTheGrid)
{
    const QString older = add({64, 48}, Qt::red, 2, 1);
    const QString newer = add({20, 10}, Qt::blue, 1, 2);
    controller.showWindow();
    QTest::mouseClick(grid().viewport(), Qt::LeftButton, {}, centreOf(1));
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].path, older);
    EXPECT_EQ(opened[0].scale, 2);
    EXPECT_EQ(opened[0].image.size(), QSize(64, 48));
    EXPECT_EQ(QColor(opened[0].image.pixel(3, 3)), QColor(Qt::red));

    std::unique_ptr<QMenu> menu = controller.contextMenu(controller.entries()[1]);
    QStringList titles;
    for (QAction *item : menu->actions())
        titles << item->text();
    EXPECT_EQ(titles, (QStringList{"Open in Markup Editor", "Copy", "Save a Copy…", "", "Delete"}));
    menu->actions()[1]->trigger();
    ASSERT_EQ(clipboard.items.size(), 1);
    QFile olderFile(older);
    ASSERT_TRUE(olderFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(clipboard.items[0], olderFile.readAll()) << "the stored PNG itself";

    const QString copy = root.filePath("copy.png");
    dialogs.saveAnswers = {copy};
    menu->actions()[2]->trigger();
    EXPECT_EQ(dialogs.saveProposals, QStringList{QFileInfo(older).fileName()});
    QFile copied(copy);
    ASSERT_TRUE(copied.open(QIODevice::ReadOnly));
    EXPECT_EQ(copied.readAll(), clipboard.items[0]);

    grid().setFocus();
    grid().setCurrentRow(0);
    QTest::keyClick(&grid(), Qt::Key_Right);
    EXPECT_EQ(grid().currentRow(), 1);
    QTest::keyClick(&grid(), Qt::Key_Return);
    ASSERT_EQ(opened.size(), 2u);
    EXPECT_EQ(opened[1].path, older);
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
    EXPECT_EQ(dialogs.alerts[0].message, "Clear capture history?");
    EXPECT_EQ(dialogs.alerts[0].informative, HistoryWindowController::clearQuestion(1));
    EXPECT_EQ(dialogs.alerts[0].buttons, (QStringList{"Clear", "Cancel"}));
    EXPECT_TRUE(QFile::exists(newer));
    controller.clearAll();
    EXPECT_FALSE(QFile::exists(newer));
    EXPECT_EQ(grid().count(), 0);
    EXPECT_EQ(footer(), "Captures are kept here automatically — the last 60.");
    controller.clearAll();
    EXPECT_EQ(dialogs.alerts.size(), 2) << "nothing to clear, nothing asked";
}

} // namespace
} // namespace pixmora
