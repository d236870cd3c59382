#include "OverlayPanelImages.h"
#include "capture/WindowPicker.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QImage>
#include <QMouseEvent>
#include <QPalette>
#include <QPointer>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace pixmora;

namespace {

WindowInfo window(quint64 id, QRect frame, QString appName = QStringLiteral("Editor"),
                  QString title = QStringLiteral("Notes"))
{
    WindowInfo info;
    info.id = id;
    info.frame = frame;
    info.appName = std::move(appName);
    info.title = std::move(title);
    info.pid = 4242;
    return info;
}

DisplayInfo display(quint32 id, QRect frame)
{
    return {id, frame, frame, 1.0, {}};
}

std::optional<quint64> idOf(const std::optional<WindowInfo> &w)
{
    return w ? std::optional(w->id) : std::nullopt;
}

using pixmora::test::rendered;

bool isBright(QRgb pixel) { return qRed(pixel) > 150 && qGreen(pixel) > 150 && qBlue(pixel) > 150; }

class WindowPickerTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        picker.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void open(WindowList windows, DisplayList displays = {display(1, {0, 0, 800, 600})},
              DisplaySnapshots backdrops = {})
    {
        picker = std::make_unique<WindowPickerController>(
            std::move(windows), std::move(displays), std::move(backdrops), desktop,
            [this](std::optional<WindowInfo> picked) {
                if (duringCompletion)
                    duringCompletion();
                results.push_back(idOf(picked));
            },
            [this] { return cursor; });
        picker->begin();
    }

    WindowPickerView *view(size_t index) { return picker->panels().at(index); }

    // Every event lands at the view's corner: the picker must go by the pointer's global position.
    void send(QEvent::Type type, Qt::MouseButton button = Qt::NoButton)
    {
        QMouseEvent event(type, QPointF(1, 1), QPointF(1, 1), button, button, Qt::NoModifier);
        QCoreApplication::sendEvent(view(0), &event);
    }
    void click(Qt::MouseButton button = Qt::LeftButton) { send(QEvent::MouseButtonPress, button); }

    FakeDesktop desktop;
    QPoint cursor{5, 5};
    std::vector<std::optional<quint64>> results;
    std::function<void()> duringCompletion;
    std::unique_ptr<WindowPickerController> picker;
};

} // namespace

TEST(WindowPickerCandidates, KeepOrdinaryOnScreenWindowsOfOtherProgramsAtLeast40PointsSquareInOrder)
{
    WindowList windows;
    auto add = [&windows](QRect frame, const std::function<void(WindowInfo &)> &change = {}) {
        windows.push_back(window(windows.size() + 1, frame));
        if (change)
            change(windows.back());
    };
    const QRect large(0, 0, 300, 300);
    add({0, 0, 39, 300});
    add({0, 0, 300, 39});
    add({10, 10, 40, 40});                                    // 3: in
    add(large, [](WindowInfo &w) { w.layer = -1; });
    add(large, [](WindowInfo &w) { w.layer = 19; });          // 5: in
    add(large, [](WindowInfo &w) { w.layer = 20; });
    add(large, [](WindowInfo &w) { w.ownWindow = true; });
    add(large, [](WindowInfo &w) { w.pid = QCoreApplication::applicationPid(); });
    add(large, [](WindowInfo &w) { w.onScreen = false; });
    add(large, [](WindowInfo &w) { w.pid = 0; });             // 10: in, no owning process known
    add(large);                                               // 11: in
    FakeDesktop desktop;
    const WindowPickerController picker(windows, {}, {}, desktop, [](std::optional<WindowInfo>) {});

    std::vector<quint64> ids;
    for (const WindowInfo &w : picker.candidates())
        ids.push_back(w.id);
    EXPECT_EQ(ids, (std::vector<quint64>{3, 5, 10, 11}));
}

TEST(WindowPickerHitTest, TheFirstListedOfOverlappingWindowsWinsAndFarEdgesBelongToTheNeighbour)
{
    const WindowInfo back = window(1, {200, 150, 400, 400});
    const WindowInfo front = window(2, {100, 100, 300, 200});
    FakeDesktop desktop;
    const WindowPickerController frontFirst({front, back}, {}, {}, desktop, [](std::optional<WindowInfo>) {});
    const WindowPickerController backFirst({back, front}, {}, {}, desktop, [](std::optional<WindowInfo>) {});

    EXPECT_EQ(idOf(frontFirst.windowUnder({250, 200})), 2u);
    EXPECT_EQ(idOf(backFirst.windowUnder({250, 200})), 1u);
    EXPECT_EQ(idOf(frontFirst.windowUnder({450, 500})), 1u);
    EXPECT_EQ(idOf(frontFirst.windowUnder({399.5, 299.5})), 2u);
    EXPECT_EQ(idOf(frontFirst.windowUnder({400, 250})), 1u);  // right edge of the front window
    EXPECT_EQ(idOf(frontFirst.windowUnder({150, 300})), std::nullopt);  // its bottom edge, outside the back one
    EXPECT_EQ(idOf(frontFirst.windowUnder({50, 50})), std::nullopt);
}

TEST(WindowPickerLabel, NamesTheApplicationAndTheTitle)
{
    const QRect frame(0, 0, 100, 100);
    EXPECT_EQ(WindowPickerView::labelText(window(1, frame, "Editor", "Notes")), QString::fromUtf8("Editor — Notes"));
    EXPECT_EQ(WindowPickerView::labelText(window(1, frame, "Editor", "")), "Editor");
    EXPECT_EQ(WindowPickerView::labelText(window(1, frame, "", "Notes")), QString::fromUtf8("Window — Notes"));
    EXPECT_EQ(WindowPickerView::labelText(window(1, frame, "", "")), "Window");
}

TEST(WindowPickerLabel, SitsInACapsuleCentredOnTheOutlineAndIsCutToItsWidthLess24)
{
    const QRectF outline(100, 50, 300, 200);

    const auto fits = WindowPickerView::labelGeometry({120, 16}, outline);
    EXPECT_EQ(fits.capsule, QRectF(182, 138, 136, 24));
    EXPECT_EQ(fits.text, QRectF(190, 144, 120, 16));  // 2 points above the capsule's bottom edge

    const auto cut = WindowPickerView::labelGeometry({500, 16}, outline);
    EXPECT_EQ(cut.text.width(), 276);
    EXPECT_EQ(cut.capsule, QRectF(104, 138, 292, 24));
    EXPECT_EQ(cut.text.left(), 112);
}

TEST_F(WindowPickerTest, OpensAPanelOnEveryDisplayAndGivesTheKeyboardToTheOneUnderThePointerElseTheFirst)
{
    const DisplayList displays = {display(1, {0, 0, 800, 600}), display(2, {800, -200, 640, 480})};
    cursor = {900, -100};
    open({}, displays);

    const auto panels = picker->panels();
    ASSERT_EQ(panels.size(), 2u);
    EXPECT_EQ(panels[0]->geometry(), QRect(0, 0, 800, 600));
    EXPECT_EQ(panels[1]->geometry(), QRect(800, -200, 640, 480));
    EXPECT_TRUE(panels[0]->isVisible() && panels[1]->isVisible());
    EXPECT_EQ(desktop.overlays.size(), 2);
    EXPECT_EQ(desktop.keyboardOverlay, view(1));
    EXPECT_EQ(view(1)->cursor().shape(), Qt::PointingHandCursor);

    cursor = {-50, -50};  // on no display: the first panel takes the keyboard
    open({}, displays);
    EXPECT_EQ(desktop.keyboardOverlay, view(0));
}

TEST_F(WindowPickerTest, OutlinesTheWindowUnderThePointerOnlyOnTheDisplayItLiesOn)
{
    cursor = {1000, 200};
    QImage white(800, 600, QImage::Format_RGB32);
    white.fill(Qt::white);
    open({window(7, {900, 100, 300, 200})}, {display(1, {0, 0, 800, 600}), display(2, {800, 0, 800, 600})},
         {{1, white}, {2, white}});
    ASSERT_EQ(idOf(view(1)->highlighted()), 7u);
    const QRgb dimmedWhite = qRgb(217, 217, 217);  // the frozen desktop under black at 0.15

    const QColor accent = QGuiApplication::palette().color(QPalette::Highlight);
    const QImage second = rendered(*view(1));
    const QRgb stroke = second.pixel(100, 200);  // the window's left edge, in the second panel
    EXPECT_EQ(qAlpha(stroke), 255);
    EXPECT_NEAR(qRed(stroke), accent.red(), 2);
    EXPECT_NEAR(qGreen(stroke), accent.green(), 2);
    EXPECT_NEAR(qBlue(stroke), accent.blue(), 2);
    const QRgb inside = second.pixel(150, 120);  // accent at 0.3 over the dimmed desktop
    EXPECT_NEAR(qBlue(inside), int(0.3 * accent.blue() + 0.7 * 217), 3);
    EXPECT_NEAR(qRed(inside), int(0.3 * accent.red() + 0.7 * 217), 3);
    EXPECT_NEAR(qRed(second.pixel(50, 50)), qRed(dimmedWhite), 1);

    const QImage first = rendered(*view(0));
    EXPECT_NEAR(qRed(first.pixel(100, 200)), qRed(dimmedWhite), 1);
    EXPECT_NEAR(qRed(first.pixel(799, 200)), qRed(dimmedWhite), 1);
}

TEST_F(WindowPickerTest, DrawsALabelTooLongForItsWindowNoWiderThanTheWindowLess24)
{
    const QRect frame(100, 100, 120, 80);
    cursor = {150, 150};
    open({window(1, frame, "Editor", QString(60, QChar('W')))});

    const QImage image = rendered(*view(0));
    int brightInside = 0, brightOutside = 0;
    for (int y = frame.top() + 10; y < frame.bottom() - 10; ++y)
        for (int x = frame.left() + 4; x < frame.right() - 4; ++x) {
            const bool insideText = x >= frame.left() + 12 && x < frame.left() + frame.width() - 12;
            (insideText ? brightInside : brightOutside) += isBright(image.pixel(x, y)) ? 1 : 0;
        }
    EXPECT_GT(brightInside, 20);
    EXPECT_EQ(brightOutside, 0);
}

TEST_F(WindowPickerTest, AClickPicksTheWindowUnderThePointerNotUnderTheEvent)
{
    open({window(1, {300, 300, 200, 200}), window(2, {0, 0, 200, 200})});
    cursor = {350, 350};
    click();

    EXPECT_EQ(results, (std::vector<std::optional<quint64>>{1u}));
    EXPECT_EQ(desktop.beeps, 0);
}

TEST_F(WindowPickerTest, AClickOnNoCandidateBeepsAndCancels)
{
    WindowInfo own = window(1, {0, 0, 400, 400});
    own.ownWindow = true;
    open({own});
    cursor = {100, 100};

    click(Qt::RightButton);
    EXPECT_TRUE(results.empty());

    click();
    EXPECT_EQ(results, (std::vector<std::optional<quint64>>{std::nullopt}));
    EXPECT_EQ(desktop.beeps, 1);
}

TEST_F(WindowPickerTest, EscapeCancelsSilentlyAndOtherKeysDoNothing)
{
    cursor = {100, 100};
    open({window(1, {0, 0, 400, 400})});
    WindowPickerView *panel = view(0);
    QWindow *keys = desktop.keyboardOverlay;
    ASSERT_EQ(keys, panel);

    QTest::keyClick(keys, Qt::Key_A);
    QTest::keyClick(keys, Qt::Key_Return);
    EXPECT_TRUE(results.empty());
    EXPECT_TRUE(panel->isVisible());

    QTest::keyClick(keys, Qt::Key_Escape);
    EXPECT_EQ(results, (std::vector<std::optional<quint64>>{std::nullopt}));
    EXPECT_EQ(desktop.beeps, 0);
}

TEST_F(WindowPickerTest, ClosesOnceWithPanelsGoneAndThePreviousWindowActiveBeforeTheCompletion)
{
    desktop.active = 77;
    open({}, {display(1, {0, 0, 800, 600}), display(2, {800, 0, 800, 600})});
    std::vector<QPointer<WindowPickerView>> panels;
    for (WindowPickerView *panel : picker->panels())
        panels.emplace_back(panel);

    duringCompletion = [&] {
        EXPECT_TRUE(picker->panels().empty());
        for (const auto &panel : panels)
            EXPECT_FALSE(panel && panel->isVisible());
        EXPECT_EQ(desktop.activatedWindows, QList<quint64>{77});
    };
    picker->finish(window(3, {0, 0, 100, 100}));
    picker->finish(std::nullopt);

    EXPECT_EQ(results, (std::vector<std::optional<quint64>>{3u}));
    EXPECT_EQ(desktop.activatedWindows, QList<quint64>{77});
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    for (const auto &panel : panels)
        EXPECT_TRUE(panel.isNull());
}

TEST_F(WindowPickerTest, ACompletionThatDeletesThePickerDuringAClickIsSafe)
{
    cursor = {50, 50};
    open({window(1, {0, 0, 400, 400})});
    duringCompletion = [this] { picker.reset(); };

    click();

    EXPECT_EQ(results, (std::vector<std::optional<quint64>>{1u}));
    EXPECT_EQ(picker, nullptr);
}

TEST_F(WindowPickerTest, RedrawsOnlyWhenTheHighlightedWindowChangesAndOnlyWhereItWas)
{
    const QRect first(100, 100, 200, 150), second(500, 300, 200, 150);
    cursor = {150, 150};
    open({window(1, first), window(2, second)});
    WindowPickerView *target = view(0);
    pixmora::test::RepaintRecorder repaints(*target);
    repaints.take();
    auto moveAndRepaint = [&](QPoint global) {
        cursor = global;
        send(QEvent::MouseMove);
        return repaints.take();
    };

    EXPECT_TRUE(moveAndRepaint({250, 200}).isEmpty());

    const QRegion moved = moveAndRepaint({600, 400});
    EXPECT_TRUE(moved.contains(first.adjusted(-2, -2, 2, 2)));
    EXPECT_TRUE(moved.contains(second.adjusted(-2, -2, 2, 2)));
    EXPECT_FALSE(moved.contains(QPoint(20, 580)));

    EXPECT_FALSE(moveAndRepaint({790, 590}).isEmpty());  // off every window
    EXPECT_EQ(target->highlighted(), std::nullopt);

    EXPECT_TRUE(moveAndRepaint({20, 20}).isEmpty());
}
