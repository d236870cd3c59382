#include "platform/ImageMemory.h"
#include "scroll/ScrollStitcher.h"

#include "SyntheticDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace pixmora {
namespace {

using Kind = AppendResult::Kind;
using synthetic::frameAt;
using synthetic::makeNoise;
using synthetic::samePixels;

constexpr qint64 kLimit = 24000;

// Installs an allocator for the length of a test and puts the default back.
class InstalledAllocator {
public:
    explicit InstalledAllocator(ImageAllocator allocator) { setImageAllocator(allocator); }
    ~InstalledAllocator() { setImageAllocator(nullptr); }
    InstalledAllocator(const InstalledAllocator &) = delete;
    InstalledAllocator &operator=(const InstalledAllocator &) = delete;
};

std::vector<QSize> requestedSizes;

// Rows padded past their pixels and filled with garbage, as a foreign
// allocator may hand them out: copies must go row by row and set every pixel.
QImage paddedGarbageImage(QSize size, QImage::Format format)
{
    requestedSizes.push_back(size);
    const qsizetype bytesPerLine = qsizetype(size.width()) * 4 + 60;
    auto *pixels = new uchar[std::size_t(bytesPerLine * size.height())];
    std::fill_n(pixels, bytesPerLine * size.height(), uchar(0x5a));
    return QImage(pixels, size.width(), size.height(), bytesPerLine, format,
                  [](void *memory) { delete[] static_cast<uchar *>(memory); }, pixels);
}

QImage noImage(QSize, QImage::Format)
{
    return {};
}

TEST(ScrollStitcherAllocator, StripsAndTheComposedImageComeFromTheInstalledAllocatorAndStayExact)
{
    std::mt19937 random(31);
    const QImage document = makeNoise(200, 700, random);
    const InstalledAllocator padded(paddedGarbageImage);
    requestedSizes.clear();

    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 300), kLimit);
    ASSERT_NE(stitcher, nullptr);
    ASSERT_EQ(stitcher->append(frameAt(document, 90, 300)).kind, Kind::appended);
    ASSERT_EQ(stitcher->append(frameAt(document, 250, 300)).kind, Kind::appended);
    const QImage composed = stitcher->compose();

    EXPECT_EQ(requestedSizes, (std::vector<QSize>{{200, 90}, {200, 160}, {200, 550}}));
    EXPECT_TRUE(samePixels(composed, document.copy(0, 0, 200, 550)));
}

TEST(ScrollStitcherAllocator, WithoutMemoryAFrameIsRefusedUnchangedAndNothingIsComposed)
{
    std::mt19937 random(32);
    const QImage document = makeNoise(200, 700, random);
    const auto stitcher = ScrollStitcher::create(frameAt(document, 0, 300), kLimit);
    ASSERT_NE(stitcher, nullptr);
    ASSERT_EQ(stitcher->append(frameAt(document, 100, 300)).kind, Kind::appended);
    {
        const InstalledAllocator failing(noImage);
        EXPECT_EQ(stitcher->append(frameAt(document, 200, 300)).kind, Kind::noMatch);
        EXPECT_EQ(stitcher->totalHeight(), 400);
        EXPECT_TRUE(stitcher->compose().isNull());
    }
    // The refused frame left the reference where it was: the next one aligns with it.
    const AppendResult next = stitcher->append(frameAt(document, 200, 300));
    EXPECT_EQ(next.kind, Kind::appended);
    EXPECT_EQ(next.rows, 100);
    EXPECT_TRUE(samePixels(stitcher->compose(), document.copy(0, 0, 200, 500)));
}

} // namespace
} // namespace pixmora
