// The host's reader, writer and threaded renderer on real files.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <mutex>
#include <stdexcept>

#include "host/Read.h"
#include "host/Render.h"
#include "host/Write.h"
#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;

/// A buffer whose sample (x, y, c) is x + 1000 y + c / 4, and which fails (with an error or an
/// exception) when it reaches a given row.
class PatternSource : public ImageBuffer {
public:
    PatternSource(int width, int height)
        : ImageBuffer(makeImage(width, height, 3, [](int x, int y, int c) {
              return float(x) + 1000.0f * float(y) + 0.25f * float(c);
          })) {}
    const char* Class() const override { return "PatternSource"; }
    int errorRow = -1;
    int throwRow = -1;

    void engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) override {
        if (y == errorRow) {
            return error("PatternSource: row " + std::to_string(y) + " is broken");
        }
        if (y == throwRow) {
            throw std::runtime_error("out of patience");
        }
        ImageBuffer::engine(y, x, r, channels, row);
    }
};

/// Renders `op` and returns every row's red span, checking each row arrives once.
std::vector<std::vector<float>> renderRed(host::Iop& op, const host::RenderOptions& options,
                                          bool& complete) {
    op.validate(true);
    std::vector<std::vector<float>> rows(std::size_t(op.format().height));
    std::mutex mutex;
    complete = host::render(op, host::Mask_RGB, options, [&](int y, host::Row& row) {
        std::scoped_lock lock(mutex);
        EXPECT_TRUE(rows[std::size_t(y)].empty()) << "row " << y << " delivered twice";
        rows[std::size_t(y)].assign(row[host::Chan_Red], row[host::Chan_Red] + op.format().width);
    });
    return rows;
}

struct RecordingProgress : host::ProgressSink {
    void update(double fraction) override { fractions.push_back(fraction); }
    std::vector<double> fractions;
};

TEST(Render, DeliversEveryRowOnceOnManyThreadsWithProgress) {
    PatternSource source(37, 101);
    RecordingProgress progress;
    bool complete = false;
    const auto rows = renderRed(source, {4, &progress, nullptr}, complete);
    ASSERT_TRUE(complete);
    for (int y = 0; y < 101; ++y) {
        ASSERT_EQ(rows[std::size_t(y)].size(), 37u);
        EXPECT_EQ(rows[std::size_t(y)][36], 36.0f + 1000.0f * y);
    }
    ASSERT_FALSE(progress.fractions.empty());
    EXPECT_TRUE(std::is_sorted(progress.fractions.begin(), progress.fractions.end()));
    EXPECT_DOUBLE_EQ(progress.fractions.back(), 1.0);
}

TEST(Render, ErrorsExceptionsAndInterruptsAbortWithoutCrashing) {
    host::RenderOptions options{3, nullptr, nullptr};
    bool complete = true;
    PatternSource source(16, 64);
    source.errorRow = 40;
    renderRed(source, options, complete);
    EXPECT_FALSE(complete || source.cancelled());
    EXPECT_EQ(source.messageHandler().getFirstError(), "PatternSource: row 40 is broken");
    // Every render starts afresh: the abort and the errors of the last one are forgotten.
    source.errorRow = -1;
    source.throwRow = 10;
    renderRed(source, options, complete);
    EXPECT_FALSE(complete);
    EXPECT_EQ(source.messageHandler().getFirstError(), "PatternSource: out of patience");
    source.throwRow = -1;
    renderRed(source, options, complete);
    EXPECT_TRUE(complete);

    const std::atomic<bool> interrupt{true};
    options.interrupt = &interrupt;
    PatternSource big(64, 64);
    renderRed(big, options, complete);
    EXPECT_FALSE(complete);
    EXPECT_TRUE(big.cancelled());
}

TEST(ReadWrite, FloatExrWithAlphaAndExtraChannelRoundTripsExactly) {
    ScratchDir dir;
    const ImageBuffer pixels = makeImage(7, 5, 5, [](int x, int y, int c) {
        return std::ldexp(float(x * 31 + y * 7 + c), -5) - 1.5f;
    });
    writeFileImage(dir.path() / "in.exr", pixels, {"R", "G", "B", "A", "Z"}, "float");
    host::Read read(nullptr);
    read.file(dir.file("in.exr"));
    read.validate(true);
    ASSERT_FALSE(read.aborted()) << read.messageHandler().getFirstError().value_or("");
    EXPECT_EQ(read.channels(), host::ChannelSet(host::Mask_RGBA) + host::getChannel("Z"));
    host::Write write(nullptr);
    write.file(dir.file("out.exr").c_str());
    write.set_file_type_from_filename();
    write.channels(read.channels());
    write.datatype(read.file_datatype());
    write.set_input(0, &read);
    ASSERT_TRUE(write.execute()) << write.messageHandler().getFirstError().value_or("");

    const FileImage out = readFileImage(dir.file("out.exr"));
    ASSERT_EQ(out.pixels.channels, 5);
    EXPECT_EQ(out.datatype, "float");
    // EXR stores channels by name; match them back to the input's order.
    for (int c = 0; c < 5; ++c) {
        const auto& names = out.channelNames;
        const auto k = std::find(names.begin(), names.end(), std::string(1, "RGBAZ"[c]));
        ASSERT_NE(k, names.end());
        for (int i = 0; i < 7 * 5; ++i) {
            EXPECT_EQ(out.pixels.data[i * 5 + (k - names.begin())], pixels.data[i * 5 + c]);
        }
    }
}

TEST(ReadWrite, BadFilesAreReportedAndLeaveNothingBehind) {
    ScratchDir dir;
    // A missing file, and a PNG cut short after its header.
    writeFileImage(dir.path() / "whole.png",
                   makeImage(64, 64, 3, [](int x, int, int) { return float(x % 7) / 7.0f; }),
                   {"R", "G", "B"}, "uint8");
    std::ofstream(dir.path() / "cut.png", std::ios::binary)
        << readBytes(dir.path() / "whole.png").substr(0, 100);
    for (const char* name : {"missing.png", "cut.png"}) {
        host::Read read(nullptr);
        read.file(dir.file(name));
        read.validate(true);
        EXPECT_TRUE(read.aborted());
        EXPECT_NE(read.messageHandler().getFirstError().value_or("").find(name), std::string::npos);
    }

    PatternSource source(8, 8);
    // An input's error reaches the writer's tree, and no file (temporary or final) remains.
    source.errorRow = 3;
    host::Write write(nullptr);
    write.file(dir.file("broken.exr").c_str());
    write.set_input(0, &source);
    EXPECT_FALSE(write.execute());
    EXPECT_EQ(write.messageHandler().getFirstError(), "PatternSource: row 3 is broken");
    EXPECT_EQ(fileNames(dir.path()), (std::vector<std::string>{"cut.png", "whole.png"}));
}

}  // namespace
