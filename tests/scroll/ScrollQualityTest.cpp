#include "ScrollScenario.h"

#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <iostream>
#include <map>

namespace pixmora {
namespace {

using synthetic::DocumentStyle;
using synthetic::ScrollTally;

TEST(ScrollStitcherQuality, SyntheticDocumentsComposeToTheirGroundTruth)
{
    std::mt19937 random(20240611);
    const auto uniform = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    std::vector<std::string> faults;
    std::map<DocumentStyle, ScrollTally> tallies;
    for (DocumentStyle style : {DocumentStyle::varied, DocumentStyle::blankStretches, DocumentStyle::stripes}) {
        for (int documentIndex = 0; documentIndex < 8; ++documentIndex) {
            const int width = uniform(120, 280);
            const QImage document = synthetic::makeDocument(width, 2400, 320, style, random);
            for (int run = 0; run < 3; ++run) {
                const int frameHeight = uniform(120, 320);
                const qint64 limit = run == 0 ? uniform(frameHeight / 2, 2000) : 24000;
                tallies[style].add(synthetic::scrollThrough(document, frameHeight, limit, random, faults));
            }
        }
    }

    // A capture that runs into the 24000-row ceiling, its last strip cut short.
    const QImage tall = synthetic::makeDocument(120, 24400, 300, DocumentStyle::varied, random);
    const ScrollTally ceilingCase = synthetic::scrollThrough(tall, 300, 24000, random, faults);
    EXPECT_EQ(ceilingCase.casesAllAccepted, 1);
    tallies[DocumentStyle::varied].add(ceilingCase);

    ScrollTally total;
    for (const auto &[style, tally] : tallies) {
        std::cout << "[ quality  ] " << synthetic::styleName(style) << ": " << tally.summary() << "\n";
        total.add(tally);
    }
    std::cout << "[ quality  ] all: " << total.summary() << "\n";

    EXPECT_THAT(faults, testing::IsEmpty());
    // Text and pictures never repeat: there every move within reach must be found.
    const ScrollTally &varied = tallies[DocumentStyle::varied];
    EXPECT_EQ(varied.casesAllAccepted, varied.cases);
}

} // namespace
} // namespace pixmora
