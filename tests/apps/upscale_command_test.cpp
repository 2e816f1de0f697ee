// quorblen upscale end to end: real photos in, files out, through the loaded module.
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <random>

#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;

/// The top left `size` x `size` corner of the photo the program ships with, as floats.
ImageBuffer photoCorner(int size) {
    const ImageBuffer photo = readFileImage(sourcePath("data/coffee.png")).pixels;
    return makeImage(size, size, 3, [&](int x, int y, int c) { return at(photo, x, y, c); });
}

/// The sum of squared differences of vertically adjacent samples of `image`: how rough it is.
double roughness(const ImageBuffer& image) {
    double sum = 0.0;
    for (int i = image.stride; i < image.stride * image.height; ++i) {
        sum += std::pow(image.data[i] - image.data[i - image.stride], 2);
    }
    return sum;
}

TEST(UpscaleCommand, WritesTwiceTheSizeInTheInputsChannelsAndBitDepth) {
    ScratchDir dir;
    // Without arguments: the bundled 8-bit photo, to a file the program names.
    const ProgramRun run = runQuorblen({}, dir.path());
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("coffee-2x.png"), std::string::npos) << run.out;
    const FileImage photo = readFileImage(dir.path() / "coffee-2x.png");
    EXPECT_EQ(std::pair(photo.pixels.width, photo.pixels.height), std::pair(1200, 800));
    EXPECT_EQ(photo.datatype, "uint8");

    // A 16-bit grey one keeps its single channel and its bit depth.
    const ImageBuffer grey16 =
        makeImage(40, 40, 1, [&](int x, int y, int) { return at(photo.pixels, x, y, 1); });
    writeFileImage(dir.path() / "grey16.png", grey16, {"Y"}, "uint16");
    ASSERT_EQ(runQuorblen({"upscale", "grey16.png", "out.png"}, dir.path()).exitCode, 0);
    const FileImage grey = readFileImage(dir.path() / "out.png");
    EXPECT_EQ(std::tuple(grey.pixels.width, grey.pixels.channels, grey.datatype),
              std::tuple(80, 1, "uint16"));
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
        {{"upscale", "missing.png", "out.png"}, 1, "missing.png"},
        {{"upscale", "in.png", "no/folder/out.png"}, 1, "does not exist"},
        {{"upscale", "in.png", "out.nosuchformat"}, 1, "no image format"},
        {{"upscale", "in.png", "out.png", "--lambda", "soft"}, 2, "--lambda must be a number"},
        {{"upscale", "in.png", "out.png", "--a", "1e-300"}, 2, "--a must be at least 1e-30"},
        {{"upscale", "in.png"}, 2, "INPUT and an OUTPUT"},
        {{"upscale", "in.png", "out.png", "--colour"}, 2, "unknown option --colour"},
        {{"enlarge"}, 2, "unknown command"},
    };
    for (const auto& c : cases) {
        const ProgramRun run = runQuorblen(c.args, dir.path());
        EXPECT_EQ(run.exitCode, c.exitCode) << c.args.back() << ": " << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "out.png"));
    const ProgramRun help = runQuorblen({"upscale", "--help"}, dir.path());
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("Iterations = 5"), std::string::npos) << help.out;
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

// Ctrl-C in the middle of a long render: the program stops with 130 and leaves no file,
// neither the output nor its temporary. The signal goes once the progress bar shows on the
// terminal, that is once the render is under way, however slowly the program started.
TEST(UpscaleCommand, InterruptStopsCleanlyWithoutAFile) {
    ScratchDir dir;
    writeFileImage(dir.path() / "in.png", photoCorner(256), {"R", "G", "B"}, "uint8");
    const std::string program = (binaryDir() / "quorblen").string();
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Ctrl-C as at a terminal, even when the test runs as a background job that ignores it.
        signal(SIGINT, SIG_DFL);
        if (chdir(dir.path().c_str()) == 0) {
            execl(program.c_str(), "quorblen", "upscale", "in.png", "out.png", "--iterations",
                  "100000", static_cast<char*>(nullptr));
        }
        _exit(127);
    }
    std::string output;
    EXPECT_TRUE(readUntil(terminal, "|----|", output)) << output;
    kill(child, SIGINT);
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

}  // namespace
