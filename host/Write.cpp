// The host's image writer, through OpenImageIO, with all-or-nothing output files.
#include "host/Write.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <limits>
#include <optional>
#include <vector>

#include "host/ExrZipStream.h"
#include "host/FileWriting.h"
#include "host/OiioSupport.h"

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

/// Rows written at a time: a whole number of the scanline chunks EXR compresses together, so
/// that OpenEXR compresses the chunks of one strip on its threads.
constexpr int StripRows = 64;

/// A compression a file format offers, and the largest level it takes after a colon (0: none).
struct Compression {
    const char* format;  // OpenImageIO's name of the format
    const char* name;
    int maxLevel;
};
constexpr int AnyLevel = std::numeric_limits<int>::max();
constexpr Compression knownCompressions[] = {
    {"openexr", "none", 0},
    {"openexr", "rle", 0},
    {"openexr", "zip", 9},
    {"openexr", "zips", 9},
    {"openexr", "piz", 0},
    {"openexr", "pxr24", 0},
    {"openexr", "b44", 0},
    {"openexr", "b44a", 0},
    {"openexr", "dwaa", AnyLevel},
    {"openexr", "dwab", AnyLevel},
    {"tiff", "none", 0},
    {"tiff", "lzw", 0},
    {"tiff", "zip", 9},
    {"tiff", "packbits", 0},
    {"tiff", "jpeg", 100},
    {"jpeg", "jpeg", 100},
};

/// The name of the OpenImageIO format that writes `filename`; empty when none does.
std::string formatWriting(const std::string& filename) {
    const std::unique_ptr<OIIO::ImageOutput> output = OIIO::ImageOutput::create(filename);
    if (!output) {
        OIIO::geterror();  // clears the message, so a later failure reports its own
        return {};
    }
    return output->format_name();
}

/// The level `compression` ("zip", "dwaa:45", ...) asks for, 0 when it names none, if the
/// format `format` offers that compression at that level; empty otherwise.
std::optional<int> knownLevel(const std::string& format, const std::string& compression) {
    const std::size_t colon = compression.find(':');
    const std::string name = compression.substr(0, colon);
    for (const Compression& c : knownCompressions) {
        if (format != c.format || name != c.name) {
            continue;
        }
        if (colon == std::string::npos) {
            return 0;
        }
        int level = 0;
        const char* end = compression.data() + compression.size();
        const auto [ptr, ec] = std::from_chars(compression.data() + colon + 1, end, level);
        if (ec != std::errc() || ptr != end || level < 1 || level > c.maxLevel) {
            return std::nullopt;
        }
        return level;
    }
    return std::nullopt;
}

/// The zip compression `compression` asks of a file of OpenImageIO's format `format`: "zip"
/// (also the EXR default, when `compression` is empty) or "zips", with an optional level.
/// Empty for other formats and compressions.
std::optional<ExrZip> exrZipOf(const std::string& format, const std::string& compression) {
    const std::string name = compression.substr(0, compression.find(':'));
    if (format != "openexr" || (name != "zip" && name != "zips" && !name.empty())) {
        return std::nullopt;
    }
    // An unknown level is left to OpenImageIO to refuse.
    const std::optional<int> level = compression.empty() ? 0 : knownLevel(format, compression);
    if (!level) {
        return std::nullopt;
    }
    return ExrZip{name == "zips" ? 1 : 16, *level > 0 ? *level : ExrZipStream::DefaultLevel};
}

/// Attributes that tell how the input file was encoded rather than what the image is: the
/// writer chooses its own encoding.
constexpr const char* encodingAttributes[] = {
    "compression",
    "CompressionQuality",
    "oiio:BitsPerSample",
    "oiio:subimages",
    "oiio:UnassociatedAlpha",
    "planarconfig",
    "tiff:Compression",
    "tiff:PhotometricInterpretation",
    "tiff:PlanarConfiguration",
    "tiff:RowsPerStrip",
    "openexr:chunkCount",
    "openexr:dwaCompressionLevel",
    "openexr:lineOrder",
};

/// Whether `output` holds `in`'s box as the data window beside its format as the display
/// window; when it does not, the format's area is written.
bool holdsWindows(const OIIO::ImageOutput& output, const Iop& in) {
    const Box& box = in.info().box();
    const Format& format = in.format();
    const bool negative = std::min({box.x, box.y, format.x, format.y}) < 0;
    return !box.empty() && output.supports("displaywindow") &&
           (!negative || output.supports("negativeorigin"));
}

/// What goes to the file: its spec, the area of the input it holds and the input's channels
/// in file order.
struct FileLayout {
    OIIO::ImageSpec spec;
    Box area;
    std::vector<Channel> order;
};

/// The layout of a file `output` writes of `channels` of `in`, its samples of type `type`:
/// the input's windows where the file holds them, its metadata but for its encoding, and the
/// format's pixel aspect ratio.
FileLayout fileLayout(const OIIO::ImageOutput& output, const Iop& in, const ChannelSet& channels,
                      OIIO::TypeDesc type) {
    FileLayout layout;
    layout.order = fileChannelOrder(channels);
    const int nchannels = int(layout.order.size());
    const Format& format = in.format();
    const bool windows = holdsWindows(output, in);
    layout.area = windows ? in.info().box() : Box{format.x, format.y, format.r, format.t};
    const Box& area = layout.area;
    OIIO::ImageSpec& spec = layout.spec;
    spec = OIIO::ImageSpec(area.w(), area.h(), nchannels, type);
    if (windows) {
        spec.x = area.x;
        spec.y = area.y;
        spec.full_x = format.x;
        spec.full_y = format.y;
        spec.full_width = format.width;
        spec.full_height = format.height;
    }
    spec.channelnames.clear();
    for (Channel z : layout.order) {
        spec.channelnames.push_back(getName(z));
    }
    spec.alpha_channel = channels.contains(Chan_Alpha) ? nchannels - 1 : -1;
    addMetaData(in.info().metadata(), spec);
    for (const char* name : encodingAttributes) {
        spec.erase_attribute(name);
    }
    if (format.pixel_aspect != 1.0 || spec.find_attribute("PixelAspectRatio") != nullptr) {
        spec.attribute("PixelAspectRatio", float(format.pixel_aspect));
    }
    return layout;
}

/// Sets the compression of `spec`: none for `ExrZipStream` to do (`exrZip`), else
/// `compression` or, when it is empty, JPEG's quality (`jpegQuality`, 0 .. 1) for a file of
/// type "jpg" or "jpeg"; nothing for other types' defaults.
void setCompression(OIIO::ImageSpec& spec, bool exrZip, const std::string& compression,
                    const std::string& fileType, float jpegQuality) {
    if (exrZip) {
        spec.attribute("compression", "none");
    } else if (!compression.empty()) {
        spec.attribute("compression", compression);
    } else if (fileType == "jpg" || fileType == "jpeg") {
        const int quality = std::clamp(int(std::lround(jpegQuality * 100.0f)), 1, 100);
        spec.attribute("CompressionQuality", quality);
        spec.attribute("compression", "jpeg:" + std::to_string(quality));
    }
}

/// Renders `channels` of `in` over `layout`'s area and hands each full strip of rows (and the
/// last, partial one) to `writing`. A failed strip is reported through `writer`, which aborts
/// the render. True when every row was written.
bool writeStrips(Op& writer, Iop& in, const ChannelSet& channels, const FileLayout& layout,
                 const RenderOptions& options, FileWriting& writing) {
    const Box& area = layout.area;
    const std::size_t rowSamples = std::size_t(area.w()) * layout.order.size();
    std::vector<float> strip(rowSamples * std::size_t(std::min(StripRows, area.h())));
    // File rows count from the written origin: the area's own where the file holds it.
    const int fileTop = layout.spec.y - area.y;
    int stripTop = area.y;
    return render(in, channels, area, options, [&](int y, Row& row) {
        row.interleave(layout.order, area.x, area.r,
                       strip.data() + std::size_t(y - stripTop) * rowSamples);
        if (y + 1 - stripTop < StripRows && y + 1 < area.t) {
            return;
        }
        if (!writing.writeStrip(fileTop + stripTop, fileTop + y + 1, strip.data())) {
            writer.error(writing.failure());
        }
        stripTop = y + 1;
    });
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
    String_knob(f, &m_compression, "compression");
    Tooltip(f, "The compression, such as zip, piz or dwaa:45; empty for the file type's default.");
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

std::string Write::refusal(const std::string& filename) {
    const std::unique_ptr<OIIO::ImageOutput> output = OIIO::ImageOutput::create(filename);
    OIIO::geterror();  // clears a message, so a later failure reports its own
    return FileWriting::refusal(output.get());
}

std::vector<std::string> Write::compressions(const std::string& filename) {
    const std::string format = formatWriting(filename);
    std::vector<std::string> names;
    for (const Compression& c : knownCompressions) {
        if (format == c.format) {
            names.push_back(std::string(c.name) + (c.maxLevel == AnyLevel ? "[:N]"
                                                   : c.maxLevel > 0
                                                       ? "[:1-" + std::to_string(c.maxLevel) + "]"
                                                       : ""));
        }
    }
    return names;
}

bool Write::knows_compression(const std::string& filename, const std::string& compression) {
    return knownLevel(formatWriting(filename), compression).has_value();
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
    if (const std::string refusal = FileWriting::refusal(output.get()); !refusal.empty()) {
        OIIO::geterror();
        error("Write: cannot write " + m_file + ": " + refusal);
        return false;
    }
    const OIIO::TypeDesc type =
        m_datatype.empty() ? OIIO::TypeDesc(OIIO::TypeDesc::FLOAT) : OIIO::TypeDesc(m_datatype);
    if (type == OIIO::TypeDesc::UNKNOWN) {
        error("Write: unknown datatype \"" + m_datatype + "\"");
        return false;
    }
    FileLayout layout = fileLayout(*output, *in, channels, type);
    const std::optional<ExrZip> zip = exrZipOf(output->format_name(), m_compression);
    setCompression(layout.spec, zip.has_value(), m_compression, m_file_type, m_jpeg_quality);

    FileWriting writing(std::move(output), m_file);
    if (!writing.open(layout.spec, zip, m_options.threads)) {
        error(writing.failure());
        return false;
    }
    if (!writeStrips(*this, *in, channels, layout, m_options, writing)) {
        return false;
    }
    if (!writing.commit()) {
        error(writing.failure());
        return false;
    }
    return true;
}

}  // namespace host
