// The row kernels of the TV upscale, built once per instruction set, and the entry points that
// take them; not part of the library's interface.
#pragma once

#include "tv/TvUpscale.h"

namespace quorblen::detail {

/// Samples every scratch row keeps before column 0 and after column width - 1: the gradient's
/// edge replication reads columns -1 and width, and a vector of up to eight lanes that starts
/// at the last column reaches column width + 7.
inline constexpr int RowLeftPad = 1;
inline constexpr int RowRightPad = 8;

/// The kernels of one TV step, over contiguous single-plane rows padded as above. Every
/// instruction set gives the same bits: the lanes compute exactly what a lone pixel would.
struct RowKernels {
    /// Gradient magnitudes of `row` against its four neighbours, summed in double and stored
    /// as float into g[0 .. width-1]. `row` holds its replicated edge samples at -1 and width;
    /// at the top and bottom edge the caller passes the row itself as `up` or `down`. Writes
    /// into g's padding.
    void (*gradientRow)(const float* up, const float* row, const float* down, int width,
                        double epsilonSquared, float* g);
    /// Smoothed values of an interior row for columns 1 .. width-2 from the magnitudes and the
    /// estimate rows above, at and below it; columns 0 and width-1 keep u's values. Needs
    /// width >= 3. Writes into v's padding.
    void (*smoothRow)(const float* gUp, const float* g, const float* gDown, const float* uUp,
                      const float* u, const float* uDown, const float* target, int width,
                      float lambda, float* v);
    /// For each block X < blocks of a block row: four times its reference sample (every
    /// `referenceStep` floats) less its four samples in `top` and `bottom`, into target[2X]
    /// and target[2X + 1].
    void (*blockTargetRow)(const float* reference, int referenceStep, const float* top,
                           const float* bottom, int blocks, float* target);
    /// Shifts each 2x2 block of the smoothed rows v0, v1 so that its mean equals its
    /// reference sample, into out0 and out1 (columns 0 .. 2 * blocks - 1).
    void (*projectBlockRow)(const float* v0, const float* v1, const float* reference,
                            int referenceStep, int blocks, float* out0, float* out1);
};

/// Four-lane SSE kernels, for every x86-64 processor.
extern const RowKernels sseRowKernels;
/// Eight-lane AVX2 kernels; run them only where `avx2Available()`.
extern const RowKernels avx2RowKernels;

/// Whether this processor runs AVX2 code.
bool avx2Available();
/// The widest kernels this processor runs.
const RowKernels& fastestRowKernels();

/// tvUpscaleStep with the given kernels.
double tvUpscaleStepWith(const RowKernels& kernels, const ImageBuffer& reference,
                         ImageBuffer& estimate, ImageBuffer& work, int channel, float lambda,
                         float epsilon);

/// tvUpscale with the given kernels.
bool tvUpscaleWith(const RowKernels& kernels, const ImageBuffer& reference, ImageBuffer& estimate,
                   const TvUpscaleSettings& settings, const TvUpscaleMonitor& monitor);

}  // namespace quorblen::detail
