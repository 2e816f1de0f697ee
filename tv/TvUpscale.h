// One step of the total-variation solver that refines a 2x enlargement.
#pragma once

#include "image/ImageBuffer.h"

namespace quorblen {

/// One lagged-diffusivity TV iteration on plane `channel` of `estimate` against `reference`:
/// gradient magnitudes into `work` plane 0 (double precision), a Jacobi smoothing of the
/// interior into `work` plane 1 (single precision, border pixels keep their value), then a
/// projection that makes the mean of every 2x2 block of `estimate` equal its `reference` pixel.
///
/// `lambda` weighs fidelity (larger moves less); `epsilon` (> 0) keeps magnitudes off zero.
/// Preconditions: `work` has the estimate's width and height and at least 2 planes;
/// `channel` is a plane of both images; `reference` is at least (W/2) x (H/2) for an estimate
/// of W x H (exactly half for an upscale). The block grid is taken from the estimate.
/// Returns the largest absolute change the step made to `estimate`.
double tvUpscaleStep(const ImageBuffer& reference, ImageBuffer& estimate, ImageBuffer& work,
                     int channel, float lambda, float epsilon);

}  // namespace quorblen
