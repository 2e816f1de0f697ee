// The host's image writer: renders its input and writes it to a file through OpenImageIO.
#pragma once

#include <string>
#include <vector>

#include "host/Iop.h"
#include "host/Render.h"

namespace host {

/// Writes input 0 to an image file whose type is chosen from the file name (exr, png, jpg,
/// jpeg, tif, tiff, dpx, ... whatever OpenImageIO writes). Rows are rendered in order and
/// written a strip at a time, so the writer never holds the whole image. The file appears
/// complete or not at all: it is written as an `OutputFile`, a temporary file beside the
/// target whose every write is checked, synced to disk and renamed on success (see
/// `FileWriting`); OpenImageIO's own report of a write is not trusted alone, since some
/// formats' writers (PNG) lose failed writes. Failures (unknown type, unwritable folder, full disk,
/// an input's error) are reported through `error`, one line naming the file and the cause
/// ("Write: cannot write out.png: No space left on device"), so the tree is aborted and the
/// message is in its handler.
///
/// What is written: the input's box as the data window and its format as the display window
/// where the file type holds both (EXR, DPX), otherwise the format's area with zeros outside
/// the box; the input's metadata, except what describes the input file's own encoding
/// (compression, bits per sample, strips); the format's pixel aspect ratio.
///
/// Knobs: "file" (the target name), "file_type" (set from the name), "datatype" ("uint8",
/// "uint16", "half", "float", or empty for float where the file type has it; a type the file
/// cannot hold becomes one it can), "compression" (one of `compressions`, or empty for
/// the file type's default), "_jpeg_quality" (float, 0 .. 1, for JPEG files without a
/// compression).
///
/// EXR files with zip or zips compression (zip is the EXR default; level 4 unless one is
/// given) are deflated by libdeflate on the render threads, through `ExrZipStream`, rather
/// than by OpenEXR's zlib: the same format at less than half the cost.
class Write : public NoIop {
public:
    explicit Write(Node* node);
    ~Write() override;

    const char* Class() const override { return "Write"; }
    const char* node_help() const override;
    void knobs(Knob_Closure& f) override;

    void file(const char* name) { m_file = name != nullptr ? name : ""; }
    const std::string& file() const { return m_file; }

    /// Sets the file type from the file name: `file_type_of(file())`.
    void set_file_type_from_filename();
    /// The file type a name asks for: its extension in lower case, without the dot; empty
    /// when the name has none.
    static std::string file_type_of(const std::string& filename);
    /// The chosen file type; null when none is set.
    const char* file_type() const { return m_file_type.empty() ? nullptr : m_file_type.c_str(); }

    /// The channels to write; those the input does not have are left out. Default: RGBA.
    void channels(const ChannelSet& channels) { m_channels = channels; }
    const ChannelSet& channels() const { return m_channels; }

    void datatype(const std::string& type) { m_datatype = type; }
    const std::string& datatype() const { return m_datatype; }
    void compression(const std::string& compression) { m_compression = compression; }
    const std::string& compression() const { return m_compression; }
    float jpeg_quality() const { return m_jpeg_quality; }

    /// Threads, progress and interrupt for the renders `execute` runs.
    void render_options(const RenderOptions& options) { m_options = options; }

    /// Why files of the type `filename`'s name asks for cannot be written: "no image format
    /// is known for its name", or OpenImageIO's writer of the type cannot have its writes
    /// checked (sgi, heif, fits, ico, rla, term, zfile). Empty when they can.
    static std::string refusal(const std::string& filename);
    /// The compressions of the file type `filename`'s name asks for, as "zip[:1-9]" (a name,
    /// and the levels it may take after a colon); empty when the type offers no choice.
    static std::vector<std::string> compressions(const std::string& filename);
    /// True when `compression` ("piz", "dwaa:45", ...) is one of `compressions(filename)`.
    static bool knows_compression(const std::string& filename, const std::string& compression);

    /// Validates, renders input 0 and writes the file. Returns true when the file was written;
    /// false when the tree was aborted or cancelled (nothing is left under the file name).
    bool execute();

private:
    std::string m_file;
    std::string m_file_type;
    std::string m_datatype;
    std::string m_compression;
    float m_jpeg_quality = 0.95f;
    ChannelSet m_channels = Mask_RGBA;
    RenderOptions m_options;
};

}  // namespace host
