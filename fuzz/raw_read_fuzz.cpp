// Fuzzes the stream form of readRaw and checks what it leaves in the buffer.
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>

#include "fuzz/FuzzCheck.h"
#include "image/RawImageFile.h"

namespace {

using quorblen::fuzz::check;

/// Inputs announcing more samples than this are skipped: readRaw honestly allocates every
/// sample a valid header announces (up to 8 GiB); large counts only slow the search.
constexpr __int128 MaxSamples = 1 << 16;

/// The sample count the header of `bytes` announces, exact; 0 for a header that ends early.
__int128 announcedSamples(const std::string& bytes) {
    if (bytes.size() < 12) {
        return 0;
    }
    std::int32_t header[3];
    std::memcpy(header, bytes.data(), sizeof header);
    return __int128(header[0]) * header[1] * header[2];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const __int128 announced = announcedSamples(bytes);
    if (announced > MaxSamples && announced <= std::numeric_limits<std::int32_t>::max()) {
        return 0;
    }
    // A buffer with an array of its own, which the read must reuse or replace cleanly.
    quorblen::ImageBuffer buffer(3, 2, 2);
    std::memset(buffer.data, 0xAB, sizeof(float) * 12);
    const float* before = buffer.data;

    std::istringstream in(bytes, std::ios::binary);
    quorblen::readRaw(in, &buffer);

    const bool refused = announced < std::numeric_limits<std::int32_t>::min() ||
                         announced > std::numeric_limits<std::int32_t>::max();
    if (refused) {
        check(in.fail() && buffer.data == before && buffer.width == 3 && buffer.height == 2 &&
              buffer.channels == 2);
        return 0;
    }
    check(buffer.stride == buffer.width * buffer.channels);
    if (buffer.data == nullptr) {
        check(buffer.width * buffer.height * buffer.channels == 0);
        return 0;
    }
    // Every sample is the file's where the file holds all of it. Past that, a reused array
    // (the same count of 12) keeps what it held, and a fresh one is cleared.
    const std::size_t count = std::size_t(buffer.width) * buffer.height * buffer.channels;
    check(__int128(count) == announced);
    check(count != 12 || buffer.data == before);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t offset = 12 + 4 * i;
        std::uint32_t expected = count == 12 ? 0xABABABABu : 0u;
        if (offset + 4 <= size) {
            std::memcpy(&expected, data + offset, 4);
        }
        check(std::memcmp(&expected, buffer.data + i, 4) == 0);
    }
    // Writing the buffer back gives the input, up to its length.
    std::ostringstream out(std::ios::binary);
    quorblen::writeRaw(out, &buffer);
    const std::string written = out.str();
    check(written.size() == 12 + 4 * count);
    if (size >= written.size()) {
        check(bytes.compare(0, written.size(), written) == 0);
    }
    return 0;
}
