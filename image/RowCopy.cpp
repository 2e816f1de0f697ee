// Serving the rows of an ImageBuffer to the host, as image operators do from their engine.
#include "image/RowCopy.h"

#include <algorithm>
#include <cassert>
#include <cstdint>

namespace quorblen {
namespace {

/// Copies plane `plane` of the interleaved `line` (`channels` samples per pixel) to
/// out[x .. r-1]. Two pixels per pass with a trailing one for odd spans.
void copyPlaneToRow(const float* line, int channels, int plane, int x, int r, float* out) {
    const float* in = line + plane;
    int X = x;
    for (; X + 1 < r; X += 2) {
        out[X] = in[X * channels];
        out[X + 1] = in[(X + 1) * channels];
    }
    if (X < r) {
        out[X] = in[X * channels];
    }
}

}  // namespace

host::ChannelSet firstChannels(int planes) {
    const int count = std::clamp(planes, 0, int(host::Chan_Last));
    return host::ChannelSet(std::uint32_t((std::uint64_t(1) << count) - 1));
}

void serveRow(const ImageBuffer& image, const host::ChannelSet& planes, const host::Box& box, int y,
              int x, int r, const host::ChannelSet& requested, host::Row& row) {
    const host::ChannelSet served = image.data != nullptr ? planes : host::Mask_None;
    assert(served.size() <= image.channels);
    assert(served.empty() || (y >= box.y && y < box.t && x >= box.x && x <= r && r <= box.r &&
                              box.w() == image.width && box.h() == image.height));
    int plane = 0;
    for (host::Channel z : served) {
        if (requested.contains(z)) {
            const float* line = image.data + std::ptrdiff_t(y - box.y) * image.stride;
            copyPlaneToRow(line, image.channels, plane, x - box.x, r - box.x,
                           row.writable(z) + box.x);
        }
        ++plane;
    }
    for (host::Channel z : requested - served) {
        std::fill(row.writable(z) + x, row.writable(z) + r, 0.0f);
    }
}

}  // namespace quorblen
