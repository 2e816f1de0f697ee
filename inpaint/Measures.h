// Measures the inpainting routines share: tolerant comparison, edge gradient, curvature and
// patch distance.
#pragma once

#include <cstdint>

#include "image/ImageBuffer.h"

namespace quorblen {

/// Tolerant single-precision comparison: true when |a - b| is below six times the smallest
/// normal float (so anything that tiny equals 0), or when |a - b| divided by the larger of
/// |a| and |b| is at most 2^-22. False whenever a NaN is involved.
bool approxEqual(float a, float b);

/// Gradient magnitude of channel c at the midpoint between pixel (x, y) and its neighbour in
/// direction k (0 right, 1 down, 2 left, 3 up): sqrt(d^2 + (t/4)^2), d the difference to the
/// neighbour and t the transverse sum of the two central differences across the edge.
/// Precondition: (x, y) lies at least one pixel inside every edge; 0 <= c < channels.
float edgeGradientMagnitude(const ImageBuffer& image, std::uint32_t x, std::uint32_t y, int c,
                            int k);

/// Curvature of the level lines of channel c at pixel (x, y): the sum over the four
/// directions of the difference to the neighbour over sqrt(g^2 + epsilon^2), g the edge
/// gradient magnitude. epsilon = 0 on a flat neighbourhood gives NaN; pass epsilon > 0.
/// Precondition: (x, y) lies at least one pixel inside every edge; 0 <= c < channels.
double curvature(const ImageBuffer& image, std::uint32_t x, std::uint32_t y, int c, float epsilon);

/// Confidence-weighted mean squared colour difference between the (2r+1) x (2r+1) patch of
/// `a` centred on (xa, ya) and that of `b` centred on (xb, yb). A pair counts only when the
/// target pixel is not fully unknown and the source pixel is fully known (alpha tested with
/// approxEqual); its weight is the target's confidence 1 - alpha over sqrt(1 + dx^2 + dy^2),
/// counted once per colour channel. `a` and `b` may be the same image.
/// Preconditions: both images have at least 4 channels and both patches lie inside their
/// images. Sets `valid` false and returns 0.0 when no pair counts (or r < 0), else sets it
/// true and returns the mean.
double patchDistance(const ImageBuffer& a, std::uint32_t xa, std::uint32_t ya, const ImageBuffer& b,
                     std::uint32_t xb, std::uint32_t yb, int r, bool& valid);

}  // namespace quorblen
