#include "preview/PreviewPresenter.h"

#include "platform/fake/FakePlatform.h"
#include "preview/PreviewThumbView.h"

#include <QPointer>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;
using namespace std::chrono_literals;

namespace {

class PreviewPresenterTest : public ::testing::Test {
protected:
    FakeScreenCapture screens;
    FakeDesktop desktop;  // records every thumbnail shown
    std::optional<PreviewPresenter> presenter;

    void SetUp() override { screens.displayList = {FakeScreenCapture::display(1, QRect(0, 0, 1920, 1080), 1.0)}; }

    // Shows a capture whose editor counts its openings; answers its thumbnail.
    QPointer<QWidget> show(int &edits, QSize size = {400, 300})
    {
        QImage capture(size, QImage::Format_RGB32);
        capture.fill(Qt::red);
        presenter->show(capture, 1.0, [&edits] { ++edits; });
        return desktop.floatingPanels.value(desktop.floatingPanels.size() - 1);
    }

    static bool gone(const QPointer<QWidget> &panel) { return !panel || !panel->isVisible(); }
};

// The main screen is the first listed, even when another lies further right or lower.
TEST_F(PreviewPresenterTest, SitsInTheLowerRightOfTheMainScreenAndKeepsOnlyThePixelsItShows)
{
    DisplayInfo main = FakeScreenCapture::display(7, QRect(1920, 0, 1600, 1000), 2.0);
    main.availableFrame = QRect(1920, 30, 1600, 920);
    screens.displayList = {main, FakeScreenCapture::display(8, QRect(0, 0, 3840, 2160), 1.0)};
    presenter.emplace(screens, desktop);
    int edits = 0;
    const QPointer<QWidget> panel = show(edits, {3840, 2160});
    ASSERT_TRUE(panel && panel->isVisible());
    // 260 x 146.25 points, 16 points inside the available frame's lower right corner.
    EXPECT_EQ(panel->geometry(), QRect(3520 - 16 - 260, 950 - 16 - 146, 260, 146));
    PreviewThumbView *view = panel->findChild<PreviewThumbView *>();
    EXPECT_EQ(view->image().width(), 520);  // at 2 pixels per point
    EXPECT_NEAR(view->image().height(), 292.5, 0.5);
    QImage painted(view->size(), QImage::Format_ARGB32_Premultiplied);
    painted.fill(Qt::transparent);
    view->render(&painted, QPoint(), QRegion(), QWidget::DrawChildren);
    EXPECT_EQ(painted.pixel(130, 73), qRgb(255, 0, 0));
    EXPECT_EQ(qAlpha(painted.pixel(0, 0)), 0) << "outside the rounded corner";
}

// A new capture takes the live or fading thumbnail away at once; a click, even
// while fading, opens the editor once.
TEST_F(PreviewPresenterTest, OnlyTheNewestThumbnailOpensTheEditorAndOthersLeaveAtOnce)
{
    presenter.emplace(screens, desktop, PreviewTimings{.fadeIn = 0ms, .visible = 60s, .fadeOut = 60s});
    int edits[4] = {};
    QPointer<QWidget> shown[4];
    for (int i = 0; i < 4; ++i) {
        shown[i] = show(edits[i]);
        ASSERT_TRUE(shown[i] && shown[i]->isVisible());
        EXPECT_TRUE(i == 0 || gone(shown[i - 1])) << i;
        if (i % 2 == 1)
            presenter->dismiss(true);
    }
    QTest::mouseClick(shown[3]->findChild<PreviewThumbView *>(), Qt::LeftButton);
    EXPECT_EQ(std::vector<int>(edits, edits + 4), (std::vector<int>{0, 0, 0, 1}));
    EXPECT_TRUE(gone(shown[3]));
}

// Without a compositor transparent pixels would show black: the window is
// shaped to the rounded outline and a window's shadow margin sits on a backdrop.
TEST_F(PreviewPresenterTest, ShapedAndOpaqueWithoutACompositorTranslucentWithOne)
{
    for (const bool compositing : {true, false}) {
        SCOPED_TRACE(compositing);
        desktop.compositing = compositing;
        presenter.emplace(screens, desktop);
        QImage shadowMargin(400, 300, QImage::Format_ARGB32_Premultiplied);
        shadowMargin.fill(Qt::transparent);
        presenter->show(shadowMargin, 1.0, nullptr);
        QWidget *panel = desktop.floatingPanels.last();
        EXPECT_EQ(panel->testAttribute(Qt::WA_TranslucentBackground), compositing);

        const QRegion shape = panel->mask();
        EXPECT_EQ(shape.isEmpty(), compositing);
        if (!compositing) {
            EXPECT_TRUE(shape.contains(panel->rect().center()));
            EXPECT_TRUE(shape.contains(QPoint(panel->width() / 2, 0)));
            EXPECT_FALSE(shape.contains(QPoint(0, 0))) << "the rounded corner is cut away";
            EXPECT_FALSE(shape.contains(QPoint(panel->width() - 1, panel->height() - 1)));
        }

        PreviewThumbView *view = panel->findChild<PreviewThumbView *>();
        QImage painted(view->size(), QImage::Format_ARGB32_Premultiplied);
        painted.fill(Qt::transparent);
        view->render(&painted, QPoint(), QRegion(), QWidget::DrawChildren);
        const QRgb centre = painted.pixel(view->rect().center());
        EXPECT_EQ(qAlpha(centre), compositing ? 0 : 255);
        if (!compositing) {
            EXPECT_GT(qGray(centre), 128) << "a light neutral backdrop, not black";
        }
    }
}

TEST_F(PreviewPresenterTest, FadesOutByItselfWithoutOpeningTheEditor)
{
    presenter.emplace(screens, desktop, PreviewTimings{.fadeIn = 0ms, .visible = 20ms, .fadeOut = 20ms});
    int edits = 0;
    const QPointer<QWidget> panel = show(edits);
    ASSERT_TRUE(panel && panel->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !panel; }, 3000));
    EXPECT_EQ(edits, 0);
}

} // namespace
