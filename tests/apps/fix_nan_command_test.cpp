// --fixnan end to end: an EXR with a NaN pixel through upscale and inpaint.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;

bool allFinite(const ImageBuffer& image) {
    return std::all_of(image.data, image.data + image.width * image.height * image.channels,
                       [](float v) { return std::isfinite(v); });
}

// Pixel (3, 3) is NaN or infinite in its three channels; inpaint's hole lies away from it, where
// its recipe would refuse a NaN next to the hole.
TEST(FixNanOption, WarnsRepairsOrRefusesInEachCommand) {
    ScratchDir dir;
    const auto ramp = [](int x, int y, int c) { return 0.05f * float(x + y + c); };
    ImageBuffer image = makeImage(16, 16, 3, ramp);
    at(image, 3, 3, 0) = NAN;
    at(image, 3, 3, 1) = -INFINITY;
    at(image, 3, 3, 2) = NAN;
    writeFileImage(dir.path() / "in.exr", image, {"R", "G", "B"}, "float");
    for (int c = 0; c < 3; ++c) {
        at(image, 3, 3, c) = 0.0f;
    }
    writeFileImage(dir.path() / "black.exr", image, {"R", "G", "B"}, "float");
    writeFileImage(dir.path() / "mask.png",
                   makeImage(16, 16, 1, [](int x, int y, int) { return float(x > 10 && y > 10); }),
                   {"Y"}, "uint8");
    const std::vector<std::vector<std::string>> commands = {
        {"upscale", "--iterations", "2"}, {"inpaint", "--mask", "mask.png", "--iterations", "20"}};
    const auto run = [&](const std::vector<std::string>& command, const char* input,
                         std::vector<std::string> options) {
        std::vector<std::string> args{command[0], input, "out.exr"};
        args.insert(args.end(), command.begin() + 1, command.end());
        args.insert(args.end(), options.begin(), options.end());
        std::filesystem::remove(dir.path() / "out.exr");
        return runQuorblen(args, dir.path());
    };
    for (const auto& command : commands) {
        SCOPED_TRACE(command[0]);
        ProgramRun result = run(command, "in.exr", {});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_NE(result.err.find("warning: in.exr: 3 samples are not finite numbers (NaN or "
                                  "infinite); --fixnan black or box3 repairs them\n"),
                  std::string::npos)
            << result.err;
        EXPECT_FALSE(allFinite(readFileImage(dir.path() / "out.exr").pixels));
        EXPECT_EQ(run(command, "in.exr", {"-q"}).err, "");

        ASSERT_EQ(run(command, "black.exr", {}).exitCode, 0);
        const ImageBuffer zeros = readFileImage(dir.path() / "out.exr").pixels;
        result = run(command, "in.exr", {"--fixnan", "black"});
        ASSERT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.err.find("warning"), std::string::npos) << result.err;
        EXPECT_TRUE(sameImage(readFileImage(dir.path() / "out.exr").pixels, zeros));
        result = run(command, "in.exr", {"--fixnan=box3"});
        ASSERT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.err.find("warning"), std::string::npos) << result.err;
        const ImageBuffer box3 = readFileImage(dir.path() / "out.exr").pixels;
        EXPECT_TRUE(allFinite(box3));
        EXPECT_FALSE(sameImage(box3, zeros));

        result = run(command, "in.exr", {"--fixnan", "error"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.err, "quorblen " + command[0] +
                                  ": in.exr: 3 samples are not finite numbers (NaN or infinite)\n");
        EXPECT_FALSE(std::filesystem::exists(dir.path() / "out.exr"));
    }
}

}  // namespace
