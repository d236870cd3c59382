#include "platform/x11/HugePageImages.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

namespace pixmora {
namespace {

bool isMapped(const void *address)
{
    void *page = reinterpret_cast<void *>(reinterpret_cast<std::uintptr_t>(address) & ~std::uintptr_t(4095));
    return msync(page, 1, MS_ASYNC) == 0 || errno != ENOMEM;
}

// Whatever the size and format, the image is laid out as Qt lays out its own,
// so that code reading it by scanLine() or bits() cannot tell them apart.
TEST(HugePageImages, LayOutEveryImageLikeQtAndPutLargeOnesOnA2MiBBoundary)
{
    struct Case {
        QSize size;
        QImage::Format format;
        bool ownMapping;
    };
    for (const Case &c : {Case{{100, 100}, QImage::Format_RGB32, false},
                          Case{{1600, 1200}, QImage::Format_RGB32, true},
                          Case{{1601, 999}, QImage::Format_RGB888, true},    // rows padded to 32 bits
                          Case{{3840, 2000}, QImage::Format_ARGB32_Premultiplied, true}}) {
        SCOPED_TRACE(testing::Message() << c.size.width() << "x" << c.size.height() << " format " << c.format);
        QImage image = allocateHugePageImage(c.size, c.format);
        const QImage reference(c.size, c.format);
        ASSERT_FALSE(image.isNull());
        EXPECT_EQ(image.size(), c.size);
        EXPECT_EQ(image.format(), c.format);
        EXPECT_EQ(image.bytesPerLine(), reference.bytesPerLine());
        const auto address = reinterpret_cast<std::uintptr_t>(image.constBits());
        EXPECT_EQ(address % (2u << 20) == 0, c.ownMapping);
        std::memset(image.bits(), 0xab, std::size_t(image.sizeInBytes()));
        EXPECT_EQ(image.constScanLine(image.height() - 1)[image.bytesPerLine() - 1], 0xab);
    }
}

TEST(HugePageImages, TheMappingGoesWithTheLastCopyOfTheImage)
{
    std::optional<QImage> image = allocateHugePageImage({2000, 2000}, QImage::Format_RGB32);
    ASSERT_FALSE(image->isNull());
    const uchar *pixels = image->constBits();
    std::optional<QImage> copy = *image;
    image.reset();
    EXPECT_TRUE(isMapped(pixels));
    copy.reset();
    EXPECT_FALSE(isMapped(pixels));
}

TEST(HugePageImages, ImpossibleSizesGiveANullImage)
{
    EXPECT_TRUE(allocateHugePageImage({0, 100}, QImage::Format_RGB32).isNull());
    EXPECT_TRUE(allocateHugePageImage({100, 100}, QImage::Format_Invalid).isNull());
    EXPECT_TRUE(allocateHugePageImage({1 << 30, 1 << 30}, QImage::Format_RGB32).isNull());
}

} // namespace
} // namespace pixmora
