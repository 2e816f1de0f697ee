// Pixel access the exemplar and elastica fill passes share; not part of the library's
// interface.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "image/ImageBuffer.h"
#include "inpaint/KernelSupport.h"
#include "inpaint/Measures.h"

namespace quorblen::detail {

constexpr int AlphaChannel = 3;

/// Sample c of pixel (x, y).
inline float sampleAt(const ImageBuffer& image, std::ptrdiff_t x, std::ptrdiff_t y, int c) {
    return image.data[sampleIndex(image, x, y, c)];
}

/// Sets the alpha (channel 3) of pixel (x, y).
inline void setAlpha(ImageBuffer& image, std::ptrdiff_t x, std::ptrdiff_t y, float alpha) {
    image.data[sampleIndex(image, x, y, AlphaChannel)] = alpha;
}

/// Copies channels 0-2 of pixel (fx, fy) of `from` to pixel (tx, ty) of `to`, each image
/// addressed with its own layout.
inline void copyColour(const ImageBuffer& from, std::ptrdiff_t fx, std::ptrdiff_t fy,
                       ImageBuffer& to, std::ptrdiff_t tx, std::ptrdiff_t ty) {
    std::copy_n(from.data + sampleIndex(from, fx, fy, 0), 3, to.data + sampleIndex(to, tx, ty, 0));
}

/// The running maximum of |a - b| over channels 0-2 of pixel (ax, ay) of `a` and (bx, by) of
/// `b`, each difference taken in double; a NaN difference never replaces the maximum.
inline double trackColourChange(double maxChange, const ImageBuffer& a, std::ptrdiff_t ax,
                                std::ptrdiff_t ay, const ImageBuffer& b, std::ptrdiff_t bx,
                                std::ptrdiff_t by) {
    for (int c = 0; c < 3; ++c) {
        const double d = static_cast<double>(sampleAt(a, ax, ay, c)) -
                         static_cast<double>(sampleAt(b, bx, by, c));
        maxChange = std::max(maxChange, std::fabs(d));
    }
    return maxChange;
}

/// The alpha level 0.7^exponent, computed in double and stored as float.
inline float alphaLevel(double exponent) {
    return static_cast<float>(std::pow(0.7, exponent));
}

/// The level test of the passes that fill the pixels at alpha `level`, within tolerance.
inline auto approxLevel(float level) {
    return [level](float alpha) { return approxEqual(alpha, level); };
}

/// Whether `image` covers the width and height of `extent` with at least `channels` channels.
inline bool covers(const ImageBuffer& image, const ImageBuffer& extent, int channels) {
    return image.width >= extent.width && image.height >= extent.height &&
           image.channels >= channels;
}

}  // namespace quorblen::detail
