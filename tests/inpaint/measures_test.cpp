// Tolerant comparison, edge gradient, curvature and patch distance.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "inpaint/Inpaint.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

using test::at;
using test::makeImage;

TEST(ApproxEqual, AbsoluteAndRelativeLimits) {
    constexpr float Tiny = 0x1.8p-124f;  // six times the smallest normal float
    EXPECT_TRUE(approxEqual(1.0f, 1.0f + 0x1p-22f));
    EXPECT_TRUE(approxEqual(1.0f + 0x1p-22f, 1.0f));
    EXPECT_TRUE(approxEqual(0.99999988f, 1.0f));
    EXPECT_FALSE(approxEqual(1.0f, 1.0f + 0x1p-21f));
    EXPECT_FALSE(approxEqual(0.9999f, 1.0f));

    EXPECT_TRUE(approxEqual(0.0f, 1e-38f));
    EXPECT_TRUE(approxEqual(1e-39f, 0.0f));
    EXPECT_TRUE(approxEqual(0.0f, std::nextafter(Tiny, 0.0f)));
    EXPECT_FALSE(approxEqual(0.0f, Tiny));
    EXPECT_FALSE(approxEqual(1e-30f, 0.0f));
    EXPECT_FALSE(approxEqual(std::numeric_limits<float>::quiet_NaN(), 1.0f));
}

TEST(EdgeMeasures, RampsAndPeak) {
    // Channel 1 rises along x, channel 2 along y: directions across the ramp see it only
    // through the transverse sum (4 / 4 = 1).
    const ImageBuffer ramps = makeImage(5, 5, 4, [](int x, int y, int c) {
        return c == 1 ? float(x) : c == 2 ? float(y) : 0.0f;
    });
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(edgeGradientMagnitude(ramps, 2, 2, 1, k), 1.0f) << "k=" << k;
        EXPECT_EQ(edgeGradientMagnitude(ramps, 2, 2, 2, k), 1.0f) << "k=" << k;
    }
    EXPECT_EQ(curvature(ramps, 2, 2, 1, 0.01f), 0.0);
    EXPECT_EQ(curvature(ramps, 2, 2, 2, 1e-4f), 0.0);

    // A lone peak: every edge falls by 1 with no transverse change, so each term is
    // -1 / sqrt(1 + 0.25) and the level lines curve inward.
    ImageBuffer peak = test::filledImage(3, 3, 4, 0.0f);
    at(peak, 1, 1, 0) = 1.0f;
    EXPECT_DOUBLE_EQ(curvature(peak, 1, 1, 0, 0.5f), -4.0 / std::sqrt(1.25));
    EXPECT_TRUE(std::isnan(curvature(ramps, 2, 2, 0, 0.0f)));
}

TEST(PatchDistance, UsablePairsAndWeights) {
    const ImageBuffer target =
        makeImage(6, 6, 4, [](int, int, int c) { return c == 3 ? 0.5f : 0.0f; });
    const ImageBuffer unknown =
        makeImage(6, 6, 4, [](int, int, int c) { return c == 3 ? 1.0f : 0.0f; });
    ImageBuffer source = test::filledImage(6, 6, 4, 0.0f);
    for (int c = 0; c < 3; ++c) {
        at(source, 4, 1, c) = c + 1.0f;
    }
    // r = 0: the mean of the three squared differences, whatever the target's confidence.
    bool valid = false;
    EXPECT_DOUBLE_EQ(patchDistance(target, 2, 2, source, 4, 1, 0, valid), 14.0 / 3.0);
    EXPECT_TRUE(valid);
    EXPECT_EQ(patchDistance(target, 2, 2, source, 2, 3, 1, valid), 0.0);
    EXPECT_TRUE(valid);
    // Nothing usable: an unknown target, a partly known source, or a negative radius.
    EXPECT_EQ(patchDistance(unknown, 2, 2, source, 2, 2, 2, valid), 0.0);
    EXPECT_FALSE(valid);
    valid = true;
    EXPECT_EQ(patchDistance(source, 2, 2, target, 2, 2, 2, valid), 0.0);
    EXPECT_FALSE(valid);
    valid = true;
    EXPECT_EQ(patchDistance(source, 2, 2, source, 2, 2, -1, valid), 0.0);
    EXPECT_FALSE(valid);

    // The differing pixel at offset (+1, -1) from the source centre weighs 1 / sqrt(3)
    // against 1 for the centre and 1 / sqrt(2) for edge pixels.
    const double wCorner = 1.0 / std::sqrt(3.0);
    const double mean = 14.0 / 3.0 * wCorner / (1.0 + 4.0 / std::sqrt(2.0) + 4.0 * wCorner);
    EXPECT_NEAR(patchDistance(test::filledImage(6, 6, 4, 0.0f), 1, 4, source, 3, 2, 1, valid), mean,
                1e-14);
    EXPECT_TRUE(valid);
}

}  // namespace
}  // namespace quorblen
