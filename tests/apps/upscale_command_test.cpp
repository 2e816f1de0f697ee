// quorblen upscale end to end: real photos in, files out, through the loaded module.
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <random>

#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;

/// The top left `width` x `height` corner of the photo the program ships with, as floats.
ImageBuffer photoCorner(int width, int height = 0) {
    const ImageBuffer photo = readFileImage(sourcePath("data/coffee.png")).pixels;
    return makeImage(width, height > 0 ? height : width, 3,
                     [&](int x, int y, int c) { return at(photo, x, y, c); });
}

/// The sum of squared differences of vertically adjacent samples of `image`: how rough it is.
double roughness(const ImageBuffer& image) {
    double sum = 0.0;
    for (int i = image.stride; i < image.stride * image.height; ++i) {
        sum += std::pow(image.data[i] - image.data[i - image.stride], 2);
    }
    return sum;
}

TEST(UpscaleCommand, WritesTheInputsTypeOrTheOneAskedFor) {
    ScratchDir dir;
    // Without arguments: the bundled 8-bit photo, to a file the program names.
    const ProgramRun run = runQuorblen({}, dir.path());
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("coffee-2x.png"), std::string::npos) << run.out;
    const FileImage photo = readFileImage(dir.path() / "coffee-2x.png");
    EXPECT_EQ(std::tuple(photo.pixels.width, photo.pixels.height, photo.datatype),
              std::tuple(1200, 800, "uint8"));

    writeFileImage(
        dir.path() / "grey16.png",
        makeImage(12, 10, 1, [&](int x, int y, int) { return at(photo.pixels, x, y, 1); }), {"Y"},
        "uint16");
    writeFileImage(dir.path() / "rgb8.png", photoCorner(12), {"R", "G", "B"}, "uint8");
    const struct {
        const char* input;
        const char* output;
        std::vector<std::string> options;
        const char* datatype;
    } cases[] = {
        // The input's type where the file type holds it, another where it does not.
        {"grey16.png", "grey.png", {}, "uint16"},
        {"rgb8.png", "default.exr", {}, "half"},
        {"rgb8.png", "uint8.tif", {"-d", "uint8"}, "uint8"},
        {"rgb8.png", "uint16.png", {"--data-type", "uint16"}, "uint16"},
        {"rgb8.png", "float.exr", {"--data-type=float"}, "float"},
        {"float.exr", "half.exr", {"-d", "half", "--compression", "piz"}, "half"},
        {"half.exr", "back.png", {"-d", "uint16"}, "uint16"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args{"upscale", c.input, c.output, "--iterations", "2"};
        args.insert(args.end(), c.options.begin(), c.options.end());
        const ProgramRun upscaled = runQuorblen(args, dir.path());
        ASSERT_EQ(upscaled.exitCode, 0) << upscaled.err;
        const FileImage out = readFileImage(dir.path() / c.output);
        EXPECT_EQ(out.datatype, c.datatype) << c.output;
        EXPECT_EQ(out.channelNames.size(), c.input == std::string("grey16.png") ? 1u : 3u);
    }
    // The PNG's values stay sRGB-encoded, and say so after two EXRs, which OpenImageIO alone
    // would call linear.
    EXPECT_EQ(readFileImage(dir.path() / "back.png").layout.attributes.at("oiio:ColorSpace"),
              "sRGB");
    EXPECT_EQ(readFileImage(dir.path() / "half.exr").layout.attributes.at("compression"), "piz");
    // Float keeps what the solver computed, which the half-float file rounds.
    EXPECT_FALSE(sameImage(readFileImage(dir.path() / "float.exr").pixels,
                           readFileImage(dir.path() / "default.exr").pixels));
}

// An EXR whose data window lies inside a larger display window: both double in place, and
// the file's metadata comes along, sizes in pixels doubled.
TEST(UpscaleCommand, DoublesAnExrsWindowsInPlaceAndKeepsItsMetadata) {
    ScratchDir dir;
    const FileLayout layout{{3, 5, 27, 21},
                            {-2, 0, 40, 30},
                            {{"Shot", "abc123"}, {"PixelAspectRatio", "2"}, {"XResolution", "72"}}};
    writeFileImage(dir.path() / "in.exr", photoCorner(24, 16), {"R", "G", "B"}, "half", layout);
    const ProgramRun run =
        runQuorblen({"upscale", "in.exr", "out.exr", "--iterations", "1"}, dir.path());
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const FileImage out = readFileImage(dir.path() / "out.exr");
    EXPECT_EQ(out.datatype, "half");
    EXPECT_EQ(out.layout.dataWindow, (host::Box{6, 10, 54, 42}));
    EXPECT_EQ(out.layout.displayWindow, (host::Box{-4, 0, 80, 60}));
    for (const auto& [name, value] :
         {std::pair{"Shot", "abc123"}, {"PixelAspectRatio", "2"}, {"XResolution", "144"}}) {
        EXPECT_EQ(out.layout.attributes.at(name), value) << name;
    }
}

// The main promise on a real, noisy photo: twice the size, every 2x2 block mean equal to
// its input pixel, and flat areas smoother than the nearest-neighbour start.
TEST(UpscaleCommand, KeepsBlockMeansAndSmoothsNoiseOnANoisyPhoto) {
    ScratchDir dir;
    const ImageBuffer photo = readFileImage(sourcePath("data/coffee.png")).pixels;
    std::mt19937 random(7);
    std::normal_distribution<float> noise(0.0f, 0.03f);
    const ImageBuffer alpha = makeImage(96, 96, 4, [&](int x, int y, int c) {
        return c < 3 ? at(photo, 200 + x, 100 + y, c) + noise(random) : 1.0f;
    });
    writeFileImage(dir.path() / "noisy.exr", alpha, {"R", "G", "B", "A"}, "float");

    const ProgramRun run =
        runQuorblen({"upscale", "noisy.exr", "big.exr", "--threads", "3"}, dir.path());
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const FileImage out = readFileImage(dir.path() / "big.exr");
    ASSERT_EQ(std::pair(out.pixels.width, out.pixels.height), std::pair(192, 192));
    EXPECT_EQ(out.datatype, "float");
    EXPECT_EQ(out.channelNames, (std::vector<std::string>{"R", "G", "B", "A"}));

    double worst = 0.0;
    for (int i = 0; i < 96 * 96 * 4; ++i) {
        worst = std::max(
            worst, std::abs(blockMean(out.pixels, i / 4 % 96, i / 4 / 96, i % 4) - alpha.data[i]));
    }
    // Float rounding of a handful of single-precision operations on values near 1.
    EXPECT_LT(worst, 1e-5);

    const ImageBuffer nearest =
        makeImage(192, 192, 4, [&](int x, int y, int c) { return at(alpha, x / 2, y / 2, c); });
    EXPECT_LT(roughness(out.pixels), 0.8 * roughness(nearest));
}

TEST(UpscaleCommand, BadCommandLinesAndFilesFailWithOneClearLine) {
    ScratchDir dir;
    writeFileImage(dir.path() / "in.png", photoCorner(8), {"R", "G", "B"}, "uint8");
    const struct {
        std::vector<std::string> args;
        int exitCode;
        const char* message;
    } cases[] = {
        {{"upscale", "in.png", "no/folder/out.png"}, 1, "does not exist"},
        {{"upscale", "in.png", "out.nosuchformat"}, 1, "no image format"},
        {{"upscale", "in.png", "out.png", "--lambda", "soft"}, 2, "--lambda must be a number"},
        {{"upscale", "in.png", "out.png", "--a", "1e-300"},
         2,
         "--a must be at least 1e-30 and at most 1e+30, not 1e-300"},
        {{"upscale", "in.png", "out.png", "--lambda", "inf"}, 2, "--lambda must be a finite"},
        {{"upscale", "in.png", "out.png", "--threads", "2k"}, 2, "--threads must be a whole"},
        {{"upscale", "in.png", "out.png", "--fixnan", "zero"}, 2, "--fixnan must be one of"},
        {{"upscale", "in.png", "out.#.png", "--frames", "1"}, 2, "--frames needs INPUT and OUTPUT"},
        {{"upscale", "in.#.png", "out.png"}, 2, "in.#.png has a frame token"},
        {{"convert", "in.@.png", "out.@.png", "--frames", "1-2x"}, 2, "--frames must be like"},
        {{"upscale", "in.png", "out.png", "-q", "-v"}, 2, "-q and -v exclude each other"},
        {{"upscale", "in.png"}, 2, "INPUT and an OUTPUT"},
        {{"upscale", "in.png", "out.png", "--colour"}, 2, "unknown option --colour"},
        {{"enlarge"}, 2, "unknown command"},
        {{"upscale", "in.png", "out.exr", "-d", "int7"},
         2,
         "--data-type must be uint8, uint16, half or float, not \"int7\""},
        {{"upscale", "in.png", "out.exr", "--compression", "zip:10"},
         2,
         "--compression must be one of none, rle, zip[:1-9], zips[:1-9], piz"},
        {{"convert", "in.png", "out.png", "--compression", "zip"},
         2,
         "out.png has no compression to choose"},
        {{"inpaint", "in.png", "out.png", "--mask", "alpha", "-d", "double"}, 2, "--data-type"},
    };
    for (const auto& c : cases) {
        const ProgramRun run = runQuorblen(c.args, dir.path());
        EXPECT_EQ(run.exitCode, c.exitCode) << c.args.back() << ": " << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "out.png"));
    const ProgramRun help = runQuorblen({"upscale", "--help"}, dir.path());
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("--iterations (1 to 1000000; 5)"), std::string::npos) << help.out;
}

/// A PNG chunk: length, type, data and the CRC of type and data.
std::string pngChunk(const std::string& type, const std::string& data) {
    const auto bigEndian = [](std::uint32_t v) {
        return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    };
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const unsigned char byte : type + data) {
        crc ^= byte;
        for (int k = 0; k < 8; ++k) {
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
        }
    }
    return bigEndian(std::uint32_t(data.size())) + type + data + bigEndian(~crc);
}

// Broken and hostile files: each makes the command fail with one line naming it (no library's
// own line beside it), exit 1 and leave no file behind; none crashes or hangs.
TEST(UpscaleCommand, HostileFilesFailWithOneLineAndNoOutput) {
    ScratchDir dir;
    for (const std::string type : {"png", "jpg", "tif", "exr"}) {
        writeFileImage(dir.path() / ("whole." + type), photoCorner(64), {"R", "G", "B"},
                       type == "exr" ? "half" : "uint8");
        const std::string bytes = readBytes(dir.path() / ("whole." + type));
        std::ofstream(dir.path() / ("cut." + type), std::ios::binary)
            << bytes.substr(0, bytes.size() / 2);
        std::filesystem::remove(dir.path() / ("whole." + type));
    }
    std::ofstream(dir.path() / "empty.png");
    std::ofstream(dir.path() / "text.jpg") << "not an image\n";
    std::filesystem::create_directory(dir.path() / "folder.exr");
    // A header declaring 100000 x 100000 RGB pixels, 120 GB as floats, and no pixels.
    std::ofstream(dir.path() / "huge.png", std::ios::binary)
        << "\x89PNG\r\n\x1a\n"
        << pngChunk("IHDR", std::string("\0\x01\x86\xa0\0\x01\x86\xa0\x08\x02\0\0\0", 13))
        << pngChunk("IDAT", "x") << pngChunk("IEND", "");
    for (const auto& [name, header] : {std::pair{"huge.raw", std::array{100000, 100000, 3}},
                                       std::pair{"negative.raw", std::array{-5, 4, 3}},
                                       std::pair{"empty.raw", std::array{0, 0, 0}}}) {
        std::ofstream(dir.path() / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(header.data()), sizeof header);
    }
    const std::vector<std::string> corpus = fileNames(dir.path());
    std::vector<std::string> inputs = corpus;
    inputs.push_back("missing.png");
    for (const std::string& file : inputs) {
        const bool raw = file.ends_with(".raw");
        const ProgramRun run =
            runQuorblen({raw ? "convert" : "upscale", file, "out.png"}, dir.path());
        EXPECT_EQ(run.exitCode, 1) << file;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_NE(run.err.find(file), std::string::npos) << run.err;
        // Refused from its header: reading its missing pixels would fail otherwise.
        EXPECT_TRUE(file != "huge.png" || run.err.find("of memory") != std::string::npos);
    }
    EXPECT_EQ(fileNames(dir.path()), corpus);
}

/// Reads `fd` into `output` until it holds `text` (true), or until `fd` ends or stays silent
/// for five minutes, a safety net only (false).
bool readUntil(int fd, const std::string& text, std::string& output) {
    pollfd ready{fd, POLLIN, 0};
    char chunk[256];
    while (output.find(text) == std::string::npos) {
        const ssize_t n = poll(&ready, 1, 300000) > 0 ? read(fd, chunk, sizeof chunk) : 0;
        if (n <= 0) {
            return false;
        }
        output.append(chunk, std::size_t(n));
    }
    return true;
}

// Ctrl-C, or a closed terminal (HUP), in the middle of a long render: the program stops with 130
// and leaves no file, neither the output nor its temporary, which is open by then. The signal
// goes once the progress bar shows on the terminal, that is once the render is under way,
// however slowly the program started.
TEST(UpscaleCommand, InterruptStopsCleanlyWithoutAFile) {
    ScratchDir dir;
    writeFileImage(dir.path() / "in.png", photoCorner(256), {"R", "G", "B"}, "uint8");
    const std::string program = (binaryDir() / "quorblen").string();
    for (const int signalNumber : {SIGINT, SIGHUP}) {
        int terminal = -1;
        const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
        ASSERT_GE(child, 0);
        if (child == 0) {
            // As at a terminal, even when the test runs as a background job that ignores it.
            signal(signalNumber, SIG_DFL);
            if (chdir(dir.path().c_str()) == 0) {
                execl(program.c_str(), "quorblen", "upscale", "in.png", "out.png", "--iterations",
                      "100000", static_cast<char*>(nullptr));
            }
            _exit(127);
        }
        std::string output;
        EXPECT_TRUE(readUntil(terminal, "|----|", output)) << output;
        kill(child, signalNumber);
        if (!readUntil(terminal, "interrupted; out.png was not written", output)) {
            ADD_FAILURE() << output;
            kill(child, SIGKILL);  // never leave the test waiting for a child that goes on
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        close(terminal);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status;
        EXPECT_EQ(fileNames(dir.path()), std::vector<std::string>{"in.png"});
    }
}

}  // namespace
