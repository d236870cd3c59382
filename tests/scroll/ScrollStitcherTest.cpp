#include "scroll/ScrollStitcher.h"

#include "SyntheticDocument.h"

#include <gtest/gtest.h>

#include <QColorSpace>
#include <QPainter>

#include <cstring>

namespace pixmora {
namespace {

using Kind = AppendResult::Kind;
using synthetic::frameAt;
using synthetic::makeNoise;
using synthetic::samePixels;

constexpr qint64 kLimit = 24000;

QImage filled(int width, int height, QRgb color)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(color);
    return image;
}

// Every pixel of the image made lighter (or darker) by delta gray levels.
QImage brightened(const QImage &image, int delta)
{
    QImage result = image.copy();
    for (int y = 0; y < result.height(); ++y) {
        QRgb *pixels = reinterpret_cast<QRgb *>(result.scanLine(y));
        for (int x = 0; x < result.width(); ++x) {
            const int gray = qGray(pixels[x]) + delta;
            pixels[x] = qRgb(gray, gray, gray);
        }
    }
    return result;
}

TEST(ScrollStitcherCreation, RefusesFramesUnder120By8AndTakesTheirSizeOtherwise)
{
    EXPECT_EQ(ScrollStitcher::create(filled(8, 119, qRgb(1, 2, 3)), kLimit), nullptr);
    EXPECT_EQ(ScrollStitcher::create(filled(7, 120, qRgb(1, 2, 3)), kLimit), nullptr);
    EXPECT_EQ(ScrollStitcher::create(QImage(), kLimit), nullptr);

    const auto smallest = ScrollStitcher::create(filled(8, 120, qRgb(1, 2, 3)), kLimit);
    ASSERT_NE(smallest, nullptr);
    EXPECT_EQ(smallest->frameWidth(), 8);
    EXPECT_EQ(smallest->frameHeight(), 120);
    EXPECT_EQ(smallest->totalHeight(), 120);
    EXPECT_EQ(smallest->maxTotalHeight(), kLimit);
}

TEST(ScrollStitcherCreation, ALimitBelowTheFrameHeightLeavesTheStitcherFullFromTheStart)
{
    std::mt19937 random(1);
    const QImage document = makeNoise(64, 400, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), 150);
    ASSERT_NE(stitcher, nullptr);
    EXPECT_EQ(stitcher->maxTotalHeight(), 200);
    EXPECT_EQ(stitcher->append(frameAt(document, 50, 200)).kind, Kind::limitReached);
    EXPECT_EQ(stitcher->append(filled(3, 3, qRgb(0, 0, 0))).kind, Kind::limitReached);
    EXPECT_EQ(stitcher->totalHeight(), 200);
}

TEST(ScrollStitcherCompose, WithOnlyTheFirstFrameReturnsThatFrame)
{
    std::mt19937 random(2);
    const QImage first = makeNoise(130, 140, random);
    const auto stitcher = ScrollStitcher::create(first, kLimit);
    ASSERT_NE(stitcher, nullptr);
    const QImage composed = stitcher->compose();
    EXPECT_EQ(composed.format(), first.format());
    EXPECT_TRUE(samePixels(composed, first));
}

// Content moved up by s rows and otherwise unchanged: exactly the s new rows
// at the bottom are added, for every frame shape and every shift the search
// covers; one row further the overlap is too small.
struct ShiftCase {
    int width;
    int height;
    std::vector<int> shifts;
    int firstShiftTooFar;
};

class ScrollStitcherShift : public testing::TestWithParam<ShiftCase> {};

TEST_P(ScrollStitcherShift, AddsExactlyTheRowsThatCameIntoView)
{
    const ShiftCase &shape = GetParam();
    std::mt19937 random(3);
    const QImage document = makeNoise(shape.width, shape.height * 2, random);
    for (int shift : shape.shifts) {
        SCOPED_TRACE(testing::Message() << shape.width << "x" << shape.height << " moved by " << shift);
        const auto stitcher = ScrollStitcher::create(frameAt(document, 0, shape.height), kLimit);
        ASSERT_NE(stitcher, nullptr);
        const AppendResult result = stitcher->append(frameAt(document, shift, shape.height));
        ASSERT_EQ(result.kind, Kind::appended);
        EXPECT_EQ(result.rows, shift);
        EXPECT_EQ(stitcher->totalHeight(), shape.height + shift);
        EXPECT_TRUE(samePixels(stitcher->compose(), document.copy(0, 0, shape.width, shape.height + shift)));
    }
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, shape.height), kLimit);
    ASSERT_NE(stitcher, nullptr);
    EXPECT_EQ(stitcher->append(frameAt(document, shape.firstShiftTooFar, shape.height)).kind, Kind::noMatch);
}

INSTANTIATE_TEST_SUITE_P(
    FrameShapes, ScrollStitcherShift,
    testing::Values(ShiftCase{8, 120, {1, 2, 9, 17, 71, 72}, 73},
                    ShiftCase{40, 300, {1, 8, 100, 251, 252}, 253},     // 12% is 36 rows, raised to 48
                    ShiftCase{1000, 1000, {1, 3, 500, 879, 880}, 881},  // 64 bands of 15 or 16 pixels
                    ShiftCase{333, 257, {5, 64, 128, 209}, 210}));

TEST(ScrollStitcherMovement, SameContentOrABlankPageIsNoMovement)
{
    std::mt19937 random(4);
    const QImage first = makeNoise(200, 200, random);
    const auto stitcher = ScrollStitcher::create(first, kLimit);
    ASSERT_NE(stitcher, nullptr);
    EXPECT_EQ(stitcher->append(first.copy()).kind, Kind::noMovement);

    const auto blank = ScrollStitcher::create(filled(200, 200, qRgb(255, 255, 255)), kLimit);
    ASSERT_NE(blank, nullptr);
    EXPECT_EQ(blank->append(filled(200, 200, qRgb(255, 255, 255))).kind, Kind::noMovement);
    EXPECT_EQ(blank->totalHeight(), 200);
}

TEST(ScrollStitcherMovement, BandsDifferingBySixGrayLevelsStillMatchButSevenDoNot)
{
    std::mt19937 random(5);
    // Clear of black and white, so that no change is clipped.
    const QImage first = makeNoise(256, 150, random, 20, 220);
    const auto stitcher = ScrollStitcher::create(first, kLimit);
    ASSERT_NE(stitcher, nullptr);
    EXPECT_EQ(stitcher->append(brightened(first, 6)).kind, Kind::noMovement);
    EXPECT_EQ(stitcher->append(brightened(first, -6)).kind, Kind::noMovement);
    EXPECT_EQ(stitcher->append(brightened(first, 7)).kind, Kind::noMatch);
    EXPECT_EQ(stitcher->totalHeight(), 150);
}

// A narrow frame compares every column on its own; a wide one averages bands
// of 15 or 16 pixels, so one column turning from black to white no longer
// breaks a row match.
TEST(ScrollStitcherMovement, OneChangedColumnMattersOnlyInNarrowFrames)
{
    for (const auto &[width, expected] : {std::pair{40, Kind::noMatch}, std::pair{1000, Kind::noMovement}}) {
        SCOPED_TRACE(width);
        std::mt19937 random(6);
        QImage first = makeNoise(width, 150, random);
        QImage changed = first.copy();
        for (int y = 0; y < first.height(); ++y) {
            first.setPixel(17, y, qRgb(0, 0, 0));
            changed.setPixel(17, y, qRgb(255, 255, 255));
        }
        const auto stitcher = ScrollStitcher::create(first, kLimit);
        ASSERT_NE(stitcher, nullptr);
        EXPECT_EQ(stitcher->append(changed).kind, expected);
    }
}

// Blank except for one block of varied rows: the stillness ratio is the share
// of rows outside both copies of the block, and the aligned score is 1.
TEST(ScrollStitcherMovement, OnAMostlyBlankPageMovementMustBeatStillnessByMoreThanFifteenPercent)
{
    for (const auto &[blockRows, expected] :
         {std::pair{16, Kind::appended}, std::pair{15, Kind::noMovement}, std::pair{14, Kind::noMovement}}) {
        SCOPED_TRACE(blockRows);
        std::mt19937 random(7);
        QImage document = filled(300, 400, qRgb(255, 255, 255));
        QPainter(&document).drawImage(0, 100, makeNoise(300, blockRows, random));
        // Frames 200 tall, moved by 40: stillness (200 - 2 x block) / 200 is 0.84, 0.85 or 0.86.
        const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), kLimit);
        ASSERT_NE(stitcher, nullptr);
        const AppendResult result = stitcher->append(frameAt(document, 40, 200));
        EXPECT_EQ(result.kind, expected);
        if (expected == Kind::appended) {
            EXPECT_EQ(result.rows, 40);
        }
    }
}

// Overlap rows replaced by unrelated ones: an aligned score of 104/160 = 0.65 is
// enough, 103/160 is not.
TEST(ScrollStitcherMovement, AnAlignmentNeedsTwoThirdsOfTheOverlapToMatch)
{
    for (const auto &[spoiledRows, expected] : {std::pair{56, Kind::appended}, std::pair{57, Kind::noMatch}}) {
        SCOPED_TRACE(spoiledRows);
        std::mt19937 random(8);
        const QImage document = makeNoise(300, 400, random);
        QImage moved = frameAt(document, 40, 200);
        QPainter(&moved).drawImage(0, 0, makeNoise(300, spoiledRows, random));
        const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), kLimit);
        ASSERT_NE(stitcher, nullptr);
        const AppendResult result = stitcher->append(moved);
        EXPECT_EQ(result.kind, expected);
        if (expected == Kind::appended) {
            EXPECT_EQ(result.rows, 40);
            EXPECT_TRUE(samePixels(stitcher->compose(), document.copy(0, 0, 300, 240)));
        }
    }
}

// Rejected frames leave the reference alone: after a jump past the minimum
// overlap, frames are still compared with the last accepted one.
TEST(ScrollStitcherMovement, AJumpPastTheMinimumOverlapIsRefusedUntilAFrameOverlapsTheReferenceAgain)
{
    std::mt19937 random(9);
    const QImage document = makeNoise(64, 2200, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 1000), kLimit);
    ASSERT_NE(stitcher, nullptr);

    EXPECT_EQ(stitcher->append(frameAt(document, 881, 1000)).kind, Kind::noMatch);
    EXPECT_EQ(stitcher->append(frameAt(document, 1100, 1000)).kind, Kind::noMatch);
    EXPECT_EQ(stitcher->totalHeight(), 1000);

    const AppendResult back = stitcher->append(frameAt(document, 880, 1000));
    ASSERT_EQ(back.kind, Kind::appended);
    EXPECT_EQ(back.rows, 880);
    const AppendResult next = stitcher->append(frameAt(document, 1100, 1000));
    ASSERT_EQ(next.kind, Kind::appended);
    EXPECT_EQ(next.rows, 220);
    EXPECT_TRUE(samePixels(stitcher->compose(), document.copy(0, 0, 64, 2100)));
}

TEST(ScrollStitcherMovement, AFrameOfAnotherSizeIsNoMatchAndChangesNothing)
{
    std::mt19937 random(10);
    const QImage document = makeNoise(160, 500, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), kLimit);
    ASSERT_NE(stitcher, nullptr);
    EXPECT_EQ(stitcher->append(document.copy(0, 30, 159, 200)).kind, Kind::noMatch);
    EXPECT_EQ(stitcher->append(document.copy(0, 30, 160, 201)).kind, Kind::noMatch);
    EXPECT_EQ(stitcher->append(QImage()).kind, Kind::noMatch);
    EXPECT_EQ(stitcher->totalHeight(), 200);

    const AppendResult result = stitcher->append(frameAt(document, 30, 200));
    ASSERT_EQ(result.kind, Kind::appended);
    EXPECT_EQ(result.rows, 30);
}

// Every eighth row is the same line, so the sampled search, which looks only
// at every eighth row, scores every multiple of 8 alike and settles on 8; the
// row-by-row search around it reaches the true shift, 8 rows further.
TEST(ScrollStitcherMovement, TheFullSearchCorrectsTheSampledOneByUpToEightRows)
{
    std::mt19937 random(17);
    QImage document = makeNoise(200, 400, random);
    for (int row = 8; row < document.height(); row += 8)
        std::memcpy(document.scanLine(row), document.constScanLine(0), 200 * sizeof(QRgb));
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), kLimit);
    ASSERT_NE(stitcher, nullptr);
    const AppendResult result = stitcher->append(frameAt(document, 16, 200));
    ASSERT_EQ(result.kind, Kind::appended);
    EXPECT_EQ(result.rows, 16);
}

// On a pattern of period p every shift congruent to the true one scores
// alike; both searches give ties to the smallest shift.
TEST(ScrollStitcherMovement, RepeatingStripesAlignOnTheSmallestEquivalentShift)
{
    struct Case {
        int period;
        int movedBy;
        int expectedRows;
    };
    for (const Case &stripes : {Case{20, 27, 7}, Case{30, 95, 5}, Case{4, 7, 3}, Case{5, 12, 2}}) {
        SCOPED_TRACE(testing::Message() << "period " << stripes.period << " moved by " << stripes.movedBy);
        std::mt19937 random(11);
        const QImage pattern = makeNoise(120, stripes.period, random);
        QImage document(120, 600, QImage::Format_RGB32);
        for (int y = 0; y < document.height(); ++y)
            std::memcpy(document.scanLine(y), pattern.constScanLine(y % stripes.period), 120 * sizeof(QRgb));
        const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 250), kLimit);
        ASSERT_NE(stitcher, nullptr);
        const AppendResult result = stitcher->append(frameAt(document, stripes.movedBy, 250));
        ASSERT_EQ(result.kind, Kind::appended);
        EXPECT_EQ(result.rows, stripes.expectedRows);
    }
}

TEST(ScrollStitcherLimit, TheLastStripIsCutShortAndEveryLaterFrameIsRefused)
{
    std::mt19937 random(12);
    const QImage document = makeNoise(100, 800, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), 330);
    ASSERT_NE(stitcher, nullptr);
    const AppendResult first = stitcher->append(frameAt(document, 100, 200));
    ASSERT_EQ(first.kind, Kind::appended);
    EXPECT_EQ(first.rows, 100);

    EXPECT_EQ(stitcher->append(frameAt(document, 200, 200)).kind, Kind::limitReached);
    EXPECT_EQ(stitcher->totalHeight(), 330);
    // The upper 30 of the 100 new rows, directly under what was there.
    EXPECT_TRUE(samePixels(stitcher->compose(), document.copy(0, 0, 100, 330)));
    EXPECT_EQ(stitcher->append(frameAt(document, 300, 200)).kind, Kind::limitReached);
    EXPECT_EQ(stitcher->totalHeight(), 330);
}

TEST(ScrollStitcherLimit, ReachingTheLimitExactlyReportsLimitReached)
{
    std::mt19937 random(13);
    const QImage document = makeNoise(100, 800, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), 300);
    ASSERT_NE(stitcher, nullptr);
    EXPECT_EQ(stitcher->append(frameAt(document, 100, 200)).kind, Kind::limitReached);
    EXPECT_EQ(stitcher->totalHeight(), 300);
    EXPECT_TRUE(samePixels(stitcher->compose(), document.copy(0, 0, 100, 300)));
}

TEST(ScrollStitcherFormats, TranslucentPixelsAndOtherFormatsComposeExactly)
{
    std::mt19937 random(14);
    QImage document = makeNoise(150, 600, random).convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < document.height(); ++y) {
        QRgb *pixels = reinterpret_cast<QRgb *>(document.scanLine(y));
        for (int x = 0; x < document.width(); x += 3)
            pixels[x] = qPremultiply(qRgba(qRed(pixels[x]), 90, 200, (x * 7 + y) % 256));
    }
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), kLimit);
    ASSERT_NE(stitcher, nullptr);
    ASSERT_EQ(stitcher->append(frameAt(document, 60, 200)).rows, 60);
    // Non-premultiplied frames are read as their premultiplied equivalent.
    const QImage straight = frameAt(document, 150, 200).convertToFormat(QImage::Format_ARGB32);
    ASSERT_EQ(stitcher->append(straight).rows, 90);

    const QImage composed = stitcher->compose();
    EXPECT_EQ(composed.format(), QImage::Format_ARGB32_Premultiplied);
    EXPECT_TRUE(samePixels(composed, document.copy(0, 0, 150, 350)));
}

TEST(ScrollStitcherFormats, OpaqueFramesInOtherFormatsStitchAsTheirRgbValues)
{
    std::mt19937 random(15);
    const QImage document = synthetic::makeDocument(240, 700, 200, synthetic::DocumentStyle::varied, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200).convertToFormat(QImage::Format_RGB888), kLimit);
    ASSERT_NE(stitcher, nullptr);
    ASSERT_EQ(stitcher->append(frameAt(document, 70, 200).convertToFormat(QImage::Format_RGBX8888)).rows, 70);
    ASSERT_EQ(stitcher->append(frameAt(document, 150, 200)).rows, 80);
    const QImage composed = stitcher->compose();
    EXPECT_EQ(composed.format(), QImage::Format_RGB32);
    EXPECT_TRUE(samePixels(composed, document.copy(0, 0, 240, 350)));
}

TEST(ScrollStitcherFormats, TheComposedImageTakesTheFirstFramesColourSpaceOrElseSrgb)
{
    std::mt19937 random(18);
    const QImage document = makeNoise(150, 400, random);
    for (const QColorSpace &space : {QColorSpace(), QColorSpace(QColorSpace::DisplayP3)}) {
        QImage first = frameAt(document, 0, 200).copy();
        first.setColorSpace(space);
        const auto stitcher = ScrollStitcher::create(first, kLimit);
        ASSERT_NE(stitcher, nullptr);
        ASSERT_EQ(stitcher->append(frameAt(document, 50, 200)).rows, 50);
        const QColorSpace expected = space.isValid() ? space : QColorSpace(QColorSpace::SRgb);
        EXPECT_EQ(stitcher->compose().colorSpace(), expected);
    }
}

// Each strip owns a copy of its rows: an accepted frame is not kept alive.
TEST(ScrollStitcherMemory, AnAcceptedFrameIsNotRetained)
{
    std::mt19937 random(16);
    const QImage document = makeNoise(200, 600, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 300), kLimit);
    ASSERT_NE(stitcher, nullptr);
    const QImage frame = document.copy(0, 100, 200, 300);
    ASSERT_EQ(stitcher->append(frame).kind, Kind::appended);
    EXPECT_TRUE(frame.isDetached());
}

} // namespace
} // namespace pixmora
