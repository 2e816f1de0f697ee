// ImageBuffer::writeImage: channel sets, JPEG quality and writer failures; the message thrown
// for an aborted operator tree.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "image/OpError.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

const std::string Prefix =
    "Host error encountered by fillBuffer(). Operator ImageBufferIop reported: ";

/// An image with detail in every channel, so that compression has something to lose.
ImageBuffer noisyImage(int channels) {
    return test::makeImage(64, 48, channels, [](int x, int y, int c) {
        const unsigned h =
            (unsigned(x) * 73856093u) ^ (unsigned(y) * 19349663u) ^ (unsigned(c) * 83492791u);
        return float(h % 1000u) / 1000.0f;
    });
}

TEST(WriteImage, ChannelSetFollowsTheChannelCount) {
    test::ScratchDir dir;
    // Three or fewer channels ask for red, green and blue; more ask for channels 1 to 7, of
    // which the buffer serves what it has.
    const struct {
        int bufferChannels;
        int requested;
        std::vector<std::string> written;
    } cases[] = {
        {1, -1, {"R"}},
        {4, -1, {"A", "B", "G", "R"}},
        {4, 3, {"B", "G", "R"}},
        {8, -1, {"A", "B", "G", "R", "channel5", "channel6", "channel7"}},
    };
    for (const auto& c : cases) {
        const std::string name =
            dir.file(std::to_string(c.bufferChannels) + "-" + std::to_string(c.requested) + ".exr");
        EXPECT_TRUE(noisyImage(c.bufferChannels).writeImage(name.c_str(), c.requested));
        std::vector<std::string> names = test::readFileImage(name).channelNames;
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, c.written) << name;
    }
}

TEST(WriteImage, JpegQualityReachesTheWriter) {
    test::ScratchDir dir;
    for (const std::string extension : {".jpg", ".JPEG"}) {
        ImageBuffer image = noisyImage(3);
        const std::string best = dir.file("best" + extension);
        const std::string low = dir.file("low" + extension);
        ASSERT_TRUE(image.writeImage(best.c_str()));
        image.jpegQuality = 0.1f;
        ASSERT_TRUE(image.writeImage(low.c_str()));
        EXPECT_LT(std::filesystem::file_size(low) * 2, std::filesystem::file_size(best))
            << extension;
    }
}

TEST(WriteImage, FailureThrowsTheWritersMessageAndLeavesNoFile) {
    test::ScratchDir dir;
    // An unwritable folder and a name no image format is known for.
    for (const std::string& name : {dir.file("no/such/folder/out.png"),
                                    dir.file("no/such/folder/out.exr"), dir.file("out.unknown")}) {
        try {
            noisyImage(3).writeImage(name.c_str());
            ADD_FAILURE() << "no throw for " << name;
        } catch (const std::string& message) {
            EXPECT_EQ(message.rfind(Prefix, 0), 0u) << message;
            EXPECT_NE(message.find(name), std::string::npos) << message;
        }
    }
    // Nothing half-written stays behind.
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

/// The text checkOpError throws for `op`, or "no throw".
std::string thrownBy(host::Op& op) {
    try {
        checkOpError(&op);
    } catch (const std::string& message) {
        return message;
    }
    return "no throw";
}

TEST(CheckOpError, MessageForEachAbortState) {
    ImageBuffer op;
    EXPECT_EQ(thrownBy(op), "no throw");
    op.abort();
    EXPECT_EQ(thrownBy(op), Prefix + "unexpected error state");

    // The first error of the tree is the one named, whichever operator reported it, and the
    // operator is named through the host's hook.
    op.clear_abort();
    ImageBuffer upstream;
    op.set_input(0, &upstream);
    upstream.error("disk full");
    op.error("second error");
    const auto original = host::Op::print_name_cb;
    host::Op::print_name_cb = [](std::ostream& out, const host::Op*) { out << "Write1"; };
    const std::string message = thrownBy(op);
    host::Op::print_name_cb = original;
    EXPECT_EQ(message,
              "Host error encountered by fillBuffer(). Operator Write1 reported: disk full");

    // A stop the user asked for throws an empty message, even with errors recorded.
    op.cancel();
    EXPECT_EQ(thrownBy(op), "");
}

}  // namespace
}  // namespace quorblen
