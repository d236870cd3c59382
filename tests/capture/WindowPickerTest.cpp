#include "capture/WindowPickerController.h"
#include "capture/WindowPickerView.h"
#include "platform/fake/FakePlatform.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPalette>
#include <QTest>

#include <gtest/gtest.h>

using namespace pixmora;

namespace {

WindowInfo window(quint64 id, QRect frame)
{
    return {id, frame, QStringLiteral("Notes"), QStringLiteral("Editor"), 4242, 0, true, false};
}

class WindowPickerTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        picker.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void open(WindowList windows, DisplaySnapshots backdrops = {},
              DisplayList displays = {{1, {0, 0, 800, 600}, {}, 1.0, {}}, {2, {800, 0, 800, 600}, {}, 1.0, {}}})
    {
        picker = std::make_unique<WindowPickerController>(
            std::move(windows), displays, std::move(backdrops), desktop,
            [this](std::optional<WindowInfo> picked) { results.push_back(picked ? picked->id : 0); },
            [this] { return cursor; });
        picker->begin();
    }

    FakeDesktop desktop;
    QPoint cursor;
    std::vector<quint64> results;  // 0 for nothing picked
    std::unique_ptr<WindowPickerController> picker;
};

} // namespace

TEST_F(WindowPickerTest, OffersOrdinaryWindowsOfOtherProgramsHitsTheTopmostAndNamesIt)
{
    const QRect big(0, 0, 300, 300);
    const qint64 ownPid = QCoreApplication::applicationPid();
    open({// id, frame, title, application, pid, layer, on screen, ours
          {1, {0, 0, 39, 300}, {}, {}, 1, 0, true, false},  {2, {0, 0, 300, 39}, {}, {}, 1, 0, true, false},
          {3, {10, 10, 40, 40}, {}, {}, 1, 0, true, false}, {4, big, {}, {}, 1, -1, true, false},
          {5, big, {}, {}, 1, 19, true, false},             {6, big, {}, {}, 1, 20, true, false},
          {7, big, {}, {}, 1, 0, true, true},               {8, big, {}, {}, ownPid, 0, true, false},
          {9, big, {}, {}, 1, 0, false, false},             {10, big, {}, {}, 0, 0, true, false}});
    std::vector<quint64> ids;
    for (const WindowInfo &w : picker->candidates())
        ids.push_back(w.id);
    EXPECT_EQ(ids, (std::vector<quint64>{3, 5, 10}));

    open({window(2, {100, 100, 300, 200}), window(1, {200, 150, 400, 400})});
    EXPECT_EQ(picker->windowUnder({250, 200})->id, 2u);
    EXPECT_EQ(picker->windowUnder({400, 250})->id, 1u);  // the right edge belongs to the neighbour
    EXPECT_EQ(picker->windowUnder({150, 300}), std::nullopt);

    EXPECT_EQ(WindowPickerView::labelText(window(1, {})), QString::fromUtf8("Editor — Notes"));
}

// LEFT at scale 2 is 960 points wide from 0; RIGHT starts at its pixel origin,
// 1920. A window from pixel 1500 to 2500 is 750..1250 in LEFT's points and
// 1500..2500 in RIGHT's: each display outlines it by its own measure, a click
// on either part picks it, and the label sits whole on the display under the
// pointer. Clicks land at the first panel's corner: the picker must go by the
// pointer's global position. A click on nothing beeps and cancels.
TEST_F(WindowPickerTest, AWindowAcrossDisplaysOfDifferentScalesIsOutlinedAndPickedOnEach)
{
    QImage white(1920, 1080, QImage::Format_RGB32);
    white.fill(Qt::white);
    WindowInfo spanning = window(7, {1500, 100, 1000, 600});
    spanning.displays = {{1, {750, 50, 500, 300}}, {2, {1500, 100, 1000, 600}}};
    const DisplayList displays = {{1, {0, 0, 960, 1080}, {}, 2.0, {}}, {2, {1920, 0, 1920, 1080}, {}, 1.0, {}}};
    const QRgb accent = QGuiApplication::palette().color(QPalette::Highlight).rgb();
    const auto rendered = [this](int view) {
        QImage image(picker->views().at(view)->size(), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        picker->views().at(view)->paint(painter);
        return image;
    };
    // Dark label pixels around a point of the view; none where there is no label.
    const auto labelAt = [](const QImage &image, QPoint centre) {
        int darkest = 255;
        for (int x = centre.x() - 12; x <= centre.x() + 12; ++x)
            darkest = std::min(darkest, qGray(image.pixel(x, centre.y())));
        return darkest < 100;
    };
    const auto click = [this] {
        QMouseEvent press(QEvent::MouseButtonPress, {1, 1}, {1, 1}, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(picker->views().at(0), &press);
    };

    struct Case {
        QPoint pointer;
        bool picks;
        bool labelOnLeft;  // else on the right
    };
    for (const Case &c : {Case{{800, 200}, true, true}, Case{{2000, 400}, true, false}, Case{{800, 380}, false, true},
                          Case{{2600, 400}, false, false}}) {
        SCOPED_TRACE(testing::Message() << c.pointer.x() << "," << c.pointer.y());
        cursor = c.pointer;
        open({spanning}, {{1, white}, {2, white}}, displays);
        if (c.picks) {
            const QImage left = rendered(0);
            const QImage right = rendered(1);
            EXPECT_EQ(left.pixel(750, 200), accent) << "the window's left edge, in LEFT's points";
            EXPECT_EQ(right.pixel(300, 100), accent) << "its top edge on RIGHT";
            // Centred on the part each display shows: 750..960 on LEFT, 1920..2500 on RIGHT.
            EXPECT_EQ(labelAt(left, {855, 200}), c.labelOnLeft);
            EXPECT_EQ(labelAt(right, {290, 400}), !c.labelOnLeft);
        }
        const int beeps = desktop.beeps;
        click();
        EXPECT_EQ(results.back(), c.picks ? 7u : 0u);
        EXPECT_EQ(desktop.beeps - beeps, c.picks ? 0 : 1);
    }

    open({spanning}, {{1, white}, {2, white}}, displays);
    for (const Qt::Key key : {Qt::Key_A, Qt::Key_Return})
        QTest::keyClick(desktop.keyboardOverlay, key);
    EXPECT_EQ(results.size(), 4u);
    QTest::keyClick(desktop.keyboardOverlay, Qt::Key_Escape);
    EXPECT_EQ(results.size(), 5u);
    EXPECT_EQ(results.back(), 0u);
}
