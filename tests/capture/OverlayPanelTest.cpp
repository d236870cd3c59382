#include "capture/OverlayPanel.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>
#include <QPainter>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;

namespace {

// A panel whose only decoration is a fixed box; it records what it was asked to paint.
class RecordingPanel : public OverlayPanel {
public:
    RecordingPanel(FakeDesktop &desktop, QImage backdrop)
        : OverlayPanel(DisplayInfo{1, QRect(0, 0, 320, 240), QRect(0, 0, 320, 240), 1.0, QStringLiteral("A")},
                       desktop, std::move(backdrop), QColor(0, 0, 0, 64))
    {
    }

    const QRect box{40, 30, 50, 20};
    std::vector<QRegion> painted;

    void paint(QPainter &painter) override
    {
        painted.push_back(painter.clipRegion());
        paintBackdrop(painter);
    }

protected:
    QRegion decorations() const override { return box; }
};

QImage greyImage(QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(qRgb(90, 90, 90));
    return image;
}

void showAndSettle(OverlayPanel &panel)
{
    panel.present(false);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&panel));
    QCoreApplication::sendPostedEvents();
}

} // namespace

TEST(OverlayPanel, PaintsEverythingOnceWhenTheWindowSystemCannotDrawTheBackdrop)
{
    FakeDesktop desktop;
    RecordingPanel panel(desktop, greyImage({320, 240}));
    showAndSettle(panel);

    ASSERT_EQ(panel.painted.size(), 1u);
    EXPECT_EQ(panel.painted[0], QRegion(0, 0, 320, 240));
    EXPECT_EQ(desktop.overlays, QList<QWindow *>{&panel});
}

TEST(OverlayPanel, PaintsOnlyItsDecorationsWhenTheWindowSystemDrawsTheBackdrop)
{
    FakeDesktop desktop;
    desktop.drawsOverlayBackdrops = true;
    RecordingPanel panel(desktop, greyImage({320, 240}));
    showAndSettle(panel);

    EXPECT_EQ(desktop.backdropsDrawn, 1);
    ASSERT_EQ(panel.painted.size(), 1u);
    EXPECT_EQ(panel.painted[0], QRegion(panel.box));

    // Changes are painted where they are, and the backdrop is left to the window system.
    panel.update(QRect(0, 0, 10, 10));
    panel.update(QRect(300, 200, 10, 10));
    panel.update(QRect(310, 230, 100, 100));  // partly off the panel
    EXPECT_EQ(panel.pendingRepaint(), QRegion(0, 0, 10, 10) + QRegion(300, 200, 10, 10) + QRegion(310, 230, 10, 10));
    QCoreApplication::sendPostedEvents();
    ASSERT_EQ(panel.painted.size(), 2u);
    EXPECT_EQ(panel.painted[1], QRegion(0, 0, 10, 10) + QRegion(300, 200, 10, 10) + QRegion(310, 230, 10, 10));
    EXPECT_EQ(desktop.backdropsDrawn, 1);
}

TEST(OverlayPanel, BackdropShortOfThePanelLeavesBlackNotGarbage)
{
    FakeDesktop desktop;
    RecordingPanel panel(desktop, greyImage({319, 239}));
    QImage image(320, 240, QImage::Format_RGB32);
    image.fill(qRgb(255, 0, 0));
    QPainter painter(&image);
    panel.paint(painter);
    painter.end();
    EXPECT_EQ(image.pixel(319, 5), qRgb(0, 0, 0));
    EXPECT_EQ(image.pixel(5, 239), qRgb(0, 0, 0));
    EXPECT_EQ(image.pixel(5, 5), qRgb(90, 90, 90));
}
