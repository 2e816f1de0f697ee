// quorblen convert: between raw files (.raw) and image files, either way.
#include <iostream>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
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

/// Loads the raw file `path` into `image`. Throws CommandError when it cannot be read (readRaw
/// has printed why) or holds no samples.
void readRawFile(const std::string& path, ImageBuffer& image) {
    if (!readRaw(path.c_str(), &image)) {
        throw CommandError("cannot read " + path);
    }
    if (image.data == nullptr) {
        throw CommandError(path + " holds no samples");
    }
}

/// Saves `image` to the raw file `path`. Throws CommandError when it cannot be opened (writeRaw
/// has printed why).
void writeRawFile(const std::string& path, const ImageBuffer& image) {
    if (!writeRaw(path.c_str(), &image)) {
        throw CommandError("cannot write " + path);
    }
}

/// Writes `image` through its own writeImage: up to three samples per pixel as red, green and
/// blue, more as host channels 1 to 7 (the fourth is alpha). Throws CommandError with the
/// writer's message.
void writeRawAsImage(const std::string& path, ImageBuffer& image) {
    try {
        image.writeImage(path.c_str());
    } catch (const std::string& message) {
        throw CommandError(message.empty() ? "interrupted while writing " + path : message);
    }
}

/// Says on standard output what was written.
void reportWritten(const std::string& path, const ImageBuffer& image) {
    std::cout << "Wrote " << path << " (" << image.width << " x " << image.height << ", "
              << image.channels << (image.channels == 1 ? " channel" : " channels") << ")\n";
}

}  // namespace

int runConvert(const std::vector<std::string>& args) {
    const Arguments arguments(args, {});
    if (arguments.positional().size() != 2) {
        throw UsageError("needs an INPUT and an OUTPUT file");
    }
    const std::string& input = arguments.positional()[0];
    const std::string& output = arguments.positional()[1];
    const bool rawOutput = isRawFile(output);
    if (!rawOutput) {
        checkWritableImagePath(output);
    }

    if (isRawFile(input)) {
        ImageBuffer image;
        readRawFile(input, image);
        if (rawOutput) {
            writeRawFile(output, image);
        } else {
            writeRawAsImage(output, image);
        }
        reportWritten(output, image);
        return ExitOk;
    }

    // Only the host's renders watch for Ctrl-C; they stop cleanly, leaving no output behind.
    InterruptGuard interruptGuard;
    // One thread: a conversion only copies rows.
    const host::RenderOptions options = renderOptions(1, nullptr);
    const LoadedImage loaded = readImageFile(input, options);
    if (rawOutput) {
        // The raw file keeps the planes in the order the reader delivers the channels.
        writeRawFile(output, loaded.pixels);
    } else if (!writeImageFile(loaded.pixels, loaded.channels, output, loaded.datatype, options)) {
        std::cerr << "quorblen convert: interrupted; " << output << " was not written\n";
        return ExitInterrupted;
    }
    reportWritten(output, loaded.pixels);
    return ExitOk;
}

}  // namespace quorblen::app
