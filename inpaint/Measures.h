// Measures the inpainting routines share: tolerant comparison, edge gradient, curvature and
// patch distance.
#pragma once

#include <cstdint>

#include "image/ImageBuffer.h"

namespace quorblen {

bool approxEqual(float a, float b);
float edgeGradientMagnitude(const ImageBuffer& image, std::uint32_t x, std::uint32_t y, int c, int k);
double curvature(const ImageBuffer& image, std::uint32_t x, std::uint32_t y, int c, float epsilon);
double patchDistance(const ImageBuffer& a, std::uint32_t xa, std::uint32_t ya, const ImageBuffer& b,
                     std::uint32_t xb, std::uint32_t yb, int r, bool& valid);

}  // namespace quorblen
