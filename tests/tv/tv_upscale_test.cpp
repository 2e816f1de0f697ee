// Tests of the TV solver: the step against a pixel-by-pixel version, the whole solve against
// the step, progress and aborts.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <thread>

#include "tests/support/TestImages.h"
#include "tv/Offsets.h"
#include "tv/RowKernels.h"
#include "tv/TvUpscale.h"

namespace quorblen {
namespace {

using test::at;

constexpr float DefaultLambda = 5.0f;
constexpr float DefaultEpsilon = 0.0001f;

/// The step written out pixel by pixel, as plainly as possible, to hold the row-sweeping
/// vectorised one to. Uses rcpps over the four neighbour magnitudes of one pixel at a time.
double plainStep(const ImageBuffer& reference, ImageBuffer& estimate, ImageBuffer& work, int c,
                 float lambda, float epsilon) {
    const int W = estimate.width;
    const int H = estimate.height;
    const ImageBuffer old(estimate);
    // The estimate as the step began, its edge replicated outside the image.
    const auto u = [&](int x, int y) {
        return at(old, std::clamp(x, 0, W - 1), std::clamp(y, 0, H - 1), c);
    };
    const auto g = [&](int x, int y) { return at(work, x, y, 0); };
    for (int i = 0; i < W * H; ++i) {
        const int x = i % W;
        const int y = i / W;
        double sum = 0.0;
        for (const Offset& o : NeighbourOffsets) {
            const double d = double(u(x + o.dx, y + o.dy)) - double(u(x, y));
            sum += d * d;
        }
        at(work, x, y, 0) = float(std::sqrt(sum + double(epsilon) * double(epsilon)));
        at(work, x, y, 1) = u(x, y);
    }
    for (int y = 1; y < H - 1; ++y) {
        for (int x = 1; x < W - 1; ++x) {
            alignas(16) float w[4];
            const __m128 reciprocals =
                _mm_rcp_ps(_mm_setr_ps(g(x, y - 1), g(x, y + 1), g(x - 1, y), g(x + 1, y)));
            _mm_store_ps(w, _mm_add_ps(reciprocals, _mm_set1_ps(1.0f / g(x, y))));
            const float D = ((w[0] + w[2]) + (w[1] + w[3])) + lambda;
            // The block's fidelity target less the block's other three pixels.
            float rho = 4.0f * at(reference, x / 2, y / 2, c);
            for (int i = 0; i < 4; ++i) {
                rho -= u(x / 2 * 2 + i % 2, y / 2 * 2 + i / 2);
            }
            at(work, x, y, 1) = ((w[0] / D * u(x, y - 1) + w[2] / D * u(x - 1, y)) +
                                 (w[1] / D * u(x, y + 1) + w[3] / D * u(x + 1, y))) +
                                lambda / D * (rho + u(x, y));
        }
    }
    double largest = 0.0;
    for (int b = 0; b < W / 2 * (H / 2); ++b) {
        const int X = b % (W / 2);
        const int Y = b / (W / 2);
        const auto q = [&](int i) { return at(work, 2 * X + i % 2, 2 * Y + i / 2, 1); };
        const float delta = at(reference, X, Y, c) -
                            ((0.25f * q(0) + 0.25f * q(2)) + (0.25f * q(1) + 0.25f * q(3)));
        for (int i = 0; i < 4; ++i) {
            const int x = 2 * X + i % 2;
            const int y = 2 * Y + i / 2;
            at(estimate, x, y, c) = q(i) + delta;
            largest = std::max(largest, std::abs(double(at(estimate, x, y, c)) - u(x, y)));
        }
    }
    return largest;
}

ImageBuffer randomImage(int width, int height, int channels, std::mt19937& rng) {
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    return test::makeImage(width, height, channels, [&](int, int, int) { return value(rng); });
}

struct KernelSet {
    const char* name;
    const detail::RowKernels& kernels;
};

/// The kernel sets this processor runs.
std::vector<KernelSet> kernelSets() {
    std::vector<KernelSet> sets{{"SSE", detail::sseRowKernels}};
    if (detail::avx2Available()) {
        sets.push_back({"AVX2", detail::avx2RowKernels});
    }
    return sets;
}

TEST(TvUpscaleStep, MatchesPixelByPixelVersionBitForBit) {
    struct Case {
        int refWidth, refHeight, width, height, workChannels;
    };
    // Upscales of several widths (vector tails of every length, rows too short to smooth)
    // and, last, references of the estimate's own size as the inpainting driver passes.
    const Case cases[] = {{1, 1, 2, 2, 2},    {1, 3, 2, 6, 2},   {2, 1, 4, 2, 3},
                          {3, 2, 6, 4, 2},    {7, 5, 14, 10, 2}, {37, 23, 74, 46, 3},
                          {16, 9, 32, 18, 2}, {7, 5, 7, 5, 2},   {9, 4, 9, 4, 3},
                          {3, 1, 3, 1, 2}};
    std::mt19937 rng(7);
    for (const Case& k : cases) {
        const ImageBuffer reference = randomImage(k.refWidth, k.refHeight, 3, rng);
        const ImageBuffer start = randomImage(k.width, k.height, 3, rng);
        const ImageBuffer startWork = randomImage(k.width, k.height, k.workChannels, rng);
        for (const KernelSet& set : kernelSets()) {
            SCOPED_TRACE(testing::Message() << k.width << "x" << k.height << " " << set.name);
            ImageBuffer fast = start;
            ImageBuffer plain = start;
            ImageBuffer fastWork = startWork;
            ImageBuffer plainWork = startWork;
            for (int step = 0; step < 3; ++step) {
                const float lambda = step == 2 ? 0.0f : DefaultLambda;
                const double fastChange = detail::tvUpscaleStepWith(
                    set.kernels, reference, fast, fastWork, 1, lambda, DefaultEpsilon);
                EXPECT_EQ(fastChange,
                          plainStep(reference, plain, plainWork, 1, lambda, DefaultEpsilon));
                ASSERT_TRUE(test::sameImage(fast, plain)) << "step " << step;
                ASSERT_TRUE(test::sameImage(fastWork, plainWork)) << "step " << step;
            }
        }
    }
}

TEST(TvUpscale, EqualsTheStepRunOnEachPlaneAndIteration) {
    struct Case {
        int width, height, planes, iterations;
        float lambda;
    };
    // One- and two-pixel sides, widths that fill no whole vector, bands with their halos
    // (37 rows), strips (530 columns), and more iterations than one pass solves (17).
    const Case cases[] = {{1, 1, 3, 5, 5.0f},   {1, 2, 1, 1, 5.0f},   {2, 1, 3, 3, 0.0f},
                          {2, 2, 2, 5, 5.0f},   {3, 5, 3, 5, 5.0f},   {7, 3, 4, 2, 0.5f},
                          {13, 9, 3, 9, 5.0f},  {40, 37, 3, 5, 0.0f}, {530, 3, 3, 5, 5.0f},
                          {9, 20, 1, 17, 5.0f}, {3, 2, 2, 0, 5.0f}};
    std::mt19937 rng(11);
    for (const Case& k : cases) {
        const ImageBuffer reference = randomImage(k.width, k.height, k.planes, rng);
        for (const KernelSet& set : kernelSets()) {
            const ImageBuffer expected = test::upscaledStepByStep(reference, k.iterations, k.lambda,
                                                                  DefaultEpsilon, set.kernels);
            for (int threads : {1, 2, 3}) {
                SCOPED_TRACE(testing::Message()
                             << k.width << "x" << k.height << " x" << k.iterations << " on "
                             << threads << " threads, " << set.name);
                ImageBuffer solved(expected.width, expected.height, k.planes);
                const TvUpscaleSettings settings{k.iterations, k.lambda, DefaultEpsilon, threads};
                ASSERT_TRUE(detail::tvUpscaleWith(set.kernels, reference, solved, settings, {}));
                EXPECT_TRUE(test::sameImage(solved, expected));
            }
        }
    }
}

TEST(TvUpscale, ReportsToTheCallingThreadAndStopsWhenAborted) {
    std::mt19937 rng(3);
    const ImageBuffer reference = randomImage(300, 40, 3, rng);
    ImageBuffer estimate(600, 80, 3);
    const std::thread::id caller = std::this_thread::get_id();
    std::vector<double> fractions;
    int polls = 0;
    int stopAt = -1;
    TvUpscaleMonitor monitor{[&] {
                                 EXPECT_EQ(std::this_thread::get_id(), caller);
                                 return ++polls == stopAt;
                             },
                             [&](double fraction) {
                                 EXPECT_EQ(std::this_thread::get_id(), caller);
                                 fractions.push_back(fraction);
                             }};
    EXPECT_TRUE(tvUpscale(reference, estimate, {5, 5.0f, DefaultEpsilon, 3}, monitor));
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_GT(fractions.size(), 10u);
    EXPECT_EQ(fractions.back(), 1.0);

    // Stopped at the first poll, the solve gives up.
    stopAt = 1;
    polls = 0;
    EXPECT_FALSE(tvUpscale(reference, estimate, {5, 5.0f, DefaultEpsilon, 3}, monitor));
}

}  // namespace
}  // namespace quorblen
