// Tests of the diffusion inpainting driver: lists, methods, progress output and file dumps.
#include <gtest/gtest.h>

#include <boost/format.hpp>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>

#include "inpaint/Inpaint.h"
#include "support/TestImages.h"
#include "tv/TvUpscale.h"

namespace quorblen {
namespace {

using test::at;

constexpr char ProgressScale[] = "0%   10   20   30   40   50   60   70   80   90   100%\n";

/// A smooth ramp in each colour channel; alpha 1 inside the hole [x0, x1) x [y0, y1), else 0.
ImageBuffer rampWithHole(int width, int height, int x0, int y0, int x1, int y1) {
    return test::makeImage(width, height, 4, [=](int x, int y, int c) {
        if (c == 3) {
            return x >= x0 && x < x1 && y >= y0 && y < y1 ? 1.0f : 0.0f;
        }
        return 0.1f + 0.03f * x + 0.02f * y + 0.1f * c;
    });
}

/// `image` with colour guess(true colour) wherever alpha is above 0.
ImageBuffer withGuess(const ImageBuffer& image, float (*guess)(float)) {
    return test::makeImage(image.width, image.height, 4, [&](int x, int y, int c) {
        const float v = at(image, x, y, c);
        return c < 3 && at(image, x, y, 3) > 0.0f ? guess(v) : v;
    });
}

/// `image` with colour 0 in the hole: the worst first guess.
ImageBuffer clearedHole(const ImageBuffer& image) {
    return withGuess(image, [](float) { return 0.0f; });
}

bool sameSamples(const ImageBuffer& a, const ImageBuffer& b) {
    return a.width == b.width && a.height == b.height && a.channels == b.channels &&
           std::memcmp(a.data, b.data, sizeof(float) * a.width * a.height * a.channels) == 0;
}

/// Runs the driver without files and returns what it printed.
std::string runQuietly(const ImageBuffer& mask, ImageBuffer& work, int iterations, int method,
                       bool dumpEveryIteration = false, double timeStep = 0.1) {
    testing::internal::CaptureStdout();
    inpaint(mask, work, iterations, dumpEveryIteration, method, "", 5.0, 0.01, timeStep);
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
    const ImageBuffer image = clearedHole(rampWithHole(8, 8, 3, 3, 5, 5));
    ImageBuffer known = test::makeImage(
        8, 8, 4, [&](int x, int y, int c) { return c == 3 ? 0.0f : at(image, x, y, c); });
    const ImageBuffer narrow =
        test::makeImage(2, 6, 4, [](int x, int y, int c) { return c == 3 ? 1.0f : float(x + y); });
    struct Case {
        const char* what;
        const ImageBuffer& mask;
        int method;
    } cases[] = {{"unknown method", image, 3},
                 {"nothing unknown, TV", known, DigitalTV},
                 {"nothing unknown, elastica", known, Elastica},
                 {"no interior, TV", narrow, DigitalTV},
                 {"no interior, elastica", narrow, Elastica}};
    for (const Case& c : cases) {
        // Dumping without a file name writes nothing and shows the progress bar instead.
        for (bool dump : {false, true}) {
            SCOPED_TRACE(std::string(c.what) + (dump ? ", dumping" : ""));
            ImageBuffer work(c.mask);
            const std::string out = runQuietly(c.mask, work, 3, c.method, dump);
            EXPECT_TRUE(sameSamples(work, c.mask));
            EXPECT_EQ(out.find("inpaint:"), std::string::npos);
            EXPECT_TRUE(out.starts_with(std::string("\n") + ProgressScale));
            EXPECT_TRUE(out.ends_with("*\n"));
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
    } cases[] = {{DigitalTV, [](float) { return 0.0f; }, 0.1, 400},
                 {Elastica, [](float v) { return v + 0.05f; }, 0.02, 800}};
    for (const Case& run : cases) {
        SCOPED_TRACE(run.method);
        ImageBuffer work = withGuess(truth, run.guess);
        runQuietly(truth, work, run.iterations, run.method, false, run.timeStep);
        int farOff = 0;
        for (int y = 0; y < truth.height; ++y) {
            for (int x = 0; x < truth.width; ++x) {
                for (int c = 0; c < 4; ++c) {
                    if (c == 3 || at(truth, x, y, 3) == 0.0f) {
                        ASSERT_EQ(at(work, x, y, c), at(truth, x, y, c)) << x << "," << y;
                    } else if (!(std::abs(at(work, x, y, c) - at(truth, x, y, c)) < 1e-3f)) {
                        ++farOff;  // NaN counts too
                    }
                }
            }
        }
        EXPECT_EQ(farOff, 0);
    }
}

TEST(InpaintDriver, DualTvKeepsTheStepResult) {
    const ImageBuffer mask = rampWithHole(10, 8, 3, 3, 6, 5);
    ImageBuffer work = clearedHole(mask);
    ImageBuffer expected(work);
    ImageBuffer dual = test::makeImage(10, 8, 2, [](int, int, int) { return 0.0f; });
    for (int it = 0; it < 2; ++it) {
        for (int c = 0; c < 3; ++c) {
            tvUpscaleStep(mask, expected, dual, c, 5.0f, 0.01f);
        }
    }
    ASSERT_FALSE(sameSamples(expected, work));
    runQuietly(mask, work, 2, DualTV);
    EXPECT_TRUE(sameSamples(work, expected));
}

TEST(InpaintDriver, DumpsEveryIteration) {
    const ImageBuffer mask = rampWithHole(8, 8, 3, 3, 5, 5);
    for (int method : {DigitalTV, DualTV}) {
        SCOPED_TRACE(method);
        test::ScratchDir dir;
        const std::string pattern = dir.file("out%03d.exr");
        ImageBuffer work = clearedHole(mask);
        testing::internal::CaptureStdout();
        inpaint(mask, work, 2, true, method, pattern, 5.0, 0.01, 0.1);
        const std::string out = testing::internal::GetCapturedStdout();
        for (int it = 0; it <= 2; ++it) {
            EXPECT_TRUE(std::filesystem::exists((boost::format(pattern) % it).str())) << it;
        }
        EXPECT_EQ(countOf(out, "inpaint: Initial image. Wrote: " + dir.file("out000.exr") + "\n"),
                  1u);
        EXPECT_EQ(countOf(out, "inpaint: Wrote: " + dir.file("out002.exr") + " Inf norm: "), 1u);
        EXPECT_EQ(countOf(out, " Inf norm: "), 2u);
        EXPECT_EQ(countOf(out, " Inf norm: 0\n"), method == DualTV ? 2u : 0u);
        EXPECT_EQ(out.find('*'), std::string::npos);
    }
}

TEST(InpaintDriver, FinalWriteAndFormatErrors) {
    test::ScratchDir dir;
    const ImageBuffer mask = clearedHole(rampWithHole(8, 8, 3, 3, 5, 5));
    ImageBuffer work(mask);
    testing::internal::CaptureStdout();
    inpaint(mask, work, 0, false, DigitalTV, dir.file("result.exr"), 5.0, 0.01, 0.1);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(sameSamples(work, mask));
    EXPECT_TRUE(std::filesystem::exists(dir.file("result.exr")));
    EXPECT_TRUE(out.ends_with("|\ninpaint: Wrote: " + dir.file("result.exr") + "\n")) << out;

    // A dump pattern needs exactly one directive; the error leaves the driver.
    EXPECT_THROW(inpaint(mask, work, 1, true, DigitalTV, dir.file("out.exr"), 5.0, 0.01, 0.1),
                 boost::io::format_error);
    EXPECT_THROW(inpaint(mask, work, 1, true, DigitalTV, dir.file("o%d%d.exr"), 5.0, 0.01, 0.1),
                 boost::io::format_error);
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.exr")));
}

}  // namespace
}  // namespace quorblen
