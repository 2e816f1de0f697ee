// One plane of a TV step swept down the image two rows at a time; the single step and the whole
// solve both drive it. Not part of the library's interface.
#pragma once

#include <cstddef>
#include <vector>

#include "tv/RowKernels.h"

namespace quorblen::detail {

/// One plane's TV step as a sweep down a width x height image, one block row (rows 2b and
/// 2b + 1) at a time, on contiguous scratch rows. The estimate comes in through `input` rows
/// the caller fills ahead of the sweep, and each projected block row goes where the caller
/// points it, so that one sweep's output can be the next iteration's input. The update is
/// Jacobi: everything the sweep computes comes from its input rows.
class TvSweep {
public:
    /// Scratch for images up to `capacity` pixels wide.
    explicit TvSweep(int capacity);

    /// Begins a sweep over a width x height image (1 <= width <= capacity, 1 <= height).
    void begin(int width, int height) {
        m_width = width;
        m_height = height;
    }

    /// Row y of the estimate as the step begins, columns 0 .. width-1, for the caller to fill.
    /// Block row b reads rows 2b-1 .. 2b+3 of the image; rows 2b+4 and 2b+5 may be filled
    /// once block row b is swept.
    float* input(int y) { return row(y & 7); }
    /// The gradient magnitudes and smoothed values of row y after the sweep of its block row.
    const float* gradient(int y) { return row(GradientSlots + (y & 3)); }
    const float* smoothed(int y) { return row(SmoothedSlots + (y & 1)); }

    /// Sweeps block row b, after block row b - 1: the magnitudes of rows 2b+1 and 2b+2 (of row
    /// 0 first when b is 0), the smoothed rows 2b and 2b+1 (the border frame keeps its input
    /// values) and, when row 2b+1 exists, their projection against the block row's reference
    /// samples (width/2 of them, every `referenceStep` floats) into out0 and out1.
    void sweep(const RowKernels& kernels, int b, const float* reference, int referenceStep,
               float lambda, double epsilonSquared, float* out0, float* out1);

private:
    // Rings of eight input rows (block row b reads five and the next two arrive meanwhile),
    // four rows of magnitudes and two smoothed rows, then the block targets.
    static constexpr int GradientSlots = 8;
    static constexpr int SmoothedSlots = 12;
    static constexpr int TargetSlot = 14;
    static constexpr int Slots = 15;

    float* row(int slot) {
        return m_samples.data() + static_cast<std::ptrdiff_t>(slot) * m_pitch + RowLeftPad;
    }
    void gradientOf(const RowKernels& kernels, int y, double epsilonSquared);

    int m_pitch;
    int m_width = 0;
    int m_height = 0;
    std::vector<float> m_samples;
};

}  // namespace quorblen::detail
