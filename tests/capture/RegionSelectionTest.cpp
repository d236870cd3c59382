#include "capture/RegionSelectionController.h"
#include "capture/RegionSelectionView.h"
#include "capture/SelectionGeometry.h"
#include "platform/fake/FakePlatform.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPointer>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace pixmora::SelectionGeometry;

TEST(SelectionGeometry, SmallestSelectionAndTheSizeLabelsTextAndPlace)
{
    EXPECT_TRUE(isAccepted({0, 0, 2, 2}));
    EXPECT_FALSE(isAccepted({0, 0, 100, 1.5}));
    EXPECT_EQ(sizeLabelText({640.9, 480.2}), QString::fromUtf8("640 × 480"));
    // Without room 15 points below, inside, 5 points above the bottom edge; right-aligned 10 points in.
    EXPECT_EQ(sizeLabelRect({100, 600, 300, 180}, {60, 14}, {1000, 800}), QRectF(330, 761, 60, 14));
}

namespace {

// Side by side, the second at scale 2, both on the offscreen screen, where the cursor can go.
class RegionSelectionTest : public ::testing::Test {
protected:
    const DisplayInfo first{1, {0, 0, 400, 300}, {}, 1.0, {}}, second{2, {400, 0, 300, 200}, {}, 2.0, {}};
    FakeDesktop desktop;
    std::unique_ptr<RegionSelectionController> controller;
    std::vector<std::optional<RegionSelection>> results;
    std::function<void()> duringCompletion;

    void TearDown() override
    {
        controller.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // Grey snapshots of both displays.
    void open(QPoint mouse = {100, 100})
    {
        QImage grey(600, 400, QImage::Format_RGB32);
        grey.fill(Qt::gray);
        QCursor::setPos(mouse);
        QCoreApplication::processEvents();  // the pointer's move arrives now, not in the middle of a drag
        controller = std::make_unique<RegionSelectionController>(
            std::nullopt, DisplaySnapshots{{1, grey.copy(0, 0, 400, 300)}, {2, grey}}, DisplayList{first, second}, desktop,
            [this](auto selection) {
                results.push_back(std::move(selection));
                if (duringCompletion)
                    duringCompletion();
            });
        controller->begin();
    }
    RegionSelectionView *view(int index) const { return controller->views().at(index); }
};

} // namespace

TEST_F(RegionSelectionTest, ADragPastTheEdgesStopsThereAndIsReportedOnceThePanelsAreHiddenAndTheFocusIsBack)
{
    desktop.active = 77;
    open({500, 50});
    const QPointer<RegionSelectionView> left = view(0), right = view(1);
    EXPECT_EQ(desktop.keyboardOverlay, right);  // the panel under the mouse
    duringCompletion = [&] {
        EXPECT_FALSE(left->isVisible() || right->isVisible());
        EXPECT_EQ(desktop.activatedWindows, QList<quint64>{77});
        controller.reset();  // as the capture flow may
    };
    QTest::mousePress(right, Qt::LeftButton, {}, {50, 50});
    QTest::mouseMove(right, {-120, 260});
    QTest::mouseRelease(right, Qt::LeftButton, {}, {-120, 260});
    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0].has_value());
    EXPECT_EQ(results[0]->rect, QRectF(400, 50, 50, 150));  // global points, stopped at the edges
    EXPECT_EQ(results[0]->display.id, second.id);
}

TEST_F(RegionSelectionTest, EscapeAClickOrALostDisplayCancelOnce)
{
    open();
    RegionSelectionView *panel = view(0);
    QTest::mousePress(panel, Qt::LeftButton, {}, {10, 10});
    QTest::mouseMove(panel, {60, 40});
    QTest::keyClick(panel, Qt::Key_Escape);
    controller->finish(QRectF(0, 0, 50, 50), &first);  // only the first finish counts

    open();
    QTest::mouseClick(view(0), Qt::LeftButton, {}, {30, 30});
    open();
    panel = view(0);
    emit qGuiApp->screenRemoved(QGuiApplication::primaryScreen());
    EXPECT_FALSE(panel->isVisible());
    ASSERT_EQ(results.size(), 3u);
    for (const auto &result : results)
        EXPECT_FALSE(result.has_value());
}
