// The host's reader, writer and threaded renderer on real files.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <thread>

#include "host/Read.h"
#include "host/Render.h"
#include "host/Write.h"
#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;

/// A buffer whose sample (x, y, c) is x + 1000 y + c / 4, and which fails (with an error or an
/// exception) when it reaches a given row, or holds a row back until ten others are done.
class PatternSource : public ImageBuffer {
public:
    PatternSource(int width, int height)
        : ImageBuffer(makeImage(width, height, 3, [](int x, int y, int c) {
              return float(x) + 1000.0f * float(y) + 0.25f * float(c);
          })) {}
    const char* Class() const override { return "PatternSource"; }
    int errorRow = -1;
    int throwRow = -1;
    int heldRow = -1;
    std::atomic<int> rowsDone{0};

    void engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) override {
        if (y == errorRow) {
            return error("PatternSource: row " + std::to_string(y) + " is broken");
        }
        if (y == throwRow) {
            throw std::runtime_error("out of patience");
        }
        while (y == heldRow && rowsDone.load() < 10) {
            std::this_thread::yield();
        }
        ImageBuffer::engine(y, x, r, channels, row);
        rowsDone.fetch_add(1);
    }
};

/// Renders `area` of `op` and returns every row's red span over the area's columns, checking
/// that the rows arrive in order.
std::vector<std::vector<float>> renderRed(host::Iop& op, const host::Box& area,
                                          const host::RenderOptions& options, bool& complete) {
    std::vector<std::vector<float>> rows;
    complete = host::render(op, host::Mask_RGB, area, options, [&](int y, host::Row& row) {
        EXPECT_EQ(y, area.y + int(rows.size())) << "rows out of order";
        rows.emplace_back(row[host::Chan_Red] + area.x, row[host::Chan_Red] + area.r);
    });
    return rows;
}

struct RecordingProgress : host::ProgressSink {
    void update(double fraction) override { fractions.push_back(fraction); }
    std::vector<double> fractions;
};

TEST(Render, DeliversEveryRowInOrderOnManyThreadsWithZerosOutsideTheBox) {
    PatternSource source(37, 101);
    // Row 5 finishes after rows behind it: it is still delivered in its turn.
    source.heldRow = 5;
    RecordingProgress progress;
    bool complete = false;
    const auto rows = renderRed(source, {-1, -1, 38, 102}, {4, &progress, nullptr}, complete);
    ASSERT_TRUE(complete);
    ASSERT_EQ(rows.size(), 103u);
    for (int y = -1; y <= 101; ++y) {
        std::vector<float> expected(39, 0.0f);
        for (int x = 0; x < 37 && y >= 0 && y < 101; ++x) {
            expected[std::size_t(x + 1)] = float(x) + 1000.0f * y;
        }
        EXPECT_EQ(rows[std::size_t(y + 1)], expected) << "row " << y;
    }
    ASSERT_FALSE(progress.fractions.empty());
    EXPECT_TRUE(std::is_sorted(progress.fractions.begin(), progress.fractions.end()));
    EXPECT_DOUBLE_EQ(progress.fractions.back(), 1.0);
}

TEST(Render, ErrorsExceptionsAndInterruptsAbortWithoutCrashing) {
    host::RenderOptions options{3, nullptr, nullptr};
    bool complete = true;
    PatternSource source(16, 64);
    const host::Box area{0, 0, 16, 64};
    source.errorRow = 40;
    renderRed(source, area, options, complete);
    EXPECT_FALSE(complete || source.cancelled());
    EXPECT_EQ(source.messageHandler().getFirstError(), "PatternSource: row 40 is broken");
    // Every render starts afresh: the abort and the errors of the last one are forgotten.
    source.errorRow = -1;
    source.throwRow = 10;
    renderRed(source, area, options, complete);
    EXPECT_FALSE(complete);
    EXPECT_EQ(source.messageHandler().getFirstError(), "PatternSource: out of patience");
    source.throwRow = -1;
    renderRed(source, area, options, complete);
    EXPECT_TRUE(complete);

    const std::atomic<bool> interrupt{true};
    options.interrupt = &interrupt;
    renderRed(source, area, options, complete);
    EXPECT_FALSE(complete);
    EXPECT_TRUE(source.cancelled());
}

// Several strips of rows, scanline and tiled files, a data window reaching outside the display
// window: every sample, both windows and the file's attributes come out as they went in.
TEST(ReadWrite, ExrKeepsSamplesWindowsAndMetadata) {
    ScratchDir dir;
    const ImageBuffer pixels = makeImage(7, 150, 5, [](int x, int y, int c) {
        return std::ldexp(float(x * 31 + y * 7 + c), -5) - 1.5f;
    });
    for (const int tileSize : {0, 16}) {
        const FileLayout layout{{-3, 2, 4, 152},
                                {0, 0, 12, 90},
                                {{"Shot", "abc123"}, {"PixelAspectRatio", "2"}},
                                tileSize};
        writeFileImage(dir.path() / "in.exr", pixels, {"R", "G", "B", "A", "Z"}, "float", layout);
        host::Read read(nullptr);
        read.file(dir.file("in.exr"));
        host::Write write(nullptr);
        write.file(dir.file("out.exr").c_str());
        write.set_file_type_from_filename();
        write.channels(host::Mask_All);
        write.set_input(0, &read);
        ASSERT_TRUE(write.execute()) << write.messageHandler().getFirstError().value_or("");
        EXPECT_EQ(read.channels(), host::ChannelSet(host::Mask_RGBA) + host::getChannel("Z"));
        EXPECT_EQ(read.format().pixel_aspect, 2.0);

        const FileImage out = readFileImage(dir.file("out.exr"));
        EXPECT_EQ(out.datatype, "float");
        EXPECT_EQ(out.layout.dataWindow, layout.dataWindow);
        EXPECT_EQ(out.layout.displayWindow, layout.displayWindow);
        EXPECT_EQ(out.layout.attributes.at("Shot"), "abc123");
        EXPECT_EQ(out.layout.attributes.at("PixelAspectRatio"), "2");
        // EXR stores channels by name; match them back to the input's order.
        const std::vector<std::string> names{"R", "G", "B", "A", "Z"};
        for (int c = 0; c < 5; ++c) {
            const auto k = std::find(out.channelNames.begin(), out.channelNames.end(), names[c]);
            ASSERT_NE(k, out.channelNames.end());
            for (int i = 0; i < 7 * 150; ++i) {
                ASSERT_EQ(out.pixels.data[i * 5 + (k - out.channelNames.begin())],
                          pixels.data[i * 5 + c])
                    << "tiles " << tileSize << ", sample " << i;
            }
        }
    }
}

/// The first line of each block of the scanline EXR at `path`, read through its offset table.
std::vector<int> blockFirstLines(const std::filesystem::path& path, int blocks) {
    const std::string bytes = readBytes(path);
    const auto number = [&](std::size_t at, auto value) {
        std::memcpy(&value, &bytes.at(at), sizeof value);
        return value;
    };
    std::size_t at = 8;             // magic number and version
    while (bytes.at(at) != '\0') {  // attributes: name, type, size, value
        at = bytes.find('\0', bytes.find('\0', at) + 1) + 1;
        at += 4 + std::size_t(number(at, std::int32_t{}));
    }
    std::vector<int> lines;
    for (int i = 0; i < blocks; ++i) {
        lines.push_back(
            number(number(at + 1 + 8 * std::size_t(i), std::uint64_t{}), std::int32_t{}));
    }
    return lines;
}

// The writer's zip compression on its threads: every sample and every block through the
// offset table, for each zip flavour, sample type, thread count and a last block cut short.
TEST(ReadWrite, ExrZipBlocksReadBackOnAnyThreadCount) {
    struct Case {
        int width, height;
        const char* datatype;
        const char* compression;
        int threads;
        const char* stored;  // the compression the file says it has
        int linesPerBlock;
    };
    const Case cases[] = {
        {7, 1, "float", "", 1, "zip", 16},  // too small to shrink: stored as it is
        {5, 33, "half", "zip:9", 3, "zip", 16},
        {3, 17, "float", "zips", 2, "zips", 1},
        {1500, 1100, "float", "zip:1", 2, "zip", 16},  // several batches of blocks
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.datatype) + " " + c.compression + " " +
                     std::to_string(c.height));
        // Multiples of 1/8 below 256: exact in half as in float.
        ImageBuffer pixels = makeImage(c.width, c.height, 3, [](int x, int y, int k) {
            return float((x * 7919 + y * 104729 + k * 13) % 2048) / 8.0f;
        });
        host::Write write(nullptr);
        write.file(dir.file("zip.exr").c_str());
        write.set_file_type_from_filename();
        write.datatype(c.datatype);
        write.compression(c.compression);
        write.render_options({c.threads});
        write.set_input(0, &pixels);
        ASSERT_TRUE(write.execute()) << write.messageHandler().getFirstError().value_or("");

        const FileImage out = readFileImage(dir.file("zip.exr"));
        EXPECT_EQ(out.layout.attributes.at("compression"), c.stored);
        EXPECT_EQ(out.channelNames, (std::vector<std::string>{"R", "G", "B"}));
        EXPECT_TRUE(sameImage(out.pixels, pixels));
        const int blocks = (c.height + c.linesPerBlock - 1) / c.linesPerBlock;
        std::vector<int> firstLines(std::size_t(blocks), 0);
        for (int i = 0; i < blocks; ++i) {
            firstLines[std::size_t(i)] = i * c.linesPerBlock;
        }
        EXPECT_EQ(blockFirstLines(dir.path() / "zip.exr", blocks), firstLines);
    }
}

TEST(ReadWrite, AnInputsErrorLeavesNoFileBehind) {
    ScratchDir dir;
    PatternSource source(8, 200);
    // A row after the first strip has gone to the file.
    source.errorRow = 150;
    host::Write write(nullptr);
    write.file(dir.file("broken.exr").c_str());
    write.set_input(0, &source);
    EXPECT_FALSE(write.execute());
    EXPECT_EQ(write.messageHandler().getFirstError(), "PatternSource: row 150 is broken");
    EXPECT_TRUE(fileNames(dir.path()).empty());
}

}  // namespace
