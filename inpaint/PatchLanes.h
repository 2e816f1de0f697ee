// Patch distances of a block of candidates at once, in vector lanes that each give the bits of
// patchDistance; not part of the library's interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
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

/// A target's pairs heaviest first, for the kernels' lower bound in single precision: the
/// offsets, the weights rounded down to floats and the colours. Empty for a target that does
/// not grow, and for more than MaxPairs pairs, which the bound's error analysis does not
/// cover.
struct HeavyPairs {
    static constexpr std::size_t MaxPairs = 1024;
    /// How many pairs the bound adds between two looks at the limit.
    static constexpr int PerCheck = 2;

    std::vector<std::ptrdiff_t> offset;
    std::vector<float> weight;
    std::vector<float> colour[3];
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
    /// The pairs again, heaviest first.
    HeavyPairs heavy;
    /// Whether every weight is a number above TinyWeightSum, so that the sums only grow pair
    /// by pair and a weight sum that counts a pair is never tiny.
    bool growing = true;
};

/// The largest running sum a block of `target` keeps against `bound`: for every sum s >= +0.0
/// (or NaN), s > keptSum(target, bound, patchWeight) exactly when
/// fl(fl(s / target.fullWeightSum) * patchWeight) > bound, the test that drops a lane. +inf
/// when no sum may be dropped: the target does not grow, the bound is infinite or NaN, or
/// patchWeight is not above 0.0.
double keptSum(const PatchTarget& target, double bound, double patchWeight);

/// keptSum of one target for the bound of the moment, worked out again when the bound moves.
class KeptSum {
public:
    KeptSum(const PatchTarget& target, double patchWeight)
        : m_target(target), m_patchWeight(patchWeight) {}
    double operator()(double bound) {
        if (!(bound == m_bound)) {
            m_bound = bound;
            m_kept = keptSum(m_target, bound, m_patchWeight);
        }
        return m_kept;
    }

private:
    const PatchTarget& m_target;
    double m_patchWeight;
    double m_bound = std::numeric_limits<double>::quiet_NaN();
    double m_kept = 0.0;
};

/// The lane kernels of one instruction set; every set gives the same bits.
struct PatchLaneKernels {
    /// Writes to scores[k] the patch distance (patchDistance, 0.0 when no pair counts) of the
    /// candidate centred `k` rows below `centre` (a position in `planes`) for every bit k of
    /// `live`, and NaN for the other lanes. A lane may instead get NaN as soon as its running
    /// sum passes `kept` (keptSum of the bound its distance * patchWeight must not pass): pass
    /// +inf to have every distance. Lane 0 must be live. Returns the lanes not given NaN for
    /// being dropped or not live (a score may still be NaN).
    unsigned (*scoreBlock)(const PatchTarget& target, const PatchPlanes& planes,
                           std::ptrdiff_t centre, unsigned live, double kept, double* scores);
};

extern const PatchLaneKernels ssePatchLanes;
/// Run only where avx2Available().
extern const PatchLaneKernels avx2PatchLanes;
/// The widest kernels this processor runs.
const PatchLaneKernels& fastestPatchLanes();

}  // namespace quorblen::detail
