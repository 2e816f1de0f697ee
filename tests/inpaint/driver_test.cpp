// Tests of the diffusion inpainting driver: lists, methods, progress output and file dumps.
#include <gtest/gtest.h>

#include <boost/format.hpp>
#include <cmath>
#include <filesystem>
#include <string>

#include "inpaint/Inpaint.h"
#include "support/TestImages.h"
#include "tv/TvUpscale.h"

namespace quorblen {
namespace {

using test::at;

/// A smooth ramp in each colour channel, alpha 1 inside the hole [x0, x1) x [y0, y1), else 0,
/// with colour guess(true colour) in the hole.
ImageBuffer rampWithHole(int width, int height, int x0, int y0, int x1, int y1,
                         float (*guess)(float) = nullptr) {
    return test::makeImage(width, height, 4, [=](int x, int y, int c) {
        const bool hole = x >= x0 && x < x1 && y >= y0 && y < y1;
        const float v = 0.1f + 0.03f * x + 0.02f * y + 0.1f * c;
        return c == 3 ? float(hole) : hole && guess ? guess(v) : v;
    });
}

float zero(float) {
    return 0.0f;
}

/// Runs the driver and returns what it printed.
std::string run(const ImageBuffer& mask, ImageBuffer& work, int iterations, int method,
                bool dump = false, const std::string& file = "", double timeStep = 0.1) {
    testing::internal::CaptureStdout();
    inpaint(mask, work, iterations, dump, method, file, 5.0, 0.01, timeStep);
    return testing::internal::GetCapturedStdout();
}

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t n = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++n;
    }
    return n;
}

TEST(InpaintDriver, CasesThatChangeNothing) {
    const ImageBuffer image = rampWithHole(8, 8, 3, 3, 5, 5, zero);
    const ImageBuffer known = rampWithHole(8, 8, 0, 0, 0, 0);
    const ImageBuffer narrow =
        test::makeImage(2, 6, 4, [](int x, int y, int c) { return c == 3 ? 1.0f : float(x + y); });
    const std::pair<const ImageBuffer*, int> cases[] = {{&image, 3},  // unknown method
                                                        {&known, DigitalTV},
                                                        {&known, Elastica},
                                                        {&narrow, DigitalTV},
                                                        {&narrow, Elastica}};
    for (const auto& [mask, method] : cases) {
        // Dumping without a file name writes nothing and shows the progress bar instead.
        for (bool dump : {false, true}) {
            SCOPED_TRACE(testing::Message() << mask->width << "x" << mask->height << " method "
                                            << method << (dump ? ", dumping" : ""));
            ImageBuffer work(*mask);
            const std::string out = run(*mask, work, 3, method, dump);
            EXPECT_TRUE(test::sameImage(work, *mask));
            EXPECT_TRUE(
                out.starts_with("\n0%   10   20   30   40   50   60   70   80   90   100%\n"));
            EXPECT_TRUE(out.ends_with("*\n"));
            EXPECT_EQ(out.find("inpaint:"), std::string::npos);
        }
    }
}

TEST(InpaintDriver, FillsTheHoleAndKeepsKnownPixels) {
    // A ramp is a fixed point of both flows. The explicit elastica step is stable only for
    // small jumps and time steps, so it starts closer to the answer than the TV filter does.
    const ImageBuffer truth = rampWithHole(20, 16, 7, 5, 13, 11);
    struct Case {
        int method;
        float (*guess)(float);
        double timeStep;
        int iterations;
    } cases[] = {{DigitalTV, zero, 0.1, 400},
                 {Elastica, [](float v) { return v + 0.05f; }, 0.02, 800}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.method);
        ImageBuffer work = rampWithHole(20, 16, 7, 5, 13, 11, c.guess);
        run(truth, work, c.iterations, c.method, false, "", c.timeStep);
        int farOff = 0;
        for (int i = 0; i < 20 * 16 * 4; ++i) {
            if (i % 4 == 3 || truth.data[i - i % 4 + 3] == 0.0f) {
                ASSERT_EQ(work.data[i], truth.data[i]) << i;
            } else {
                farOff += !(std::abs(work.data[i] - truth.data[i]) < 1e-3f);  // NaN counts too
            }
        }
        EXPECT_EQ(farOff, 0);
    }
}

TEST(InpaintDriver, DualTvKeepsTheStepResult) {
    const ImageBuffer mask = rampWithHole(10, 8, 3, 3, 6, 5);
    ImageBuffer work = rampWithHole(10, 8, 3, 3, 6, 5, zero), expected(work);
    ImageBuffer dual = test::filledImage(10, 8, 2, 0.0f);
    for (int it = 0; it < 6; ++it) {
        tvUpscaleStep(mask, expected, dual, it % 3, 5.0f, 0.01f);
    }
    ASSERT_FALSE(test::sameImage(expected, work));
    run(mask, work, 2, DualTV);
    EXPECT_TRUE(test::sameImage(work, expected));
}

TEST(InpaintDriver, DumpsEveryIterationOrWritesTheResult) {
    const ImageBuffer mask = rampWithHole(8, 8, 3, 3, 5, 5);
    for (int method : {DigitalTV, DualTV}) {
        SCOPED_TRACE(method);
        test::ScratchDir dir;
        ImageBuffer work = rampWithHole(8, 8, 3, 3, 5, 5, zero);
        const std::string out = run(mask, work, 2, method, true, dir.file("out%03d.exr"));
        EXPECT_EQ(test::fileNames(dir.path()),
                  (std::vector<std::string>{"out000.exr", "out001.exr", "out002.exr"}));
        EXPECT_EQ(countOf(out, "inpaint: Initial image. Wrote: " + dir.file("out000.exr") + "\n"),
                  1u);
        EXPECT_EQ(countOf(out, "inpaint: Wrote: " + dir.file("out002.exr") + " Inf norm: "), 1u);
        EXPECT_EQ(countOf(out, " Inf norm: "), 2u);
        EXPECT_EQ(countOf(out, " Inf norm: 0\n"), method == DualTV ? 2u : 0u);
        EXPECT_EQ(out.find('*'), std::string::npos);
    }
    // Without dumping, the file is the final result; a dump pattern needs exactly one
    // directive, and the error leaves the driver.
    test::ScratchDir dir;
    const ImageBuffer start = rampWithHole(8, 8, 3, 3, 5, 5, zero);
    ImageBuffer work(start);
    const std::string out = run(start, work, 0, DigitalTV, false, dir.file("result.exr"));
    EXPECT_TRUE(test::sameImage(work, start));
    EXPECT_TRUE(out.ends_with("|\ninpaint: Wrote: " + dir.file("result.exr") + "\n")) << out;
    for (const char* pattern : {"out.exr", "o%d%d.exr"}) {
        EXPECT_THROW(inpaint(mask, work, 1, true, DigitalTV, dir.file(pattern), 5.0, 0.01, 0.1),
                     boost::io::format_error);
    }
    EXPECT_EQ(test::fileNames(dir.path()), std::vector<std::string>{"result.exr"});
}

}  // namespace
}  // namespace quorblen
