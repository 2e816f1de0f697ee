// Image files in and out of ImageBuffers and host operators, through the host's reader and
// writer.
#include "apps/ImageFiles.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <ostream>

#include "apps/CommandLine.h"
#include "image/RowCopy.h"

namespace quorblen::app {
namespace {

constexpr const char* dataTypes[] = {"uint8", "uint16", "half", "float"};

/// Serves a loaded image as the host operator it came from: plane k as the k-th channel, in
/// its data window, display window and metadata.
class PlaneSource : public host::Iop {
public:
    explicit PlaneSource(const LoadedImage& image) : host::Iop(nullptr), m_image(image) {}
    const char* Class() const override { return "PlaneSource"; }
    const char* node_help() const override { return "Serves an image held in memory."; }

    void engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) override {
        serveRow(m_image.pixels, m_image.channels, m_image.box, y, x, r, channels, row);
    }

protected:
    void _validate(bool) override {
        info_().format(m_image.format);
        info_().full_size_format(m_image.format);
        info_().set(m_image.box);
        info_().channels(m_image.channels);
        info_().metadata() = m_image.metadata;
    }

private:
    const LoadedImage& m_image;
};

std::string treeError(const host::Op& op, const std::string& fallback) {
    return op.messageHandler().getFirstError().value_or(fallback);
}

/// Throws CommandError when an image of `path`'s size has more samples than a buffer holds.
void checkSampleCount(const std::string& path, int width, int height, int channels) {
    if (std::int64_t(width) * height * channels > std::numeric_limits<std::int32_t>::max()) {
        throw CommandError(path + " is too large (" + std::to_string(width) + " x " +
                           std::to_string(height) + " with " + std::to_string(channels) +
                           " channels): an image in memory holds at most 2^31 - 1 samples");
    }
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

}  // namespace

OutputChoices outputChoices(const Arguments& arguments, const std::string& output) {
    OutputChoices choices;
    choices.datatype = arguments.value("--data-type").value_or("");
    if (arguments.has("--data-type") && std::find(std::begin(dataTypes), std::end(dataTypes),
                                                  choices.datatype) == std::end(dataTypes)) {
        throw UsageError("--data-type must be uint8, uint16, half or float, not \"" +
                         choices.datatype + "\"");
    }
    choices.compression = arguments.value("--compression").value_or("");
    if (arguments.has("--compression") &&
        !host::Write::knows_compression(output, choices.compression)) {
        const std::vector<std::string> names = host::Write::compressions(output);
        throw UsageError(names.empty() ? "--compression: " + output +
                                             " has no compression to "
                                             "choose"
                                       : "--compression must be one of " + joined(names) + " for " +
                                             output + ", not \"" + choices.compression + "\"");
    }
    return choices;
}

void describeOutputOptions(std::ostream& out) {
    out << "      -d TYPE, --data-type TYPE\n"
           "                      the output's sample type: uint8, uint16, half or float\n"
           "                      (default: the input's, where the file type holds it;\n"
           "                      a type it cannot hold becomes one it can)\n"
           "      --compression NAME\n"
           "                      the output's compression (default: the file type's own)\n";
    for (const char* type : {"exr", "tif", "jpg"}) {
        out << "                      ." << type << ": "
            << joined(host::Write::compressions(std::string("x.") + type)) << "\n";
    }
}

void openImageFile(host::Read& read, const std::string& path) {
    read.file(path);
    read.validate(true);
    if (read.aborted()) {
        throw CommandError(treeError(read, "cannot read " + path));
    }
}

LoadedImage readImageFile(const std::string& path, const host::RenderOptions& options) {
    host::Read read(nullptr);
    openImageFile(read, path);
    LoadedImage loaded;
    loaded.channels = read.channels();
    loaded.datatype = read.file_datatype();
    loaded.format = read.format();
    loaded.box = read.info().box();
    loaded.metadata = read.info().metadata();
    const host::Box& box = loaded.box;
    checkSampleCount(path, box.w(), box.h(), loaded.channels.size());
    ImageBuffer& pixels = loaded.pixels;
    pixels.resize(box.w(), box.h(), loaded.channels.size());
    const bool complete =
        host::render(read, loaded.channels, box, options, [&](int y, host::Row& row) {
            row.interleave(loaded.channels, box.x, box.r,
                           pixels.data + std::ptrdiff_t(y - box.y) * pixels.stride);
        });
    if (!complete) {
        throw CommandError(read.cancelled() ? "interrupted while reading " + path
                                            : treeError(read, "cannot read " + path));
    }
    return loaded;
}

bool writeImageFile(host::Write& writer, host::Iop& source, const host::ChannelSet& channels,
                    const std::string& path, const std::string& inputDatatype,
                    const OutputChoices& choices, const host::RenderOptions& options) {
    writer.file(path.c_str());
    writer.set_file_type_from_filename();
    writer.channels(channels);
    writer.datatype(choices.datatype.empty() ? inputDatatype : choices.datatype);
    writer.compression(choices.compression);
    writer.render_options(options);
    writer.set_input(0, &source, 0, 0);
    if (writer.execute()) {
        return true;
    }
    if (writer.cancelled()) {
        return false;
    }
    throw CommandError(treeError(writer, "cannot write " + path));
}

bool writeImageFile(const LoadedImage& image, const std::string& path, const OutputChoices& choices,
                    const host::RenderOptions& options) {
    PlaneSource source(image);
    host::Write writer(nullptr);
    return writeImageFile(writer, source, image.channels, path, image.datatype, choices, options);
}

void checkWritableImagePath(const std::string& path) {
    if (const std::string refusal = host::Write::refusal(path); !refusal.empty()) {
        throw CommandError("cannot write " + path + ": " + refusal);
    }
    std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (folder.empty()) {
        folder = ".";
    }
    std::error_code ec;
    if (!std::filesystem::is_directory(folder, ec)) {
        throw CommandError("cannot write " + path + ": folder " + folder.string() +
                           " does not exist");
    }
    if (access(folder.c_str(), W_OK) != 0) {
        throw CommandError("cannot write " + path + ": folder " + folder.string() +
                           " is not writable");
    }
}

}  // namespace quorblen::app
