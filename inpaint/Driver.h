// The diffusion inpainting driver.
#pragma once

#include <string>

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// Fills the unknown region of `work` by `iterations` Jacobi iterations of one diffusion step
/// on channels 0, 1 and 2, each iteration reading only the previous one's values.
///
/// `mask` channel 3 marks the region: pixels with alpha above 0 are updated, those with alpha
/// 1 (approximately) are fully unknown. Only interior pixels (one pixel from every edge) are
/// ever updated; an image narrower or lower than 3 pixels is left unchanged. `iterations`
/// below 1 runs none. `method` is an InpaintMethod: DigitalTV (`lambda` weighs a partly known
/// pixel's own value), Elastica (explicit steps of size `timeStep`) or DualTV (the 2x solver
/// step with `mask`'s colour as its reference: it changes every pixel of `work` and makes the
/// mean of each 2x2 block at (2X, 2Y) equal to `mask` pixel (X, Y), so it reads only the
/// top-left quarter of `mask`'s colour); any other value changes nothing. `epsilon` (> 0)
/// keeps gradient magnitudes off zero.
///
/// Output on std::cout: a progress bar, advanced once per iteration unless dumping. With
/// `dumpEveryIteration` and a non-empty `fileName`, `fileName` is a Boost.Format pattern with
/// one directive fed the iteration number: `work` is written under it before the first
/// iteration (0) and after each, with a "inpaint: Wrote: NAME Inf norm: N" line giving the
/// iteration's largest change (always 0 for DualTV). Otherwise a non-empty `fileName` names
/// the file the result is written to at the end. Files are written through
/// ImageBuffer::writeImage, the type chosen from the name.
///
/// Preconditions: `mask` and `work` have equal width and height and at least 4 channels, and
/// `work` channel 3 carries the same mask (the steps read alpha from it).
/// Throws Boost.Format's errors for a pattern without exactly one directive (files already
/// written stay), the std::string of writeImage when a file cannot be written, and
/// std::bad_alloc.
void inpaint(const ImageBuffer& mask, ImageBuffer& work, int iterations, bool dumpEveryIteration,
             int method, const std::string& fileName, double lambda, double epsilon,
             double timeStep);

}  // namespace quorblen
