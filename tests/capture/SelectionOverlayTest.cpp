#include "OverlayPanelImages.h"
#include "capture/SelectionOverlay.h"
#include "platform/fake/FakePlatform.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

using namespace pixmora;
using namespace pixmora::SelectionGeometry;
using pixmora::test::rendered;

namespace {

QImage filledImage(QSize size, QRgb colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

// Grey level of a rendered pixel (the test images are grey).
int greyAt(const QImage &image, int x, int y)
{
    return qGreen(image.pixel(x, y));
}

} // namespace

// --- geometry ---

TEST(SelectionGeometry, NormalizedRectIsTheSameFromEveryDragDirection)
{
    const QRectF expected(10, 20, 100, 50);
    EXPECT_EQ(normalizedRect({10, 20}, {110, 70}), expected);
    EXPECT_EQ(normalizedRect({110, 70}, {10, 20}), expected);
    EXPECT_EQ(normalizedRect({110, 20}, {10, 70}), expected);
    EXPECT_EQ(normalizedRect({10, 70}, {110, 20}), expected);
    EXPECT_EQ(normalizedRect({5, 5}, {5, 5}), QRectF(5, 5, 0, 0));
}

TEST(SelectionGeometry, BothSidesMustReachTwoPoints)
{
    EXPECT_FALSE(isAccepted(QRectF(0, 0, 1.5, 100)));
    EXPECT_FALSE(isAccepted(QRectF(0, 0, 100, 1.5)));
    EXPECT_FALSE(isAccepted(QRectF(0, 0, 0, 0)));
    EXPECT_TRUE(isAccepted(QRectF(0, 0, 2.0, 2.0)));
}

TEST(SelectionGeometry, SizeLabelReadsWholePointsTruncated)
{
    EXPECT_EQ(sizeLabelText({640.9, 480.2}), QString::fromUtf8("640 × 480"));
    EXPECT_EQ(sizeLabelText({0, 0}), QString::fromUtf8("0 × 0"));
}

TEST(SelectionGeometry, SizeLabelSitsBelowTheSelectionRightAligned)
{
    const QSizeF label(60, 14), view(1000, 800);
    EXPECT_EQ(sizeLabelRect(QRectF(100, 100, 300, 200), label, view), QRectF(330, 315, 60, 14));
    // The label's bottom exactly on the view's bottom edge still fits below.
    EXPECT_EQ(sizeLabelRect(QRectF(100, 571, 300, 200), label, view), QRectF(330, 786, 60, 14));
}

TEST(SelectionGeometry, SizeLabelMovesInsideNearTheBottomEdge)
{
    const QSizeF label(60, 14), view(1000, 800);
    // Below would end at 809: inside instead, 5 points above the bottom edge (780).
    EXPECT_EQ(sizeLabelRect(QRectF(100, 600, 300, 180), label, view), QRectF(330, 761, 60, 14));
}

TEST(SelectionGeometry, NarrowSelectionNearTheLeftEdgeAlignsTheLabelToItsLeftEdge)
{
    const QSizeF label(60, 14), view(1000, 800);
    EXPECT_EQ(sizeLabelRect(QRectF(2, 100, 40, 50), label, view), QRectF(2, 165, 60, 14));
    // Narrow but with room on the left: still right-aligned, sticking out to the left.
    EXPECT_EQ(sizeLabelRect(QRectF(200, 100, 40, 50), label, view), QRectF(170, 165, 60, 14));
}

TEST(SelectionGeometry, HintIsCentred64PointsBelowTheTop)
{
    EXPECT_EQ(hintTextRect({200, 17}, {1000, 800}), QRectF(400, 64, 200, 17));
}

// --- controller and views ---

class RegionSelectionTest : public ::testing::Test {
protected:
    // Two displays side by side, the second at scale 2; both inside the
    // offscreen screen so that the cursor can be put on them.
    const DisplayInfo first{1, QRect(0, 0, 400, 300), QRect(0, 0, 400, 300), 1.0, QStringLiteral("A")};
    const DisplayInfo second{2, QRect(400, 0, 300, 200), QRect(400, 0, 300, 200), 2.0, QStringLiteral("B")};

    FakeDesktop desktop;
    std::unique_ptr<RegionSelectionController> controller;
    std::vector<std::optional<RegionSelection>> results;
    std::function<void()> duringCompletion;

    void TearDown() override
    {
        controller.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    DisplaySnapshots bothSnapshots(QRgb colour = qRgb(128, 128, 128)) const
    {
        return {{first.id, filledImage(QSize(400, 300), colour)}, {second.id, filledImage(QSize(600, 400), colour)}};
    }

    void open(DisplaySnapshots snapshots, DisplayList displays, std::optional<QString> hint = std::nullopt,
              QPoint mouse = QPoint(100, 100))
    {
        QCursor::setPos(mouse);
        QCoreApplication::processEvents();  // the pointer's move is delivered now, not in the middle of a drag
        controller = std::make_unique<RegionSelectionController>(
            std::move(hint), std::move(snapshots), std::move(displays), desktop,
            [this](std::optional<RegionSelection> selection) {
                results.push_back(std::move(selection));
                if (duringCompletion)
                    duringCompletion();
            });
        controller->begin();
    }

    void openOnBoth(std::optional<QString> hint = std::nullopt, QPoint mouse = QPoint(100, 100))
    {
        open(bothSnapshots(), {first, second}, std::move(hint), mouse);
    }

    RegionSelectionView *view(int index) const { return controller->panels().at(index); }

    QList<QPointer<RegionSelectionView>> trackedPanels() const
    {
        QList<QPointer<RegionSelectionView>> tracked;
        for (RegionSelectionView *panel : controller->panels())
            tracked.append(panel);
        return tracked;
    }

    static void drag(QWindow *view, QPoint from, QPoint to)
    {
        QTest::mousePress(view, Qt::LeftButton, {}, from);
        QTest::mouseMove(view, (from + to) / 2);
        QTest::mouseMove(view, to);
        QTest::mouseRelease(view, Qt::LeftButton, {}, to);
    }
};

TEST_F(RegionSelectionTest, CoversOnlyDisplaysWithSnapshotsInDisplayOrder)
{
    const DisplayInfo third{3, QRect(0, 300, 200, 100), QRect(0, 300, 200, 100), 1.0, QStringLiteral("C")};
    open({{third.id, filledImage(QSize(200, 100), 0)}, {first.id, filledImage(QSize(400, 300), 0)}},
         {first, second, third});

    const QList<RegionSelectionView *> panels = controller->panels();
    ASSERT_EQ(panels.size(), 2);
    EXPECT_EQ(desktop.overlays, (QList<QWindow *>{panels[0], panels[1]}));
    EXPECT_EQ(panels[0]->display().id, first.id);
    EXPECT_EQ(panels[1]->display().id, third.id);
    for (RegionSelectionView *panel : panels) {
        EXPECT_TRUE(panel->isVisible());
        EXPECT_EQ(panel->geometry(), panel->display().frame);
        EXPECT_EQ(panel->cursor().shape(), Qt::CrossCursor);
    }
}

TEST_F(RegionSelectionTest, PanelUnderTheMouseTakesTheKeyboard)
{
    openOnBoth(std::nullopt, QPoint(500, 50));
    EXPECT_EQ(desktop.keyboardOverlay, view(1));
}

TEST_F(RegionSelectionTest, FirstPanelTakesTheKeyboardWhenTheMouseIsOnNoDisplay)
{
    openOnBoth(std::nullopt, QPoint(750, 500));
    EXPECT_EQ(desktop.keyboardOverlay, view(0));
}

TEST_F(RegionSelectionTest, DragOnTheScaledDisplayReportsGlobalPointsAndThatDisplay)
{
    openOnBoth();
    RegionSelectionView *scaled = view(1);

    QTest::mousePress(scaled, Qt::LeftButton, {}, QPoint(110, 70));
    EXPECT_EQ(scaled->selection(), QRectF(110, 70, 0, 0));
    QTest::mouseMove(scaled, QPoint(60, 40));
    QTest::mouseMove(scaled, QPoint(10, 20));
    // The selection is in points: 100 x 50 although the display has twice as many pixels.
    EXPECT_EQ(scaled->selection(), QRectF(10, 20, 100, 50));
    EXPECT_TRUE(results.empty());
    QTest::mouseRelease(scaled, Qt::LeftButton, {}, QPoint(10, 20));

    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0].has_value());
    EXPECT_EQ(results[0]->rect, QRectF(410, 20, 100, 50));
    EXPECT_EQ(results[0]->display.id, second.id);
    EXPECT_EQ(results[0]->display.scale, 2.0);
}

TEST_F(RegionSelectionTest, DragPastTheDisplaysEdgeStopsAtTheEdge)
{
    openOnBoth();
    // The pointer leaves the scaled display (300 x 200 points) to the left and below.
    QTest::mousePress(view(1), Qt::LeftButton, {}, QPoint(50, 50));
    QTest::mouseRelease(view(1), Qt::LeftButton, {}, QPoint(-120, 260));

    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0].has_value());
    EXPECT_EQ(results[0]->rect, QRectF(400, 50, 50, 150));
}

TEST_F(RegionSelectionTest, EscapeCancelsAndOtherKeysChangeNothing)
{
    openOnBoth();
    QTest::mousePress(view(0), Qt::LeftButton, {}, QPoint(10, 10));
    QTest::mouseMove(view(0), QPoint(60, 40));
    for (Qt::Key key : {Qt::Key_A, Qt::Key_Return, Qt::Key_Space, Qt::Key_Q})
        QTest::keyClick(view(0), key);
    EXPECT_TRUE(results.empty());
    EXPECT_EQ(view(0)->selection(), QRectF(10, 10, 50, 30));
    EXPECT_TRUE(controller->panels().at(0)->isVisible());

    QTest::keyClick(view(0), Qt::Key_Escape);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].has_value());
    EXPECT_TRUE(desktop.activatedWindows.isEmpty());  // no window was known to give focus back to
}

TEST_F(RegionSelectionTest, ClickWithoutDragCancels)
{
    openOnBoth();
    QTest::mouseClick(view(0), Qt::LeftButton, {}, QPoint(30, 30));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].has_value());
}

TEST_F(RegionSelectionTest, OnlyTheFirstFinishCounts)
{
    openOnBoth();
    RegionSelectionView *left = view(0);
    controller->finish(QRectF(5, 5, 20, 20), &first);
    controller->finish(std::nullopt, nullptr);
    controller->finish(QRectF(405, 5, 20, 20), &second);
    QTest::keyClick(left, Qt::Key_Escape);  // still alive until the event loop deletes it

    ASSERT_EQ(results.size(), 1u);
    ASSERT_TRUE(results[0].has_value());
    EXPECT_EQ(results[0]->rect, QRectF(5, 5, 20, 20));
    EXPECT_EQ(results[0]->display.id, first.id);
}

TEST_F(RegionSelectionTest, CompletionRunsAfterThePanelsAreGoneAndFocusWentBack)
{
    desktop.active = 77;
    openOnBoth(std::nullopt, QPoint(500, 50));
    EXPECT_EQ(desktop.activations, 1);
    const QList<QPointer<RegionSelectionView>> panels = trackedPanels();
    bool checked = false;
    duringCompletion = [&] {
        for (const QPointer<RegionSelectionView> &panel : panels)
            EXPECT_TRUE(panel.isNull() || !panel->isVisible());
        EXPECT_TRUE(controller->panels().isEmpty());
        EXPECT_EQ(desktop.activatedWindows, QList<quint64>{77});
        checked = true;
    };
    drag(view(1), QPoint(10, 10), QPoint(100, 100));
    EXPECT_TRUE(checked);

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    for (const QPointer<RegionSelectionView> &panel : panels)
        EXPECT_TRUE(panel.isNull());
}

TEST_F(RegionSelectionTest, CompletionMayReleaseTheController)
{
    openOnBoth();
    duringCompletion = [this] { controller.reset(); };
    drag(view(0), QPoint(10, 10), QPoint(100, 100));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_TRUE(results[0].has_value());
    EXPECT_EQ(controller, nullptr);
}

TEST_F(RegionSelectionTest, ReleasingTheControllerTakesThePanelsDown)
{
    openOnBoth();
    const QList<QPointer<RegionSelectionView>> panels = trackedPanels();
    controller.reset();
    for (const QPointer<RegionSelectionView> &panel : panels)
        EXPECT_TRUE(panel.isNull());
    EXPECT_TRUE(results.empty());
}

TEST_F(RegionSelectionTest, ViewWithoutItsControllerIgnoresTheMouseAndKeys)
{
    auto owner = std::make_unique<RegionSelectionController>(std::nullopt, DisplaySnapshots{}, DisplayList{}, desktop,
                                                             [this](auto selection) { results.push_back(selection); });
    RegionSelectionView orphan(owner.get(), std::nullopt, first, filledImage(QSize(400, 300), 0), desktop);
    owner.reset();

    drag(&orphan, QPoint(10, 10), QPoint(100, 100));
    QTest::keyClick(&orphan, Qt::Key_Escape);
    EXPECT_FALSE(orphan.selection().has_value());
    EXPECT_TRUE(results.empty());
}

TEST_F(RegionSelectionTest, RemovedDisplayCancels)
{
    openOnBoth();
    QTest::mousePress(view(0), Qt::LeftButton, {}, QPoint(10, 10));
    const QList<QPointer<RegionSelectionView>> panels = trackedPanels();

    emit qGuiApp->screenRemoved(QGuiApplication::primaryScreen());

    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].has_value());
    for (const QPointer<RegionSelectionView> &panel : panels)
        EXPECT_FALSE(panel->isVisible());
}

TEST_F(RegionSelectionTest, WithoutAnySnapshotNothingOpensAndTheOverlayCancels)
{
    open({}, {first, second});
    EXPECT_TRUE(controller->panels().isEmpty());
    EXPECT_TRUE(desktop.overlays.isEmpty());
    EXPECT_TRUE(results.empty());  // never from inside begin

    QCoreApplication::processEvents();
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].has_value());
}

// --- drawing ---

TEST_F(RegionSelectionTest, HintShowsOnEveryDisplayUntilTheDragStartsThere)
{
    open(bothSnapshots(qRgb(255, 255, 255)), {first, second}, QStringLiteral("Select the area to scroll"));
    RegionSelectionView *left = view(0), *right = view(1);
    // Inside the capsule, in its left padding, where no letter is drawn.
    const QRectF capsule = left->hintCapsule();
    ASSERT_FALSE(capsule.isEmpty());
    const QPoint inCapsule = QPointF(capsule.left() + 8, capsule.center().y()).toPoint();
    const int dimmedWhite = 191;

    EXPECT_LT(greyAt(rendered(*left), inCapsule.x(), inCapsule.y()), 80);
    EXPECT_NEAR(greyAt(rendered(*left), inCapsule.x(), capsule.top() - 3), dimmedWhite, 1);

    QTest::mousePress(left, Qt::LeftButton, {}, QPoint(10, 250));
    EXPECT_NEAR(greyAt(rendered(*left), inCapsule.x(), inCapsule.y()), dimmedWhite, 1);
    const QPoint inRightCapsule = QPointF(right->hintCapsule().left() + 8, right->hintCapsule().center().y()).toPoint();
    EXPECT_LT(greyAt(rendered(*right), inRightCapsule.x(), inRightCapsule.y()), 80);
}

TEST_F(RegionSelectionTest, SelectionIsAnUndimmedHoleWithAWhiteBorderJustOutside)
{
    openOnBoth();
    RegionSelectionView *left = view(0);
    QTest::mousePress(left, Qt::LeftButton, {}, QPoint(100, 100));
    QTest::mouseMove(left, QPoint(200, 180));
    const QImage image = rendered(*left);

    const int grey = 128, dimmedGrey = 96;
    EXPECT_EQ(greyAt(image, 100, 100), grey);
    EXPECT_EQ(greyAt(image, 199, 179), grey);
    EXPECT_EQ(greyAt(image, 150, 99), 255);   // border above
    EXPECT_EQ(greyAt(image, 99, 150), 255);   // border left
    EXPECT_EQ(greyAt(image, 200, 150), 255);  // border right
    EXPECT_EQ(greyAt(image, 150, 180), 255);  // border below
    EXPECT_EQ(greyAt(image, 150, 97), dimmedGrey);
    EXPECT_EQ(greyAt(image, 202, 150), dimmedGrey);
    EXPECT_EQ(greyAt(image, 10, 10), dimmedGrey);
    // The size label's dark box hangs below the bottom edge, right-aligned.
    EXPECT_LT(greyAt(image, 192, 200), 60);
    EXPECT_EQ(greyAt(image, 110, 195), dimmedGrey);
}

TEST_F(RegionSelectionTest, RepaintingOnlyWhatChangedGivesTheSameImageAsAFullRepaint)
{
    // A pattern, so that a stale or misplaced piece shows.
    QImage pattern(400, 300, QImage::Format_RGB32);
    for (int y = 0; y < pattern.height(); ++y)
        for (int x = 0; x < pattern.width(); ++x)
            pattern.setPixel(x, y, qRgb(x % 256, y % 256, (x * 7 + y * 3) % 256));
    open({{first.id, pattern}}, {first}, QStringLiteral("Hint"));
    RegionSelectionView *selectionView = view(0);
    pixmora::test::RepaintRecorder repaints(*selectionView);
    repaints.take();
    QImage incremental = rendered(*selectionView);

    // Start, grow, shrink, cross over the start point, then reach the bottom
    // edge, where the label jumps inside the selection.
    const QList<QPoint> steps{{150, 120}, {230, 190}, {260, 200}, {180, 150}, {90, 60}, {40, 280}, {60, 299}};
    QTest::mousePress(selectionView, Qt::LeftButton, {}, steps.front());
    for (const QPoint &step : steps) {
        if (step != steps.front())
            QTest::mouseMove(selectionView, step);
        const QRegion repainted = repaints.take();
        ASSERT_FALSE(repainted.isEmpty());
        EXPECT_LT(repainted.boundingRect().width() * repainted.boundingRect().height(),
                  selectionView->width() * selectionView->height() / 2);
        pixmora::test::repaintInto(*selectionView, incremental, repainted);
        ASSERT_EQ(incremental, rendered(*selectionView)) << "after the step to " << step.x() << "," << step.y();
    }
}
