// quorblen convert: between raw files (.raw) and image files, either way.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/FrameLoop.h"
#include "apps/ImageFiles.h"
#include "apps/Rendering.h"
#include "host/Write.h"
#include "image/RawImageFile.h"

namespace quorblen::app {
namespace {

/// Whether `path` names a raw file: extension ".raw", in any case.
bool isRawFile(const std::string& path) {
    return host::Write::file_type_of(path) == "raw";
}

/// Loads the raw file `path` as a loaded image whose planes are host channels 1, 2, 3, ...
/// Throws CommandError when it cannot be read (readRaw has printed why), when its header asks
/// for more samples than the file holds (checked before anything is allocated), or when it
/// holds no samples.
LoadedImage readRawFile(const std::string& path) {
    if (const std::string shortfall = rawFileShortfall(path.c_str()); !shortfall.empty()) {
        throw CommandError(shortfall);
    }
    LoadedImage image;
    if (!readRaw(path.c_str(), &image.pixels)) {
        throw CommandError("cannot read " + path);
    }
    if (image.pixels.data == nullptr) {
        throw CommandError(path + " holds no samples");
    }
    const int planes = std::min(image.pixels.channels, int(host::Chan_Last));
    image.channels = host::ChannelSet((std::uint32_t(1) << planes) - 1);
    image.format = host::Format(image.pixels.width, image.pixels.height);
    image.box = image.format;
    return image;
}

/// Saves `image` to the raw file `path`. Throws CommandError when it cannot be opened (writeRaw
/// has printed why).
void writeRawFile(const std::string& path, const ImageBuffer& image) {
    if (!writeRaw(path.c_str(), &image)) {
        throw CommandError("cannot write " + path);
    }
}

/// What was written, in one line.
std::string written(const std::string& path, int width, int height, int channels) {
    return "Wrote " + path + " (" + std::to_string(width) + " x " + std::to_string(height) + ", " +
           std::to_string(channels) + (channels == 1 ? " channel)" : " channels)");
}

/// Converts the file `input` to `output`; the frame work of the convert command.
std::optional<std::string> convertFile(const std::string& input, const std::string& output,
                                       const OutputChoices& choices) {
    const bool rawOutput = isRawFile(output);
    if (!rawOutput) {
        checkWritableImagePath(output);
    }
    // Only the host's renders watch for Ctrl-C; they stop cleanly, leaving no output behind.
    InterruptGuard interruptGuard;
    // One thread: a conversion only copies rows.
    const host::RenderOptions options = renderOptions(1, nullptr);
    if (isRawFile(input) || rawOutput) {
        // The raw file keeps the planes in the order the reader delivers the channels.
        const LoadedImage image =
            isRawFile(input) ? readRawFile(input) : readImageFile(input, options);
        if (rawOutput) {
            writeRawFile(output, image.pixels);
        } else if (!writeImageFile(image, output, choices, options)) {
            return std::nullopt;
        }
        return written(output, image.pixels.width, image.pixels.height, image.pixels.channels);
    }
    // Image to image: the rows go from the reader to the writer, a strip at a time.
    host::Read read(nullptr);
    openImageFile(read, input);
    host::Write writer(nullptr);
    if (!writeImageFile(writer, read, read.channels(), output, read.file_datatype(), choices,
                        options)) {
        return std::nullopt;
    }
    return written(output, read.info().box().w(), read.info().box().h(), read.channels().size());
}

}  // namespace

int runConvert(const std::vector<std::string>& args) {
    std::vector<std::string> options = outputOptions;
    options.insert(options.end(), frameOptions.begin(), frameOptions.end());
    const Arguments arguments(args, options, frameFlags);
    if (arguments.positional().size() != 2) {
        throw UsageError("needs an INPUT and an OUTPUT file");
    }
    const std::string& input = arguments.positional()[0];
    const std::string& output = arguments.positional()[1];
    const OutputChoices choices = outputChoices(arguments, output);
    return runFrames("convert", arguments, {input, output}, [&](const Frame& frame) {
        return convertFile(frame.name(input), frame.name(output), choices);
    });
}

}  // namespace quorblen::app
