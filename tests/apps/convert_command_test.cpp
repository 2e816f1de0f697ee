// quorblen convert end to end: photos to raw files and back.
#include <gtest/gtest.h>

#include "image/RawImageFile.h"
#include "support/TestImages.h"

namespace {

using namespace quorblen;
using namespace quorblen::test;

/// Runs `quorblen convert from to` in `dir` and reads `to` back as the program should have
/// written it.
ImageBuffer convert(const ScratchDir& dir, const std::string& from, const std::string& to) {
    const ProgramRun run = runQuorblen({"convert", from, to}, dir.path());
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("Wrote " + to), std::string::npos) << run.out << run.err;
    if (to.ends_with(".raw")) {
        ImageBuffer image;
        EXPECT_TRUE(readRaw(dir.file(to).c_str(), &image));
        return image;
    }
    return readFileImage(dir.file(to)).pixels;
}

TEST(ConvertCommand, PhotosToRawAndBackKeepEverySample) {
    ScratchDir dir;
    for (const char* photo : {"coffee.png", "astronaut.png"}) {
        const std::string source = sourcePath(std::string("data/") + photo).string();
        const ImageBuffer original = readFileImage(source).pixels;
        EXPECT_TRUE(sameImage(convert(dir, source, "photo.raw"), original)) << photo;
        // The raw file holds floats; an 8-bit PNG made of it gives the photo's values back.
        EXPECT_TRUE(sameImage(convert(dir, "photo.raw", "back.png"), original)) << photo;
    }
}

TEST(ConvertCommand, ChannelCountsSurviveEveryDirection) {
    ScratchDir dir;
    // Grey: one sample per pixel in the raw file, one channel in the image made of it.
    const ImageBuffer grey =
        makeImage(33, 21, 1, [](int x, int y, int) { return float((x * 7 + y) % 256) / 255.0f; });
    writeFileImage(dir.path() / "grey.png", grey, {"Y"}, "uint8");
    const ImageBuffer raw = convert(dir, "grey.png", "grey.raw");
    EXPECT_TRUE(sameImage(raw, readFileImage(dir.file("grey.png")).pixels));
    EXPECT_TRUE(sameImage(convert(dir, "grey.raw", "grey-back.png"), raw));

    // Four channels become red, green, blue and alpha; image to image keeps them and the type.
    const ImageBuffer rgba = makeImage(40, 30, 4, [](int x, int y, int c) {
        return c == 3 ? float(x % 2) : float(x * 3 + y * 5 + c) / 256.0f;
    });
    ASSERT_TRUE(writeRaw(dir.file("rgba.raw").c_str(), &rgba));
    convert(dir, "rgba.raw", "rgba.exr");
    convert(dir, "rgba.exr", "copy.tif");
    const FileImage written = readFileImage(dir.file("copy.tif"));
    EXPECT_EQ(written.channelNames, (std::vector<std::string>{"R", "G", "B", "A"}));
    EXPECT_EQ(written.datatype, "float");
    EXPECT_TRUE(sameImage(written.pixels, rgba));
}

}  // namespace
