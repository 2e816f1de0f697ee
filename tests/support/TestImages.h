// Helpers the tests share: paths, scratch folders and small synthetic images.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "image/ImageBuffer.h"
#include "tv/RowKernels.h"

namespace quorblen::test {

/// A file of the source tree, e.g. sourcePath("data/coffee.png").
inline std::filesystem::path sourcePath(const std::string& relative) {
    return std::filesystem::path(QUORBLEN_SOURCE_DIR) / relative;
}

/// The folder holding the built program and module.
inline std::filesystem::path binaryDir() {
    return QUORBLEN_BIN_DIR;
}

/// A fresh empty folder for the running test, removed when the object goes.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::filesystem::path& path() const { return m_path; }
    std::string file(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

/// The bytes of file `path`; empty when it cannot be read.
std::string readBytes(const std::filesystem::path& path);

/// What a run of the quorblen program did.
struct ProgramRun {
    int exitCode = -1;
    std::string out;  // standard output
    std::string err;  // standard error
};

/// Runs the built quorblen program with `args` in folder `workingDir`, standard input empty.
/// A `fileSizeLimit` above 0 is the largest file, in bytes, the program may write, as on a
/// disk that fills (RLIMIT_FSIZE, with SIGXFSZ ignored).
ProgramRun runQuorblen(const std::vector<std::string>& args,
                       const std::filesystem::path& workingDir, std::uint64_t fileSizeLimit = 0);

/// Where a file's pixels lie and what else it says about them.
struct FileLayout {
    host::Box dataWindow;                           // empty when writing: (0, 0, width, height)
    host::Box displayWindow;                        // empty when writing: the data window
    std::map<std::string, std::string> attributes;  // as OpenImageIO prints their values; when
                                                    // writing, numbers become floats
    int tileSize = 0;                               // square tiles when writing; 0: scanlines
};

/// An image file as OpenImageIO reads it, independent of the host's reader.
struct FileImage {
    ImageBuffer pixels;                     // float samples in file channel order
    std::vector<std::string> channelNames;  // as stored in the file
    std::string datatype;                   // "uint8", "uint16", "half", "float", ...
    FileLayout layout;
};

/// Reads `path` with OpenImageIO; fails the test (and returns an empty image) when it can't.
FileImage readFileImage(const std::filesystem::path& path);

/// Writes `pixels` to `path` with OpenImageIO as `datatype` with the given channel names, in
/// the windows of `layout` and with its attributes.
void writeFileImage(const std::filesystem::path& path, const ImageBuffer& pixels,
                    const std::vector<std::string>& channelNames, const std::string& datatype,
                    const FileLayout& layout = {});

/// A width x height x channels buffer whose sample (x, y, c) is value(x, y, c).
ImageBuffer makeImage(int width, int height, int channels,
                      const std::function<float(int x, int y, int c)>& value);

/// A width x height x channels buffer whose every sample is `value`.
inline ImageBuffer filledImage(int width, int height, int channels, float value) {
    return makeImage(width, height, channels, [value](int, int, int) { return value; });
}

/// Sample (x, y, c) of `image`, writable through the buffer's array.
inline float& at(const ImageBuffer& image, int x, int y, int c) {
    return image.data[y * image.stride + x * image.channels + c];
}

/// Whether two buffers have the same shape and bit-identical samples.
inline bool sameImage(const ImageBuffer& a, const ImageBuffer& b) {
    return a.width == b.width && a.height == b.height && a.channels == b.channels &&
           std::memcmp(a.data, b.data, sizeof(float) * a.width * a.height * a.channels) == 0;
}

/// `reference` enlarged one TV step at a time: the nearest-neighbour enlargement, then
/// `iterations` steps with `kernels` on each plane, planes outer.
ImageBuffer upscaledStepByStep(const ImageBuffer& reference, int iterations, float lambda,
                               float epsilon,
                               const detail::RowKernels& kernels = detail::fastestRowKernels());

/// The mean of 2x2 block (X, Y) of plane c, in double.
double blockMean(const ImageBuffer& image, int X, int Y, int c);

/// One row of samples per channel.
using Planes = std::vector<std::vector<float>>;

/// Row y, columns x .. r-1, of `channels` as `op` serves it through a host row, one vector
/// per channel over columns 0 .. max(r, width)-1; columns `op` leaves alone keep -1.
Planes pullRow(host::Iop& op, int y, int x, int r, host::ChannelSet channels, int width = 0);

/// Row y of the first `count` planes of `image`, one vector per plane.
Planes rowOf(const ImageBuffer& image, int y, int count);

/// The names of the entries of `dir`, sorted.
std::vector<std::string> fileNames(const std::filesystem::path& dir);

}  // namespace quorblen::test
