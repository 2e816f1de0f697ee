// Tests of the patch-match recipe: thread counts, vector kernels, and a texture it must rebuild.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <sstream>

#include "inpaint/Inpaint.h"
#include "inpaint/PatchCost.h"
#include "support/TestImages.h"

namespace quorblen {
namespace {

using test::at;

/// A square hole of `side` pixels with its top-left corner at (x0, y0), in an image of
/// `width` x `height`.
ImageBuffer squareHole(int width, int height, int x0, int y0, int side) {
    return test::makeImage(width, height, 1, [=](int x, int y, int) {
        return float(x >= x0 && x < x0 + side && y >= y0 && y < y0 + side);
    });
}

TEST(PatchMatch, GivesTheSameBitsOnEveryThreadCount) {
    // The cat's fur, with a hole cut by the crop's top edge, and the fur a little lower as a
    // source with a hole of its own.
    const ImageBuffer photo = test::readFileImage(test::sourcePath("data/chelsea.png")).pixels;
    const auto fur = [&](int dy) {
        return test::makeImage(
            96, 80, 3, [&](int x, int y, int c) { return at(photo, 30 + x, 150 + dy + y, c); });
    };
    const ImageBuffer image = fur(0);
    const ImageBuffer mask = squareHole(96, 80, 40, 0, 30);
    const ImageBuffer source = fur(6);
    const ImageBuffer sourceMask = squareHole(96, 80, 50, 10, 30);
    RecipeOptions options = recipeDefaults(InpaintRecipe::PatchMatch);
    options.rounds = 2;
    options.source2 = &source;
    options.source2Mask = &sourceMask;
    ImageBuffer first;
    for (int threads : {1, 2, 3}) {
        options.threads = threads;
        std::ostringstream log;
        const ImageBuffer out = fillHole(image, -1, mask, options, log);
        if (threads == 1) {
            first = out;
        } else {
            EXPECT_TRUE(test::sameImage(out, first)) << threads << " threads";
        }
    }
}

TEST(PatchMatch, VectorKernelsAgreeBitForBit) {
    if (!detail::avx2Available()) {
        GTEST_SKIP() << "no AVX2 on this processor";
    }
    // Rows of a real photo; patches of every width up to the widest a 3-channel one can be
    // with the texture channels, with room for the kernels' reads past a row's end.
    const ImageBuffer photo = test::readFileImage(test::sourcePath("data/astronaut.png")).pixels;
    for (int n = 1; n <= 41 * 5; n += 3) {
        for (int rows : {1, 5, 9}) {
            for (const float bound : {HUGE_VALF, 0.5f}) {
                const float* t = photo.data + 10 * photo.stride;
                const float* s = photo.data + 300 * photo.stride + 17;
                const float sse = detail::patchCostSse(t, s, photo.stride, rows, n, bound);
                const float avx2 = detail::patchCostAvx2(t, s, photo.stride, rows, n, bound);
                EXPECT_EQ(std::bit_cast<std::uint32_t>(sse), std::bit_cast<std::uint32_t>(avx2))
                    << n << " floats, " << rows << " rows, bound " << bound;
                // Stopping early only ever reports a cost above the bound.
                const float whole = detail::patchCostSse(t, s, photo.stride, rows, n, HUGE_VALF);
                EXPECT_EQ(sse > bound, whole > bound);
            }
        }
    }
}

TEST(PatchMatch, RebuildsAPeriodicTexture) {
    // Waves of period 9 pixels across and 14 down, with a 28 x 28 hole: the known part holds
    // many whole 9 x 14 tiles of the texture.
    const auto texture = [](int x, int y, int c) {
        const double tau = 2 * std::numbers::pi;
        return float(0.5 + 0.25 * std::sin(tau * x / 9.0) * std::cos(tau * y / 14.0) +
                     0.1 * c * std::sin(tau * y / 14.0));
    };
    const ImageBuffer image = test::makeImage(112, 96, 3, texture);
    const ImageBuffer mask = squareHole(112, 96, 44, 30, 28);
    std::ostringstream log;
    const ImageBuffer out =
        fillHole(image, -1, mask, recipeDefaults(InpaintRecipe::PatchMatch), log);
    double squares = 0.0;
    for (int y = 30; y < 58; ++y) {
        for (int x = 44; x < 72; ++x) {
            for (int c = 0; c < 3; ++c) {
                squares += std::pow(at(out, x, y, c) - texture(x, y, c), 2);
            }
        }
    }
    // The waves span 0.15 to 0.85; a fill that lost their phase would err by about 0.2.
    const double rms = std::sqrt(squares / (28 * 28 * 3));
    EXPECT_LT(rms, 0.005) << rms;
}

}  // namespace
}  // namespace quorblen
