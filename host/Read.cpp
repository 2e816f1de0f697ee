// The host's image reader, through OpenImageIO, a strip of rows at a time.
#include "host/Read.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <filesystem>

#include "host/OiioSupport.h"
#include "host/SystemMemory.h"

namespace host {
namespace {

Op* buildRead(Node* node) {
    return new Read(node);
}
const Op::Description readDescription("Read", buildRead, "host built-in");

/// Rows read at a time: a whole number of the scanline chunks files compress together (16 or
/// 32 in EXR), so no chunk is decoded twice by the reads of a top-to-bottom pull.
constexpr int StripRows = 64;

}  // namespace

/// The file being read and the strip of its rows read last, as floats in file channel order.
struct Read::OpenFile {
    std::string name;
    std::unique_ptr<OIIO::ImageInput> input;
    int stripRows = StripRows;  // a whole number of tile rows in a tiled file
    int top = 0;                // rows top .. bottom-1 of the file are in `strip`
    int bottom = 0;
    std::vector<float> strip;
    std::string failure;  // why reading failed; once set, the file keeps failing

    /// Row y (inside the data window) as floats, reading its strip first when needed;
    /// nullptr when the file cannot be read.
    const float* line(int y) {
        const OIIO::ImageSpec& spec = input->spec();
        const std::size_t rowSamples = std::size_t(spec.width) * std::size_t(spec.nchannels);
        if (failure.empty() && (y < top || y >= bottom)) {
            top = spec.y + (y - spec.y) / stripRows * stripRows;
            bottom = std::min(top + stripRows, spec.y + spec.height);
            strip.resize(rowSamples * std::size_t(bottom - top));
            // Float files are read as stored: asked to convert, OpenImageIO decodes every strip
            // into a fresh buffer of up to 64 MB, whose pages then fault in again each time.
            const bool stored = spec.format == OIIO::TypeDesc::FLOAT && spec.channelformats.empty();
            const OIIO::TypeDesc type = stored ? OIIO::TypeDesc::UNKNOWN : OIIO::TypeDesc::FLOAT;
            const bool read =
                spec.tile_width > 0
                    ? input->read_tiles(0, 0, spec.x, spec.x + spec.width, top, bottom, spec.z,
                                        spec.z + 1, 0, spec.nchannels, type, strip.data())
                    : input->read_scanlines(0, 0, top, bottom, spec.z, 0, spec.nchannels, type,
                                            strip.data());
            // Some readers (JPEG) fill in what a cut-short file lacks and only note the problem.
            if (!read || input->has_error()) {
                failure = withMessage("cannot read the pixels of " + name, input->geterror());
                top = bottom = 0;
            }
        }
        return failure.empty() ? strip.data() + std::size_t(y - top) * rowSamples : nullptr;
    }
};

Read::Read(Node* node) : Iop(node) {}

Read::~Read() = default;

const char* Read::node_help() const {
    return "Reads an image file (any format OpenImageIO reads) as float channels.";
}

void Read::knobs(Knob_Closure& f) {
    String_knob(f, &m_file, "file");
    Tooltip(f, "The image file to read.");
}

bool Read::open() {
    if (m_file.empty()) {
        error("Read: no file name given");
        return false;
    }
    // OpenImageIO's words for these ("Not a PNG file") would send the user looking elsewhere.
    std::error_code ec;
    if (std::filesystem::is_directory(m_file, ec)) {
        error("Read: " + m_file + " is a folder, not an image file");
        return false;
    }
    if (std::filesystem::is_regular_file(m_file, ec) &&
        std::filesystem::file_size(m_file, ec) == 0) {
        error("Read: " + m_file + " is empty");
        return false;
    }
    auto file = std::make_unique<OpenFile>();
    file->name = m_file;
    file->input = OIIO::ImageInput::open(m_file);
    if (!file->input) {
        error(withMessage("Read: cannot read " + m_file, OIIO::geterror()));
        return false;
    }
    const OIIO::ImageSpec& spec = file->input->spec();
    const std::string size = std::to_string(spec.width) + " x " + std::to_string(spec.height) +
                             " with " + std::to_string(spec.nchannels) + " channels";
    if (spec.width <= 0 || spec.height <= 0 || spec.nchannels <= 0) {
        error("Read: " + m_file + " has an impossible size (" + size + ")");
        return false;
    }
    if (spec.deep || spec.depth > 1) {
        error("Read: " + m_file + " holds deep or volume data, which the host does not read");
        return false;
    }
    // Whoever pulls the whole image holds it as floats: refuse now, not after reading it.
    const std::string shortfall = memoryShortfall(double(spec.width) * double(spec.height) *
                                                  double(spec.nchannels) * sizeof(float));
    if (!shortfall.empty()) {
        error("Read: " + m_file + " is " + size + ": as floats its pixels need " + shortfall);
        return false;
    }
    if (spec.tile_height > 0) {
        file->stripRows = (StripRows + spec.tile_height - 1) / spec.tile_height * spec.tile_height;
    }

    m_file_datatype = spec.format.c_str();
    m_file_format = file->input->format_name();
    m_format = Format(spec.full_width, spec.full_height,
                      spec.get_float_attribute("PixelAspectRatio", 1.0f));
    m_format.x = spec.full_x;
    m_format.y = spec.full_y;
    m_format.r = spec.full_x + spec.full_width;
    m_format.t = spec.full_y + spec.full_height;
    m_box = Box{spec.x, spec.y, spec.x + spec.width, spec.y + spec.height};
    m_metadata = metadataOf(spec);
    m_plane_of_channel.assign(Chan_Last + 1, -1);
    m_channels = Mask_None;
    for (int plane = 0; plane < spec.nchannels; ++plane) {
        const std::string& name = plane < int(spec.channelnames.size())
                                      ? spec.channelnames[std::size_t(plane)]
                                      : "channel" + std::to_string(plane);
        const Channel z = getChannel(name);
        // A name seen twice, or more channels than the host has, keeps the first.
        if (z != Chan_Black && !m_channels.contains(z)) {
            m_plane_of_channel[std::size_t(z)] = plane;
            m_channels += z;
        }
    }
    m_open = std::move(file);
    return true;
}

void Read::_validate(bool /*for_real*/) {
    set_out_channels(Mask_All);
    if (!m_open || m_open->name != m_file) {
        m_open.reset();
        if (!open()) {
            m_format = Format(0, 0);
            m_box = Box{};
            m_channels = Mask_None;
            m_metadata = MetaData();
            m_file_datatype.clear();
            m_file_format.clear();
        }
    }
    info_().format(m_format);
    info_().full_size_format(m_format);
    info_().set(m_box);
    info_().channels(m_channels);
    info_().metadata() = m_metadata;
}

void Read::engine(int y, int x, int r, const ChannelSet& channels, Row& row) {
    std::scoped_lock lock(m_mutex);
    const float* line = nullptr;
    if (m_open && y >= m_box.y && y < m_box.t) {
        line = m_open->line(y);
        if (line == nullptr) {
            return error("Read: " + m_open->failure);
        }
    }
    const int samples = m_open ? m_open->input->spec().nchannels : 0;
    for (Channel z : channels) {
        float* out = row.writable(z);
        const int plane = line != nullptr ? m_plane_of_channel[std::size_t(z)] : -1;
        for (int X = x; X < r; ++X) {
            out[X] = (plane >= 0 && X >= m_box.x && X < m_box.r)
                         ? line[std::size_t(X - m_box.x) * samples + plane]
                         : 0.0f;
        }
    }
}

}  // namespace host
