#include "PixmoraSession.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QThread>

#include <gtest/gtest.h>

using namespace pixmora::e2e;

namespace {

int dotsPerInch(const QImage &image) { return qRound(image.dotsPerMeterX() * 0.0254); }

QImage load(const QString &path) { return QImage(path); }

const auto samePixels = &PixmoraSession::samePixels;

QString primaryName(const QStringList &files)
{
    for (const QString &file : files) {
        if (!file.endsWith(QStringLiteral(" (2).png")))
            return file;
    }
    return {};
}

TEST(CaptureSpineTest, ShortcutCapturesEveryDisplayIntoFolderHistoryClipboardAndThumbnail)
{
    PixmoraSession session;
    const QString folder = session.home() + QStringLiteral("/Shots");
    QDir().mkpath(folder);
    ASSERT_TRUE(session.pixmora({QStringLiteral("save-to"), folder}).ok());
    // Something recognisable on both monitors.
    session.desktop().start(QStringLiteral("xterm"), {QStringLiteral("-geometry"), QStringLiteral("80x20+100+100"), QStringLiteral("-e"), QStringLiteral("ls -l /usr/bin; sleep 600")});
    session.desktop().start(QStringLiteral("xterm"), {QStringLiteral("-geometry"), QStringLiteral("60x30+2500+400"), QStringLiteral("-e"), QStringLiteral("ls -l /etc; sleep 600")});
    session.startApp();
    QThread::msleep(500);
    const QImage before = session.screen();

    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+3")).ok());
    ASSERT_TRUE(PixmoraSession::waitForFiles(folder, 2));
    ASSERT_TRUE(PixmoraSession::waitForFiles(session.historyFolder(), 2));

    const QStringList files = PixmoraSession::pngFiles(folder);
    ASSERT_EQ(files.size(), 2);
    const QString first = primaryName(files);
    EXPECT_TRUE(QRegularExpression(QStringLiteral(R"(^Screenshot \d{4}-\d\d-\d\d at \d\d\.\d\d\.\d\d\.\d{3}\.png$)")).match(first).hasMatch())
        << first.toStdString();
    EXPECT_TRUE(files.contains(first.chopped(4) + QStringLiteral(" (2).png")));

    // LEFT is 960 x 1080 points at scale 2, RIGHT 1920 x 2160 points at scale 1:
    // both files are 1920 x 2160 pixels and show exactly what the screen showed.
    const QImage left = load(folder + QLatin1Char('/') + first);
    const QImage right = load(folder + QLatin1Char('/') + first.chopped(4) + QStringLiteral(" (2).png"));
    EXPECT_EQ(dotsPerInch(QImage(folder + QLatin1Char('/') + first)), 144);
    EXPECT_EQ(dotsPerInch(QImage(folder + QLatin1Char('/') + first.chopped(4) + QStringLiteral(" (2).png"))), 72);
    ASSERT_EQ(before.size(), QSize(3840, 2160));
    EXPECT_TRUE(samePixels(left, before.copy(0, 0, 1920, 2160)));
    EXPECT_TRUE(samePixels(right, before.copy(1920, 0, 1920, 2160)));

    // With a save folder only the first image goes to the clipboard.
    EXPECT_TRUE(session.clipboard(QStringLiteral("TARGETS")).contains("image/png"));
    EXPECT_TRUE(samePixels(QImage::fromData(session.clipboard(QStringLiteral("image/png"))), left));

    const QStringList history = PixmoraSession::pngFiles(session.historyFolder());
    ASSERT_EQ(history.size(), 2);
    EXPECT_TRUE(QRegularExpression(QStringLiteral(R"(^\d{4}-\d\d-\d\d \d\d-\d\d-\d\d-\d{3}\.png$)")).match(history[0]).hasMatch());
    EXPECT_NE(history[0], history[1]);

    EXPECT_NE(session.desktop().waitForWindow(QStringLiteral("^Pixmora Preview$"), 5000), 0u);
}

TEST(CaptureSpineTest, WithoutAFolderCapturesGoToClipboardAndHistoryOnly)
{
    PixmoraSession session;
    session.startApp();
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+3")).ok());
    ASSERT_TRUE(PixmoraSession::waitForFiles(session.historyFolder(), 2));
    // X11's clipboard holds one item: the first display's image.
    const QImage pasted = QImage::fromData(session.clipboard(QStringLiteral("image/png")));
    EXPECT_EQ(pasted.size(), QSize(1920, 2160));
    EXPECT_EQ(session.pixmora({QStringLiteral("save-to")}).output.trimmed(), QByteArray("not set"));
}

TEST(CaptureSpineTest, CommandLineDrivesTheRunningInstanceAndFollowsARenamedFolder)
{
    PixmoraSession session;
    const VirtualDesktop::Result version = session.pixmora({QStringLiteral("--version")});
    EXPECT_TRUE(version.ok());
    EXPECT_TRUE(version.output.startsWith("Pixmora "));
    const VirtualDesktop::Result bad = session.pixmora({QStringLiteral("capture"), QStringLiteral("everything")});
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_FALSE(bad.errors.isEmpty());
    EXPECT_EQ(session.pixmora({QStringLiteral("save-to"), session.home() + QStringLiteral("/missing")}).exitCode, 1);

    const QString folder = session.home() + QStringLiteral("/Shots");
    QDir().mkpath(folder);
    ASSERT_TRUE(session.pixmora({QStringLiteral("save-to"), folder}).ok());
    EXPECT_EQ(session.pixmora({QStringLiteral("save-to")}).output.trimmed(), folder.toUtf8());

    // `capture screen` starts Pixmora when none runs.
    ASSERT_TRUE(session.pixmora({QStringLiteral("capture"), QStringLiteral("screen")}).ok());
    ASSERT_TRUE(PixmoraSession::waitForFiles(folder, 2));

    QElapsedTimer clock;
    clock.start();
    EXPECT_TRUE(session.pixmora({}).ok()) << "a second start only exits";
    EXPECT_LT(clock.elapsed(), 5000);

    const QString renamed = session.home() + QStringLiteral("/Renamed Shots");
    ASSERT_TRUE(QDir().rename(folder, renamed));
    ASSERT_TRUE(session.pixmora({QStringLiteral("capture"), QStringLiteral("screen")}).ok());
    ASSERT_TRUE(PixmoraSession::waitForFiles(renamed, 4));
    EXPECT_EQ(session.pixmora({QStringLiteral("save-to")}).output.trimmed(), renamed.toUtf8());

    ASSERT_TRUE(QDir(renamed).removeRecursively());
    EXPECT_EQ(session.pixmora({QStringLiteral("save-to")}).output.trimmed(), QByteArray("not set"));
    // The app survives a vanished folder: the next capture still reaches the history.
    const int before = PixmoraSession::pngFiles(session.historyFolder()).size();
    ASSERT_TRUE(session.pixmora({QStringLiteral("capture"), QStringLiteral("screen")}).ok());
    EXPECT_TRUE(PixmoraSession::waitForFiles(session.historyFolder(), before + 2));
}

} // namespace
