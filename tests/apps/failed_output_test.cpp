// Outputs that cannot be written and inputs that cannot be read: one line naming the file and
// the cause, exit 1, and nothing left behind, whatever the image libraries print themselves.
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;

/// The largest file, in bytes, a disk that fills lets the program write: less than any output
/// of the images below.
constexpr std::uint64_t FullDisk = 4096;

/// Writes `image` (8-bit RGB) to `path` with an ICC profile: an RGB display profile with a D50
/// white point, padded with varied bytes (libpng drops a profile whose compressed form is very
/// short).
void writeWithProfile(const std::filesystem::path& path, const ImageBuffer& image) {
    std::vector<unsigned char> profile(564);
    const auto put = [&](std::size_t at, std::uint32_t value) {
        for (int k = 0; k < 4; ++k) {
            profile[at + std::size_t(k)] = static_cast<unsigned char>(value >> (24 - 8 * k));
        }
    };
    const auto tag = [&](std::size_t at, const char* text) { std::copy_n(text, 4, &profile[at]); };
    put(0, std::uint32_t(profile.size()));
    put(8, 0x02100000);  // version 2.1
    tag(12, "mntr");
    tag(16, "RGB ");
    tag(20, "XYZ ");
    tag(36, "acsp");
    for (const std::size_t at : {std::size_t(68), std::size_t(152)}) {  // D50 and the white point
        put(at, 0xF6D6);
        put(at + 4, 0x10000);
        put(at + 8, 0xD32D);
    }
    put(128, 1);  // one tag: the white point, an XYZ value at byte 144
    tag(132, "wtpt");
    put(136, 144);
    put(140, 20);
    tag(144, "XYZ ");
    for (std::size_t i = 164; i < profile.size(); ++i) {
        profile[i] = static_cast<unsigned char>((i * 37 + 11) % 251);
    }
    OIIO::ImageSpec spec(image.width, image.height, 3, OIIO::TypeDesc::UINT8);
    spec.attribute("ICCProfile", OIIO::TypeDesc(OIIO::TypeDesc::UINT8, int(profile.size())),
                   profile.data());
    const auto output = OIIO::ImageOutput::create(path.string());
    ASSERT_TRUE(output && output->open(path.string(), spec) &&
                output->write_image(OIIO::TypeDesc::FLOAT, image.data) && output->close());
}

// Every output type of every command on a disk that fills, from photos with an ICC profile
// (which OpenImageIO's EXR writer has a debug line about), a missing raw file and a PNG cut
// short: exit 1, one line naming the file and the cause, neither the output nor a temporary.
TEST(FailedOutput, EveryFailureIsOneLineAndLeavesNothing) {
    // OpenImageIO's debug lines are asked for too: they must stay off standard error.
    setenv("OPENIMAGEIO_DEBUG", "1", 1);
    ScratchDir dir;
    // Noise: no file type compresses it below the full disk.
    const ImageBuffer noise = makeImage(64, 64, 3, [](int x, int y, int c) {
        const std::uint32_t hash = (std::uint32_t(x) * 73856093u ^ std::uint32_t(y) * 19349663u ^
                                    std::uint32_t(c) * 83492791u) *
                                   2654435761u;
        return float(hash >> 24) / 255.0f;
    });
    for (const char* photo : {"photo.jpg", "photo.png"}) {
        writeWithProfile(dir.path() / photo, noise);
    }
    const std::string png = readBytes(dir.path() / "photo.png");
    std::ofstream(dir.path() / "cut.png", std::ios::binary) << png.substr(0, png.size() / 2);
    writeFileImage(
        dir.path() / "mask.png",
        makeImage(64, 64, 1, [](int x, int y, int) { return float(x / 4 == 5 && y / 4 == 7); }),
        {"Y"}, "uint8");
    const std::vector<std::string> inputs = fileNames(dir.path());

    struct Case {
        std::vector<std::string> args;
        std::string file;   // the file the line names
        const char* cause;  // what the line says went wrong
        std::uint64_t fileSizeLimit;
    };
    std::vector<Case> cases = {
        {{"convert", "missing.raw", "out.exr"}, "missing.raw", "No such file", 0},
        {{"upscale", "cut.png", "out.exr"}, "cut.png", "", 0},
    };
    for (const std::string command : {"upscale", "convert", "inpaint"}) {
        for (const std::string type : {"raw", "exr", "png", "jpg", "tif", "dpx"}) {
            for (const std::string input : {"photo.jpg", "photo.png"}) {
                // Only convert writes raw files; the PNG input goes through one command.
                if (command != "convert" && (type == "raw" || input == "photo.png")) {
                    continue;
                }
                std::vector<std::string> args{command, input, "out." + type, "-q"};
                if (command == "inpaint") {
                    args.insert(args.end(), {"--mask", "mask.png"});
                }
                cases.push_back({args, "out." + type, "File too large", FullDisk});
            }
        }
    }
    for (const Case& c : cases) {
        const ProgramRun run = runQuorblen(c.args, dir.path(), c.fileSizeLimit);
        const std::string label = c.args[0] + " " + c.args[1] + " " + c.args[2] + ": " + run.err;
        EXPECT_EQ(run.exitCode, 1) << label;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << label;
        EXPECT_NE(run.err.find(c.file), std::string::npos) << label;
        EXPECT_NE(run.err.find(c.cause), std::string::npos) << label;
        EXPECT_EQ(fileNames(dir.path()), inputs) << label;
    }
    unsetenv("OPENIMAGEIO_DEBUG");
}

}  // namespace
