// Pulling the whole input of a host operator into an ImageBuffer.
#include "image/FillBuffer.h"

#include <cstddef>

#include "host/Row.h"

namespace quorblen {

void fillBuffer(host::Iop& op, ImageBuffer& buffer, const host::ChannelSet& channels) {
    host::Iop& in = op.input0();
    const host::Box& box = in.info().box();
    buffer.resize(box.w(), box.h(), channels.size());
    if (buffer.data == nullptr) {
        return;
    }
    host::Row row(box.x, box.r);
    for (int y = box.y; y < box.t; ++y) {
        row.get(in, y, box.x, box.r, channels);
        if (op.aborted()) {
            return;
        }
        row.interleave(channels, box.x, box.r,
                       buffer.data + static_cast<std::ptrdiff_t>(y - box.y) * buffer.stride);
    }
}

}  // namespace quorblen
