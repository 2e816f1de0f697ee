// Image files in and out of ImageBuffers, through the host's reader and writer.
#pragma once

#include <string>

#include "host/Channel.h"
#include "host/Render.h"
#include "image/ImageBuffer.h"

namespace quorblen::app {

/// An image file loaded into memory: one plane per channel, in host channel order.
struct LoadedImage {
    ImageBuffer pixels;
    host::ChannelSet channels;  // plane k holds the k-th channel of this set
    std::string datatype;       // the file's sample type ("uint8", "half", "float", ...)
};

/// Reads `path` through the host's reader. Throws CommandError with the reader's message
/// when the file is missing, unreadable or corrupt (or the read is interrupted).
LoadedImage readImageFile(const std::string& path, const host::RenderOptions& options);

/// Writes `image`, whose plane k holds the k-th channel of `channels`, to `path` through the
/// host's writer, the file type chosen from the name. `datatype` as the writer's knob (empty:
/// float where the type has it). Nothing is left under `path` on failure. Throws
/// CommandError with the writer's message; returns false when the user interrupted.
bool writeImageFile(const ImageBuffer& image, const host::ChannelSet& channels,
                    const std::string& path, const std::string& datatype,
                    const host::RenderOptions& options);

/// Throws CommandError when `path` cannot be an output image: no known file type for its
/// name, or a folder that does not exist or cannot be written. Lets a command refuse before
/// a long computation rather than after it.
void checkWritableImagePath(const std::string& path);

}  // namespace quorblen::app
