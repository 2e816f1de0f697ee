// quorblen convert: between raw files (.raw) and image files, either way.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
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

/// Loads the raw file `path` as a loaded image whose planes are host channels 1, 2, 3, ...
/// Throws CommandError when it cannot be read (readRaw has printed why), when its header asks
/// for more samples than the file holds (checked before anything is allocated), or when it
/// holds no samples.
LoadedImage readRawFile(const std::string& path) {
    std::int32_t header[3] = {0, 0, 0};
    std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(header), sizeof header);
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    const double needed = 12.0 + 4.0 * double(header[0]) * header[1] * header[2];
    if (!ec && std::min({header[0], header[1], header[2]}) > 0 && needed > double(size)) {
        throw CommandError(path + " is not a whole raw image: its header asks for " +
                           std::to_string(header[0]) + " x " + std::to_string(header[1]) + " x " +
                           std::to_string(header[2]) + " samples, but the file holds " +
                           std::to_string(size) + " bytes");
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

/// Says on standard output what was written.
void reportWritten(const std::string& path, int width, int height, int channels) {
    std::cout << "Wrote " << path << " (" << width << " x " << height << ", " << channels
              << (channels == 1 ? " channel" : " channels") << ")\n";
}

}  // namespace

int runConvert(const std::vector<std::string>& args) {
    const Arguments arguments(args, outputOptions);
    if (arguments.positional().size() != 2) {
        throw UsageError("needs an INPUT and an OUTPUT file");
    }
    const std::string& input = arguments.positional()[0];
    const std::string& output = arguments.positional()[1];
    const OutputChoices choices = outputChoices(arguments, output);
    const bool rawOutput = isRawFile(output);
    if (!rawOutput) {
        checkWritableImagePath(output);
    }

    // Only the host's renders watch for Ctrl-C; they stop cleanly, leaving no output behind.
    InterruptGuard interruptGuard;
    // One thread: a conversion only copies rows.
    const host::RenderOptions options = renderOptions(1, nullptr);
    bool written = true;
    int width = 0;
    int height = 0;
    int channels = 0;
    if (isRawFile(input) || rawOutput) {
        // The raw file keeps the planes in the order the reader delivers the channels.
        const LoadedImage image =
            isRawFile(input) ? readRawFile(input) : readImageFile(input, options);
        if (rawOutput) {
            writeRawFile(output, image.pixels);
        } else {
            written = writeImageFile(image, output, choices, options);
        }
        width = image.pixels.width;
        height = image.pixels.height;
        channels = image.pixels.channels;
    } else {
        // Image to image: the rows go from the reader to the writer, a strip at a time.
        host::Read read(nullptr);
        openImageFile(read, input);
        host::Write writer(nullptr);
        written = writeImageFile(writer, read, read.channels(), output, read.file_datatype(),
                                 choices, options);
        width = read.info().box().w();
        height = read.info().box().h();
        channels = read.channels().size();
    }
    if (!written) {
        std::cerr << "quorblen convert: interrupted; " << output << " was not written\n";
        return ExitInterrupted;
    }
    reportWritten(output, width, height, channels);
    return ExitOk;
}

}  // namespace quorblen::app
