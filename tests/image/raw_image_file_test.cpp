// Raw image files: byte layout, exact round trips, array reuse and malformed files.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <tuple>
#include <vector>

#include "image/RawImageFile.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

/// A raw header as the format stores it.
std::string header(std::int32_t width, std::int32_t height, std::int32_t channels) {
    const std::int32_t values[] = {width, height, channels};
    return std::string(reinterpret_cast<const char*>(values), sizeof values);
}

void writeFile(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary) << bytes;
}

/// The samples of `image` as raw bytes.
std::string sampleBytes(const ImageBuffer& image) {
    return std::string(reinterpret_cast<const char*>(image.data),
                       sizeof(float) * image.width * image.height * image.channels);
}

TEST(RawImageFile, LayoutAndExactRoundTrip) {
    test::ScratchDir dir;
    const std::string name = dir.file("image.raw");
    // Values a rounding or text path would not keep: signed zero, subnormal, infinity, NaN.
    const float special[] = {-0.0f, std::numeric_limits<float>::denorm_min(),
                             std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::quiet_NaN()};
    const ImageBuffer image = test::makeImage(3, 2, 4, [&](int x, int y, int c) {
        const int i = (y * 3 + x) * 4 + c;
        return i < 4 ? special[i] : float(i) / 3.0f;
    });
    ASSERT_TRUE(writeRaw(name.c_str(), &image));
    EXPECT_EQ(test::readBytes(name),
              std::string("\3\0\0\0\2\0\0\0\4\0\0\0", 12) + sampleBytes(image));

    // Same sample count, other shape: the file's shape is taken.
    ImageBuffer back(4, 6, 1);
    ASSERT_TRUE(readRaw(name.c_str(), &back));
    EXPECT_EQ(std::tie(back.width, back.height, back.channels, back.stride),
              std::make_tuple(3, 2, 4, 12));
    EXPECT_EQ(sampleBytes(back), sampleBytes(image));
}

TEST(RawImageFile, UnopenableFilesLeaveTheBufferAlone) {
    test::ScratchDir dir;
    const std::string missing = dir.file("missing.raw");
    const std::string unwritable = dir.file("no/such/folder.raw");
    ImageBuffer image = test::filledImage(4, 1, 1, 7.0f);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(readRaw(missing.c_str(), &image));
    EXPECT_FALSE(writeRaw(unwritable.c_str(), &image));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ImageBuffer::readRaw Couldn't open " + missing + "\n" +
                  "ImageBuffer::writeRaw Couldn't open " + unwritable + "\n");
    EXPECT_EQ(image.data[3], 7.0f);
}

// A short file still loads: a reused array keeps what it held past the last whole sample read,
// a fresh array is cleared there, and a header cut short counts its missing dimensions as 0.
// A header announcing no samples empties the buffer. Counts past 2^31 - 1 are refused and the
// buffer stays as it was; 65536 x 65536 wraps to 0 in 32 bits and 2^30 cubed to 0 in 64.
TEST(RawImageFile, ShortFilesAndOversizedHeaders) {
    test::ScratchDir dir;
    const std::string name = dir.file("short.raw");
    const float five = 5.0f;
    const std::string firstSample(reinterpret_cast<const char*>(&five), 4);
    const std::vector<float> untouched{7, 7, 7, 7};
    const struct {
        const char* what;
        std::string bytes;
        std::vector<float> samples;  // empty: no array
        bool refused = false;
    } cases[] = {
        {"same count, ends inside sample 2", header(2, 2, 1) + firstSample + "xy", {5, 7, 7, 7}},
        {"same count, no samples", header(1, 4, 1), untouched},
        {"new count, ends inside sample 2", header(3, 1, 1) + firstSample + "xy", {5, 0, 0}},
        {"header cut short", header(3, 3, 1).substr(0, 10), {}},
        {"no rows, width x channels past 2^31", header(1 << 30, 0, 1 << 30), {}},
        {"count wraps in 32 bits", header(65536, 65536, 1), untouched, true},
        {"negative count", header(-65536, 65536, 1), untouched, true},
        {"count wraps in 64 bits", header(1 << 30, 1 << 30, 1 << 30), untouched, true},
    };
    for (const auto& c : cases) {
        writeFile(name, c.bytes);
        for (const bool fromFile : {true, false}) {
            SCOPED_TRACE(testing::Message() << c.what << (fromFile ? " (file)" : " (stream)"));
            ImageBuffer image = test::filledImage(4, 1, 1, 7.0f);
            const float* array = image.data;
            std::istringstream stream(c.bytes, std::ios::binary);
            testing::internal::CaptureStderr();
            if (fromFile) {
                EXPECT_EQ(readRaw(name.c_str(), &image), !c.refused);
            } else if (readRaw(stream, &image); c.refused) {
                EXPECT_TRUE(stream.fail());
            }
            EXPECT_EQ(
                testing::internal::GetCapturedStderr(),
                c.refused && fromFile ? "ImageBuffer::readRaw Couldn't read " + name + "\n" : "");
            const std::vector<float> samples(image.data, image.data + image.stride * image.height);
            EXPECT_EQ(samples, c.samples);
            // The buffer's own count of 4: the array is kept.
            if (c.samples.size() == 4) {
                EXPECT_EQ(image.data, array);
            }
        }
    }
}

}  // namespace
}  // namespace quorblen
