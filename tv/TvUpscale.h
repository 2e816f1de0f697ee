// The total-variation solver that refines a 2x enlargement: one step, and the whole solve.
#pragma once

#include <functional>

#include "image/ImageBuffer.h"

namespace quorblen {

/// One lagged-diffusivity TV iteration on plane `channel` of `estimate` (W x H) against
/// `reference`, a Jacobi update: every value it reads is the estimate's as the step began.
///  1. Gradient magnitudes of the estimate, edge-replicated at the image border, computed in
///     double precision and stored as float into `work` plane 0 (every pixel).
///  2. For interior pixels (1 <= x <= W-2, 1 <= y <= H-2), a smoothed value in single
///     precision balancing the four neighbours, weighted by the approximate reciprocal
///     (rcpps, four or eight lanes at once) of their magnitudes, against fidelity to the
///     block's reference pixel; the border frame (rows 0 and H-1, columns 0 and W-1) takes
///     its current estimate value. All of it goes into `work` plane 1.
///  3. Each of the (W/2) x (H/2) 2x2 blocks of `work` plane 1 is shifted so that its mean
///     equals reference pixel (X, Y), and written into `estimate`. With an odd W or H the
///     last column or row lies in no block and keeps its value.
///
/// `lambda` (>= 0) weighs fidelity: a larger value moves the estimate less per step.
/// `epsilon` (> 0) keeps magnitudes off zero; with 0, a pixel equal to its four neighbours
/// yields NaN.
/// Preconditions (asserted): `work` has the estimate's width and height and at least 2
/// planes; `channel` is a plane of both `reference` and `estimate`; `reference` is at least
/// (W/2) x (H/2) (exactly that for a 2x upscale; a reference of the estimate's own size is
/// read only in its top-left quarter). The three buffers are distinct.
/// Returns the largest absolute change made to `estimate`, in double precision; NaN
/// differences are left out, and an empty estimate gives 0.0.
double tvUpscaleStep(const ImageBuffer& reference, ImageBuffer& estimate, ImageBuffer& work,
                     int channel, float lambda, float epsilon);

/// The knobs of a whole solve (the node holds their defaults).
struct TvUpscaleSettings {
    int iterations = 0;    // TV steps per plane (>= 0); 0 leaves the nearest-neighbour start
    float lambda = 0.0f;   // as for tvUpscaleStep
    float epsilon = 0.0f;  // as for tvUpscaleStep
    int threads = 0;       // threads to solve on; 0 means one per core
};

/// What a whole solve asks its caller and tells it. Both are called only on the thread that
/// called the solve, never concurrently; either may be empty.
struct TvUpscaleMonitor {
    std::function<bool()> aborted;         // polled after every block row: true stops
    std::function<void(double)> progress;  // fraction done, non-decreasing, 1 at the end
};

/// Enlarges `reference` (w x h) into `estimate` (2w x 2h, as many planes): every plane becomes
/// the nearest-neighbour enlargement refined by `settings.iterations` TV steps, the same bits as
/// filling `estimate` with that enlargement and calling tvUpscaleStep on each plane (outer) and
/// iteration (inner). The iterations run as a wavefront, so that one sweep over memory serves
/// up to sixteen of them: the first sweep over overlapping tiles on `settings.threads` threads,
/// any later one (more than sixteen iterations) on the calling thread alone. Needs no work
/// image, only scratch rows.
/// Preconditions (asserted): the sizes above, `reference` and `estimate` distinct.
/// Returns false when `monitor.aborted` stopped the solve, leaving `estimate` partly written.
bool tvUpscale(const ImageBuffer& reference, ImageBuffer& estimate,
               const TvUpscaleSettings& settings, const TvUpscaleMonitor& monitor = {});

}  // namespace quorblen
