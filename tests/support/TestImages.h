// Helpers the tests share: paths, scratch folders and small synthetic images.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

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
