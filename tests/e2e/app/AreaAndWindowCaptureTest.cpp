#include "PixmoraSession.h"

#include <QPainter>
#include <QRegularExpression>
#include <QThread>

#include <functional>

#include <gtest/gtest.h>

using namespace pixmora::e2e;

namespace {

const auto samePixels = &PixmoraSession::samePixels;
const auto newest = &PixmoraSession::newestImage;

class AreaAndWindowCaptureTest : public ::testing::Test {
protected:
    PixmoraSession session;
    QString folder = session.home() + QStringLiteral("/Shots");

    void SetUp() override
    {
        QDir().mkpath(folder);
        ASSERT_TRUE(session.pixmora({QStringLiteral("save-to"), folder}).ok());
    }

    // xdotool speaks the root window's device pixels. `beforeRelease` runs
    // with the mouse still down at `to`.
    void drag(QPoint from, QPoint to, const std::function<void()> &beforeRelease = {})
    {
        const auto run = [this](const QStringList &arguments) { return session.desktop().run(QStringLiteral("xdotool"), arguments); };
        run({QStringLiteral("mousemove"), QString::number(from.x()), QString::number(from.y())});
        run({QStringLiteral("mousedown"), QStringLiteral("1")});
        const QPoint middle = (from + to) / 2;
        run({QStringLiteral("mousemove"), QString::number(middle.x()), QString::number(middle.y())});
        run({QStringLiteral("mousemove"), QString::number(to.x()), QString::number(to.y())});
        if (beforeRelease)
            beforeRelease();
        run({QStringLiteral("mouseup"), QStringLiteral("1")});
    }

    int fileCount() const { return PixmoraSession::pngFiles(folder).size(); }
};

TEST_F(AreaAndWindowCaptureTest, AreaSelectionsOnEitherMonitorDeliverTheFrozenPixelsAtThatMonitorsScale)
{
    session.desktop().start(QStringLiteral("xterm"), {QStringLiteral("-geometry"), QStringLiteral("80x24+150+150"), QStringLiteral("-e"), QStringLiteral("ls -l /usr/bin; sleep 600")});
    session.desktop().start(QStringLiteral("xterm"), {QStringLiteral("-geometry"), QStringLiteral("80x24+2000+300"), QStringLiteral("-e"), QStringLiteral("ls -l /etc; sleep 600")});
    session.startApp();
    QThread::msleep(500);
    const QImage before = session.screen();

    // LEFT, scale 2: pixels (200, 200)-(600, 500) are points (100, 100)-(300, 250).
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+1")).ok());
    QThread::msleep(700);
    // Upwards and leftwards: the same rectangle. Mid-drag the screen shows the
    // frozen desktop dimmed, as QPainter dims it, with the selection clear.
    drag({600, 500}, {200, 200}, [&] {
        QThread::msleep(300);
        const QImage shown = session.screen();
        QImage dimmed = before.copy(1000, 1000, 2000, 800);
        QPainter(&dimmed).fillRect(dimmed.rect(), QColor::fromRgbF(0, 0, 0, 0.25));
        EXPECT_TRUE(samePixels(shown.copy(1000, 1000, 2000, 800), dimmed));
        EXPECT_TRUE(samePixels(shown.copy(210, 210, 380, 280), before.copy(210, 210, 380, 280)));
    });
    ASSERT_TRUE(PixmoraSession::waitForFiles(folder, 1));
    const QImage left = newest(folder);
    EXPECT_EQ(left.size(), QSize(400, 300));
    EXPECT_EQ(qRound(left.dotsPerMeterX() * 0.0254), 144);
    EXPECT_TRUE(samePixels(left, before.copy(200, 200, 400, 300)));

    // RIGHT, scale 1.
    QThread::msleep(300);
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+1")).ok());
    QThread::msleep(700);
    drag({2000, 300}, {2300, 500});
    ASSERT_TRUE(PixmoraSession::waitForFiles(folder, 2));
    const QImage right = newest(folder);
    EXPECT_EQ(right.size(), QSize(300, 200));
    EXPECT_EQ(qRound(right.dotsPerMeterX() * 0.0254), 72);
    EXPECT_TRUE(samePixels(right, before.copy(2000, 300, 300, 200)));

    // Escape and a click without a drag cancel; the next command starts at once.
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+1")).ok());
    QThread::msleep(700);
    ASSERT_TRUE(session.key(QStringLiteral("Escape")).ok());
    QThread::msleep(300);
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+1")).ok());
    QThread::msleep(700);
    drag({1000, 1000}, {1000, 1000});
    QThread::msleep(500);
    EXPECT_EQ(fileCount(), 2);
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+3")).ok());
    EXPECT_TRUE(PixmoraSession::waitForFiles(folder, 4));
}

TEST_F(AreaAndWindowCaptureTest, APickedWindowIsCapturedWithOrWithoutItsShadowAndAClickOnNothingCancels)
{
    session.desktop().start(QStringLiteral("xterm"), {QStringLiteral("-title"), QStringLiteral("pick me"), QStringLiteral("-geometry"), QStringLiteral("60x20+2200+400"), QStringLiteral("-e"), QStringLiteral("ls -l /usr/bin; sleep 600")});
    const quint64 xterm = session.desktop().waitForWindow(QStringLiteral("^pick me$"));
    ASSERT_NE(xterm, 0u);
    session.startApp();
    QThread::msleep(500);

    const auto clickAt = [this](QPoint point) {
        session.desktop().run(QStringLiteral("xdotool"), {QStringLiteral("mousemove"), QString::number(point.x()), QString::number(point.y()), QStringLiteral("click"), QStringLiteral("1")});
    };
    // The shadow is on by default: 40 points on every side at scale 1.
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+2")).ok());
    QThread::msleep(700);
    clickAt({2300, 500});
    ASSERT_TRUE(PixmoraSession::waitForFiles(folder, 1));
    const QImage shadowed = newest(folder);

    QFile settings(session.settingsFile());
    ASSERT_TRUE(settings.open(QIODevice::Append));
    settings.write("windowShadow=false\n");
    settings.close();
    QThread::msleep(300);
    const QImage before = session.screen();
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+2")).ok());
    QThread::msleep(700);
    clickAt({2300, 500});
    ASSERT_TRUE(PixmoraSession::waitForFiles(folder, 2));
    const QImage plain = newest(folder);

    EXPECT_EQ(shadowed.size(), plain.size() + QSize(80, 80));
    EXPECT_TRUE(samePixels(shadowed.copy(40, 40, plain.width(), plain.height()), plain));
    EXPECT_TRUE(shadowed.hasAlphaChannel());
    EXPECT_EQ(qAlpha(shadowed.pixel(0, 0)), 0) << "the margin's corner lies outside the shadow";
    // The window with its frame, exactly as the screen showed it: find it on the screen.
    const QString geometry = QString::fromUtf8(session.desktop().run(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"), QString::number(xterm)}).output);
    const QRegularExpressionMatch position = QRegularExpression(QStringLiteral(R"(Position: (\d+),(\d+))")).match(geometry);
    ASSERT_TRUE(position.hasMatch()) << geometry.toStdString();
    const QPoint client(position.captured(1).toInt(), position.captured(2).toInt());
    bool found = false;
    for (int dy = 0; dy <= 40 && !found; ++dy) {
        for (int dx = 0; dx <= 10 && !found; ++dx)
            found = samePixels(plain, before.copy(client.x() - dx, client.y() - dy, plain.width(), plain.height()));
    }
    EXPECT_TRUE(found) << "the capture is the window's frame as on screen";

    // A click where no window is beeps and cancels; the next command works.
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+2")).ok());
    QThread::msleep(700);
    clickAt({3500, 1800});
    QThread::msleep(500);
    EXPECT_EQ(fileCount(), 2);
    ASSERT_TRUE(session.key(QStringLiteral("ctrl+shift+3")).ok());
    EXPECT_TRUE(PixmoraSession::waitForFiles(folder, 4));
}

} // namespace
