#include "preview/PreviewPresenter.h"

#include "platform/fake/FakePlatform.h"
#include "preview/PreviewThumbView.h"

#include <QApplication>
#include <QPointer>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace pixmora;
using namespace std::chrono_literals;

namespace {

QImage capture(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    return image;
}

QList<QWidget *> visibleThumbnails()
{
    QList<QWidget *> found;
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (widget->objectName() == QLatin1String("PixmoraPreview") && widget->isVisible())
            found << widget;
    return found;
}

void clickOn(QWidget *panel)
{
    QTest::mouseClick(panel->findChild<PreviewThumbView *>(), Qt::LeftButton, {}, QPoint(5, 5));
}

class PreviewPresenterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        screens.displayList = {FakeScreenCapture::display(1, QRect(0, 0, 1920, 1080), 1.0)};
    }

    void TearDown() override
    {
        presenter.reset();
        // Removed panels are deleted from the event loop; let it run so none leaks.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_TRUE(visibleThumbnails().isEmpty());
    }

    PreviewPresenter &makePresenter(PreviewTimings timings = {})
    {
        presenter = std::make_unique<PreviewPresenter>(screens, desktop, timings);
        return *presenter;
    }

    // The one thumbnail on screen; fails the test when there is not exactly one.
    QWidget *onlyThumbnail()
    {
        const QList<QWidget *> shown = visibleThumbnails();
        EXPECT_EQ(shown.size(), 1);
        return shown.value(0);
    }

    FakeScreenCapture screens;
    FakeDesktop desktop;
    std::unique_ptr<PreviewPresenter> presenter;
};

} // namespace

TEST(PreviewThumbnailSize, FitsTheBoxWithoutEnlargingAndKeepsTheMinimum)
{
    const QSizeF retina = PreviewPresenter::thumbnailSize(QSizeF(3024, 1964) / 2);
    EXPECT_DOUBLE_EQ(retina.width(), 260);
    EXPECT_NEAR(retina.height(), 168.862, 0.001);

    EXPECT_EQ(PreviewPresenter::thumbnailSize({2560, 1440}), QSizeF(260, 146.25));
    EXPECT_EQ(PreviewPresenter::thumbnailSize(QSizeF(520, 360) / 2), QSizeF(260, 180));
    EXPECT_EQ(PreviewPresenter::thumbnailSize(QSizeF(800, 8000) / 2), QSizeF(60, 180));
    EXPECT_EQ(PreviewPresenter::thumbnailSize(QSizeF(100, 40) / 2), QSizeF(60, 40));
    EXPECT_EQ(PreviewPresenter::thumbnailSize({200, 100}), QSizeF(200, 100));
}

TEST_F(PreviewPresenterTest, SitsSixteenPointsInsideTheLowerRightOfTheMainScreensAvailableFrame)
{
    // The main screen is the first listed, even when another lies further right or lower.
    DisplayInfo main = FakeScreenCapture::display(7, QRect(1920, 0, 1600, 1000), 1.0);
    main.availableFrame = QRect(1920, 30, 1600, 920);
    screens.displayList = {main, FakeScreenCapture::display(8, QRect(0, 0, 3840, 2160), 2.0)};

    makePresenter().show(capture(2560, 1440), 1.0, {});

    QWidget *panel = onlyThumbnail();
    ASSERT_TRUE(panel);
    // 260 x 146.25 points; right edge at 3520 - 16, bottom edge at 950 - 16.
    EXPECT_EQ(panel->geometry(), QRect(3504 - 260, 934 - 146, 260, 146));
    EXPECT_EQ(panel->windowTitle(), "Pixmora Preview");
    EXPECT_EQ(desktop.floatingPanels, QList<QWidget *>{panel});
    EXPECT_TRUE(panel->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_NE(QApplication::activeWindow(), panel);
}

TEST_F(PreviewPresenterTest, KeepsOnlyAsManyPixelsAsTheScreenShows)
{
    const QImage fourK = capture(3840, 2160);
    makePresenter().show(fourK, 1.0, {});
    QWidget *panel = onlyThumbnail();
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->findChild<PreviewThumbView *>()->image().size(), QSize(260, 146));

    screens.displayList.front().scale = 2.0;
    presenter->show(fourK, 2.0, {});
    panel = onlyThumbnail();
    ASSERT_TRUE(panel);
    const QSize kept = panel->findChild<PreviewThumbView *>()->image().size();
    EXPECT_EQ(kept.width(), 520);  // 260 x 146.25 points at 2 pixels each
    EXPECT_NEAR(kept.height(), 292.5, 0.5);
}

TEST_F(PreviewPresenterTest, ANewCaptureReplacesTheThumbnailAtOnceAndOnlyItOpensTheEditor)
{
    int firstEdits = 0, secondEdits = 0;
    makePresenter().show(capture(400, 300), 1.0, [&] { ++firstEdits; });
    QPointer<QWidget> first = onlyThumbnail();

    presenter->show(capture(300, 400), 1.0, [&] { ++secondEdits; });

    ASSERT_TRUE(first);
    EXPECT_FALSE(first->isVisible());  // gone without a fade
    QWidget *second = onlyThumbnail();
    ASSERT_TRUE(second);
    clickOn(second);
    EXPECT_EQ(firstEdits, 0);
    EXPECT_EQ(secondEdits, 1);
}

TEST_F(PreviewPresenterTest, AClickOpensTheEditorOnceAndRemovesTheThumbnailAtOnce)
{
    int edits = 0;
    makePresenter().show(capture(400, 300), 1.0, [&] { ++edits; });
    QPointer<QWidget> panel = onlyThumbnail();
    ASSERT_TRUE(panel);
    ASSERT_TRUE(presenter->autoDismissPending());

    clickOn(panel);

    EXPECT_EQ(edits, 1);
    EXPECT_FALSE(panel->isVisible());
    EXPECT_FALSE(presenter->autoDismissPending());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(panel);
}

TEST_F(PreviewPresenterTest, FadesOutByItselfAfterItsTimeWithoutOpeningTheEditor)
{
    int edits = 0;
    makePresenter({.fadeIn = 0ms, .visible = 50ms, .fadeOut = 50ms}).show(capture(400, 300), 1.0, [&] { ++edits; });
    QPointer<QWidget> panel = onlyThumbnail();
    ASSERT_TRUE(panel);

    EXPECT_TRUE(QTest::qWaitFor([&] { return !panel; }, 3000));
    EXPECT_EQ(edits, 0);
}

TEST_F(PreviewPresenterTest, AFadingThumbnailStaysUntilTheFadeEnds)
{
    makePresenter({.fadeIn = 0ms, .visible = 60s, .fadeOut = 150ms}).show(capture(400, 300), 1.0, {});
    QPointer<QWidget> panel = onlyThumbnail();
    ASSERT_TRUE(panel);

    presenter->dismiss(true);
    EXPECT_TRUE(panel->isVisible());
    EXPECT_FALSE(presenter->autoDismissPending());
    EXPECT_TRUE(QTest::qWaitFor([&] { return panel && panel->windowOpacity() < 0.9; }, 3000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !panel; }, 3000));
}

TEST_F(PreviewPresenterTest, AClickDuringTheFadeStillOpensTheEditorAndRemovesItAtOnce)
{
    int edits = 0;
    makePresenter({.fadeIn = 0ms, .visible = 60s, .fadeOut = 60s}).show(capture(400, 300), 1.0, [&] { ++edits; });
    QPointer<QWidget> panel = onlyThumbnail();
    ASSERT_TRUE(panel);
    presenter->dismiss(true);

    clickOn(panel);

    EXPECT_EQ(edits, 1);
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(PreviewPresenterTest, ANewCaptureAlsoTakesAwayFadingThumbnails)
{
    makePresenter({.fadeIn = 0ms, .visible = 60s, .fadeOut = 60s}).show(capture(400, 300), 1.0, {});
    QPointer<QWidget> fading = onlyThumbnail();
    presenter->dismiss(true);

    presenter->show(capture(400, 300), 1.0, {});

    ASSERT_TRUE(fading);
    EXPECT_FALSE(fading->isVisible());
    EXPECT_NE(onlyThumbnail(), fading);
}

TEST_F(PreviewPresenterTest, WithoutAScreenNothingIsShown)
{
    screens.displayList.clear();
    makePresenter().show(capture(400, 300), 1.0, {});

    EXPECT_TRUE(visibleThumbnails().isEmpty());
    EXPECT_TRUE(desktop.floatingPanels.isEmpty());
    EXPECT_FALSE(presenter->autoDismissPending());
}

TEST_F(PreviewPresenterTest, PanelsGoWithThePresenterAndItsPendingWorkStaysQuiet)
{
    const PreviewTimings quick{.fadeIn = 0ms, .visible = 20ms, .fadeOut = 20ms};
    makePresenter(quick).show(capture(400, 300), 1.0, {});
    QPointer<QWidget> live = onlyThumbnail();
    presenter.reset();
    EXPECT_FALSE(live);

    makePresenter(quick).show(capture(400, 300), 1.0, {});
    QPointer<QWidget> fading = onlyThumbnail();
    presenter->dismiss(true);
    presenter.reset();
    EXPECT_FALSE(fading);

    QTest::qWait(60);  // past the dismissal time and the fade: nothing may touch the dead presenter
}
