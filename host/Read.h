// The host's image reader: any file OpenImageIO reads, as float channels.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/Iop.h"

namespace host {

/// Reads the image file named by its "file" knob. Channels come in host order: red, green,
/// blue, alpha by their file names (R, G, B, A in any case), then every other channel under
/// its own name (a grey image's "Y", an EXR layer's "diffuse.R", ...). Row 0 is the top row
/// of the file.
///
/// Validation reads only the header: the display window becomes the format (with the pixel
/// aspect ratio), the data window the box, the file's attributes the metadata. A file that is
/// missing, not an image, or whose pixels as floats would need more memory than the machine
/// has is reported through `error`. Rows are read when they are asked for, a strip of rows at
/// a time, so the reader holds one strip of the image, never all of it; a file that turns out
/// broken there (cut short, corrupt) is reported through `error` too.
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

    /// Row y, columns x .. r-1: the file's samples inside the data window, zeros outside it
    /// and for channels the file does not have. Safe to call from several threads.
    void engine(int y, int x, int r, const ChannelSet& channels, Row& row) override;

protected:
    void _validate(bool for_real) override;

private:
    struct OpenFile;
    /// Opens `m_file` and reads its header into the reader's information; false, after
    /// reporting why, when it cannot be an image to read.
    bool open();

    std::string m_file;
    std::string m_file_datatype;
    std::string m_file_format;
    Format m_format;
    Box m_box;
    ChannelSet m_channels;
    MetaData m_metadata;
    std::vector<int> m_plane_of_channel;  // host channel -> plane of the file, or -1
    std::mutex m_mutex;                   // guards m_open while rows are read
    std::unique_ptr<OpenFile> m_open;     // the file being read, and the strip last read
};

}  // namespace host
