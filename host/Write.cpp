// The host's image writer, through OpenImageIO, with all-or-nothing output files.
#include "host/Write.h"

#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <vector>

namespace host {
namespace {

Op* buildWrite(Node* node) {
    return new Write(node);
}
const Op::Description writeDescription("Write", buildWrite, "host built-in");

/// The channels to write in file order: colour and other channels in host order, alpha
/// last, as image formats expect it (grey + alpha, RGB + alpha).
std::vector<Channel> fileChannelOrder(const ChannelSet& channels) {
    std::vector<Channel> order;
    for (Channel z : channels) {
        if (z != Chan_Alpha) {
            order.push_back(z);
        }
    }
    if (channels.contains(Chan_Alpha)) {
        order.push_back(Chan_Alpha);
    }
    return order;
}

/// A name beside `target` that no other writer uses, for the file being written.
std::filesystem::path temporaryPathFor(const std::filesystem::path& target) {
    static std::atomic<unsigned> counter{0};
    std::string name(".");
    name += target.filename().string();
    name += ".writing-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
    return target.parent_path() / name;
}

}  // namespace

Write::Write(Node* node) : NoIop(node) {}

Write::~Write() = default;

const char* Write::node_help() const {
    return "Writes its input to an image file; the file type comes from the file name.";
}

void Write::knobs(Knob_Closure& f) {
    String_knob(f, &m_file, "file");
    Tooltip(f, "The image file to write; its extension chooses the file type.");
    String_knob(f, &m_file_type, "file_type");
    Tooltip(f, "The file type, set from the file name's extension.");
    String_knob(f, &m_datatype, "datatype");
    Tooltip(f,
            "The sample type: uint8, uint16, half or float; empty for float where the file "
            "type has it.");
    Float_knob(f, &m_jpeg_quality, "_jpeg_quality");
    Tooltip(f, "JPEG quality from 0 to 1.");
}

std::string Write::file_type_of(const std::string& filename) {
    std::string extension = std::filesystem::path(filename).extension().string();
    if (!extension.empty()) {
        extension.erase(0, 1);
    }
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
    return extension;
}

void Write::set_file_type_from_filename() {
    m_file_type = file_type_of(m_file);
}

bool Write::knows_file_type(const std::string& filename) {
    if (OIIO::ImageOutput::create(filename) != nullptr) {
        return true;
    }
    OIIO::geterror();  // clears the message, so a later failure reports its own
    return false;
}

bool Write::execute() {
    validate(true);
    if (aborted()) {
        return false;
    }
    Iop* in = input(0);
    if (in == nullptr) {
        error("Write: nothing is connected to the input");
        return false;
    }
    if (m_file.empty()) {
        error("Write: no file name given");
        return false;
    }
    const ChannelSet channels = m_channels & in->channels();
    if (channels.empty()) {
        error("Write: the input has none of the channels to write to " + m_file);
        return false;
    }
    std::unique_ptr<OIIO::ImageOutput> output = OIIO::ImageOutput::create(m_file);
    if (!output) {
        error("Write: no image format is known for " + m_file + " (" + OIIO::geterror() + ")");
        return false;
    }

    const int width = in->format().width;
    const int height = in->format().height;
    const std::vector<Channel> order = fileChannelOrder(channels);
    const std::size_t nchannels = order.size();
    std::vector<float> pixels(std::size_t(width) * std::size_t(height) * nchannels);
    const bool rendered = render(*in, channels, m_options, [&](int y, Row& row) {
        row.interleave(order, width,
                       pixels.data() + std::size_t(y) * std::size_t(width) * nchannels);
    });
    if (!rendered) {
        return false;
    }

    OIIO::TypeDesc type = m_datatype.empty() ? OIIO::TypeDesc(OIIO::TypeDesc::FLOAT)
                                             : OIIO::TypeDesc(m_datatype.c_str());
    if (type == OIIO::TypeDesc::UNKNOWN) {
        error("Write: unknown datatype \"" + m_datatype + "\"");
        return false;
    }
    OIIO::ImageSpec spec(width, height, int(nchannels), type);
    spec.channelnames.clear();
    for (Channel z : order) {
        spec.channelnames.push_back(getName(z));
    }
    spec.alpha_channel = channels.contains(Chan_Alpha) ? int(nchannels) - 1 : -1;
    if (in->format().pixel_aspect != 1.0) {
        spec.attribute("PixelAspectRatio", float(in->format().pixel_aspect));
    }
    if (m_file_type == "jpg" || m_file_type == "jpeg") {
        const int quality = std::clamp(int(std::lround(m_jpeg_quality * 100.0f)), 1, 100);
        spec.attribute("CompressionQuality", quality);
        spec.attribute("Compression", "jpeg:" + std::to_string(quality));
    }

    // The image goes to a temporary file first, so the target is complete or untouched.
    const std::filesystem::path target(m_file);
    const std::filesystem::path temporary = temporaryPathFor(target);
    const auto fail = [&](const std::string& why) {
        output.reset();
        std::error_code ec;
        std::filesystem::remove(temporary, ec);
        error("Write: cannot write " + m_file + ": " + why);
        return false;
    };
    if (!output->open(temporary.string(), spec)) {
        return fail(output->geterror());
    }
    if (!output->write_image(OIIO::TypeDesc::FLOAT, pixels.data())) {
        return fail(output->geterror());
    }
    if (!output->close()) {
        return fail(output->geterror());
    }
    std::error_code ec;
    std::filesystem::rename(temporary, target, ec);
    if (ec) {
        return fail(ec.message());
    }
    return true;
}

}  // namespace host
