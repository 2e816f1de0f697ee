// Pulling the whole input of a host operator into an ImageBuffer.
#pragma once

#include "host/Iop.h"
#include "image/ImageBuffer.h"

namespace quorblen {

/// Pulls the box (the data window) of input 0 of `op` into `buffer`, one plane per channel of
/// `channels` in host order; row 0 and column 0 of the buffer are the box's top left corner.
/// Stops at the first row after which the host has aborted.
void fillBuffer(host::Iop& op, ImageBuffer& buffer, const host::ChannelSet& channels);

}  // namespace quorblen
