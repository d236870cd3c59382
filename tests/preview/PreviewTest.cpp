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
    QPointer<QWidget> show(int &edits, QColor colour = Qt::red)
    {
        QImage capture(400, 300, QImage::Format_ARGB32_Premultiplied);
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

// A new capture takes the thumbnail away at once; a click, even while fading, opens the editor once.
TEST_F(PreviewPresenterTest, OnlyTheNewestThumbnailOpensTheEditorAndTheOlderLeavesAtOnce)
{
    presenter.emplace(screens, desktop, PreviewTimings{.fadeIn = 0ms, .visible = 60s, .fadeOut = 60s});
    int edits[2] = {};
    const QPointer<QWidget> older = show(edits[0]);
    const QPointer<QWidget> newer = show(edits[1]);
    ASSERT_TRUE(newer && newer->isVisible());
    EXPECT_TRUE(gone(older));
    presenter->dismiss(true);
    QTest::mouseClick(newer->findChild<PreviewThumbView *>(), Qt::LeftButton);
    EXPECT_TRUE(gone(newer));
    EXPECT_EQ(std::pair(edits[0], edits[1]), std::pair(0, 1));
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
        const QPointer<QWidget> panel = show(edits, Qt::transparent);
        EXPECT_EQ(panel->testAttribute(Qt::WA_TranslucentBackground), compositing);
        const QRegion shape = panel->mask();
        EXPECT_EQ(shape.isEmpty(), compositing);
        if (!compositing) {
            EXPECT_TRUE(shape.contains(panel->rect().center()));
            EXPECT_FALSE(shape.contains(QPoint(0, 0))) << "the rounded corner is cut away";
        }
        const QImage image = painted(panel->findChild<PreviewThumbView *>());
        const QRgb centre = image.pixel(image.rect().center());
        EXPECT_EQ(qAlpha(centre), compositing ? 0 : 255);
        EXPECT_TRUE(compositing || qGray(centre) > 128) << "a light neutral backdrop, not black";
        EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0) << "outside the rounded corner";
    }
}

} // namespace
