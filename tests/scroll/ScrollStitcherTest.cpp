#include "image/ImageMemory.h"

#include "ScrollScenario.h"
#include "TerminalDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QPainter>

#include <iostream>

namespace pixmora {
namespace {

using namespace synthetic;
using Kind = AppendResult::Kind;

// Text, pictures, blank stretches and stripes scrolled by random shifts, frame
// heights and limits (see scrollThrough for every promise checked on the way).
TEST(ScrollStitcher, SyntheticDocumentsScrolledAtRandomComposeToTheirGroundTruth)
{
    std::mt19937 random(20240611);
    const auto uniform = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    std::vector<std::string> faults;
    ScrollTally varied, all;
    for (DocumentStyle style : {DocumentStyle::varied, DocumentStyle::blankStretches, DocumentStyle::stripes}) {
        for (int documentIndex = 0; documentIndex < 8; ++documentIndex) {
            const QImage document = makeDocument(uniform(120, 280), 2400, 320, style, random);
            for (int run = 0; run < 3; ++run) {
                const int frameHeight = uniform(120, 320);
                const qint64 limit = run == 0 ? uniform(frameHeight / 2, 2000) : 24000;
                (style == DocumentStyle::varied ? varied : all).add(scrollThrough(document, frameHeight, limit, random, faults));
            }
        }
    }
    // Up to the 24000-row ceiling over two slabs, with frames whose least overlap is 12%, not 48 rows.
    varied.add(scrollThrough(makeDocument(120, 25000, 1000, DocumentStyle::varied, random), 1000, 24000, random, faults));
    all.add(varied);
    std::cout << "[ quality  ] " << all.summary() << "\n";
    EXPECT_THAT(faults, testing::IsEmpty());
    // Text and pictures never repeat: there every move within reach must be found.
    EXPECT_EQ(varied.casesAllAccepted, varied.cases);
}

std::vector<QSize> requestedSizes;
bool outOfMemory = false;

// Rows padded and full of garbage, as a foreign allocator may hand them out; nothing when out of memory.
QImage paddedGarbageImage(QSize size, QImage::Format format)
{
    if (outOfMemory)
        return {};
    requestedSizes.push_back(size);
    const qsizetype bytesPerLine = qsizetype(size.width()) * 4 + 60;
    auto *pixels = new uchar[std::size_t(bytesPerLine * size.height())];
    std::fill_n(pixels, bytesPerLine * size.height(), uchar(0x5a));
    return QImage(pixels, size.width(), size.height(), bytesPerLine, format,
                  [](void *memory) { delete[] static_cast<uchar *>(memory); }, pixels);
}

// One capture walked through every kind of result, each threshold one step
// either side, with an allocator that runs out once: a refused frame never
// becomes the reference, and the limit cuts the last strip.
TEST(ScrollStitcher, OneCaptureMeetsEveryKindOfResultAndRunsOutOfMemoryOnce)
{
    const auto grayNoise = [](int brighter) { // clear of black and white, so that no change is clipped
        std::mt19937 random(12);
        return makeNoise(100, 800, random, 20 + brighter, 220 + brighter);
    };
    const QImage document = grayNoise(0);
    EXPECT_EQ(ScrollStitcher::create(frameAt(document, 0, 119), 24000), nullptr);
    requestedSizes.clear();
    setImageAllocator(paddedGarbageImage);
    struct DefaultAllocatorAfterwards {
        ~DefaultAllocatorAfterwards() { setImageAllocator(nullptr); }
    } restore;
    // Both the slab made ahead on the worker and the one tried again for the first strip fail.
    outOfMemory = true;
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 200), 300);
    ASSERT_NE(stitcher, nullptr);
    EXPECT_EQ(stitcher->append(grayNoise(-6).copy(0, 0, 100, 200)).kind, Kind::noMovement); // bands 6 levels apart match
    EXPECT_EQ(stitcher->append(grayNoise(7).copy(0, 0, 100, 200)).kind, Kind::noMatch);

    // Moved by 40 with the top of the overlap replaced: 104 of its 160 rows (65%) must still match.
    std::mt19937 random(13);
    QImage moved = document.copy(0, 40, 100, 200);
    QPainter(&moved).drawImage(0, 0, makeNoise(100, 57, random));
    EXPECT_EQ(stitcher->append(moved).kind, Kind::noMatch);
    QPainter(&moved).drawImage(0, 56, document.copy(0, 96, 100, 1));
    EXPECT_EQ(stitcher->append(moved).kind, Kind::noMatch);
    outOfMemory = false;
    EXPECT_EQ(stitcher->append(moved).rows, 40);
    EXPECT_TRUE(moved.isDetached()); // the strip is a copy: the frame is not kept alive
    outOfMemory = true;
    EXPECT_TRUE(stitcher->compose().isNull());
    outOfMemory = false;
    EXPECT_EQ(stitcher->append(frameAt(document, 140, 200)).kind, Kind::limitReached); // into the same slab
    EXPECT_EQ(stitcher->append(frameAt(document, 240, 200)).kind, Kind::limitReached);
    EXPECT_TRUE(samePixels(stitcher->compose(), document.copy(0, 0, 100, 300)));
    EXPECT_EQ(requestedSizes, (std::vector<QSize>{{100, 100}, {100, 300}}));
}

// A moved frame adds exactly the rows that came into view, and nothing once less
// than 12% of the frame or 48 rows overlap, for narrow, odd and wide frames, and
// where only a few rows tell the shift apart.
TEST(ScrollStitcher, AddsTheRowsAMovedFrameBringsIntoView)
{
    struct Case {
        QImage document, moved; // the moved frame is cut from moved
        int height, shift, rows;
        Kind kind;
    };
    std::vector<Case> cases;
    std::mt19937 random(3);
    for (const auto &[width, height, largest] : {std::tuple{8, 120, 72}, {333, 257, 209}, {1000, 1000, 880}}) {
        const QImage document = makeNoise(width, 2 * height, random);
        cases.push_back({document, document, height, largest + 1, 0, Kind::noMatch});
    }
    // On white, (200 - 2 x block) / 200 of the rows look unmoved. Where the
    // block has re-rendered a level lighter, no row is exactly equal and a move
    // must match 15% more than that; rows that are exactly equal show any move.
    for (int blockRows : {16, 15}) {
        QImage page(300, 400, QImage::Format_RGB32);
        page.fill(Qt::white);
        const QImage block = makeNoise(300, blockRows, random, 0, 254);
        QPainter(&page).drawImage(0, 100, block);
        QImage rerendered = page.copy();
        QPainter(&rerendered).drawImage(0, 100, brightened(block, 1));
        cases.push_back({page, page, 200, 40, 40, Kind::appended});
        cases.push_back({page, rerendered, 200, 40, blockRows == 16 ? 40 : 0, blockRows == 16 ? Kind::appended : Kind::noMovement});
    }
    // Two equal 4-row marks on white, 60 rows apart: moved by 150, the frame shows the second
    // 90 rows above where the first stood. So few equal rows prove no move: nothing is added.
    QImage marks(300, 400, QImage::Format_RGB32);
    marks.fill(Qt::white);
    const QImage mark = makeNoise(300, 4, random);
    QPainter(&marks).drawImage(0, 140, mark);
    QPainter(&marks).drawImage(0, 200, mark);
    cases.push_back({marks, marks, 200, 150, 0, Kind::noMovement});
    // Re-rendered a level lighter, so that only the tolerant search can align it, which samples
    // every eighth row, here all alike: the sampled pass settles on 8, the full one on 16.
    QImage sampledAlike = makeNoise(200, 400, random);
    for (int y = 8; y < sampledAlike.height(); y += 8)
        std::memcpy(sampledAlike.scanLine(y), sampledAlike.constScanLine(0), std::size_t(sampledAlike.bytesPerLine()));
    cases.push_back({sampledAlike, brightened(sampledAlike, 1), 200, 16, 16, Kind::appended});

    for (const auto &[document, moved, height, shift, rows, kind] : cases) {
        SCOPED_TRACE(testing::Message() << document.width() << "x" << height << " moved by " << shift);
        const auto stitcher = ScrollStitcher::create(frameAt(document, 0, height), 24000);
        const AppendResult result = stitcher->append(frameAt(moved, shift, height));
        EXPECT_EQ(result.kind, kind);
        EXPECT_EQ(result.rows, rows);
        QImage page = document.copy(0, 0, document.width(), height + rows);
        QPainter(&page).drawImage(0, height, moved.copy(0, height, moved.width(), rows));
        EXPECT_TRUE(samePixels(stitcher->compose(), page));
    }
}

// A frame grabbed while the content repainted (its upper rows moved by 20,
// its lower ones already by 60) adds nothing, and the next frame is aligned
// with the last good one. A fixed header above rows that moved is no such frame.
TEST(ScrollStitcher, AFrameCaughtMidRepaintIsSkipped)
{
    std::mt19937 random(41);
    const QImage document = makeNoise(200, 700, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 300), 24000);
    QImage torn = frameAt(document, 20, 300).copy();
    QPainter(&torn).drawImage(0, 200, document.copy(0, 260, 200, 100));
    EXPECT_EQ(stitcher->append(torn).kind, Kind::noMovement);
    EXPECT_EQ(stitcher->append(frameAt(document, 100, 300)).rows, 100);
    EXPECT_TRUE(samePixels(stitcher->compose(), document.copy(0, 0, 200, 400)));
    QImage headed = frameAt(document, 140, 300).copy();
    QPainter(&headed).drawImage(0, 0, document.copy(0, 100, 200, 30));
    EXPECT_EQ(stitcher->append(headed).rows, 40);
}

// Terminal output scrolled by wheel notches of five lines, once held still and
// once scrolled back a notch, then by random shifts: lines that look alike
// (number columns, numbered lines, time-stamped logs) align like prose and code.
TEST(ScrollStitcher, TerminalTextComposesToItsText)
{
    std::mt19937 random(31);
    std::vector<int> tops;
    std::vector<Kind> expected;
    for (int notch = 1; notch <= 12; ++notch) {
        tops.push_back(notch * kWheelNotch);
        expected.push_back(Kind::appended);
        if (notch == 4 || notch == 8) {
            tops.push_back((notch == 4 ? notch : notch - 1) * kWheelNotch);
            expected.push_back(notch == 4 ? Kind::noMovement : Kind::noMatch);
        }
    }
    for (TerminalText text : kTerminalTexts) {
        SCOPED_TRACE(int(text));
        const QImage document = renderTerminal(terminalLines(text, 200, random));
        const StepRun notches = scrollInSteps(document, kTerminalFrameHeight, tops);
        EXPECT_EQ(notches.kinds, expected);
        EXPECT_TRUE(notches.exact);
        std::vector<std::string> faults;
        EXPECT_EQ(scrollThrough(document, kTerminalFrameHeight, 24000, random, faults).casesAllAccepted, 1);
        EXPECT_THAT(faults, testing::IsEmpty());
        if (text != TerminalText::prose && text != TerminalText::code)
            continue;
        const QImage darker = brightened(document, -1);
        const auto stitcher = ScrollStitcher::create(frameAt(document, 0, kTerminalFrameHeight), 24000);
        QImage page = document.copy(0, 0, kTerminalWidth, 12 * kWheelNotch + kTerminalFrameHeight);
        for (int notch = 1; notch <= 12; ++notch) {
            const QImage &source = notch % 3 == 0 ? darker : document;
            EXPECT_EQ(stitcher->append(frameAt(source, notch * kWheelNotch, kTerminalFrameHeight)).rows, kWheelNotch) << notch;
            const int stripTop = notch * kWheelNotch + kTerminalFrameHeight - kWheelNotch;
            QPainter(&page).drawImage(0, stripTop, source.copy(0, stripTop, kTerminalWidth, kWheelNotch));
        }
        EXPECT_TRUE(samePixels(stitcher->compose(), page));
    }
}

} // namespace
} // namespace pixmora
