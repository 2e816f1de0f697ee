// Texture-synthesis inpainting: one exemplar pass per alpha level, in priority order.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// One exemplar pass over the pixels of pix_list whose alpha is at level 0.7^iteration (within
/// approxEqual), worked on a private copy of `src`. Each step takes the listed pixel at that
/// level with the highest pixelPriority above 0 (scanning from the front when `forward`, the
/// direction flipping every step; the first met wins ties), and gives it the colour of `src` at
/// the candidate centre whose patch of radius `patchRadius` best matches its own
/// (patchDistance on the copy, strictly below 100000 and below earlier candidates). Candidates
/// lie in the square of half-width `searchRadius` pixels, columns outer and rows inner, at
/// least one pixel inside `src` with their whole patch inside it, and with sample
/// `maskChannel` of `src` exactly 0.0 on their 3x3 block. A pixel without candidates keeps
/// its colour from `src`. The filled pixel moves to alpha 0.7^(iteration + 1) in the copy and
/// in `out`, which receives its colour and alpha; nothing else of `out` is written. The pass
/// ends when no listed pixel is left at the level. Prints "inpaintTextureSynthesis: Changed
/// <n> pixels out of <size> this iteration." on passLog(), n counting the steps that found a
/// candidate.
/// Preconditions: `maskChannel` < channels of `src`; `out` has `src`'s width and height and
/// at least 4 channels; every listed pixel lies at least max(1, patchRadius) pixels inside
/// every edge.
/// Returns the largest |src - written colour| over filled pixels and channels 0-2; -1.0, after
/// printing "Error: new_img doesn't have an alpha channel!", when `src` has fewer than 4
/// channels.
double inpaintTextureSynthesis(const ImageBuffer& src, ImageBuffer& out, int maskChannel,
                               const PixelList& pix_list, int searchRadius, double iteration,
                               int patchRadius, bool forward);

}  // namespace quorblen
