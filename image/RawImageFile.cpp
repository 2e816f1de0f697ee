// Reading and writing ImageBuffers as raw files.
#include "image/RawImageFile.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

namespace quorblen {
namespace {

static_assert(sizeof(std::int32_t) == 4 && sizeof(float) == 4, "raw files hold 4-byte values");

/// Reads `count` 4-byte values into `values` as they lie in the stream. A value the stream
/// ends before (or in the middle of) is 0, so a short file never leaves old memory behind.
template <class T>
void readValues(std::istream& in, T* values, std::int64_t count) {
    in.read(reinterpret_cast<char*>(values), static_cast<std::streamsize>(count * 4));
    const std::int64_t complete = in.gcount() / 4;
    std::fill(values + complete, values + count, T(0));
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
    std::int32_t header[3];
    readValues(in, header, 3);
    // The exact product must fit: a wrapped count would size the buffer from garbage.
    // width x height is exact in 64 bits; the builtin checks the product with channels.
    std::int32_t count = 0;
    if (__builtin_mul_overflow(std::int64_t(header[0]) * header[1], header[2], &count)) {
        in.setstate(std::ios::failbit);
        return false;
    }
    buffer->resize(header[0], header[1], header[2]);
    // The count is taken from the resized buffer: it has no array for negative dimensions
    // even when their product is positive.
    if (buffer->data != nullptr) {
        readValues(in, buffer->data, storedSamples(*buffer));
    }
    return true;
}

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
