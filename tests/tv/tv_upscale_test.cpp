// Tests of the TV solver step: agreement with a pixel-by-pixel version, invariants, borders.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>

#include "tests/support/TestImages.h"
#include "tv/Offsets.h"
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
    const auto u = [&](int x, int y) { return at(old, x, y, c); };
    const auto g = [&](int x, int y) { return at(work, x, y, 0); };
    const double eps2 = double(epsilon) * double(epsilon);
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            double d[4];
            for (int k = 0; k < 4; ++k) {
                const int nx = std::clamp(x + NeighbourOffsets[k].dx, 0, W - 1);
                const int ny = std::clamp(y + NeighbourOffsets[k].dy, 0, H - 1);
                d[k] = double(u(nx, ny)) - double(u(x, y));
            }
            at(work, x, y, 0) = static_cast<float>(
                std::sqrt((((d[0] * d[0] + d[1] * d[1]) + d[2] * d[2]) + d[3] * d[3]) + eps2));
            at(work, x, y, 1) = u(x, y);
        }
    }
    for (int y = 1; y < H - 1; ++y) {
        for (int x = 1; x < W - 1; ++x) {
            const float r = 1.0f / g(x, y);
            alignas(16) float w[4];
            _mm_store_ps(
                w, _mm_rcp_ps(_mm_setr_ps(g(x, y - 1), g(x, y + 1), g(x - 1, y), g(x + 1, y))));
            for (float& wk : w) {
                wk += r;
            }
            const float D = ((w[0] + w[2]) + (w[1] + w[3])) + lambda;
            const int xe = x / 2 * 2;
            const int ye = y / 2 * 2;
            const float rho =
                ((((4.0f * at(reference, x / 2, y / 2, c) - u(xe, ye)) - u(xe + 1, ye)) -
                  u(xe, ye + 1)) -
                 u(xe + 1, ye + 1)) +
                u(x, y);
            at(work, x, y, 1) = ((w[0] / D * u(x, y - 1) + w[2] / D * u(x - 1, y)) +
                                 (w[1] / D * u(x, y + 1) + w[3] / D * u(x + 1, y))) +
                                lambda / D * rho;
        }
    }
    double largest = 0.0;
    for (int Y = 0; Y < H / 2; ++Y) {
        for (int X = 0; X < W / 2; ++X) {
            const auto q = [&](int dx, int dy) { return at(work, 2 * X + dx, 2 * Y + dy, 1); };
            const float mean =
                (0.25f * q(0, 0) + 0.25f * q(0, 1)) + (0.25f * q(1, 0) + 0.25f * q(1, 1));
            const float delta = at(reference, X, Y, c) - mean;
            for (int i = 0; i < 4; ++i) {
                const int x = 2 * X + i % 2;
                const int y = 2 * Y + i / 2;
                at(estimate, x, y, c) = q(i % 2, i / 2) + delta;
                largest = std::max(largest, std::abs(double(at(estimate, x, y, c)) - u(x, y)));
            }
        }
    }
    return largest;
}

ImageBuffer randomImage(int width, int height, int channels, std::mt19937& rng, float low = 0.0f,
                        float high = 1.0f) {
    std::uniform_real_distribution<float> value(low, high);
    return test::makeImage(width, height, channels, [&](int, int, int) { return value(rng); });
}

bool sameBits(const ImageBuffer& a, const ImageBuffer& b) {
    return std::memcmp(a.data, b.data, sizeof(float) * a.width * a.height * a.channels) == 0;
}

/// The mean of block (X, Y) of plane c, in double.
double blockMean(const ImageBuffer& image, int X, int Y, int c) {
    return (double(at(image, 2 * X, 2 * Y, c)) + at(image, 2 * X + 1, 2 * Y, c) +
            at(image, 2 * X, 2 * Y + 1, c) + at(image, 2 * X + 1, 2 * Y + 1, c)) /
           4.0;
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
        SCOPED_TRACE(testing::Message() << k.width << "x" << k.height);
        const ImageBuffer reference = randomImage(k.refWidth, k.refHeight, 3, rng);
        ImageBuffer fast = randomImage(k.width, k.height, 3, rng);
        ImageBuffer plain = fast;
        ImageBuffer fastWork = randomImage(k.width, k.height, k.workChannels, rng);
        ImageBuffer plainWork = fastWork;
        for (int step = 0; step < 3; ++step) {
            const float lambda = step == 2 ? 0.0f : DefaultLambda;
            const double fastChange =
                tvUpscaleStep(reference, fast, fastWork, 1, lambda, DefaultEpsilon);
            const double plainChange =
                plainStep(reference, plain, plainWork, 1, lambda, DefaultEpsilon);
            EXPECT_EQ(fastChange, plainChange);
            ASSERT_TRUE(sameBits(fast, plain)) << "step " << step;
            ASSERT_TRUE(sameBits(fastWork, plainWork)) << "step " << step;
        }
    }
}

TEST(TvUpscaleStep, KeepsBlockMeansReportsItsChangeAndTouchesNothingElse) {
    // An upscale, and a reference of the estimate's own odd size as the inpainting driver
    // passes it: the last row and column lie in no block. AddressSanitizer checks the reads.
    std::mt19937 rng(11);
    for (const auto [refWidth, refHeight, width, height] :
         {std::array{8, 6, 16, 12}, std::array{9, 7, 9, 7}}) {
        const ImageBuffer reference = randomImage(refWidth, refHeight, 3, rng, -2.0f, 3.0f);
        ImageBuffer estimate = randomImage(width, height, 3, rng, -2.0f, 3.0f);
        ImageBuffer work(width, height, 2);
        for (int step = 0; step < 2; ++step) {
            const ImageBuffer before = estimate;
            const double change =
                tvUpscaleStep(reference, estimate, work, 2, DefaultLambda, DefaultEpsilon);
            double largest = 0.0;
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    const double d = std::abs(double(at(estimate, x, y, 2)) - at(before, x, y, 2));
                    largest = std::max(largest, d);
                    if (x >= width / 2 * 2 || y >= height / 2 * 2) {
                        EXPECT_EQ(d, 0.0);
                    } else if (x % 2 == 0 && y % 2 == 0) {
                        // Values reach 3, so float rounding is a few 1e-7.
                        EXPECT_NEAR(blockMean(estimate, x / 2, y / 2, 2),
                                    at(reference, x / 2, y / 2, 2), 1e-6);
                    }
                    EXPECT_EQ(at(estimate, x, y, 0), at(before, x, y, 0));
                    EXPECT_EQ(at(estimate, x, y, 1), at(before, x, y, 1));
                }
            }
            EXPECT_EQ(change, largest);
            EXPECT_GT(change, 0.0);
        }
    }

    // A constant estimate whose blocks equal their reference pixels stays put.
    const auto flat = [](int, int, int) { return 0.3f; };
    ImageBuffer constant = test::makeImage(10, 8, 1, flat);
    ImageBuffer work(10, 8, 2);
    EXPECT_LE(tvUpscaleStep(test::makeImage(5, 4, 1, flat), constant, work, 0, DefaultLambda,
                            DefaultEpsilon),
              1e-7);
}

TEST(TvUpscaleStep, BorderReplicatesTheEdgeAndIsOnlyProjected) {
    // On the ramp u = x + 3y a neighbour outside the image is the pixel itself, so a border
    // pixel misses the unit (horizontal) or 9 (vertical) term of its squared differences.
    const ImageBuffer zeros = test::makeImage(3, 2, 1, [](int, int, int) { return 0.0f; });
    ImageBuffer ramp = test::makeImage(6, 4, 1, [](int x, int y, int) { return x + 3.0f * y; });
    ImageBuffer work(6, 4, 2);
    tvUpscaleStep(zeros, ramp, work, 0, DefaultLambda, 0.5f);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x) {
            const int horizontal = (x > 0) + (x < 5);
            const int vertical = (y > 0) + (y < 3);
            EXPECT_EQ(at(work, x, y, 0),
                      static_cast<float>(std::sqrt(horizontal + 9.0 * vertical + 0.25)));
        }
    }

    // With two rows every pixel is on the frame: each block moves as a whole to its mean.
    std::mt19937 rng(3);
    const ImageBuffer reference = randomImage(5, 1, 1, rng);
    ImageBuffer estimate = randomImage(10, 2, 1, rng);
    const ImageBuffer before = estimate;
    ImageBuffer pairWork(10, 2, 2);
    tvUpscaleStep(reference, estimate, pairWork, 0, DefaultLambda, DefaultEpsilon);
    for (int i = 0; i < 20; ++i) {
        const int x = i % 10;
        const int y = i / 10;
        EXPECT_EQ(at(pairWork, x, y, 1), at(before, x, y, 0));
        EXPECT_NEAR(at(estimate, x, y, 0) - at(before, x, y, 0),
                    at(reference, x / 2, 0, 0) - blockMean(before, x / 2, 0, 0), 1e-6);
    }
}

/// The mean jump across column 15 | 16 of a 32x16 plane, and the mean absolute difference
/// between horizontal neighbours elsewhere.
std::pair<double, double> edgeAndFlatVariation(const ImageBuffer& image) {
    double edge = 0.0;
    double flat = 0.0;
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 31; ++x) {
            const double d = at(image, x + 1, y, 0) - at(image, x, y, 0);
            (x == 15 ? edge : flat) += x == 15 ? d : std::abs(d);
        }
    }
    return {edge / 16, flat / (16 * 30)};
}

TEST(TvUpscaleStep, SmoothsFlatNoiseKeepsTheEdgeAndLambdaHolds) {
    // 0.2 left of column 16 and 0.8 from it on, with noise of +-0.05; the reference holds
    // the block means, as in the node's solve.
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> noise(-0.05f, 0.05f);
    const ImageBuffer start = test::makeImage(
        32, 16, 1, [&](int x, int, int) { return (x < 16 ? 0.2f : 0.8f) + noise(rng); });
    const ImageBuffer reference = test::makeImage(
        16, 8, 1, [&](int X, int Y, int) { return float(blockMean(start, X, Y, 0)); });
    ImageBuffer work(32, 16, 2);

    ImageBuffer image = start;
    for (int step = 0; step < 5; ++step) {
        tvUpscaleStep(reference, image, work, 0, DefaultLambda, DefaultEpsilon);
    }
    const auto [edge, flat] = edgeAndFlatVariation(start);
    const auto [edgeAfter, flatAfter] = edgeAndFlatVariation(image);
    // The block means carry noise of their own, so the flat variation cannot vanish; it
    // falls to about 0.57 of its start while the edge keeps about 0.87 of its jump.
    EXPECT_GT(edgeAfter, 0.8 * edge);
    EXPECT_LT(flatAfter, 0.65 * flat);

    double previous = INFINITY;
    for (const float lambda : {0.0f, 1.0f, 5.0f, 50.0f}) {
        image = start;
        const double change = tvUpscaleStep(reference, image, work, 0, lambda, DefaultEpsilon);
        EXPECT_LT(change, previous) << "lambda " << lambda;
        previous = change;
    }
}

}  // namespace
}  // namespace quorblen
