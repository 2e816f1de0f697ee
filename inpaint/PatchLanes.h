// Patch distances of a block of candidates at once, in vector lanes that each give the bits of
// patchDistance; not part of the library's interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "image/ImageBuffer.h"
#include "inpaint/ColumnPlanes.h"
#include "inpaint/KernelSupport.h"

namespace quorblen::detail {

/// The candidates that share one call of the lane kernels: rows cy .. cy + LaneBlock - 1 of
/// one column.
inline constexpr int LaneBlock = 8;

/// What a patch comparison reads of a candidate's image, column by column (sample (x, y) at
/// x * height + y), so that candidates one above the other read adjacent floats:
/// colour channels 0-2, and whether the pixel is fully known (alpha approxEqual to 0.0) as
/// all bits set or clear; and per centre whether every pixel of its patch of radius r is
/// known, which spares a block the alpha tests of its weight sums. Made of an image's first
/// width x height pixels; the pass that writes a pixel of the image refreshes it here.
class PatchPlanes {
public:
    PatchPlanes() = default;
    PatchPlanes(const ImageBuffer& image, int width, int height, int r);

    /// Copies pixel (x, y) of `image` again.
    void refresh(const ImageBuffer& image, int x, int y);

    /// The position of pixel (x, y) in every plane.
    std::ptrdiff_t at(std::ptrdiff_t x, std::ptrdiff_t y) const { return m_colour.at(x, y); }
    std::ptrdiff_t columnStep() const { return m_height; }
    const float* colour(int c) const { return m_colour.plane(c); }
    const std::int32_t* known() const { return m_known.data(); }
    /// Per centre, 1 when every pixel of its patch lies inside and is known, else 0.
    const std::uint8_t* complete() const { return m_complete.data(); }

private:
    /// Copies the alpha test of pixel (x, y).
    void copyKnown(const ImageBuffer& image, int x, int y);
    /// Tests the patch of centre (x, y) again.
    void check(int x, int y);

    std::ptrdiff_t m_width = 0;
    std::ptrdiff_t m_height = 0;
    int m_radius = 0;
    // The lanes below a block's first candidate read up to LaneBlock - 1 samples past the
    // last column: every plane has that many samples of padding.
    ColumnPlanes m_colour;
    std::vector<std::int32_t> m_known;
    std::vector<std::uint8_t> m_complete;
};

/// The patch of the pixel being filled, as every candidate's comparison uses it: the pairs
/// that count on the target's side (alpha not approxEqual to 1.0) in the order the sums take
/// them, each with its weight, its colour and the offset of the candidate's pixel from the
/// candidate's centre in PatchPlanes.
struct PatchTarget {
    /// The patch of radius r around (x, y) of `target`, for planes of column step `step`.
    PatchTarget(const ImageBuffer& target, int x, int y, int r, std::ptrdiff_t step);

    std::vector<std::ptrdiff_t> offset;
    std::vector<double> weight;
    std::vector<float> colour[3];
    /// The pair counts after which a block looks whether its lanes passed the bound.
    std::vector<int> checkpoints;
    /// The weight sum of a candidate that knows every pixel: each weight added three times.
    double fullWeightSum = 0.0;
    /// Whether every weight is a number above TinyWeightSum, so that the sums only grow pair
    /// by pair and a weight sum that counts a pair is never tiny.
    bool growing = true;
};

/// The lane kernels of one instruction set; every set gives the same bits.
struct PatchLaneKernels {
    /// Writes to scores[k] the patch distance (patchDistance, 0.0 when no pair counts) of the
    /// candidate centred `k` rows below `centre` (a position in `planes`) for every bit k of
    /// `live`, and NaN for the other lanes. When `target.growing`, a lane may instead get NaN
    /// as soon as its distance is known to give distance * patchWeight above `bound`: pass
    /// an infinite bound to have every distance. Lane 0 must be live.
    void (*scoreBlock)(const PatchTarget& target, const PatchPlanes& planes, std::ptrdiff_t centre,
                       unsigned live, double bound, double patchWeight, double* scores);
};

extern const PatchLaneKernels ssePatchLanes;
/// Run only where avx2Available().
extern const PatchLaneKernels avx2PatchLanes;
/// The widest kernels this processor runs.
const PatchLaneKernels& fastestPatchLanes();

}  // namespace quorblen::detail
