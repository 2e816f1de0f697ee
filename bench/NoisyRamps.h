// The synthetic picture the upscale and writer benchmarks work on.
#pragma once

#include <cmath>
#include <cstdint>

#include "image/ImageBuffer.h"

namespace quorblen::bench {

/// An RGB image of smooth colour ramps with a hashed noise of +-0.05 on every sample: the
/// same pixels on every run. Its low mantissa bits are as noisy as the solver's results.
inline ImageBuffer noisyRamps(int width, int height) {
    ImageBuffer image(width, height, 3);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            for (int c = 0; c < 3; ++c) {
                std::uint32_t h = (std::uint32_t(y) * 73856093u) ^ (std::uint32_t(x) * 19349663u) ^
                                  (std::uint32_t(c) * 83492791u);
                h = (h ^ (h >> 13)) * 0x5bd1e995u;
                const float noise = float(h >> 8) / float(1u << 24) - 0.5f;
                image.data[y * image.stride + x * 3 + c] =
                    0.5f + 0.3f * std::sin(0.01f * x + 2.0f * c) * std::cos(0.013f * y) +
                    0.1f * noise;
            }
        }
    }
    return image;
}

}  // namespace quorblen::bench
