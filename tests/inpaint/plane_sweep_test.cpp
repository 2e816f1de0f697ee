// The diffusion iterations over planes, threads and vector lanes against the scalar steps.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "inpaint/Inpaint.h"
#include "inpaint/PlaneSweep.h"
#include "support/TestImages.h"
#include "tv/RowKernels.h"

namespace quorblen {
namespace {

/// A noisy image whose alpha holds a block with partly known pixels beside it, then, past two
/// empty rows, runs of one to six pixels one apart (the vector groups' tails) and a column along
/// the interior's left edge.
ImageBuffer holeImage() {
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    return test::makeImage(31, 24, 5, [&](int x, int y, int c) {
        const bool block = x >= 9 && x < 20 && y >= 4 && y < 11;
        const bool partly = x < 8 && y >= 2 && y < 11 && (x * 7 + y) % 5 == 0;
        bool run = false;
        for (int length = 1; length <= 6; ++length) {
            const int start = 3 + (length - 1) * (length + 2) / 2;
            run = run || (y == 17 && x >= start && x < start + length);
        }
        const bool edge = x == 1 && y >= 15 && y < 21;
        const float draw = value(rng);
        if (c != 3) {
            return draw;
        }
        return block || run || edge ? 1.0f : partly ? 0.5f : 0.0f;
    });
}

/// `iterations` iterations of the scalar step of `method`, channel after channel, with the
/// largest change of each.
std::vector<double> scalarIterations(ImageBuffer& work, int method, int iterations) {
    const PixelList pixels = unknownPixels(work);
    const BandList band = bandPixels(work);
    ImageBuffer next(work);
    std::vector<double> norms;
    for (int it = 0; it < iterations; ++it) {
        double norm = 0.0;
        for (int c = 0; c < 3; ++c) {
            norm = std::max(norm, method == DigitalTV
                                      ? tvInpaintStep(work, work, next, c, 3, pixels, 5.0, 0.05)
                                      : elasticaInpaintStep(work, work, next, c, 3, pixels, band,
                                                            5.0, 0.1, 0.02));
        }
        work = next;
        norms.push_back(norm);
    }
    return norms;
}

TEST(PlaneSweep, GivesTheScalarStepsBitsOnEveryThreadCountAndInstructionSet) {
    std::vector<std::pair<const char*, const detail::SweepKernels*>> sets{
        {"SSE", &detail::sseSweepKernels}};
    if (detail::avx2Available()) {
        sets.push_back({"AVX2", &detail::avx2SweepKernels});
    }
    const ImageBuffer start = holeImage();
    for (const int method : {DigitalTV, Elastica}) {
        ImageBuffer expected(start);
        const std::vector<double> norms = scalarIterations(expected, method, 4);
        for (const auto& [name, kernels] : sets) {
            for (const int threads : {1, 2, 3}) {
                SCOPED_TRACE(testing::Message() << "method " << method << ", " << name << ", "
                                                << threads << " threads");
                ImageBuffer work(start);
                const PixelList pixels = unknownPixels(work);
                const BandList band = bandPixels(work);
                detail::PlaneSweep sweep(*kernels, pixels, band, work, method, 5.0,
                                         method == DigitalTV ? 0.05 : 0.1, 3, threads);
                // Iterations that leave `work` behind catch up in writeWork.
                for (std::size_t it = 0; it < norms.size(); ++it) {
                    EXPECT_EQ(sweep.iterate(0.02, it % 2 == 0), norms[it]);
                }
                EXPECT_FALSE(test::sameImage(work, expected));
                sweep.writeWork();
                EXPECT_TRUE(test::sameImage(work, expected));
            }
        }
    }
}

}  // namespace
}  // namespace quorblen
