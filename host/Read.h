// The host's image reader: any file OpenImageIO reads, as float channels.
#pragma once

#include <string>
#include <vector>

#include "host/Iop.h"

namespace host {

/// Reads the image file named by its "file" knob. Channels come in host order: red, green,
/// blue, alpha by their file names (R, G, B, A in any case), then every other channel under
/// its own name (a grey image's "Y", an EXR layer's "diffuse.R", ...). Row 0 is the top row
/// of the file. The whole image is loaded when the reader is validated for real; an
/// unreadable or corrupt file is reported through `error`.
class Read : public Iop {
public:
    explicit Read(Node* node);
    ~Read() override;

    const char* Class() const override { return "Read"; }
    const char* node_help() const override;
    void knobs(Knob_Closure& f) override;

    void file(const std::string& name) {
        m_file = name;
        invalidate();
    }
    const std::string& file() const { return m_file; }

    /// The sample type of the file as OpenImageIO names it ("uint8", "uint16", "half",
    /// "float", ...); empty before a successful validation.
    const std::string& file_datatype() const { return m_file_datatype; }
    /// The OpenImageIO format name of the file ("png", "openexr", ...).
    const std::string& file_format() const { return m_file_format; }

    void engine(int y, int x, int r, const ChannelSet& channels, Row& row) override;

protected:
    void _validate(bool for_real) override;

private:
    std::string m_file;
    std::string m_loaded;  // the file whose pixels `m_pixels` hold
    std::string m_file_datatype;
    std::string m_file_format;
    Format m_format;
    int m_file_channels = 0;
    std::vector<int> m_plane_of_channel;  // host channel -> plane in m_pixels, or -1
    std::vector<float> m_pixels;          // interleaved, file channel order
};

}  // namespace host
