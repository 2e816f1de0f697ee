// Zip compression of EXR files written by OpenImageIO, done by libdeflate on several threads.
// Private to the host library: not installed, since it needs OpenImageIO's headers.
#pragma once

#include <OpenImageIO/filesystem.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace host {

class OutputFile;

/// What an `ExrZipStream` learns from the header of the file it is given.
struct ExrScanlineLayout;

/// Where OpenImageIO writes a single-part scanline EXR without compression, turned into the
/// same file with ZIP (16 lines per block) or ZIPS (one line per block) compression: the
/// header is kept but for its compression, and each block goes through EXR's byte split and
/// delta predictor and is deflated by libdeflate, several blocks at a time on `threads`
/// threads. OpenEXR's own zip path deflates with zlib on its thread pool, which on noisy
/// float images costs more than twice as much, and most of a large write's time. The
/// compressed file goes to an `OutputFile`, which checks every write.
///
/// Give it to `OIIO::ImageOutput::open` as the "oiio:ioproxy" attribute of a spec whose
/// compression is "none" (and lines in increasing order, the default), write the scanlines,
/// close the output, then call `finish`. A stream of any other shape (tiles, several parts,
/// other compressions, subsampled channels, lines out of order) fails the write with an
/// error naming the cause.
class ExrZipStream final : public OIIO::Filesystem::IOProxy {
public:
    /// A stream writing to `file`, which must outlive it; `opened()` is false, and `cause()`
    /// says why, when the compressors cannot be made. `linesPerBlock` is 16 (ZIP) or 1 (ZIPS);
    /// `level` is libdeflate's, 1 to 12; `threads` at least 1.
    ExrZipStream(OutputFile& file, int linesPerBlock, int level, int threads);
    ~ExrZipStream() override;

    const char* proxytype() const override { return "exrzip"; }
    bool seek(int64_t offset) override;
    size_t write(const void* data, size_t size) override;
    /// Stops the compressing threads, as when a write is given up.
    void close() override;

    /// Writes the blocks still held and the offset table to the file. False, with `cause()`
    /// saying why, when the stream was not a whole image or the file could not be written.
    bool finish();

    /// Why the stream failed, in a few words; empty while it has not. (Kept apart from
    /// IOProxy::error, whose lock is OpenImageIO's.)
    const std::string& cause() const { return m_cause; }

    /// The default compression level: OpenEXR's default for zip.
    static constexpr int DefaultLevel = 4;

private:
    struct Block;
    struct Worker;

    bool consume(const unsigned char* bytes, std::size_t size);
    bool startFile();
    bool receiveLines(const unsigned char* bytes, std::size_t size);
    void compressBlocks(std::stop_token stop, Worker& worker);
    bool writeBlocks(bool waitForOne);
    bool writeBytes(const void* data, std::size_t size);
    bool fail(const std::string& message);

    OutputFile& m_file;
    int m_linesPerBlock;
    bool m_failed = false;
    std::string m_cause;

    std::vector<unsigned char> m_header;          // as received, until it is whole
    std::unique_ptr<ExrScanlineLayout> m_layout;  // set once the header is whole

    // Line chunks as received: an 8-byte preamble (line, size), then the line's bytes.
    unsigned char m_preamble[8] = {};
    std::size_t m_preambleFilled = 0;
    std::size_t m_lineFilled = 0;
    int64_t m_streamEnd = 0;  // where the next chunk byte is expected in OpenImageIO's file
    int m_nextLine = 0;

    // A ring of blocks, filled here in order, compressed by the workers in any order and
    // written here in order. The counts grow without end; block n is m_blocks[n % size].
    std::vector<Block> m_blocks;
    bool m_blockOpen = false;         // lines go to block m_blocksFilled
    std::size_t m_blocksFilled = 0;   // handed to the workers
    std::size_t m_blocksTaken = 0;    // started by a worker
    std::size_t m_blocksWritten = 0;  // to the file
    std::mutex m_mutex;               // guards the counts the workers use and Block::compressed
    std::condition_variable_any m_blocksChanged;
    std::vector<Worker> m_workers;
    std::vector<std::uint64_t> m_offsets;       // of each written block in the file
    std::vector<std::jthread> m_workerThreads;  // last: they stop before the rest goes
};

}  // namespace host
