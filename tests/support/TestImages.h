// Helpers the tests share: paths, scratch folders and small synthetic images.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "image/ImageBuffer.h"

namespace quorblen::test {

/// A file of the source tree, e.g. sourcePath("data/coffee.png").
std::filesystem::path sourcePath(const std::string& relative);

/// The folder holding the built program and module.
std::filesystem::path binaryDir();

/// A fresh empty folder for the running test, removed when the object goes.
class ScratchDir {
  public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::filesystem::path& path() const { return m_path; }
    std::string file(const std::string& name) const { return (m_path / name).string(); }

  private:
    std::filesystem::path m_path;
};

/// What a run of the quorblen program did.
struct ProgramRun {
    int exitCode = -1;
    std::string out;  // standard output
    std::string err;  // standard error
};

/// Runs the built quorblen program with `args` in folder `workingDir`, standard input empty.
ProgramRun runQuorblen(const std::vector<std::string>& args,
                       const std::filesystem::path& workingDir);

/// An image file as OpenImageIO reads it, independent of the host's reader.
struct FileImage {
    ImageBuffer pixels;                     // float samples in file channel order
    std::vector<std::string> channelNames;  // as stored in the file
    std::string datatype;                   // "uint8", "uint16", "half", "float", ...
};

/// Reads `path` with OpenImageIO; fails the test (and returns an empty image) when it can't.
FileImage readFileImage(const std::filesystem::path& path);

/// Writes `pixels` to `path` with OpenImageIO as `datatype` with the given channel names.
void writeFileImage(const std::filesystem::path& path, const ImageBuffer& pixels,
                    const std::vector<std::string>& channelNames, const std::string& datatype);

/// A width x height x channels buffer whose sample (x, y, c) is value(x, y, c).
ImageBuffer makeImage(int width, int height, int channels,
                      const std::function<float(int x, int y, int c)>& value);

/// Sample (x, y, c) of `image`.
inline float& at(ImageBuffer& image, int x, int y, int c) {
    return image.data[y * image.stride + x * image.channels + c];
}
inline float at(const ImageBuffer& image, int x, int y, int c) {
    return image.data[y * image.stride + x * image.channels + c];
}

}  // namespace quorblen::test
