// Image files in and out of ImageBuffers and host operators, through the host's reader and
// writer.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "host/Channel.h"
#include "host/MetaData.h"
#include "host/Read.h"
#include "host/Render.h"
#include "host/Write.h"
#include "image/ImageBuffer.h"

namespace quorblen::app {

class Arguments;

/// An image file loaded into memory: its data window, one plane per channel, in host channel
/// order, and what the file said about it.
struct LoadedImage {
    ImageBuffer pixels;         // the data window
    host::ChannelSet channels;  // plane k holds the k-th channel of this set
    std::string datatype;       // the file's sample type ("uint8", "half", "float", ...)
    host::Format format;        // the display window and the pixel aspect ratio
    host::Box box;              // where `pixels` lie: the data window
    host::MetaData metadata;
};

/// How a command writes its output file: its -d/--data-type and --compression options.
struct OutputChoices {
    std::string datatype;     // empty: the input's type, where the file type holds it
    std::string compression;  // empty: the file type's default
};

/// The options `outputChoices` reads, for a command's list of value options.
inline const std::vector<std::string> outputOptions = {"--data-type", "--compression"};

/// The output choices of `arguments` for the file `output`. Throws UsageError naming the
/// option for a type other than uint8, uint16, half and float, or for a compression the file
/// type does not offer.
OutputChoices outputChoices(const Arguments& arguments, const std::string& output);

/// Lists the output options with their defaults and the compressions of the common types.
void describeOutputOptions(std::ostream& out);

/// Points `read` at `path` and validates it, which reads the file's header. Throws
/// CommandError with the reader's message when the file is missing or cannot be read.
void openImageFile(host::Read& read, const std::string& path);

/// Reads `path` through the host's reader. Throws CommandError with the reader's message
/// when the file is missing, unreadable or corrupt (or the read is interrupted).
LoadedImage readImageFile(const std::string& path, const host::RenderOptions& options);

/// Renders `source` to `path` through `writer`: the channels `channels`, the sample type of
/// `choices` or else `inputDatatype`, the compression of `choices`; the file type chosen from
/// the name. Nothing is left under `path` on failure. Throws CommandError with the writer's
/// message; returns false when the user interrupted.
bool writeImageFile(host::Write& writer, host::Iop& source, const host::ChannelSet& channels,
                    const std::string& path, const std::string& inputDatatype,
                    const OutputChoices& choices, const host::RenderOptions& options);

/// Writes `image` to `path` as `writeImageFile` does, in its own data window, display window
/// and metadata.
bool writeImageFile(const LoadedImage& image, const std::string& path, const OutputChoices& choices,
                    const host::RenderOptions& options);

/// Throws CommandError when `path` cannot be an output image: a file type the writer refuses
/// (host::Write::refusal), or a folder that does not exist or cannot be written. Lets a command
/// refuse before a long computation rather than after it.
void checkWritableImagePath(const std::string& path);

}  // namespace quorblen::app
