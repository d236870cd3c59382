#pragma once

// A simulated scrolling capture over a synthetic document, checked against
// the document itself; shared by the quality test and the benchmarks.

#include "scroll/ScrollStitcher.h"

#include "SyntheticDocument.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace pixmora::synthetic {

struct ScrollTally {
    int cases = 0;
    int casesAllAccepted = 0;  // every moved frame accepted at its true shift; composed exactly
    int casesWithRefusals = 0; // some moved frames turned down, none misread; composed exactly
    int casesMisaligned = 0;   // some frame accepted at a shift that is not the true one
    int frames = 0;            // frames whose content moved
    int framesAccepted = 0;
    int framesRefused = 0;
    int framesMisaligned = 0;

    void add(const ScrollTally &other)
    {
        cases += other.cases;
        casesAllAccepted += other.casesAllAccepted;
        casesWithRefusals += other.casesWithRefusals;
        casesMisaligned += other.casesMisaligned;
        frames += other.frames;
        framesAccepted += other.framesAccepted;
        framesRefused += other.framesRefused;
        framesMisaligned += other.framesMisaligned;
    }

    std::string summary() const
    {
        std::ostringstream text;
        text << casesAllAccepted << " of " << cases << " cases accepted every frame and equal their ground truth; "
             << casesWithRefusals << " more refused some frames and still equal it; " << casesMisaligned
             << " read a frame at a wrong shift. Moved frames: " << frames << ", accepted " << framesAccepted
             << ", refused " << framesRefused << ", misread " << framesMisaligned;
        return text.str();
    }
};

// The largest shift the stitcher tries: the overlap is at least 12% of the frame and 48 rows.
inline int largestShift(int frameHeight)
{
    return frameHeight - std::max(frameHeight * 12 / 100, 48);
}

// Share of the new frame's overlap rows that repeat, pixel for pixel, the
// reference frame's rows shift rows further down.
inline double identicalShare(const QImage &document, int referenceTop, int top, int frameHeight, int shift)
{
    const auto rowBytes = std::size_t(document.width()) * sizeof(QRgb);
    int identical = 0;
    for (int y = 0; y < frameHeight - shift; ++y) {
        identical += std::memcmp(document.constScanLine(top + y), document.constScanLine(referenceTop + shift + y),
                                 rowBytes) == 0;
    }
    return double(identical) / double(frameHeight - shift);
}

// Scrolls a viewport down the document by random shifts from 0 to the largest
// the stitcher tries, now and then handing in a frame of another size, and
// follows every frame against the truth: the document row at the top of the
// last accepted frame. Every broken promise is added to faults:
// - a frame that did not move is noMovement, a frame of another size noMatch;
// - the result agrees with the growth of totalHeight;
// - a frame read at a wrong shift is the content's fault only where the pixels
//   themselves repeat at the shift taken (blank runs, stripes);
// - unless a frame was misread, the composed image is the document's top rows,
//   down to the bottom of the last accepted frame or the limit.
inline ScrollTally scrollThrough(const QImage &document, int frameHeight, qint64 limit, std::mt19937 &random,
                                 std::vector<std::string> &faults)
{
    using Kind = AppendResult::Kind;
    const auto chance = [&](double probability) { return std::bernoulli_distribution(probability)(random); };
    const int maxShift = largestShift(frameHeight);
    const int width = document.width();
    int top = 0;
    int referenceTop = 0;
    const auto fault = [&](const std::string &what) {
        std::ostringstream text;
        text << width << "x" << frameHeight << " frame at row " << top << ", reference at row " << referenceTop
             << ": " << what;
        faults.push_back(text.str());
    };

    ScrollTally tally;
    tally.cases = 1;
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, frameHeight), limit);
    if (!stitcher) {
        fault("no stitcher");
        return tally;
    }
    const qint64 ceiling = stitcher->maxTotalHeight();
    while (true) {
        if (chance(0.03)) {
            const Kind expected = stitcher->totalHeight() < ceiling ? Kind::noMatch : Kind::limitReached;
            if (stitcher->append(document.copy(0, top, width - 1, frameHeight)).kind != expected)
                fault("a frame of another size was not refused");
            continue;
        }
        const int shift = chance(0.15) ? 0 : std::uniform_int_distribution<int>(1, maxShift)(random);
        if (top + shift + frameHeight > document.height())
            break;
        top += shift;

        const qint64 before = stitcher->totalHeight();
        const AppendResult result = stitcher->append(frameAt(document, top, frameHeight));
        const qint64 added = stitcher->totalHeight() - before;
        const int moved = top - referenceTop;
        if (before >= ceiling) {
            if (result.kind != Kind::limitReached || added != 0)
                fault("a full stitcher took a frame");
            break;
        }
        if (moved > 0)
            ++tally.frames;
        if (added == 0) {
            if (result.kind == Kind::appended || result.kind == Kind::limitReached)
                fault("a frame was reported added but nothing was");
            else if (moved == 0 && result.kind != Kind::noMovement)
                fault("an unmoved frame was not noMovement");
            else if (moved > 0)
                ++tally.framesRefused;
            continue;
        }
        const bool full = stitcher->totalHeight() >= ceiling;
        if (full ? result.kind != Kind::limitReached : (result.kind != Kind::appended || result.rows != added))
            fault("the result does not match the rows added");
        if (added == std::min<qint64>(ceiling - before, moved)) {
            ++tally.framesAccepted;
        } else {
            ++tally.framesMisaligned;
            if (!full && identicalShare(document, referenceTop, top, frameHeight, int(added)) < 0.65)
                fault("misread at shift " + std::to_string(added) + " on content that does not repeat there");
        }
        // Right or wrong, the accepted frame is the new reference.
        referenceTop = top;
    }

    if (tally.framesMisaligned > 0) {
        tally.casesMisaligned = 1;
        return tally;
    }
    const qint64 expectedHeight = std::min<qint64>(referenceTop + frameHeight, ceiling);
    if (stitcher->totalHeight() != expectedHeight)
        fault("stitched height " + std::to_string(stitcher->totalHeight()) + ", expected " + std::to_string(expectedHeight));
    else if (!samePixels(stitcher->compose(), frameAt(document, 0, int(expectedHeight))))
        fault("the composed image differs from the document");
    (tally.framesRefused > 0 ? tally.casesWithRefusals : tally.casesAllAccepted) = 1;
    return tally;
}

} // namespace pixmora::synthetic
