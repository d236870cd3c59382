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
    QPointer<QWidget> show(int &edits, QSize size = {400, 300}, QColor colour = Qt::red)
    {
        QImage capture(size, QImage::Format_ARGB32_Premultiplied);
        capture.fill(colour);
        presenter->show(capture, 1.0, [&edits] { ++edits; });
        return desktop.floatingPanels.value(desktop.floatingPanels.size() - 1);
    }
    static QImage painted(PreviewThumbView *view)
    {
        QImage image(view->size(), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        view->render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
        return image;
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
    EXPECT_EQ(painted(view).pixel(130, 73), qRgb(255, 0, 0));
}

// A new capture takes the live or fading thumbnail away at once; a click, even
// while fading, opens the editor once. Left alone, it fades out by itself.
TEST_F(PreviewPresenterTest, OnlyTheNewestThumbnailOpensTheEditorAndOthersLeaveAtOnce)
{
    presenter.emplace(screens, desktop, PreviewTimings{.fadeIn = 0ms, .visible = 60s, .fadeOut = 60s});
    int edits[5] = {};
    QPointer<QWidget> shown[4];
    for (int i = 0; i < 4; ++i) {
        shown[i] = show(edits[i]);
        ASSERT_TRUE(shown[i] && shown[i]->isVisible());
        EXPECT_TRUE(i == 0 || gone(shown[i - 1])) << i;
        if (i % 2 == 1)
            presenter->dismiss(true);
    }
    QTest::mouseClick(shown[3]->findChild<PreviewThumbView *>(), Qt::LeftButton);
    EXPECT_TRUE(gone(shown[3]));

    presenter.emplace(screens, desktop, PreviewTimings{.fadeIn = 0ms, .visible = 20ms, .fadeOut = 20ms});
    const QPointer<QWidget> panel = show(edits[4]);
    ASSERT_TRUE(panel && panel->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !panel; }, 3000));
    EXPECT_EQ(std::vector<int>(edits, edits + 5), (std::vector<int>{0, 0, 0, 1, 0}));
}

// Without a compositor transparent pixels would show black: the window is
// shaped to the rounded outline and a window's shadow margin sits on a backdrop.
TEST_F(PreviewPresenterTest, ShapedAndOpaqueWithoutACompositorTranslucentWithOne)
{
    for (const bool compositing : {true, false}) {
        SCOPED_TRACE(compositing);
        desktop.compositing = compositing;
        presenter.emplace(screens, desktop);
        int edits = 0;
        const QPointer<QWidget> panel = show(edits, {400, 300}, Qt::transparent);
        EXPECT_EQ(panel->testAttribute(Qt::WA_TranslucentBackground), compositing);
        const QRegion shape = panel->mask();
        EXPECT_EQ(shape.isEmpty(), compositing);
        if (!compositing) {
            EXPECT_TRUE(shape.contains(panel->rect().center()));
            EXPECT_TRUE(shape.contains(QPoint(panel->width() / 2, 0)));
            EXPECT_FALSE(shape.contains(QPoint(0, 0))) << "the rounded corner is cut away";
            EXPECT_FALSE(shape.contains(QPoint(panel->width() - 1, panel->height() - 1)));
        }
        const QImage image = painted(panel->findChild<PreviewThumbView *>());
        const QRgb centre = image.pixel(image.rect().center());
        EXPECT_EQ(qAlpha(centre), compositing ? 0 : 255);
        EXPECT_TRUE(compositing || qGray(centre) > 128) << "a light neutral backdrop, not black";
        EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0) << "outside the rounded corner";
    }
}

} // namespace
