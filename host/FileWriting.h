// One image file being written by OpenImageIO, whole or not at all.
// Private to the host library: not installed, since it needs OpenImageIO's headers.
#pragma once

#include <OpenImageIO/imageio.h>

#include <memory>
#include <optional>
#include <string>

#include "host/OutputFile.h"

namespace host {

class ExrZipStream;

/// A zip compression of EXR files, which `ExrZipStream` does rather than OpenEXR.
struct ExrZip {
    int linesPerBlock;  // 16 (zip) or 1 (zips)
    int level;          // libdeflate's, 1 to 12
};

/// One image file being written: OpenImageIO's writer for it, the `OutputFile` its bytes go
/// to, and the first failure's cause. The target appears only through `commit`; on every
/// other way out the temporary is removed.
///
/// The bytes reach the file through a proxy (`OutputFileProxy`, or `ExrZipStream` for EXR
/// zip), which checks every write. But for TIFF: OpenImageIO 2.4's TIFF writer loses its main
/// directory through a proxy when the image has EXIF metadata (it reads the directory back
/// past the proxy, and reads nothing), so it writes the temporary by name, libtiff checks each
/// of its writes, and the file is read back whole before it is committed. Writers that cannot
/// write through a proxy at all are refused (`refusal`).
class FileWriting {
public:
    /// Why `output` (null when OpenImageIO has no writer for the name) cannot write a file
    /// whose writes are checked: "no image format is known for its name", or a writer without
    /// proxy support (sgi, heif, fits, ico, rla, term, zfile). Empty when it can.
    static std::string refusal(const OIIO::ImageOutput* output);

    /// Writes `file` (the target's name) with `output`, a writer of its type.
    FileWriting(std::unique_ptr<OIIO::ImageOutput> output, const std::string& file);
    ~FileWriting();
    FileWriting(const FileWriting&) = delete;
    FileWriting& operator=(const FileWriting&) = delete;

    /// Opens the writer on the temporary file with `spec`, through an `ExrZipStream` of
    /// `threads` threads when `zip` is given (for an EXR spec without compression).
    bool open(OIIO::ImageSpec& spec, const std::optional<ExrZip>& zip, int threads);
    /// Writes file rows `top` to `bottom` - 1 from `samples`, floats interleaved in file order.
    bool writeStrip(int top, int bottom, const float* samples);
    /// Lets the writer finish the file, checks it, syncs it and renames it over the target.
    bool commit();
    /// "Write: cannot write NAME: " and the first cause: the file's errno, the zip stream's
    /// own, or the first line of the writer's message.
    std::string failure();

private:
    bool readsBackWhole();

    std::string m_name;
    OIIO::ImageSpec m_spec;  // as opened
    bool m_byName = false;   // the writer opens the temporary itself
    // Destroyed in reverse: the writer goes before the stream it writes to, and both before
    // the file, which a write that did not commit leaves behind as nothing.
    OutputFile m_file;
    std::unique_ptr<OIIO::Filesystem::IOProxy> m_proxy;
    ExrZipStream* m_zip = nullptr;  // m_proxy, for EXR zip
    std::unique_ptr<OIIO::ImageOutput> m_output;
};

}  // namespace host
