#include "PlatformTestSupport.h"

#include "platform/Error.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ScreenCapture.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace pixmora::e2e {
namespace {

class WindowListTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        for (pid_t pid : started)
            testDesktop().stop(pid);
    }

    // An xterm with a known title; answers its window id.
    quint64 startXterm(const QString &title, const QString &geometry)
    {
        started.push_back(testDesktop().start(QStringLiteral("xterm"),
                                              {QStringLiteral("-T"), title, QStringLiteral("-geometry"), geometry}));
        return testDesktop().waitForWindow(QLatin1Char('^') + title + QLatin1Char('$'));
    }

    std::optional<WindowInfo> find(quint64 id)
    {
        const WindowList windows = capture.windows();
        const auto it = std::find_if(windows.begin(), windows.end(), [id](const WindowInfo &w) { return w.id == id; });
        return it == windows.end() ? std::nullopt : std::optional(*it);
    }

    // The client area's rectangle on the root window, from xwininfo (xdotool
    // counts the decorations twice).
    QRect clientGeometry(quint64 id)
    {
        const auto result = runOnDesktop(QStringLiteral("xwininfo"), {QStringLiteral("-id"), QString::number(id)});
        auto value = [&](const QByteArray &label) {
            for (const QByteArray &line : result.output.split('\n'))
                if (line.trimmed().startsWith(label + ':'))
                    return line.mid(line.indexOf(':') + 1).trimmed().toInt();
            return -1;
        };
        return QRect(value("Absolute upper-left X"), value("Absolute upper-left Y"), value("Width"), value("Height"));
    }

    X11Connection x11;
    X11ScreenCapture capture{x11};
    std::vector<pid_t> started;
};

TEST_F(WindowListTest, ForeignWindowHasTitleClassPidAndDecoratedFrame)
{
    const quint64 id = startXterm(QStringLiteral("pixmora-e2e-right"), QStringLiteral("60x10+2300+400"));
    ASSERT_NE(id, 0u);
    ASSERT_TRUE(waitFor([&] { return find(id) && find(id)->onScreen; }));
    const WindowInfo info = *find(id);
    EXPECT_EQ(info.title, QStringLiteral("pixmora-e2e-right"));
    EXPECT_EQ(info.appName, QStringLiteral("XTerm"));
    EXPECT_EQ(info.pid, started.back());
    EXPECT_FALSE(info.ownWindow);
    EXPECT_EQ(info.layer, 0);

    // RIGHT has scale 1 and starts at 1920 in both systems: points are pixels.
    const QRect client = clientGeometry(id);
    EXPECT_TRUE(info.frame.contains(client)) << "frame must include the decorations: " << ::testing::PrintToString(info.frame)
                                             << " client " << ::testing::PrintToString(client);
    EXPECT_GT(client.top() - info.frame.top(), 10) << "openbox's title bar lies above the client";
}

TEST_F(WindowListTest, FramesOnTheScaledMonitorAreInPoints)
{
    const quint64 id = startXterm(QStringLiteral("pixmora-e2e-left"), QStringLiteral("60x10+400+600"));
    ASSERT_NE(id, 0u);
    ASSERT_TRUE(waitFor([&] { return find(id) && find(id)->onScreen; }));
    const QRect client = clientGeometry(id);  // device pixels on LEFT, scale 2
    const QRect frame = find(id)->frame;
    const QRect clientInPoints(client.x() / 2, client.y() / 2, client.width() / 2, client.height() / 2);
    EXPECT_TRUE(frame.adjusted(-1, -1, 1, 1).contains(clientInPoints))
        << "frame in points must hold the client: " << ::testing::PrintToString(frame) << " client "
        << ::testing::PrintToString(clientInPoints);
    EXPECT_LT(frame.width(), client.width()) << "the frame was not divided by the scale";
}

TEST_F(WindowListTest, TopmostComesFirstAndOwnWindowsAreMarked)
{
    const quint64 xterm = startXterm(QStringLiteral("pixmora-e2e-below"), QStringLiteral("40x10+2100+100"));
    ASSERT_NE(xterm, 0u);
    SolidWindow own(QStringLiteral("pixmora-e2e-own"), Qt::darkCyan, QRect(2500, 200, 200, 150));
    own.show();
    ASSERT_TRUE(waitUntilMapped(own));
    const quint64 ownId = own.winId();
    ASSERT_TRUE(waitFor([&] { return find(ownId) && find(ownId)->onScreen; }));

    const WindowList windows = capture.windows();
    auto position = [&](quint64 id) {
        return std::find_if(windows.begin(), windows.end(), [id](const WindowInfo &w) { return w.id == id; })
               - windows.begin();
    };
    EXPECT_LT(position(ownId), position(xterm));
    EXPECT_TRUE(find(ownId)->ownWindow);
    EXPECT_EQ(find(ownId)->title, QStringLiteral("pixmora-e2e-own"));
    EXPECT_EQ(find(ownId)->pid, QCoreApplication::applicationPid());

    runOnDesktop(QStringLiteral("xdotool"), {QStringLiteral("windowminimize"), QString::number(xterm)});
    EXPECT_TRUE(waitFor([&] { return find(xterm) && !find(xterm)->onScreen; })) << "a minimised window is not on screen";
}

TEST_F(WindowListTest, WindowCaptureIsTheFrameAtTheRequestedScale)
{
    const QColor colour(20, 180, 60);
    auto window = std::make_unique<SolidWindow>(QStringLiteral("pixmora-e2e-solid"), colour, QRect(2200, 900, 300, 200));
    window->show();
    ASSERT_TRUE(waitUntilMapped(*window));
    const quint64 id = window->winId();
    ASSERT_TRUE(waitFor([&] { return find(id) && find(id)->onScreen; }));
    processEvents();
    const WindowInfo info = *find(id);

    const QImage image = capture.captureWindow(info, 1.0);
    ASSERT_EQ(image.size(), info.frame.size());
    const QPoint inside = window->geometry().center() - info.frame.topLeft();
    EXPECT_EQ(image.pixelColor(inside), colour);
    const QPoint clientCorner = window->geometry().topLeft() - info.frame.topLeft();
    EXPECT_EQ(image.pixelColor(clientCorner + QPoint(2, 2)), colour);
    EXPECT_NE(image.pixelColor(clientCorner - QPoint(0, 5)), colour) << "the title bar belongs to the capture";

    const QImage doubled = capture.captureWindow(info, 2.0);
    EXPECT_EQ(doubled.size(), info.frame.size() * 2);
    EXPECT_EQ(doubled.pixelColor(inside * 2), colour);

    window.reset();
    EXPECT_TRUE(waitFor([&] { return !find(id); }));
    EXPECT_THROW(capture.captureWindow(info, 1.0), Error);
}

TEST_F(WindowListTest, WindowOnTheScaledMonitorIsCapturedInDevicePixels)
{
    const QColor colour(200, 40, 90);
    SolidWindow window(QStringLiteral("pixmora-e2e-solid-left"), colour, QRect(200, 300, 151, 101));
    window.show();
    ASSERT_TRUE(waitUntilMapped(window));
    const quint64 id = window.winId();
    ASSERT_TRUE(waitFor([&] { return find(id) && find(id)->onScreen; }));
    processEvents();
    const WindowInfo info = *find(id);
    const QImage image = capture.captureWindow(info, 2.0);
    EXPECT_EQ(image.size(), info.frame.size() * 2);
    EXPECT_EQ(image.pixelColor((window.geometry().center() - info.frame.topLeft()) * 2), colour);
}

} // namespace
} // namespace pixmora::e2e
