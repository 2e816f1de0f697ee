// checkOpError: the message thrown for an aborted operator tree.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "image/ImageBuffer.h"
#include "image/OpError.h"

namespace quorblen {
namespace {

/// The text checkOpError throws for `op`, or "no throw".
std::string thrownBy(host::Op& op) {
    try {
        checkOpError(&op);
    } catch (const std::string& message) {
        return message;
    }
    return "no throw";
}

const std::string Prefix = "Host error encountered by fillBuffer(). Operator ";

TEST(CheckOpError, MessageForEachAbortState) {
    ImageBuffer op;
    EXPECT_EQ(thrownBy(op), "no throw");
    op.abort();
    EXPECT_EQ(thrownBy(op), Prefix + "ImageBufferIop reported: unexpected error state");

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
    EXPECT_EQ(message, Prefix + "Write1 reported: disk full");

    // A stop the user asked for throws an empty message, even with errors recorded.
    op.cancel();
    EXPECT_EQ(thrownBy(op), "");
}

}  // namespace
}  // namespace quorblen
