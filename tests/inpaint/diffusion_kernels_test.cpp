// Nearest-value search and the diffusion steps of the inpainting library.
#include <gtest/gtest.h>

#include <cmath>
#include <utility>

#include "inpaint/Inpaint.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

using test::at;
using test::makeImage;
using Fill = std::function<float(int, int, int)>;

/// Result of the search from (4, 4) for alpha 1 in a 9 x 9 image whose alpha is 1 exactly at
/// `ones`: the flag and the out coordinates, which start at (-7, -7).
std::pair<int, std::pair<int, int>> search(const std::vector<std::pair<int, int>>& ones, int radius,
                                           int size = 9, int from = 4) {
    ImageBuffer image = test::filledImage(size, size, 4, 0.0f);
    for (const auto& [x, y] : ones) {
        at(image, x, y, 3) = 1.0f;
    }
    std::pair<int, int> out{-7, -7};
    const int found =
        nearestPixelWithValue(image, 3, from, from, out.first, out.second, radius, 1.0f);
    return {found, out};
}

TEST(NearestPixelWithValue, ScansWindowAndTies) {
    using Result = std::pair<int, std::pair<int, int>>;
    const Result none{0, {-7, -7}};
    EXPECT_EQ(search({{4, 4}, {3, 4}}, 0), Result(1, {4, 4}));
    EXPECT_EQ(search({{3, 4}, {1, 4}}, 0), Result(1, {3, 4}));
    // (4, 3) and (3, 4) are equally near; row 3 is searched first.
    EXPECT_EQ(search({{3, 4}, {4, 3}}, 0), Result(1, {4, 3}));
    EXPECT_EQ(search({}, 0), none);
    // The window reaches the scan ends: radius 3 stops short of column 0, radius 4 reaches it,
    // and a diagonal match no scan crosses is found inside the box of the ends.
    EXPECT_EQ(search({{0, 4}}, 3), none);
    EXPECT_EQ(search({{0, 4}}, 4), Result(1, {0, 4}));
    EXPECT_EQ(search({{6, 6}}, 1), none);
    EXPECT_EQ(search({{6, 6}}, 2), Result(1, {6, 6}));
    // Squared distance 8 is not below width + height = 6: found, but no coordinates.
    EXPECT_EQ(search({{2, 2}}, 0, 3, 0), Result(1, {-7, -7}));
}

TEST(TvInpaintStep, WeightedMeanOfNeighbours) {
    const PixelList centre{{1, 1, -1}};
    // Channel 0 is 1 around a 0 centre, which alone is unknown.
    const ImageBuffer hole = makeImage(3, 3, 4, [](int x, int y, int c) {
        const bool centre = x == 1 && y == 1;
        return c == 0 ? float(!centre) : c == 3 ? float(centre) : 0.0f;
    });
    ImageBuffer next = test::filledImage(3, 3, 4, -5.0f);
    EXPECT_EQ(tvInpaintStep(hole, hole, next, 0, 3, {}, 5.0, 1e-4), 0.0);
    EXPECT_EQ(at(next, 1, 1, 0), -5.0f);
    EXPECT_NEAR(tvInpaintStep(hole, hole, next, 0, 3, centre, 5.0, 1e-4), 1.0, 1e-15);
    EXPECT_EQ(at(next, 1, 1, 0), 1.0f);

    // Unequal neighbours, to the bit: weights 1 / sqrt(g_k^2 + eps^2) of the shared edge
    // gradients, and a partly known centre adds its own value with weight lambda (1 - alpha).
    const float values[] = {0.1f, 0.7f, 0.2f, 0.5f, 0.6f, 0.9f, 0.8f, 0.3f, 0.4f};
    for (const float alpha : {1.0f, 0.25f}) {
        const ImageBuffer image = makeImage(3, 3, 4, [&](int x, int y, int c) {
            return c == 0 ? values[y * 3 + x] : c == 3 && x == 1 && y == 1 ? alpha : 0.0f;
        });
        const float eps = 0.05f;
        double w[4];
        for (int k = 0; k < 4; ++k) {
            const double g = edgeGradientMagnitude(image, 1, 1, 0, k);
            w[k] = 1.0 / std::sqrt(g * g + double(eps * eps));
        }
        const double self = float((1.0 - alpha) * 2.0);
        const double s = w[0] + w[1] + w[2] + w[3] + self;
        const double expected = (self / s) * 0.6f + (w[0] / s) * 0.9f + (w[1] / s) * 0.3f +
                                (w[2] / s) * 0.5f + (w[3] / s) * 0.7f;
        EXPECT_EQ(tvInpaintStep(image, image, next, 0, 3, centre, 2.0, eps),
                  std::fabs(0.6f - expected));
        EXPECT_EQ(at(next, 1, 1, 0), float(expected)) << "alpha " << alpha;
    }
}

TEST(FlowSteps, FlatAndAxisRampsStayPut) {
    const Fill rampX = [](int x, int, int) { return float(x); };
    PixelList pixels;
    BandList band;
    for (int y = 1; y < 5; ++y) {
        for (int x = 1; x < 5; ++x) {
            pixels.push_back({std::uint32_t(x), std::uint32_t(y), -1});
            band.push_back({x, y});
        }
    }
    // No curvature and a balanced flux: the elastica step changes nothing.
    for (const Fill& fill : {Fill([](int, int, int) { return 0.3f; }), rampX,
                             Fill([](int, int y, int) { return float(y); })}) {
        const ImageBuffer image = makeImage(6, 6, 4, fill);
        ImageBuffer next = test::filledImage(6, 6, 4, -5.0f);
        EXPECT_EQ(elasticaInpaintStep(image, image, next, 1, 3, {}, band, 5.0, 1e-2, 0.1), 0.0);
        EXPECT_EQ(at(next, 2, 2, 1), -5.0f);
        EXPECT_EQ(elasticaInpaintStep(image, image, next, 1, 3, pixels, band, 5.0, 1e-2, 0.1), 0.0);
        for (const PixelEntry& p : pixels) {
            EXPECT_EQ(at(next, p.x, p.y, 1), at(image, p.x, p.y, 1));
        }
    }
    // TV flow on u = x is balanced inside the band; at column 1 the normal to the left lies
    // outside the band, where the field is 0.
    const ImageBuffer ramp = makeImage(6, 6, 4, rampX);
    ImageBuffer next(ramp);
    const double normal = float(1.0 / std::sqrt(1.5));
    EXPECT_NEAR(tvFlowInpaintStep(ramp, ramp, next, 0, 3, pixels, band, 0.0, 0.5, 0.1),
                normal * 0.1, 1e-12);
    EXPECT_EQ(at(next, 1, 2, 0), float(normal * 0.1 + 1.0));
    EXPECT_EQ(at(next, 2, 2, 0), 2.0f);
}

TEST(WholeImageSteps, DenoiseAndLocalMeasures) {
    // Flat images: every gradient is epsilon, every edge weight 2 / epsilon, so lambda = 16
    // puts half the weight on the observed value. Border pixels are not written.
    ImageBuffer next = test::filledImage(4, 4, 1, -5.0f);
    ImageBuffer gradient(4, 4, 2);
    EXPECT_EQ(tvDenoiseStep(test::filledImage(4, 4, 1, 1.0f), test::filledImage(4, 4, 1, 0.5f),
                            next, gradient, 0, 16.0, 0.5),
              0.25);
    EXPECT_EQ(at(gradient, 3, 0, 0), 0.5f);
    EXPECT_EQ(at(next, 2, 1, 0), 0.75f);
    EXPECT_EQ(at(next, 3, 1, 0), -5.0f);

    // Neighbours beyond the edge are clamped onto it; each of the fifteen values of the
    // total variation is sqrt(1 + 1) * sqrt(1/2).
    const ImageBuffer ramp = makeImage(5, 5, 3, [](int x, int, int) { return float(x); });
    EXPECT_DOUBLE_EQ(localGradientMagnitude(ramp, 0, 0, 0, 0.5), std::sqrt(1.25));
    EXPECT_DOUBLE_EQ(localGradientMagnitude(ramp, 2, 2, 1, 0.5), std::sqrt(2.25));
    EXPECT_NEAR(localTotalVariation(ramp, 2, 2), 15.0, 1e-5);
}

}  // namespace
}  // namespace quorblen
