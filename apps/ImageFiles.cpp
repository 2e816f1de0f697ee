// Image files in and out of ImageBuffers, through the host's reader and writer.
#include "apps/ImageFiles.h"

#include <unistd.h>

#include <filesystem>

#include "apps/CommandLine.h"
#include "host/Read.h"
#include "host/Write.h"

namespace quorblen::app {
namespace {

/// Serves the planes of an ImageBuffer as the host channels of a channel set: plane k as
/// the k-th channel. Lets the writer write any channels, not only red, green, blue, alpha.
class PlaneSource : public host::Iop {
public:
    PlaneSource(const ImageBuffer& image, const host::ChannelSet& channels)
        : host::Iop(nullptr), m_image(image), m_channels(channels) {
        m_format = host::Format(image.width, image.height);
    }
    const char* Class() const override { return "PlaneSource"; }
    const char* node_help() const override { return "Serves an image held in memory."; }

    void engine(int y, int, int, const host::ChannelSet& channels, host::Row& row) override {
        const float* line = m_image.data + std::ptrdiff_t(y) * m_image.stride;
        int plane = 0;
        for (host::Channel z : m_channels) {
            if (channels.contains(z)) {
                float* out = row.writable(z);
                for (int x = 0; x < m_image.width; ++x) {
                    out[x] = line[x * m_image.channels + plane];
                }
            }
            ++plane;
        }
    }

protected:
    void _validate(bool) override {
        info_().format(m_format);
        info_().full_size_format(m_format);
        info_().set(host::Box{0, 0, m_image.width, m_image.height});
        info_().channels(m_channels);
    }

private:
    const ImageBuffer& m_image;
    host::ChannelSet m_channels;
    host::Format m_format;
};

std::string treeError(const host::Op& op, const std::string& fallback) {
    return op.messageHandler().getFirstError().value_or(fallback);
}

}  // namespace

LoadedImage readImageFile(const std::string& path, const host::RenderOptions& options) {
    host::Read read(nullptr);
    read.file(path);
    read.validate(true);
    if (read.aborted()) {
        throw CommandError(treeError(read, "cannot read " + path));
    }
    LoadedImage loaded;
    loaded.channels = read.channels();
    loaded.datatype = read.file_datatype();
    const int planes = loaded.channels.size();
    loaded.pixels.resize(read.format().width, read.format().height, planes);
    ImageBuffer& pixels = loaded.pixels;
    const bool complete = host::render(read, loaded.channels, options, [&](int y, host::Row& row) {
        row.interleave(loaded.channels, pixels.width,
                       pixels.data + std::ptrdiff_t(y) * pixels.stride);
    });
    if (!complete) {
        throw CommandError(read.cancelled() ? "interrupted while reading " + path
                                            : treeError(read, "cannot read " + path));
    }
    return loaded;
}

bool writeImageFile(const ImageBuffer& image, const host::ChannelSet& channels,
                    const std::string& path, const std::string& datatype,
                    const host::RenderOptions& options) {
    PlaneSource source(image, channels);
    host::Write write(nullptr);
    write.file(path.c_str());
    write.set_file_type_from_filename();
    write.channels(channels);
    write.datatype(datatype);
    write.render_options(options);
    write.set_input(0, &source, 0, 0);
    if (write.execute()) {
        return true;
    }
    if (write.cancelled()) {
        return false;
    }
    throw CommandError(treeError(write, "cannot write " + path));
}

void checkWritableImagePath(const std::string& path) {
    if (!host::Write::knows_file_type(path)) {
        throw CommandError("cannot write " + path + ": no image format is known for its name");
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
