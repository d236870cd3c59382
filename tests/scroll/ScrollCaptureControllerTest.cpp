#include "ScrollScenario.h"
#include "platform/fake/FakePlatform.h"
#include "scroll/ScrollCaptureController.h"
#include "scroll/ScrollHUDPanel.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPainter>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;

namespace {

// Display 1 is 400 x 300 points at scale 2 and shows a long document from
// row `top` on; the rectangle (0, 50, w, 150) takes its rows top + 100 to top + 400.
class ScrollCaptureTest : public ::testing::Test {
protected:
    static constexpr int viewportTop = 100, frameRows = 300;

    ScrollCaptureTest()
    {
        fake.screens.displayList = {display};
        useDocument(800, 4000);
    }
    ~ScrollCaptureTest() override
    {
        controller.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    void useDocument(int width, int height)
    {
        std::mt19937 random(13);
        document = synthetic::makeDocument(width, height, frameRows, synthetic::DocumentStyle::varied, random);
        scrollTo(0);
    }
    void scrollTo(int top)
    {
        QImage shown(800, 600, QImage::Format_RGB32);
        shown.fill(Qt::gray);
        QPainter(&shown).drawImage(0, 0, document.copy(0, top, document.width(), 600));
        fake.screens.displayImages[display.id] = shown;
    }
    QImage documentRows(int first, int count) const { return document.copy(0, first, document.width(), count); }
    // Shows the HUD and takes the first frame.
    void open(double width = 400)
    {
        controller = std::make_unique<ScrollCaptureController>(
            fake.screens, fake.desktop, display, QRectF(0, 50, width, 150),
            [this](std::optional<QImage> image) { results.push_back(std::move(image)); });
        controller->showHUD();
        controller->begin();
        QCoreApplication::processEvents();
    }
    ScrollHUDPanel &hud() { return *controller->hud(); }

    const DisplayInfo display = FakeScreenCapture::display(1, {0, 0, 400, 300}, 2.0);
    FakePlatform fake;
    QImage document;
    std::unique_ptr<ScrollCaptureController> controller;
    std::vector<std::optional<QImage>> results;
};

// Every way a capture ends, each delivering once: Done right after the first
// frame delivers that frame; frames too narrow to stitch deliver nothing; a
// display gone before the first frame ends the capture unread, one gone later
// delivers what was stitched. Done or Cancel again and a frame that arrives
// after the end change nothing.
TEST_F(ScrollCaptureTest, EveryEndDeliversOnceWithTheFirstFrameOrNothing)
{
    using Panel = ScrollHUDPanel;
    const struct {
        const char *name;
        double width;
        bool displayFirst;
        std::function<void(Panel &)> end;
        bool delivers;
    } cases[] = {
        {"Escape", 400, true, [](Panel &panel) { QTest::keyClick(&panel, Qt::Key_Escape); }, false},
        {"Cancel", 400, true, [](Panel &panel) { QTest::mouseClick(panel.cancelButton(), Qt::LeftButton); }, false},
        {"Done", 400, true, [](Panel &panel) { QTest::mouseClick(panel.doneButton(), Qt::LeftButton); }, true},
        {"too narrow", 3, true, [](Panel &panel) { QTest::mouseClick(panel.doneButton(), Qt::LeftButton); }, false},
        {"display gone later", 400, true, [this](Panel &) {
             fake.screens.displayList.clear();
             emit qGuiApp->screenRemoved(QGuiApplication::primaryScreen());
         }, true},
        {"display gone first", 400, false, nullptr, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        results.clear();
        fake.screens.displayList = c.displayFirst ? DisplayList{display} : DisplayList{};
        scrollTo(0);
        const int captures = fake.screens.displayCaptureCount;
        open(c.width);
        if (c.end)
            c.end(hud());
        ASSERT_EQ(results.size(), 1u);
        ASSERT_EQ(results[0].has_value(), c.delivers);
        EXPECT_TRUE(!c.delivers || synthetic::samePixels(*results[0], documentRows(viewportTop, frameRows)));
        EXPECT_EQ(fake.screens.exclusionsHeld, 0);
        controller->finish();
        controller->cancel();
        scrollTo(50);
        controller->captureTick();
        EXPECT_EQ(results.size(), 1u);
        EXPECT_EQ(fake.screens.displayCaptureCount - captures, c.displayFirst ? 1 : 0);
    }
}

TEST_F(ScrollCaptureTest, TheLimitDeliversWithoutAClick)
{
    useDocument(100, 24800);
    open(50);  // 100 pixels wide
    for (int top = 250; results.empty() && top < 24800 - 600; top += 250) {
        scrollTo(top);
        controller->captureTick();
    }
    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0]);
    EXPECT_TRUE(synthetic::samePixels(*results[0], documentRows(viewportTop, 24000)));
    EXPECT_FALSE(hud().isVisible());
}

// The usable part of a 1000 x 800 screen is 760 high; the HUD is 300 x 117.
TEST(ScrollHUDPlacement, BelowElseAboveElseInsideAndAlwaysWithinTheSides)
{
    const QRectF visible(0, 0, 1000, 760);
    const QSizeF hud(300, 117);
    const std::tuple<QRectF, QRectF, QPointF> cases[] = {
        {QRectF(100, 600, 400, 100), visible, {150, 471}},          // no room below: 12 above
        {QRectF(100, 0, 400, 760), visible, {150, 631}},            // fills the height: inside, 12 over its bottom
        {QRectF(0, 100, 100, 100), visible, {8, 212}},              // 12 below, kept off the left side
        {QRectF(900, 100, 100, 100), visible, {692, 212}},          // and the right side
    };
    for (const auto &[rect, usable, expected] : cases)
        EXPECT_EQ(ScrollCaptureController::hudPosition(rect, hud, usable), expected) << qPrintable(QDebug::toString(rect));
}

TEST(ScrollHUDStatus, TheHeightIsInPoints)
{
    QLocale::setDefault(QLocale(QLocale::English));
    EXPECT_EQ(ScrollCaptureController::statusText(2401, 2.0), QString::fromUtf8("1,200 px — scroll on, then click Done"));
    QLocale::setDefault(QLocale::system());
}

} // namespace
