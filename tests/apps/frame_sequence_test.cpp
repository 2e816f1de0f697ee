// Frame sequences: the range and name parsers, and a sequence run end to end.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <sstream>

#include "apps/CommandLine.h"
#include "apps/FrameSequence.h"
#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;
using app::frameFileName;
using app::parseFrameRange;

TEST(FrameSequence, RangesAndNames) {
    const std::pair<const char*, std::vector<int>> ranges[] = {
        {"7", {7}},
        {"1-4", {1, 2, 3, 4}},
        {"1-10x4", {1, 5, 9}},
        {"20-22,3,7,0-6x3", {0, 3, 6, 7, 20, 21, 22}},
        {"999999998-999999999x5", {999999998}},
    };
    for (const auto& [range, frames] : ranges) {
        EXPECT_EQ(parseFrameRange(range), frames) << range;
    }
    for (const char* bad : {"", "1,", "-3", "a-b", "1-2-3", "5x2", "1-9x0", "1x2-5", "9-1",
                            "0-1000000", "1000000000", " 1"}) {
        EXPECT_THROW(parseFrameRange(bad), app::UsageError) << bad;
    }
    const std::pair<const char*, const char*> names[] = {
        {"a.#.exr", "a.0042.exr"},
        {"a.##.exr", "a.00000042.exr"},
        {"a.@.exr", "a.42.exr"},
        {"a.@@@.exr", "a.042.exr"},
        {"%03d/%d_%1d.exr", "042/42_%1d.exr"},
        {"a.%5d.%x.exr", "a.%5d.%x.exr"},
        {"100%.png", "100%.png"},
    };
    for (const auto& [name, expanded] : names) {
        EXPECT_EQ(frameFileName(name, 42), expanded) << name;
        EXPECT_EQ(app::hasFrameToken(name), std::string(name) != expanded) << name;
    }
    EXPECT_EQ(frameFileName("f.@.png", 12345), "f.12345.png");
}

// Frames 1, 3 and 5 of a sequence with gaps: every other frame, then the gaps stopping the
// run or, with --skip-bad-frames, reported and skipped.
TEST(FrameSequence, RunsFramesInOrderAndStopsOrSkipsAtAMissingOne) {
    ScratchDir dir;
    for (const int frame : {1, 3, 5}) {
        writeFileImage(dir.path() / ("in." + std::to_string(frame) + ".png"),
                       makeImage(6, 4, 3, [&](int x, int y, int c) { return (x + y + c) / 12.0f; }),
                       {"R", "G", "B"}, "uint8");
    }
    const auto upscale = [&](const char* out, std::vector<std::string> options) {
        options.insert(options.begin(), {"upscale", "in.@.png", out, "--iterations", "1"});
        return runQuorblen(options, dir.path());
    };
    const ProgramRun every = upscale("a.#.exr", {"--frames", "1-5x2", "-v"});
    EXPECT_EQ(every.exitCode, 0) << every.err;
    EXPECT_EQ(every.out.find("frame 1: Wrote a.0001.exr (12 x 8) in "), 0u) << every.out;
    EXPECT_LT(every.out.find("frame 3"), every.out.find("frame 5")) << every.out;
    EXPECT_EQ(readFileImage(dir.path() / "a.0005.exr").pixels.width, 12);

    const ProgramRun stopped = upscale("b.%02d.png", {"--frames", "1-5", "-q"});
    EXPECT_EQ(stopped.exitCode, 1);
    EXPECT_EQ(stopped.out, "");
    EXPECT_NE(stopped.err.find("frame 2: Read: cannot read in.2.png"), std::string::npos)
        << stopped.err;
    const ProgramRun skipped = upscale("c.@.png", {"--frames", "1-5", "--skip-bad-frames"});
    EXPECT_EQ(skipped.exitCode, 1);
    EXPECT_NE(skipped.err.find("2 of 5 frames skipped: 2, 4"), std::string::npos) << skipped.err;
    EXPECT_EQ(
        fileNames(dir.path()),
        (std::vector<std::string>{"a.0001.exr", "a.0003.exr", "a.0005.exr", "b.01.png", "c.1.png",
                                  "c.3.png", "c.5.png", "in.1.png", "in.3.png", "in.5.png"}));
}

// A square moving 6 pixels a frame over fixed noise, a matte marking it: each frame filled from
// the frames before and after it, by each method that takes sources, gets back the background
// wherever one of them shows it; the first and last frames, whose neighbour is missing, run with
// the one they have.
TEST(FrameSequence, FillsAMovingObjectFromTheNeighbouringFrames) {
    ScratchDir dir;
    constexpr int Size = 10;
    std::mt19937 random(7);
    const ImageBuffer background =
        makeImage(64, 48, 3, [&](int, int, int) { return float(random() % 256) / 255.0f; });
    // The object of `frame` grown by `grow` pixels.
    const auto object = [](int frame, int x, int y, int grow = 0) {
        const int x0 = 2 + 6 * frame - grow;
        const int y0 = 19 - grow;
        return x >= x0 && x < x0 + Size + 2 * grow && y >= y0 && y < y0 + Size + 2 * grow;
    };
    for (int frame = 1; frame <= 5; ++frame) {
        writeFileImage(dir.path() / frameFileName("shot.#.png", frame),
                       makeImage(64, 48, 3,
                                 [&](int x, int y, int c) {
                                     return object(frame, x, y) ? float(c != 1)
                                                                : at(background, x, y, c);
                                 }),
                       {"R", "G", "B"}, "uint8");
        writeFileImage(
            dir.path() / frameFileName("matte.#.png", frame),
            makeImage(64, 48, 1, [&](int x, int y, int) { return float(object(frame, x, y)); }),
            {"Y"}, "uint8");
    }
    for (const std::string method : {"multi-source", "patchmatch"}) {
        SCOPED_TRACE(method);
        const ProgramRun run = runQuorblen(
            {"inpaint", "shot.#.png", "clean.#.png", "--frames", "1-5", "--mask", "matte.#.png",
             "--method", method, "--source2-offset", "-1", "--source3-offset", "1"},
            dir.path());
        ASSERT_EQ(run.exitCode, 0) << run.err;
        std::string notes;  // the lines about left-out neighbours
        std::istringstream lines(run.err);
        for (std::string line; std::getline(lines, line);) {
            notes += line.find("left out") != std::string::npos ? line + "\n" : "";
        }
        EXPECT_EQ(notes,
                  "--source2 left out at frame 1: shot.0000.png does not exist\n"
                  "--source3 left out at frame 5: shot.0006.png does not exist\n");
        int checked = 0;
        for (int frame = 1; frame <= 5; ++frame) {
            const ImageBuffer clean =
                readFileImage(dir.path() / frameFileName("clean.#.png", frame)).pixels;
            for (int y = 0; y < 48; ++y) {
                for (int x = 0; x < 64; ++x) {
                    // A patch is copied from a neighbour showing the pixel with its eight
                    // neighbours.
                    const bool shown = (frame > 1 && !object(frame - 1, x, y, 1)) ||
                                       (frame < 5 && !object(frame + 1, x, y, 1));
                    if (!object(frame, x, y) || !shown) {
                        continue;
                    }
                    ++checked;
                    for (int c = 0; c < 3; ++c) {
                        EXPECT_LE(std::abs(at(clean, x, y, c) - at(background, x, y, c)),
                                  1.5f / 255)
                            << "frame " << frame << " (" << x << ", " << y << ")";
                    }
                }
            }
        }
        // Every hole pixel of the three middle frames; half of each of the others.
        EXPECT_EQ(checked, 3 * Size * Size + Size * Size);
    }
}

}  // namespace
