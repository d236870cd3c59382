#include "AppHarness.h"

#include <QFile>
#include <QImageReader>
#include <QRegularExpression>
#include <QTest>

#include "app/CaptureFileNames.h"
#include "preview/PreviewThumbView.h"

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

const QImage red = AppHarness::image(40, 30, qRgb(255, 0, 0));
const QImage blue = AppHarness::image(20, 10, qRgb(0, 0, 255));
const QImage green = AppHarness::image(10, 10, qRgb(0, 255, 0));

QImage decoded(const QByteArray &png)
{
    return QImage::fromData(png, "PNG").convertToFormat(QImage::Format_RGB32);
}

TEST(DeliveryTest, ClipboardOnlyWritesNoFileButKeepsEveryImageInHistory)
{
    AppHarness h;
    const QString folder = h.makeSaveFolder();
    h.app->settings().setCopyToClipboard(true);
    h.app->deliver({{red, 2.0}, {blue, 1.0}, {green, 1.0}});

    EXPECT_TRUE(h.filesIn(folder).isEmpty());
    ASSERT_EQ(h.fake.clipboard.items.size(), 3);
    EXPECT_EQ(decoded(h.fake.clipboard.items[1]), blue);
    ASSERT_EQ(h.app->history()->entries().size(), 3u) << "same-millisecond captures must not overwrite each other";
    EXPECT_NE(AppHarness::visibleThumbnail(), nullptr);
    EXPECT_TRUE(h.fake.dialogs.alerts.isEmpty());
}

TEST(DeliveryTest, WithAFolderOnlyThePrimaryImageGoesToTheClipboardAndFilesAreNumbered)
{
    AppHarness h;
    const QString folder = h.makeSaveFolder();
    h.app->deliver({{red, 2.0}, {blue, 1.0}});

    ASSERT_EQ(h.fake.clipboard.items.size(), 1);
    EXPECT_EQ(decoded(h.fake.clipboard.items[0]), red);
    QStringList files = h.filesIn(folder);
    ASSERT_EQ(files.size(), 2);
    if (files[0].endsWith(QStringLiteral(" (2).png")))
        files.swapItemsAt(0, 1);
    const QRegularExpression first(QStringLiteral(R"(^Screenshot \d{4}-\d\d-\d\d at \d\d\.\d\d\.\d\d\.\d{3}\.png$)"));
    EXPECT_TRUE(first.match(files[0]).hasMatch()) << files[0].toStdString();
    EXPECT_EQ(files[1], files[0].chopped(4) + QStringLiteral(" (2).png"));

    QImageReader reader(QDir(folder).filePath(files[0]));
    const QImage saved = reader.read();
    EXPECT_EQ(saved.convertToFormat(QImage::Format_RGB32), red);
    EXPECT_EQ(qRound(saved.dotsPerMeterX() * 0.0254), 144);
    EXPECT_EQ(qRound(QImage(QDir(folder).filePath(files[1])).dotsPerMeterX() * 0.0254), 72);
}

TEST(DeliveryTest, NoFolderPutsEverythingOnTheClipboardOrNothingWhenAlsoCopyIsOff)
{
    AppHarness h;
    h.app->deliver({{red, 1.0}, {blue, 1.0}});
    EXPECT_EQ(h.fake.clipboard.items.size(), 2);

    AppHarness quiet;
    quiet.app->settings().setAlsoCopyToClipboard(false);
    quiet.app->deliver({{red, 1.0}});
    EXPECT_EQ(quiet.fake.clipboard.writeCount, 0);
    EXPECT_TRUE(quiet.fake.dialogs.alerts.isEmpty());
    EXPECT_EQ(quiet.app->history()->entries().size(), 1u);
    EXPECT_NE(AppHarness::visibleThumbnail(), nullptr);
}

TEST(DeliveryTest, AFailedWriteAlertsWithTheCountAndTheOtherFilesAreStillWritten)
{
    AppHarness h;
    const QString folder = h.makeSaveFolder();
    h.app->settings().setOpenAfterCapture(true);
    // A folder where the second file should go makes only that write fail.
    const QDateTime now = QDateTime::currentDateTime();
    QStringList blockers;
    for (int ms = 0; ms < 300; ++ms)
        blockers << QDir(folder).filePath(captureFileName(captureDateText(now.addMSecs(ms)), 2));
    for (const QString &blocker : blockers)
        QDir().mkpath(blocker);

    h.app->deliver({{red, 1.0}, {blue, 1.0}});

    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    const Alert &alert = h.fake.dialogs.alerts.first();
    EXPECT_EQ(alert.message, QStringLiteral("Could Not Save the Screenshot"));
    EXPECT_TRUE(alert.informative.endsWith(QStringLiteral("\nThe screenshot is still on the clipboard. 1 of 2 files were saved.")))
        << alert.informative.toStdString();
    ASSERT_EQ(h.fake.desktop.openedFiles.size(), 1);
    EXPECT_TRUE(QFile::exists(h.fake.desktop.openedFiles.first()));
    EXPECT_EQ(h.app->history()->entries().size(), 2u);
}

TEST(DeliveryTest, WhenEveryWriteFailsTheAlertHasNoCount)
{
    AppHarness h;
    const QString folder = h.makeSaveFolder();
    const QDateTime now = QDateTime::currentDateTime();
    for (int ms = 0; ms < 300; ++ms)
        QDir().mkpath(QDir(folder).filePath(captureFileName(captureDateText(now.addMSecs(ms)))));
    h.app->deliver({{red, 1.0}});
    ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
    EXPECT_TRUE(h.fake.dialogs.alerts.first().informative.endsWith(QStringLiteral("\nThe screenshot is still on the clipboard.")));
}

TEST(DeliveryTest, OpenAfterSavingOpensNothingInClipboardOnlyMode)
{
    AppHarness h;
    h.makeSaveFolder();
    h.app->settings().setOpenAfterCapture(true);
    h.app->settings().setCopyToClipboard(true);
    h.app->deliver({{red, 1.0}});
    EXPECT_TRUE(h.fake.desktop.openedFiles.isEmpty());
}

TEST(DeliveryTest, WithoutAHistoryStoreCapturesAreStillDelivered)
{
    AppHarness h(false);
    const QString folder = h.makeSaveFolder();
    h.app->deliver({{red, 1.0}});
    EXPECT_EQ(h.filesIn(folder).size(), 1);
    EXPECT_EQ(h.fake.clipboard.items.size(), 1);
}

TEST(DeliveryTest, ClickingTheThumbnailOpensTheSavedFileOrTheHistoryCopy)
{
    AppHarness h;
    h.app->deliver({{red, 1.0}});
    QWidget *thumbnail = AppHarness::visibleThumbnail();
    ASSERT_NE(thumbnail, nullptr);
    QWidget *view = thumbnail->findChild<PreviewThumbView *>();
    ASSERT_NE(view, nullptr);
    QTest::mouseClick(view, Qt::LeftButton);
    ASSERT_EQ(h.fake.desktop.openedFiles.size(), 1);
    EXPECT_TRUE(h.fake.desktop.openedFiles.first().startsWith(h.path(QStringLiteral("History"))));
}

} // namespace
