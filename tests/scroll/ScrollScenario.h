#pragma once

// Synthetic documents and a simulated scrolling capture over them, checked
// against the document itself; shared by the unit tests and the benchmarks.

#include "scroll/ScrollStitcher.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace pixmora::synthetic {

// Varied documents have gaps under the 48-row minimum overlap, so that no overlap is ambiguous; the others
// add blank gaps or runs of a repeating pattern from half a frame to two frames long.
enum class DocumentStyle { varied, blankStretches, stripes };

// Lines of random glyphs with ragged ends, grainy block pictures and rules on white paper.
inline QImage makeDocument(int width, int height, int frameHeight, DocumentStyle style, std::mt19937 &random)
{
    const auto uniform = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    const auto chance = [&](double probability) { return std::bernoulli_distribution(probability)(random); };
    const auto color = [&](int low, int high) { return qRgb(uniform(low, high), uniform(low, high), uniform(low, high)); };
    QImage document(width, height, QImage::Format_RGB32);
    document.fill(Qt::white);
    const auto row = [&](int y) { return reinterpret_cast<QRgb *>(document.scanLine(y)); };
    for (int y = 0; y < height; y += uniform(4, 30)) {
        const int pick = uniform(0, 9);
        if (style != DocumentStyle::varied && chance(0.05)) {
            const int end = std::min(y + uniform(frameHeight / 2, 2 * frameHeight), height);
            std::vector<QRgb> stripes(style == DocumentStyle::stripes ? std::size_t(uniform(3, 40)) : 1, qRgb(255, 255, 255));
            if (style == DocumentStyle::stripes)
                std::generate(stripes.begin(), stripes.end(), [&] { return color(0, 255); });
            for (const int first = y; y < end; ++y)
                std::fill_n(row(y), width, stripes[std::size_t(y - first) % stripes.size()]);
        } else if (pick < 7) { // lines of text
            const int lineHeight = uniform(7, 16), leading = uniform(3, 9), lines = uniform(1, 8);
            const QRgb ink = chance(0.8) ? color(0, 60) : qRgb(uniform(0, 40), uniform(40, 120), uniform(150, 230));
            const int margin = uniform(2, std::max(2, width / 20));
            for (int line = 0; line < lines && y + lineHeight <= height; ++line, y += lineHeight + leading) {
                for (int x = margin, end = margin + uniform(width / 4, width - 2 * margin); x < end;) {
                    const int glyphEnd = std::min(x + uniform(3, 9), end);
                    for (int glyphY = y; glyphY < y + lineHeight; ++glyphY) {
                        for (int glyphX = x; glyphX < glyphEnd; ++glyphX)
                            row(glyphY)[glyphX] = chance(0.45) ? ink : row(glyphY)[glyphX];
                    }
                    x = glyphEnd + (chance(0.2) ? uniform(4, 8) : uniform(1, 2));
                }
            }
        } else if (pick < 9) { // a picture of grainy blocks
            const int rows = std::min(uniform(24, 180), height - y), left = uniform(0, width / 4);
            const int right = width - uniform(0, width / 4), block = uniform(2, 6);
            std::vector<QRgb> blocks(std::size_t((right - left) / block + 1));
            for (int first = y; y < first + rows; ++y) {
                if ((y - first) % block == 0)
                    std::generate(blocks.begin(), blocks.end(), [&] { return color(30, 225); });
                for (int x = left; x < right; ++x) {
                    const int grain = uniform(-30, 30);
                    const QRgb base = blocks[std::size_t((x - left) / block)];
                    row(y)[x] = qRgb(qRed(base) + grain, qGreen(base) + grain, qBlue(base) + grain);
                }
            }
        } else { // a rule
            const QRgb ink = color(120, 220);
            for (const int end = std::min(y + uniform(1, 2), height); y < end; ++y)
                std::fill_n(row(y), width, ink);
        }
    }
    return document;
}

// Random gray pixels: no two rows alike, no pattern that repeats.
inline QImage makeNoise(int width, int height, std::mt19937 &random, int darkest = 0, int lightest = 255)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int gray = darkest + int(random() % unsigned(lightest - darkest + 1));
            image.setPixel(x, y, qRgb(gray, gray, gray));
        }
    }
    return image;
}

// Every channel moved by levels (clipped), as when content re-renders a little lighter or darker.
inline QImage brightened(const QImage &image, int levels)
{
    QImage result = image.convertToFormat(QImage::Format_RGB32);
    const auto channel = [&](int value) { return std::clamp(value + levels, 0, 255); };
    for (int y = 0; y < result.height(); ++y) {
        auto *row = reinterpret_cast<QRgb *>(result.scanLine(y));
        for (int x = 0; x < result.width(); ++x)
            row[x] = qRgb(channel(qRed(row[x])), channel(qGreen(row[x])), channel(qBlue(row[x])));
    }
    return result;
}

// What a viewport shows with its top at document row top: a read-only view, so long scrolls copy nothing.
inline QImage frameAt(const QImage &document, int top, int frameHeight)
{
    return QImage(document.constScanLine(top), document.width(), frameHeight, document.bytesPerLine(), document.format());
}

// Equal size and pixels, whatever the two formats. An RGB32 word, 0xffRRGGBB,
// is also the premultiplied form of that opaque pixel.
inline bool samePixels(const QImage &a, const QImage &b)
{
    const auto premultiplied = [](const QImage &image) {
        return image.format() == QImage::Format_RGB32 ? image : image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    };
    const QImage left = premultiplied(a), right = premultiplied(b);
    bool same = left.size() == right.size();
    for (int y = 0; same && y < left.height(); ++y)
        same = std::memcmp(left.constScanLine(y), right.constScanLine(y), std::size_t(left.width()) * sizeof(QRgb)) == 0;
    return same;
}

// The largest shift the stitcher tries: the overlap is at least 12% of the frame and 48 rows.
inline int largestShift(int frameHeight) { return frameHeight - std::max(frameHeight * 12 / 100, 48); }

struct ScrollTally {
    int cases = 0, casesAllAccepted = 0; // every moved frame accepted at its true shift; composed exactly
    int casesExact = 0;                  // composed exactly, some moved frames refused or not
    int frames = 0, framesAccepted = 0, framesRefused = 0, framesMisaligned = 0; // frames whose content moved

    void add(const ScrollTally &other)
    {
        for (int ScrollTally::*count : {&ScrollTally::cases, &ScrollTally::casesAllAccepted, &ScrollTally::casesExact,
                                        &ScrollTally::frames, &ScrollTally::framesAccepted, &ScrollTally::framesRefused,
                                        &ScrollTally::framesMisaligned})
            this->*count += other.*count;
    }
    std::string summary() const
    {
        using std::to_string;
        return to_string(casesAllAccepted) + " of " + to_string(cases) + " cases took every frame, " + to_string(casesExact)
               + " composed exactly; moved frames " + to_string(frames) + ", accepted " + to_string(framesAccepted)
               + ", refused " + to_string(framesRefused) + ", misread " + to_string(framesMisaligned);
    }
};

// Scrolls a viewport down the document by random shifts up to the largest the
// stitcher tries, now and then handing in a frame one pixel narrower, and
// follows every frame against the truth: the document row at the top of the
// last accepted frame. Each broken promise goes into faults: a result that
// disagrees with the frame's movement or the page's growth, a shift misread
// where the pixels do not repeat, a page other than the document's top rows.
inline ScrollTally scrollThrough(const QImage &document, int frameHeight, qint64 limit, std::mt19937 &random,
                                 std::vector<std::string> &faults)
{
    using Kind = AppendResult::Kind;
    const auto chance = [&](double probability) { return std::bernoulli_distribution(probability)(random); };
    int top = 0, referenceTop = 0;
    const auto check = [&](bool kept, const char *promise) {
        if (!kept)
            faults.push_back(std::to_string(document.width()) + "x" + std::to_string(frameHeight) + " frame at row "
                             + std::to_string(top) + ", reference at " + std::to_string(referenceTop) + ": " + promise);
    };
    // Whether the overlap repeats, pixel for pixel, the reference's rows shift rows further down.
    const auto repeatsAt = [&](int shift) {
        int identical = 0;
        for (int y = 0; y < frameHeight - shift; ++y)
            identical += std::memcmp(document.constScanLine(top + y), document.constScanLine(referenceTop + shift + y),
                                     std::size_t(document.bytesPerLine())) == 0;
        return identical >= 0.65 * (frameHeight - shift);
    };

    ScrollTally tally;
    tally.cases = 1;
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, frameHeight), limit);
    if (!stitcher) {
        check(false, "no stitcher");
        return tally;
    }
    const qint64 ceiling = stitcher->maxTotalHeight();
    while (true) {
        if (chance(0.03)) {
            const Kind refusal = stitcher->totalHeight() < ceiling ? Kind::noMatch : Kind::limitReached;
            check(stitcher->append(document.copy(0, top, document.width() - 1, frameHeight)).kind == refusal,
                  "a frame of another size was not refused");
            continue;
        }
        const int shift = chance(0.15) ? 0 : std::uniform_int_distribution<int>(1, largestShift(frameHeight))(random);
        if (top + shift + frameHeight > document.height())
            break;
        top += shift;
        const qint64 before = stitcher->totalHeight();
        const AppendResult result = stitcher->append(frameAt(document, top, frameHeight));
        const qint64 added = stitcher->totalHeight() - before;
        const int moved = top - referenceTop;
        if (before >= ceiling) {
            check(result.kind == Kind::limitReached && added == 0, "a full stitcher took a frame");
            break;
        }
        tally.frames += moved > 0;
        if (added == 0) {
            check(result.kind == Kind::noMatch || result.kind == Kind::noMovement, "a frame was said added but was not");
            check(moved > 0 || result.kind == Kind::noMovement, "an unmoved frame was not noMovement");
            tally.framesRefused += moved > 0;
            continue;
        }
        const bool full = stitcher->totalHeight() >= ceiling;
        check(full ? result.kind == Kind::limitReached : result.kind == Kind::appended && result.rows == added,
              "the result does not match the rows added");
        const bool misread = added != std::min<qint64>(ceiling - before, moved);
        (misread ? tally.framesMisaligned : tally.framesAccepted) += 1;
        check(!misread || full || repeatsAt(int(added)), "a frame misread where the content does not repeat");
        referenceTop = top; // right or wrong, the accepted frame is the new reference
    }
    if (tally.framesMisaligned > 0)
        return tally;
    const int height = int(std::min<qint64>(referenceTop + frameHeight, ceiling));
    check(samePixels(stitcher->compose(), frameAt(document, 0, height)), "the page is not the document's top rows");
    tally.casesExact = 1;
    tally.casesAllAccepted = tally.framesRefused == 0;
    return tally;
}

struct StepRun {
    std::vector<AppendResult::Kind> kinds; // one for each frame handed in
    bool exact = false; // the page is the document from its top to the bottom of the lowest frame
};

// A capture whose first frame shows the document's top and whose later frames
// show it from the given rows down, in order.
inline StepRun scrollInSteps(const QImage &document, int frameHeight, const std::vector<int> &tops)
{
    StepRun run;
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, frameHeight), 24000);
    for (const int top : tops)
        run.kinds.push_back(stitcher->append(frameAt(document, top, frameHeight)).kind);
    run.exact = samePixels(stitcher->compose(), frameAt(document, 0, *std::max_element(tops.begin(), tops.end()) + frameHeight));
    return run;
}

} // namespace pixmora::synthetic
