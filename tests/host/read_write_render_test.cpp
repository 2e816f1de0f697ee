// The host's reader, writer and threaded renderer on real files.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <mutex>
#include <set>
#include <stdexcept>

#include "host/Read.h"
#include "host/Render.h"
#include "host/Write.h"
#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;

/// A test source whose sample (x, y) of every channel is x + 1000 y + 0.25 z, and which can
/// fail (error or exception) when it reaches a given row.
class PatternSource : public host::Iop {
  public:
    PatternSource(int width, int height, host::ChannelSet channels)
        : host::Iop(nullptr), m_format(width, height), m_channels(channels) {}
    const char* Class() const override { return "PatternSource"; }
    const char* node_help() const override { return ""; }

    int errorRow = -1;
    int throwRow = -1;

    void engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) override {
        if (y == errorRow) {
            error("PatternSource: row " + std::to_string(y) + " is broken");
            return;
        }
        if (y == throwRow) {
            throw std::runtime_error("out of patience");
        }
        for (host::Channel z : channels) {
            float* out = row.writable(z);
            for (int X = x; X < r; ++X) {
                out[X] = float(X) + 1000.0f * float(y) + 0.25f * float(z);
            }
        }
    }

  protected:
    void _validate(bool) override {
        info_().format(m_format);
        info_().full_size_format(m_format);
        info_().set(host::Box{0, 0, m_format.width, m_format.height});
        info_().channels(m_channels);
    }

  private:
    host::Format m_format;
    host::ChannelSet m_channels;
};

/// Renders `op` and returns every row's red span, checking each row arrives once.
std::vector<std::vector<float>> renderRed(host::Iop& op, const host::RenderOptions& options,
                                          bool* complete) {
    op.validate(true);
    const int width = op.format().width;
    std::vector<std::vector<float>> rows(std::size_t(std::max(op.format().height, 0)));
    std::mutex mutex;
    std::multiset<int> seen;
    *complete = host::render(op, host::Mask_RGB, options, [&](int y, host::Row& row) {
        std::scoped_lock lock(mutex);
        seen.insert(y);
        rows[std::size_t(y)].assign(row[host::Chan_Red], row[host::Chan_Red] + width);
    });
    for (int y : seen) {
        EXPECT_EQ(seen.count(y), 1u) << "row " << y << " delivered twice";
    }
    return rows;
}

class RecordingProgress : public host::ProgressSink {
  public:
    void update(double fraction) override { fractions.push_back(fraction); }
    std::vector<double> fractions;
};

TEST(Render, DeliversEveryRowOnceOnManyThreadsWithProgress) {
    PatternSource source(37, 101, host::Mask_RGB);
    RecordingProgress progress;
    host::RenderOptions options;
    options.threads = 4;
    options.progress = &progress;
    bool complete = false;
    const auto rows = renderRed(source, options, &complete);
    ASSERT_TRUE(complete);
    for (int y = 0; y < 101; ++y) {
        ASSERT_EQ(rows[std::size_t(y)].size(), 37u);
        EXPECT_EQ(rows[std::size_t(y)][36], 36.0f + 1000.0f * y + 0.25f);
    }
    ASSERT_FALSE(progress.fractions.empty());
    EXPECT_TRUE(std::is_sorted(progress.fractions.begin(), progress.fractions.end()));
    EXPECT_DOUBLE_EQ(progress.fractions.back(), 1.0);
}

TEST(Render, ErrorsExceptionsAndInterruptsAbortWithoutCrashing) {
    host::RenderOptions options;
    options.threads = 3;
    bool complete = true;

    PatternSource failing(16, 64, host::Mask_RGB);
    failing.errorRow = 40;
    renderRed(failing, options, &complete);
    EXPECT_FALSE(complete);
    EXPECT_FALSE(failing.cancelled());
    EXPECT_EQ(failing.messageHandler().getFirstError().value_or(""),
              "PatternSource: row 40 is broken");

    PatternSource throwing(16, 64, host::Mask_RGB);
    throwing.throwRow = 10;
    renderRed(throwing, options, &complete);
    EXPECT_FALSE(complete);
    EXPECT_EQ(throwing.messageHandler().getFirstError().value_or(""),
              "PatternSource: out of patience");

    // A render starts afresh: the abort of the last one is forgotten.
    throwing.throwRow = -1;
    renderRed(throwing, options, &complete);
    EXPECT_TRUE(complete);

    std::atomic<bool> interrupt{true};
    options.interrupt = &interrupt;
    PatternSource big(64, 200000, host::Mask_RGB);
    renderRed(big, options, &complete);
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
    EXPECT_EQ(read.format().width, 7);
    EXPECT_EQ(read.format().height, 5);
    EXPECT_EQ(read.file_datatype(), "float");
    const host::Channel depth = host::getChannel("Z");
    EXPECT_EQ(read.channels(), host::ChannelSet(host::Mask_RGBA) + depth);

    host::Write write(nullptr);
    write.file(dir.file("out.exr").c_str());
    write.set_file_type_from_filename();
    EXPECT_STREQ(write.file_type(), "exr");
    write.channels(read.channels());
    write.datatype(read.file_datatype());
    write.set_input(0, &read);
    ASSERT_TRUE(write.execute()) << write.messageHandler().getFirstError().value_or("");

    const FileImage out = readFileImage(dir.path() / "out.exr");
    ASSERT_EQ(out.pixels.channels, 5);
    EXPECT_EQ(out.datatype, "float");
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 7; ++x) {
            for (int c = 0; c < 5; ++c) {
                // EXR stores channels by name; match them back to the input's order.
                const auto& names = out.channelNames;
                const int k =
                    int(std::find(names.begin(), names.end(), std::string(1, "RGBAZ"[c])) -
                        names.begin());
                ASSERT_LT(k, 5);
                EXPECT_EQ(at(out.pixels, x, y, k), at(pixels, x, y, c));
            }
        }
    }
}

TEST(ReadWrite, BitDepthGreyAndChannelOrderSurviveAPngRoundTrip) {
    ScratchDir dir;
    const ImageBuffer grey = makeImage(9, 4, 2, [](int x, int y, int c) {
        return c == 0 ? float(x * 4 + y) / 65535.0f * 1000.0f : 1.0f;
    });
    writeFileImage(dir.path() / "grey.png", grey, {"Y", "A"}, "uint16");

    host::Read read(nullptr);
    read.file(dir.file("grey.png"));
    read.validate(true);
    ASSERT_FALSE(read.aborted());
    EXPECT_EQ(read.file_datatype(), "uint16");
    host::Write write(nullptr);
    write.file(dir.file("copy.png").c_str());
    write.set_file_type_from_filename();
    write.channels(read.channels());
    write.datatype(read.file_datatype());
    write.set_input(0, &read);
    ASSERT_TRUE(write.execute());

    const FileImage out = readFileImage(dir.path() / "copy.png");
    EXPECT_EQ(out.datatype, "uint16");
    EXPECT_EQ(out.channelNames, (std::vector<std::string>{"Y", "A"}));
    EXPECT_NEAR(at(out.pixels, 8, 3, 0), at(grey, 8, 3, 0), 1e-6f);
}

TEST(ReadWrite, BadFilesAreReportedAndLeaveNothingBehind) {
    ScratchDir dir;
    host::Read missing(nullptr);
    missing.file(dir.file("missing.png"));
    missing.validate(true);
    EXPECT_TRUE(missing.aborted());
    EXPECT_NE(missing.messageHandler().getFirstError().value_or("").find("missing.png"),
              std::string::npos);

    // A PNG cut short after its header.
    writeFileImage(dir.path() / "whole.png",
                   makeImage(64, 64, 3, [](int x, int, int) { return float(x % 7) / 7.0f; }),
                   {"R", "G", "B"}, "uint8");
    {
        std::ifstream in(dir.path() / "whole.png", std::ios::binary);
        std::string bytes(std::istreambuf_iterator<char>(in), {});
        std::ofstream(dir.path() / "cut.png", std::ios::binary) << bytes.substr(0, 100);
    }
    host::Read cut(nullptr);
    cut.file(dir.file("cut.png"));
    cut.validate(true);
    EXPECT_TRUE(cut.aborted());

    PatternSource source(8, 8, host::Mask_RGB);
    for (const std::string& target :
         {dir.file("no/such/folder/out.png"), dir.file("out.unknownformat")}) {
        host::Write write(nullptr);
        write.file(target.c_str());
        write.set_file_type_from_filename();
        write.set_input(0, &source);
        EXPECT_FALSE(write.execute()) << target;
        EXPECT_TRUE(write.aborted());
        EXPECT_FALSE(write.cancelled());
        EXPECT_NE(write.messageHandler().getFirstError().value_or("").find(target),
                  std::string::npos);
    }
    // An input's error reaches the writer's tree, and no file (temporary or final) remains.
    source.errorRow = 3;
    host::Write write(nullptr);
    write.file(dir.file("broken.exr").c_str());
    write.set_input(0, &source);
    EXPECT_FALSE(write.execute());
    EXPECT_EQ(write.messageHandler().getFirstError().value_or(""),
              "PatternSource: row 3 is broken");
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        left.push_back(entry.path().filename().string());
    }
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{"cut.png", "whole.png"}));
}

}  // namespace
