#include "OverlayPanelImages.h"
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
    EXPECT_FALSE(isAccepted({0, 0, 1.5, 100}));
    EXPECT_FALSE(isAccepted({0, 0, 100, 1.5}));
    EXPECT_EQ(sizeLabelText({640.9, 480.2}), QString::fromUtf8("640 × 480"));
    // Without room 15 points below, inside, 5 points above the bottom edge; right-aligned 10 points in.
    EXPECT_EQ(sizeLabelRect({100, 600, 300, 180}, {60, 14}, {1000, 800}), QRectF(330, 761, 60, 14));
}

namespace {

// Its only decoration is a fixed box; it records the areas it was asked to paint.
class RecordingPanel : public OverlayPanel {
public:
    using OverlayPanel::OverlayPanel;
    std::vector<QRegion> painted;
    void paint(QPainter &painter) override
    {
        painted.push_back(painter.clipRegion());
        paintBackdrop(painter);
    }

protected:
    QRegion decorations() const override { return QRect(40, 30, 50, 20); }
};

// Collects the areas the panel's repaints cover.
class RepaintRecorder : public QObject {
public:
    explicit RepaintRecorder(OverlayPanel &panel) : m_panel(panel) { panel.installEventFilter(this); }
    // What was repainted since the last call, pending repaints included.
    QRegion take()
    {
        QCoreApplication::sendPostedEvents();
        return std::exchange(m_repainted, QRegion());
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::UpdateRequest)
            m_repainted += m_panel.pendingRepaint();
        return false;
    }

private:
    OverlayPanel &m_panel;
    QRegion m_repainted;
};

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

    // Grey snapshots of both displays unless told otherwise.
    void open(QPoint mouse = {100, 100}, std::optional<DisplaySnapshots> snapshots = {}, std::optional<QString> hint = {})
    {
        QImage grey(600, 400, QImage::Format_RGB32);
        grey.fill(Qt::gray);
        QCursor::setPos(mouse);
        QCoreApplication::processEvents();  // the pointer's move arrives now, not in the middle of a drag
        controller = std::make_unique<RegionSelectionController>(
            std::move(hint), snapshots.value_or(DisplaySnapshots{{1, grey.copy(0, 0, 400, 300)}, {2, grey}}),
            DisplayList{first, second}, desktop, [this](auto selection) {
                results.push_back(std::move(selection));
                if (duringCompletion)
                    duringCompletion();
            });
        controller->begin();
    }
    RegionSelectionView *view(int index) const { return controller->views().at(index); }
};

} // namespace

TEST(OverlayPanel, PaintsTheBackdropUnlessTheWindowSystemCanAndThenOnlyWhatChanges)
{
    // A pixel short of the panel, as rounding at fractional scales leaves it.
    QImage backdrop(319, 239, QImage::Format_RGB32);
    backdrop.fill(qRgb(90, 90, 90));
    for (const bool windowSystemDraws : {false, true}) {
        SCOPED_TRACE(windowSystemDraws);
        FakeDesktop desktop;
        desktop.drawsOverlayBackdrops = windowSystemDraws;
        RecordingPanel panel({1, {0, 0, 320, 240}, {0, 0, 320, 240}, 1.0, {}}, desktop, backdrop, Qt::black);
        panel.present();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&panel));
        QCoreApplication::sendPostedEvents();
        const QRegion firstPaint = windowSystemDraws ? QRegion(40, 30, 50, 20) : QRegion(0, 0, 320, 240);
        EXPECT_EQ(panel.painted, std::vector{firstPaint});
        panel.update(QRect(0, 0, 10, 10));
        panel.update(QRect(310, 230, 100, 100));  // partly off the panel
        QCoreApplication::sendPostedEvents();
        EXPECT_EQ(panel.painted, (std::vector{firstPaint, QRegion(0, 0, 10, 10) + QRegion(310, 230, 10, 10)}));
        EXPECT_EQ(desktop.backdropsDrawn, windowSystemDraws ? 1 : 0);
        const QImage image = pixmora::test::rendered(panel);
        EXPECT_EQ(image.pixel(5, 5), qRgb(90, 90, 90));
        EXPECT_EQ(image.pixel(319, 239), qRgb(0, 0, 0));  // opaque black, not left unpainted
    }
}

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
    for (const Qt::Key key : {Qt::Key_A, Qt::Key_Space, Qt::Key_Return})
        QTest::keyClick(panel, key);
    ASSERT_TRUE(results.empty());
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

TEST_F(RegionSelectionTest, RepaintingOnlyWhatChangedGivesTheSameImageAsAFullRepaint)
{
    QImage pattern(400, 300, QImage::Format_RGB32);  // so that a stale or misplaced piece shows
    for (int y = 0; y < pattern.height(); ++y)
        for (int x = 0; x < pattern.width(); ++x)
            pattern.setPixel(x, y, qRgb(x, y, x * 7 + y * 3));
    open({100, 100}, DisplaySnapshots{{first.id, pattern}}, QStringLiteral("Hint"));
    RegionSelectionView *panel = view(0);
    RepaintRecorder repaints(*panel);
    repaints.take();
    QImage incremental = pixmora::test::rendered(*panel);
    // Start (the hint goes), grow, shrink, cross the start, reach the bottom edge (the label moves inside).
    const QList<QPoint> steps{{150, 120}, {230, 190}, {260, 200}, {180, 150}, {90, 60}, {40, 280}, {60, 299}};
    QTest::mousePress(panel, Qt::LeftButton, {}, steps.front());
    for (const QPoint &step : steps) {
        QTest::mouseMove(panel, step);
        QPainter painter(&incremental);
        painter.setClipRegion(repaints.take());
        panel->paint(painter);
        painter.end();
        ASSERT_EQ(incremental, pixmora::test::rendered(*panel)) << step.x() << "," << step.y();
    }
    // (60, 120)-(150, 299) is clear inside and framed in white.
    EXPECT_EQ(incremental.pixel(100, 200), pattern.pixel(100, 200));
    EXPECT_EQ(incremental.pixel(59, 200), qRgb(255, 255, 255));
}
