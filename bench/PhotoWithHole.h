// The photo the inpainting benchmarks fill: a 512 x 512 picture with a square hole.
#pragma once

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "inpaint/Inpaint.h"

namespace quorblen::bench {

/// The astronaut photo (512 x 512) as colour plus an alpha mask of one centred hole of
/// holeSize x holeSize pixels (alpha 1, the colour mid grey as a first guess); everything
/// else is known (alpha 0). holeSize 0 gives the whole photo.
inline ImageBuffer photoWithHole(int holeSize) {
    const std::string path = std::string(QUORBLEN_SOURCE_DIR) + "/data/astronaut.png";
    auto in = OIIO::ImageInput::open(path);
    if (!in) {
        throw std::runtime_error("cannot open " + path);
    }
    const OIIO::ImageSpec& header = in->spec();
    std::vector<float> rgb(std::size_t(header.width) * header.height * 3);
    if (!in->read_image(0, 0, 0, 3, OIIO::TypeDesc::FLOAT, rgb.data())) {
        throw std::runtime_error("cannot read " + path);
    }
    ImageBuffer buffer(header.width, header.height, 4);
    const int x0 = (header.width - holeSize) / 2;
    const int y0 = (header.height - holeSize) / 2;
    for (int y = 0; y < header.height; ++y) {
        for (int x = 0; x < header.width; ++x) {
            const bool hole = x >= x0 && x < x0 + holeSize && y >= y0 && y < y0 + holeSize;
            float* pixel = buffer.data + y * buffer.stride + x * 4;
            for (int c = 0; c < 3; ++c) {
                pixel[c] = hole ? 0.5f : rgb[(std::size_t(y) * header.width + x) * 3 + c];
            }
            pixel[3] = hole ? 1.0f : 0.0f;
        }
    }
    return buffer;
}

/// The pixels to fill as the inpainting driver lists them: interior pixels with alpha above 0,
/// rows from the bottom up, each row from the right.
inline PixelList holeList(const ImageBuffer& image) {
    PixelList list;
    for (int y = image.height - 2; y >= 1; --y) {
        for (int x = image.width - 2; x >= 1; --x) {
            if (image.data[y * image.stride + x * image.channels + 3] > 0.0f) {
                list.push_back({std::uint32_t(x), std::uint32_t(y), -1});
            }
        }
    }
    return list;
}

/// Keeps standard output quiet while it lives: the passes' summary lines are not part of what
/// is measured.
class QuietConsole {
public:
    QuietConsole() : m_console(std::cout.rdbuf(nullptr)) {}
    ~QuietConsole() {
        std::cout.rdbuf(m_console);
        std::cout.clear();
    }
    QuietConsole(const QuietConsole&) = delete;
    QuietConsole& operator=(const QuietConsole&) = delete;

private:
    std::streambuf* m_console;
};

}  // namespace quorblen::bench
