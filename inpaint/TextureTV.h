// Texture-guided TV inpainting: nearby known colours chosen for the lowest local variation.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// One pass over pix_list, in list order: each pixel takes the colour of the fully known pixel
/// (sample `maskChannel` of `source` exactly 0.0) in the square of half-width `searchRadius`
/// pixels around it whose colour, put in place, gives the lowest localTotalVariation; a donor
/// must beat the pixel's current colour strictly, and ties keep the first donor in column-major
/// order (smaller x, then smaller y). Colours are tried in a copy of `source` where the chosen
/// ones stay, so later pixels see earlier choices. A pixel with no better donor keeps its
/// colour from `source`. Writes channels 0-2 of `output` at listed pixels only. Prints
/// "inpaintTextureTV: Changed <n> pixels out of <size> this iteration." on passLog(), n
/// counting the pixels that found a better donor. `ignored` is never read.
/// Preconditions: `source` has channels 0-2 and `maskChannel`; `output` has `source`'s width
/// and height and at least 3 channels; every listed pixel lies at least 2 pixels inside every
/// edge.
/// Returns the largest |source - written colour| over listed pixels and channels 0-2; 0.0 for
/// an empty list.
double inpaintTextureTV(const ImageBuffer* ignored, const ImageBuffer& source, ImageBuffer& output,
                        int maskChannel, const PixelList& pix_list, int searchRadius);

}  // namespace quorblen
