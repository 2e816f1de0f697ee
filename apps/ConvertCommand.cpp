// quorblen convert: between raw files (.raw) and image files, either way.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/FrameLoop.h"
#include "apps/ImageFiles.h"
#include "apps/Rendering.h"
#include "host/Write.h"
#include "image/RawImageFile.h"
#include "image/RowCopy.h"

namespace quorblen::app {
namespace {

/// Whether `path` names a raw file: extension ".raw", in any case.
bool isRawFile(const std::string& path) {
    return host::Write::file_type_of(path) == "raw";
}

/// Loads the raw file `path` as a loaded image whose planes are host channels 1, 2, 3, ...
/// Throws CommandError when it cannot be opened or read, when its header asks for more samples
/// than the file holds (checked before anything is allocated) or than a buffer holds, or when
/// it holds no samples. Read through the stream form, which prints nothing of its own.
LoadedImage readRawFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) {
        throw CommandError("cannot read " + path + ": " + std::strerror(errno));
    }
    if (const std::string shortfall = rawFileShortfall(path.c_str()); !shortfall.empty()) {
        throw CommandError(shortfall);
    }
    LoadedImage image;
    // A file that ends early only sets eof; anything else that fails the stream is no raw file.
    if (readRaw(in, &image.pixels).fail() && !in.eof()) {
        throw CommandError("cannot read " + path +
                           ": not a raw image, or one of more than 2^31 - 1 samples");
    }
    if (image.pixels.data == nullptr) {
        throw CommandError(path + " holds no samples");
    }
    image.channels = firstChannels(image.pixels.channels);
    image.format = host::Format(image.pixels.width, image.pixels.height);
    image.box = image.format;
    return image;
}

/// Saves `image` to the raw file `path`, whole or not at all. Returns false when the user
/// interrupted; throws CommandError naming the file and the cause when it cannot be written.
bool writeRawFile(const std::string& path, const ImageBuffer& image,
                  const host::RenderOptions& options) {
    const int error = saveRaw(path.c_str(), image, options.interrupt);
    if (error == ECANCELED && options.interrupt->load()) {
        return false;
    }
    if (error != 0) {
        throw CommandError("cannot write " + path + ": " + std::strerror(error));
    }
    return true;
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
    // The host's renders and the raw writer watch for Ctrl-C; they stop cleanly, leaving no
    // output behind.
    InterruptGuard interruptGuard;
    // One thread: a conversion only copies rows.
    const host::RenderOptions options = renderOptions(1, nullptr);
    if (isRawFile(input) || rawOutput) {
        // The raw file keeps the planes in the order the reader delivers the channels.
        const LoadedImage image =
            isRawFile(input) ? readRawFile(input) : readImageFile(input, options);
        if (rawOutput ? !writeRawFile(output, image.pixels, options)
                      : !writeImageFile(image, output, choices, options)) {
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
