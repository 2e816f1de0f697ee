// Reading and writing ImageBuffers as raw files.
#include "image/RawImageFile.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <streambuf>
#include <string>

#include "host/OutputFile.h"

namespace quorblen {
namespace {

static_assert(sizeof(std::int32_t) == 4 && sizeof(float) == 4, "raw files hold 4-byte values");

/// Reads up to `count` 4-byte values into `values` as they lie in the stream and returns how
/// many it read whole. Values the stream ends before, and one it ends in the middle of, are
/// left as they were: the bytes go through a small staging block, so a torn value is never
/// half overwritten.
template <class T>
std::int64_t readValues(std::istream& in, T* values, std::int64_t count) {
    constexpr std::int64_t block = 4096;
    char staging[block * 4];
    std::int64_t done = 0;
    while (done < count) {
        const std::int64_t wanted = std::min(block, count - done);
        in.read(staging, static_cast<std::streamsize>(wanted * 4));
        const std::int64_t whole = in.gcount() / 4;
        std::memcpy(values + done, staging, static_cast<std::size_t>(whole * 4));
        done += whole;
        if (whole < wanted) {
            break;
        }
    }
    return done;
}

/// The number of samples `buffer` holds: 0 when it has no array.
std::int64_t storedSamples(const ImageBuffer& buffer) {
    if (buffer.data == nullptr) {
        return 0;
    }
    return std::int64_t(buffer.width) * buffer.height * buffer.channels;
}

/// Reads the header and the samples. Returns false, with the failbit set and the buffer
/// untouched, when the header's sample count does not fit in a signed 32-bit int.
bool readRawContents(std::istream& in, ImageBuffer* buffer) {
    // Dimensions a short header does not hold count as 0.
    std::int32_t header[3] = {0, 0, 0};
    readValues(in, header, 3);
    // The exact product must fit: a wrapped count would size the buffer from garbage.
    // width x height is exact in 64 bits; the builtin checks the product with channels.
    std::int32_t count = 0;
    if (__builtin_mul_overflow(std::int64_t(header[0]) * header[1], header[2], &count)) {
        in.setstate(std::ios::failbit);
        return false;
    }
    // No samples: the buffer empties, as resize would empty it, however large the other two
    // dimensions (width x channels alone need not fit, and resize would refuse it).
    if (count <= 0) {
        buffer->resize(0, 0, 0);
        return true;
    }
    const std::int64_t held = storedSamples(*buffer);
    buffer->resize(header[0], header[1], header[2]);
    // The count is taken from the resized buffer: it has no array for negative dimensions
    // even when their product is positive.
    if (buffer->data == nullptr) {
        return true;
    }
    const std::int64_t samples = storedSamples(*buffer);
    const std::int64_t read = readValues(in, buffer->data, samples);
    // resize keeps the array, and with it the samples a short file does not reach, when the
    // count is unchanged; in a fresh array they are cleared rather than left undefined.
    if (samples != held) {
        std::fill(buffer->data + read, buffer->data + samples, 0.0f);
    }
    return true;
}

/// A stream buffer writing straight to an OutputFile, which takes no more bytes once
/// `interrupt` (when given) is set.
class OutputFileBuffer : public std::streambuf {
public:
    OutputFileBuffer(host::OutputFile& file, const std::atomic<bool>* interrupt)
        : m_file(file), m_interrupt(interrupt) {}

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        // In pieces, so that an interrupt stops a large image early.
        constexpr std::streamsize piece = std::streamsize(1) << 22;
        std::streamsize done = 0;
        while (done < count) {
            if (m_interrupt != nullptr && m_interrupt->load()) {
                m_file.discard();
            }
            const std::streamsize size = std::min(piece, count - done);
            if (!m_file.append(bytes + done, std::size_t(size))) {
                break;
            }
            done += size;
        }
        return done;
    }
    int_type overflow(int_type ch) override {
        const char byte = traits_type::to_char_type(ch);
        return traits_type::eq_int_type(ch, traits_type::eof()) || xsputn(&byte, 1) == 1
                   ? traits_type::not_eof(ch)
                   : traits_type::eof();
    }

private:
    host::OutputFile& m_file;
    const std::atomic<bool>* m_interrupt;
};

/// Prints "ImageBuffer::" `what` `filename` on stderr and returns false.
bool reportFailure(const char* what, const char* filename) {
    std::cerr << "ImageBuffer::" << what << filename << std::endl;
    return false;
}

}  // namespace

bool readRaw(const char* filename, ImageBuffer* buffer) {
    assert(filename != nullptr && buffer != nullptr);
    std::ifstream in(filename, std::ios::binary);
    if (!in.is_open()) {
        return reportFailure("readRaw Couldn't open ", filename);
    }
    if (!readRawContents(in, buffer)) {
        return reportFailure("readRaw Couldn't read ", filename);
    }
    return true;
}

std::string rawFileShortfall(const char* filename) {
    assert(filename != nullptr);
    std::int32_t header[3] = {0, 0, 0};
    std::ifstream(filename, std::ios::binary).read(reinterpret_cast<char*>(header), sizeof header);
    std::error_code ec;
    const auto size = std::filesystem::file_size(filename, ec);
    const double needed = 12.0 + 4.0 * double(header[0]) * header[1] * header[2];
    if (ec || std::min({header[0], header[1], header[2]}) <= 0 || needed <= double(size)) {
        return "";
    }
    return std::string(filename) + " is not a whole raw image: its header asks for " +
           std::to_string(header[0]) + " x " + std::to_string(header[1]) + " x " +
           std::to_string(header[2]) + " samples, but the file holds " + std::to_string(size) +
           " bytes";
}

bool writeRaw(const char* filename, const ImageBuffer* buffer) {
    assert(filename != nullptr && buffer != nullptr);
    std::ofstream out(filename, std::ios::binary | std::ios::trunc);
    if (!out.is_open()) {
        return reportFailure("writeRaw Couldn't open ", filename);
    }
    writeRaw(out, buffer);
    return true;
}

int saveRaw(const char* filename, const ImageBuffer& buffer, const std::atomic<bool>* interrupt) {
    assert(filename != nullptr);
    host::OutputFile file(filename);
    OutputFileBuffer bytes(file, interrupt);
    std::ostream out(&bytes);
    writeRaw(out, &buffer);
    file.commit();
    return file.errorNumber();
}

std::istream& readRaw(std::istream& in, ImageBuffer* buffer) {
    assert(buffer != nullptr);
    readRawContents(in, buffer);
    return in;
}

std::ostream& writeRaw(std::ostream& out, const ImageBuffer* buffer) {
    assert(buffer != nullptr);
    const std::int32_t header[3] = {buffer->width, buffer->height, buffer->channels};
    out.write(reinterpret_cast<const char*>(header), sizeof header);
    if (buffer->data != nullptr) {
        out.write(reinterpret_cast<const char*>(buffer->data),
                  static_cast<std::streamsize>(storedSamples(*buffer) * 4));
    }
    return out;
}

}  // namespace quorblen
