// The host's image reader, through OpenImageIO.
#include "host/Read.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace host {
namespace {

Op* buildRead(Node* node) {
    return new Read(node);
}
const Op::Description readDescription("Read", buildRead, "host built-in");

}  // namespace

Read::Read(Node* node) : Iop(node) {}

Read::~Read() = default;

const char* Read::node_help() const {
    return "Reads an image file (any format OpenImageIO reads) as float channels.";
}

void Read::knobs(Knob_Closure& f) {
    String_knob(f, &m_file, "file");
    Tooltip(f, "The image file to read.");
}

void Read::_validate(bool /*for_real*/) {
    set_out_channels(Mask_All);
    if (m_loaded.empty() || m_loaded != m_file) {
        m_loaded.clear();
        m_pixels.clear();
        m_format = Format(0, 0);
        info_().format(m_format);
        info_().full_size_format(m_format);
        info_().set(Box{});
        info_().channels(Mask_None);
        if (m_file.empty()) {
            error("Read: no file name given");
            return;
        }
        auto input = OIIO::ImageInput::open(m_file);
        if (!input) {
            error("Read: cannot read " + m_file + ": " + OIIO::geterror());
            return;
        }
        const OIIO::ImageSpec& spec = input->spec();
        const std::int64_t samples =
            std::int64_t(spec.width) * spec.height * std::max(spec.nchannels, 0);
        if (spec.width <= 0 || spec.height <= 0 || spec.nchannels <= 0 ||
            samples > std::numeric_limits<std::int32_t>::max()) {
            error("Read: " + m_file + " has an impossible size (" + std::to_string(spec.width) +
                  " x " + std::to_string(spec.height) + " x " + std::to_string(spec.nchannels) +
                  ")");
            return;
        }
        m_pixels.resize(static_cast<std::size_t>(samples));
        if (!input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, m_pixels.data())) {
            m_pixels.clear();
            error("Read: cannot read the pixels of " + m_file + ": " + input->geterror());
            return;
        }
        m_file_channels = spec.nchannels;
        m_file_datatype = spec.format.c_str();
        m_file_format = input->format_name();
        m_format =
            Format(spec.width, spec.height, spec.get_float_attribute("PixelAspectRatio", 1.0f));
        m_plane_of_channel.assign(Chan_Last + 1, -1);
        ChannelSet channels;
        for (int plane = 0; plane < spec.nchannels; ++plane) {
            const std::string& name = plane < int(spec.channelnames.size())
                                          ? spec.channelnames[std::size_t(plane)]
                                          : "channel" + std::to_string(plane);
            const Channel z = getChannel(name);
            // A name seen twice, or more channels than the host has, keeps the first.
            if (z != Chan_Black && !channels.contains(z)) {
                m_plane_of_channel[std::size_t(z)] = plane;
                channels += z;
            }
        }
        info_().channels(channels);
        m_loaded = m_file;
    }
    info_().format(m_format);
    info_().full_size_format(m_format);
    info_().set(Box{0, 0, m_format.width, m_format.height});
}

void Read::engine(int y, int x, int r, const ChannelSet& channels, Row& row) {
    if (m_pixels.empty() || y < 0 || y >= m_format.height) {
        row.erase(channels);
        return;
    }
    const float* line =
        m_pixels.data() + std::size_t(y) * std::size_t(m_format.width) * m_file_channels;
    for (Channel z : channels) {
        float* out = row.writable(z);
        const int plane = m_plane_of_channel[std::size_t(z)];
        for (int X = x; X < r; ++X) {
            out[X] = (plane >= 0 && X >= 0 && X < m_format.width)
                         ? line[std::size_t(X) * m_file_channels + plane]
                         : 0.0f;
        }
    }
}

}  // namespace host
