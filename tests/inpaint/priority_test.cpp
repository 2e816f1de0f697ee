// Pixel priority and the selection of the next pixel to fill.
#include <gtest/gtest.h>

#include <limits>

#include "inpaint/Inpaint.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

using test::at;

/// 7 x 5, colour 0; alpha 1 (unknown) in columns 3 and right of it, 0 left of it.
ImageBuffer halfKnown() {
    return test::makeImage(7, 5, 4,
                           [](int x, int, int c) { return c == 3 && x >= 3 ? 1.0f : 0.0f; });
}

TEST(Priority, CountsConfidenceAndPicksTheBestInScanOrder) {
    ImageBuffer image = halfKnown();
    EXPECT_EQ(pixelPriority(image, 1, 2), 9.0);
    EXPECT_EQ(pixelPriority(image, 3, 2), 3.0);
    at(image, 4, 2, 3) = 0.25f;  // a partly filled centre counts like a neighbour
    EXPECT_EQ(pixelPriority(image, 4, 2), 0.75);
    at(image, 4, 2, 3) = 1.0f;

    // Priorities: 3, 0, 3, 9, 3.
    const PixelList list{{3, 1, -1}, {4, 2, -1}, {3, 2, -1}, {1, 2, -1}, {3, 3, -1}};
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    EXPECT_EQ(highestPriorityPixel(image, list, 4, true, x, y), 3u);
    EXPECT_EQ(std::pair(x, y), std::pair(1u, 2u));
    // Entry 3 (the best) lies behind last_pix: the ties among 0 and 2 decide by direction.
    EXPECT_EQ(highestPriorityPixel(image, list, 2, true, x, y), 0u);
    EXPECT_EQ(std::pair(x, y), std::pair(3u, 1u));
    EXPECT_EQ(highestPriorityPixel(image, list, 2, false, x, y), 2u);
    EXPECT_EQ(y, 2u);

    // A fully unknown neighbourhood (priority 0) still beats nothing.
    const PixelList unknownFirst{{4, 2, -1}, {1, 2, -1}};
    for (bool forward : {true, false}) {
        EXPECT_EQ(highestPriorityPixel(image, unknownFirst, 0, forward, x, y), 0u);
        EXPECT_EQ(x, 4u);
    }
}

TEST(HighestPriorityPixel, ReportsWhenNothingIsSelected) {
    const ImageBuffer image = halfKnown();
    std::uint32_t x = 77;
    std::uint32_t y = 88;
    testing::internal::CaptureStderr();
    EXPECT_EQ(highestPriorityPixel(image, PixelList{}, -1, true, x, y), NoPixel);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "highestPriorityPixel: ERROR: No high priority found.\n"
              "  pix_list.size: 0 last_pix: -1\n");
    EXPECT_EQ(std::pair(x, y), std::pair(77u, 88u));

    // NaN priorities never qualify, not even against a lower one; the whole list's size is
    // reported.
    ImageBuffer nanAlpha = halfKnown();
    at(nanAlpha, 3, 2, 3) = std::numeric_limits<float>::quiet_NaN();
    const PixelList list{{3, 2, -1}, {4, 2, -1}, {5, 2, -1}};
    EXPECT_EQ(highestPriorityPixel(nanAlpha, list, 2, false, x, y), 2u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(highestPriorityPixel(nanAlpha, list, 1, true, x, y), NoPixel);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "highestPriorityPixel: ERROR: No high priority found.\n"
              "  pix_list.size: 3 last_pix: 1\n");
    EXPECT_EQ(x, 5u);
}

}  // namespace
}  // namespace quorblen
