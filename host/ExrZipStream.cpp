// Zip compression of EXR files written by OpenImageIO, done by libdeflate on several threads.
#include "host/ExrZipStream.h"

#include <libdeflate.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>
#include <optional>

#include "host/OutputFile.h"

namespace host {

static_assert(std::endian::native == std::endian::little, "EXR files are little-endian");

namespace {

constexpr unsigned char NoCompression = 0;
constexpr unsigned char ZipsCompression = 2;
constexpr unsigned char ZipCompression = 3;
constexpr std::uint32_t ExrMagic = 20000630;
constexpr std::uint32_t LongNamesFlag = 0x400;
constexpr std::size_t PreambleBytes = 8;  // a chunk's line number and byte count
/// Block bytes held per thread: enough for the workers never to wait for lines.
constexpr std::size_t RingBytesPerThread = std::size_t(8) << 20;
constexpr std::size_t RingBlocksPerThread = 4;

template <class T>
T load(const unsigned char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class T>
void store(unsigned char* bytes, T value) {
    std::memcpy(bytes, &value, sizeof value);
}

/// Reads a header being received; `whole` turns false when it runs past the bytes so far.
class HeaderReader {
public:
    explicit HeaderReader(const std::vector<unsigned char>& bytes) : m_bytes(bytes) {}

    bool whole() const { return m_whole; }
    std::size_t at() const { return m_at; }

    std::string text() {
        const auto begin = m_bytes.begin() + std::ptrdiff_t(std::min(m_at, m_bytes.size()));
        const auto end = std::find(begin, m_bytes.end(), 0);
        if (end == m_bytes.end()) {
            m_whole = false;
            return {};
        }
        m_at += std::size_t(end - begin) + 1;
        return std::string(begin, end);
    }
    template <class T>
    T number() {
        if (m_at + sizeof(T) > m_bytes.size()) {
            m_whole = false;
            return T{};
        }
        m_at += sizeof(T);
        return load<T>(m_bytes.data() + m_at - sizeof(T));
    }
    void skip(std::size_t bytes) {
        m_at += bytes;
        m_whole = m_whole && m_at <= m_bytes.size();
    }

private:
    const std::vector<unsigned char>& m_bytes;
    std::size_t m_at = 0;
    bool m_whole = true;
};

/// The bytes a sample of an EXR pixel type takes: uint, half, float; 0 for unknown types.
std::size_t sampleBytes(std::int32_t pixelType) {
    constexpr std::size_t bytes[] = {4, 2, 4};
    return pixelType >= 0 && pixelType < 3 ? bytes[pixelType] : 0;
}

}  // namespace

struct ExrScanlineLayout {
    std::size_t headerBytes = 0;    // up to and including the header's final null
    std::size_t compressionAt = 0;  // where the compression byte is
    std::optional<std::size_t> chunkCountAt;
    int firstLine = 0;
    int lines = 0;
    std::size_t lineBytes = 0;

    int64_t tableEnd() const { return int64_t(headerBytes) + int64_t(lines) * 8; }
};

/// Lines gathered for one compressed block, and what they became.
struct ExrZipStream::Block {
    int firstLine = 0;
    std::size_t rawBytes = 0;
    std::vector<unsigned char> raw;
    std::vector<unsigned char> packed;
    std::size_t packedBytes = 0;  // 0: stored as it is, packing did not make it smaller
    bool compressed = false;
};

/// What a compressing thread owns.
struct ExrZipStream::Worker {
    std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> compressor{
        nullptr, libdeflate_free_compressor};
    std::vector<unsigned char> predicted;
};

namespace {

enum class HeaderState { Partial, Whole, Unsupported };

/// Parses the header of a single-part scanline EXR without compression from the bytes
/// received so far. `why` names what makes an unsupported file so.
HeaderState parseHeader(const std::vector<unsigned char>& bytes, ExrScanlineLayout& layout,
                        std::string& why) {
    HeaderReader reader(bytes);
    const auto magic = reader.number<std::uint32_t>();
    const auto version = reader.number<std::uint32_t>();
    if (!reader.whole()) {
        return HeaderState::Partial;
    }
    if (magic != ExrMagic || (version & 0xff) != 2 || (version & ~(0xffu | LongNamesFlag)) != 0) {
        why = "not a single-part scanline EXR";
        return HeaderState::Unsupported;
    }
    bool haveCompression = false;
    std::size_t width = 0, pixelBytes = 0;
    for (;;) {
        const std::string name = reader.text();
        if (!reader.whole()) {
            return HeaderState::Partial;
        }
        if (name.empty()) {
            break;
        }
        const std::string type = reader.text();
        const auto size = reader.number<std::int32_t>();
        if (!reader.whole() || reader.at() + std::size_t(std::max(size, 0)) > bytes.size()) {
            return HeaderState::Partial;
        }
        const unsigned char* value = bytes.data() + reader.at();
        if (name == "compression") {
            if (size != 1 || value[0] != NoCompression) {
                why = "the EXR is already compressed";
                return HeaderState::Unsupported;
            }
            layout.compressionAt = reader.at();
            haveCompression = true;
        } else if (name == "lineOrder") {
            if (size != 1 || value[0] != 0) {
                why = "the EXR's lines are not in increasing order";
                return HeaderState::Unsupported;
            }
        } else if (name == "chunkCount" && size == 4) {
            layout.chunkCountAt = reader.at();
        } else if (name == "dataWindow" && size == 16) {
            const auto yMin = load<std::int32_t>(value + 4);
            const auto xSpan = int64_t(load<std::int32_t>(value + 8)) - load<std::int32_t>(value);
            const auto ySpan = int64_t(load<std::int32_t>(value + 12)) - yMin;
            if (xSpan < 0 || ySpan < 0 || ySpan >= INT32_MAX) {
                why = "the EXR's data window is empty";
                return HeaderState::Unsupported;
            }
            layout.firstLine = yMin;
            layout.lines = int(ySpan + 1);
            width = std::size_t(xSpan + 1);
        } else if (name == "channels" && type == "chlist") {
            HeaderReader list(bytes);
            list.skip(reader.at());
            while (!list.text().empty()) {
                const std::size_t sample = sampleBytes(list.number<std::int32_t>());
                list.skip(4);  // linear flag and reserved bytes
                const bool unsampled =
                    list.number<std::int32_t>() == 1 && list.number<std::int32_t>() == 1;
                if (sample == 0 || !unsampled) {
                    why = "the EXR has subsampled or unknown channels";
                    return HeaderState::Unsupported;
                }
                pixelBytes += sample;
            }
        }
        reader.skip(std::size_t(size));
    }
    if (!haveCompression || width == 0 || pixelBytes == 0) {
        why = "the EXR header lacks its compression, data window or channels";
        return HeaderState::Unsupported;
    }
    layout.headerBytes = reader.at();
    layout.lineBytes = width * pixelBytes;
    return HeaderState::Whole;
}

/// EXR's zip filter: the block's even bytes, then its odd bytes, each byte then replaced by
/// its difference from the one before, offset by 128. Neighbouring samples share their high
/// bytes, so the differences are mostly small and deflate well.
void splitAndPredict(const unsigned char* raw, std::size_t size, unsigned char* out) {
    unsigned char* evens = out;
    unsigned char* odds = out + (size + 1) / 2;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        *evens++ = raw[i];
        *odds++ = raw[i + 1];
    }
    if (size % 2 != 0) {
        *evens = raw[size - 1];
    }
    unsigned char previous = out[0];
    for (std::size_t i = 1; i < size; ++i) {
        const unsigned char current = out[i];
        out[i] = static_cast<unsigned char>(current - previous + 128);
        previous = current;
    }
}

}  // namespace

ExrZipStream::ExrZipStream(OutputFile& file, int linesPerBlock, int level, int threads)
    : IOProxy(file.temporary(), IOProxy::Write),
      m_file(file),
      m_linesPerBlock(linesPerBlock),
      m_workers(std::size_t(std::max(threads, 1))) {
    assert(linesPerBlock == 1 || linesPerBlock == 16);
    assert(level >= 1 && level <= 12);
    for (Worker& worker : m_workers) {
        worker.compressor.reset(libdeflate_alloc_compressor(level));
        if (!worker.compressor) {
            m_mode = Closed;
            m_cause = "out of memory";
            return;
        }
    }
    for (Worker& worker : m_workers) {
        m_workerThreads.emplace_back(
            [this, &worker](std::stop_token stop) { compressBlocks(stop, worker); });
    }
}

ExrZipStream::~ExrZipStream() {
    close();
}

void ExrZipStream::close() {
    m_workerThreads.clear();  // stops and joins them
    m_mode = Closed;
}

bool ExrZipStream::seek(int64_t offset) {
    m_pos = offset;
    return true;
}

size_t ExrZipStream::write(const void* data, size_t size) {
    if (m_failed || mode() == Closed || !consume(static_cast<const unsigned char*>(data), size)) {
        return 0;
    }
    m_pos += int64_t(size);
    return size;
}

bool ExrZipStream::fail(const std::string& message) {
    if (!m_failed) {
        m_cause = message;
    }
    m_failed = true;
    return false;
}

bool ExrZipStream::consume(const unsigned char* bytes, std::size_t size) {
    int64_t at = m_pos;
    if (!m_layout) {
        if (at != int64_t(m_header.size())) {
            return fail("the EXR header was not written in order");
        }
        m_header.insert(m_header.end(), bytes, bytes + size);
        // A header ends with a null byte; OpenEXR writes it a few bytes at a time.
        if (m_header.empty() || m_header.back() != 0) {
            return true;
        }
        ExrScanlineLayout layout;
        std::string why;
        switch (parseHeader(m_header, layout, why)) {
            case HeaderState::Partial:
                return true;
            case HeaderState::Unsupported:
                return fail(why);
            case HeaderState::Whole:
                break;
        }
        m_layout = std::make_unique<ExrScanlineLayout>(layout);
        // Bytes past the header (none in practice: OpenEXR writes the table apart) go on below.
        const std::size_t past = m_header.size() - m_layout->headerBytes;
        bytes += size - past;
        size = past;
        at = int64_t(m_layout->headerBytes);
        m_header.resize(m_layout->headerBytes);
        m_streamEnd = m_layout->tableEnd();
        m_nextLine = m_layout->firstLine;
        if (!startFile()) {
            return false;
        }
    }
    // OpenEXR writes its offset table after the header, zeros first and the offsets last; the
    // table of the compressed file is written by `finish` instead.
    if (at >= int64_t(m_layout->headerBytes) && at < m_layout->tableEnd()) {
        const std::size_t table =
            std::min<std::size_t>(size, std::size_t(m_layout->tableEnd() - at));
        bytes += table;
        size -= table;
        at += int64_t(table);
    }
    if (size == 0) {
        return true;
    }
    if (at != m_streamEnd) {
        return fail("the EXR's lines were not written in order");
    }
    m_streamEnd += int64_t(size);
    return receiveLines(bytes, size);
}

bool ExrZipStream::startFile() {
    const ExrScanlineLayout& layout = *m_layout;
    const int blocks = (layout.lines + m_linesPerBlock - 1) / m_linesPerBlock;
    m_header[layout.compressionAt] = m_linesPerBlock == 1 ? ZipsCompression : ZipCompression;
    if (layout.chunkCountAt) {
        store(m_header.data() + *layout.chunkCountAt, std::int32_t(blocks));
    }
    const std::size_t blockBytes = layout.lineBytes * std::size_t(m_linesPerBlock);
    m_blocks.resize(std::max(RingBlocksPerThread * m_workers.size(),
                             RingBytesPerThread * m_workers.size() / blockBytes));
    m_offsets.reserve(std::size_t(blocks));
    const std::vector<unsigned char> table(std::size_t(blocks) * 8);
    return writeBytes(m_header.data(), m_header.size()) && writeBytes(table.data(), table.size());
}

bool ExrZipStream::receiveLines(const unsigned char* bytes, std::size_t size) {
    const ExrScanlineLayout& layout = *m_layout;
    while (size > 0) {
        if (m_preambleFilled < PreambleBytes) {
            const std::size_t take = std::min(size, PreambleBytes - m_preambleFilled);
            std::memcpy(m_preamble + m_preambleFilled, bytes, take);
            m_preambleFilled += take;
            bytes += take;
            size -= take;
            if (m_preambleFilled == PreambleBytes &&
                (load<std::int32_t>(m_preamble) != m_nextLine ||
                 std::size_t(load<std::int32_t>(m_preamble + 4)) != layout.lineBytes ||
                 m_nextLine >= layout.firstLine + layout.lines)) {
                return fail("the EXR's lines were not written one per chunk, in order");
            }
            continue;
        }
        if (!m_blockOpen) {
            // A new block, in a place of the ring that must have been written out first.
            if (m_blocksFilled - m_blocksWritten == m_blocks.size() && !writeBlocks(true)) {
                return false;
            }
            Block& block = m_blocks[m_blocksFilled % m_blocks.size()];
            block.firstLine = m_nextLine;
            block.rawBytes = 0;
            block.raw.resize(layout.lineBytes * std::size_t(m_linesPerBlock));
            m_blockOpen = true;
        }
        Block& block = m_blocks[m_blocksFilled % m_blocks.size()];
        const std::size_t take = std::min(size, layout.lineBytes - m_lineFilled);
        std::memcpy(block.raw.data() + block.rawBytes, bytes, take);
        block.rawBytes += take;
        m_lineFilled += take;
        bytes += take;
        size -= take;
        if (m_lineFilled < layout.lineBytes) {
            continue;
        }
        m_lineFilled = 0;
        m_preambleFilled = 0;
        ++m_nextLine;
        const bool last = m_nextLine == layout.firstLine + layout.lines;
        if (m_nextLine - block.firstLine == m_linesPerBlock || last) {
            m_blockOpen = false;
            {
                const std::scoped_lock lock(m_mutex);
                ++m_blocksFilled;
            }
            m_blocksChanged.notify_all();
            if (!writeBlocks(false)) {
                return false;
            }
        }
    }
    return true;
}

void ExrZipStream::compressBlocks(std::stop_token stop, Worker& worker) {
    std::unique_lock lock(m_mutex);
    while (m_blocksChanged.wait(lock, stop, [&] { return m_blocksTaken < m_blocksFilled; })) {
        Block& block = m_blocks[m_blocksTaken++ % m_blocks.size()];
        lock.unlock();
        worker.predicted.resize(block.rawBytes);
        block.packed.resize(block.rawBytes);
        splitAndPredict(block.raw.data(), block.rawBytes, worker.predicted.data());
        // Only a smaller result is kept: readers take a block of full size as stored.
        block.packedBytes =
            libdeflate_zlib_compress(worker.compressor.get(), worker.predicted.data(),
                                     block.rawBytes, block.packed.data(), block.rawBytes - 1);
        lock.lock();
        block.compressed = true;
        m_blocksChanged.notify_all();
    }
}

bool ExrZipStream::writeBlocks(bool waitForOne) {
    while (m_blocksWritten < m_blocksFilled) {
        Block& block = m_blocks[m_blocksWritten % m_blocks.size()];
        {
            std::unique_lock lock(m_mutex);
            if (!block.compressed && !waitForOne) {
                return true;
            }
            m_blocksChanged.wait(lock, [&] { return block.compressed; });
            block.compressed = false;
        }
        waitForOne = false;
        const bool packed = block.packedBytes > 0;
        const std::size_t bytes = packed ? block.packedBytes : block.rawBytes;
        unsigned char preamble[PreambleBytes];
        store(preamble, std::int32_t(block.firstLine));
        store(preamble + 4, std::int32_t(bytes));
        m_offsets.push_back(std::uint64_t(m_file.size()));
        if (!writeBytes(preamble, sizeof preamble) ||
            !writeBytes(packed ? block.packed.data() : block.raw.data(), bytes)) {
            return false;
        }
        ++m_blocksWritten;
    }
    return true;
}

bool ExrZipStream::writeBytes(const void* data, std::size_t size) {
    return m_file.append(data, size) || fail(m_file.error());
}

bool ExrZipStream::finish() {
    if (m_failed || mode() == Closed) {
        return fail("the stream is closed");
    }
    if (!m_layout || m_nextLine != m_layout->firstLine + m_layout->lines) {
        return fail("the EXR ended before its last line");
    }
    // Every block is filled: wait for each in turn.
    bool written = true;
    while (written && m_blocksWritten < m_blocksFilled) {
        written = writeBlocks(true);
    }
    close();
    return written && (m_file.write(std::int64_t(m_layout->headerBytes), m_offsets.data(),
                                    m_offsets.size() * sizeof(std::uint64_t)) ||
                       fail(m_file.error()));
}

}  // namespace host
