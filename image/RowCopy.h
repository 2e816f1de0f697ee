// Serving the rows of an ImageBuffer to the host, as image operators do from their engine.
#pragma once

#include "host/Box.h"
#include "host/Channel.h"
#include "host/Row.h"
#include "image/ImageBuffer.h"

namespace quorblen {

/// The host channels that the planes of a `planes`-channel image stand for by default: plane
/// k as channel k + 1, for the first min(`planes`, 31) planes (none for `planes` below 1).
host::ChannelSet firstChannels(int planes);

/// Copies row y, columns x .. r-1, of `image` into `row`: plane k as the k-th channel of
/// `planes` (in increasing channel number) for each of them that `requested` holds, zeros for
/// every other requested channel. The image's pixel (0, 0) lies at (`box.x`, `box.y`), and an
/// image without samples serves zeros.
/// Preconditions: `planes` has at most `image.channels` channels; when the image has samples,
/// `box` is its place (image.width x image.height) and holds row y, columns x .. r-1.
void serveRow(const ImageBuffer& image, const host::ChannelSet& planes, const host::Box& box, int y,
              int x, int r, const host::ChannelSet& requested, host::Row& row);

}  // namespace quorblen
