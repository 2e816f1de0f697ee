// OpenImageIO's writers writing into an OutputFile.
// Private to the host library: not installed, since it needs OpenImageIO's headers.
#pragma once

#include <OpenImageIO/filesystem.h>

#include <mutex>

#include "host/OutputFile.h"

namespace host {

/// An `OutputFile` as OpenImageIO's writers see a file: give it to `ImageOutput::open` as the
/// "oiio:ioproxy" attribute (for a format whose writer `supports("ioproxy")`), and every byte
/// the writer and its codec produce goes through the file's checked writes.
///
/// A failed write is not reported to the writer: it is kept by the file, which the caller
/// asks after each strip and before committing. The codecs' own ways with a failed write
/// are no way to learn of it: libjpeg prints a line and ends the process, and OpenImageIO's
/// PNG writer reports success after libpng lost the bytes.
class OutputFileProxy final : public OIIO::Filesystem::IOProxy {
public:
    /// A proxy writing to `file`, which must outlive it.
    explicit OutputFileProxy(OutputFile& file);

    const char* proxytype() const override { return "outputfile"; }
    size_t read(void* data, size_t size) override;
    size_t write(const void* data, size_t size) override;
    size_t pread(void* data, size_t size, int64_t offset) override;
    size_t pwrite(const void* data, size_t size, int64_t offset) override;
    size_t size() const override;

private:
    OutputFile& m_file;
    mutable std::mutex m_mutex;  // pread and pwrite may come from several threads
};

}  // namespace host
