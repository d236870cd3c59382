#include "AppHarness.h"

#include "capture/RegionSelectionController.h"
#include "capture/ScrollingCaptureFlow.h"
#include "scroll/ScrollHUDPanel.h"

#include <QAction>
#include <QMenu>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::test;

namespace {

using Command = void (AppDelegate::*)();
const QList<Command> captureCommands{&AppDelegate::startRegionCapture, &AppDelegate::startWindowCapture,
                                     &AppDelegate::startFullScreenCapture, &AppDelegate::startScrollingCapture};

// A command is answered as soon as the guard has decided, before the capture
// does anything; until the capture's alert closes every command is dropped or
// refused with the reason, in every mode; then the next one starts at once.
TEST(CaptureGuardTest, OneFlowAtATimeUntilItsAlertIsClosedAndCommandsAreAnsweredAtOnce)
{
    for (const char *mode : {"area", "window", "screen", "scrolling"}) {
        SCOPED_TRACE(mode);
        AppHarness h;
        h.fake.screens.beforeDisplayCapture = [](const DisplayInfo &display) {
            if (display.id == 2)
                throw Error("The display went away.");
        };
        QList<std::optional<QString>> answers;
        const auto command = [&](const QString &words) {
            h.app->runRemoteCommand(words.split(' '), [&](const std::optional<QString> &refusal) { answers << refusal; });
        };
        int capturesDuringTheAlert = -1;
        h.fake.dialogs.whileAlertIsOpen = [&](const Alert &) {
            EXPECT_EQ(answers, QList<std::optional<QString>>{std::nullopt});
            const int before = h.fake.screens.displayCaptureCount;
            for (const Command other : captureCommands)
                (h.app.get()->*other)();
            command("capture area");
            capturesDuringTheAlert = h.fake.screens.displayCaptureCount - before;
        };
        command(QString("capture ") + mode);
        ASSERT_EQ(h.fake.dialogs.alerts.size(), 1);
        EXPECT_EQ(h.fake.dialogs.alerts[0].message, "Could Not Capture the Screen");
        EXPECT_EQ(h.fake.dialogs.alerts[0].informative, "The display went away.");
        EXPECT_EQ(capturesDuringTheAlert, 0);
        EXPECT_EQ(answers.value(1), "a capture is already in progress");
        EXPECT_FALSE(h.app->captureFlowActive());
        EXPECT_EQ(h.fake.clipboard.writeCount, 0);
        command("capture everything");
        EXPECT_EQ(answers.value(2), "unknown command: capture everything");
        h.fake.dialogs.whileAlertIsOpen = nullptr;
        h.app->startFullScreenCapture();
        EXPECT_EQ(h.fake.dialogs.alerts.size(), 2);
    }
}

// The scrolling command given again while selecting is dropped; while
// capturing it finishes the capture, which is delivered like any other.
TEST(CaptureGuardTest, TheScrollingCommandAgainFinishesARunningScrollingCapture)
{
    AppHarness h;
    h.app->applicationDidFinishLaunching();
    h.app->statusMenu()->menu()->actions()[3]->trigger();  // "Capture Scrolling"
    auto *flow = qobject_cast<ScrollingCaptureFlow *>(h.app->captureFlow());
    ASSERT_NE(flow, nullptr);
    h.app->startScrollingCapture();
    EXPECT_EQ(h.app->captureFlow(), flow);
    ASSERT_NE(flow->regionController(), nullptr) << "still selecting";
    const DisplayInfo &display = h.fake.screens.displayList[0];
    flow->regionController()->finish(QRectF(10, 10, 200, 150), &display);
    ASSERT_TRUE(QTest::qWaitFor([&] { return flow->scrollCapture() && flow->scrollCapture()->hud()
                                             && flow->scrollCapture()->hud()->status().startsWith("150 px"); }));
    h.app->startScrollingCapture();
    EXPECT_FALSE(h.app->captureFlowActive());
    ASSERT_EQ(h.app->history()->entries().size(), 1u);
    EXPECT_EQ(h.fake.clipboard.writeCount, 1);
}

} // namespace
