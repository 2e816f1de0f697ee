// Elastica texture synthesis: exemplar filling in place, scored by patch and elastica energy.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// One pass over pix_list filling `img` in place. Each step takes the entry of highest
/// priority (highestPriorityPixel, the scan direction starting at `forward` and flipping every
/// step), moves it behind the active part of the list, and gives it the colour of `src` at the
/// candidate centre q of lowest score patchWeight * patchDistance + elasticaEnergy, both taken
/// in `img` with the candidate's colour in place at the pixel. A winner must score strictly
/// below the energy of the pixel's present colour plus 100000 and below earlier candidates.
/// Candidates lie in the square of half-width `searchRadius` pixels, columns outer and rows
/// inner, at least one pixel inside `src` with their patch of radius `patchRadius` inside it,
/// and with sample `maskChannel` of `src` exactly 0.0 on their 3x3 block. A pixel without a
/// winner gets its colour from `src`. Filled pixels hold alpha 0.5 during the pass; at its end
/// every listed pixel of `img` is back at alpha 1.0, and pix_list holds the same entries in
/// reverse fill order. `epsilon` and `curvatureWeight` are used in single precision. Prints
/// "inpaintElasticaTextureSynthesis: Changed <n> pixels out of <size> this iteration." on
/// passLog(), n counting the steps with a winner.
/// Preconditions: `src` and `img` share width and height and have at least 4 channels
/// (`maskChannel` among them); every listed pixel lies at least max(2, patchRadius) pixels
/// inside every edge.
/// Returns the largest |src at the pixel - src at its winner| over the filled pixels and
/// channels 0-2; 0.0 for an empty list.
double inpaintElasticaTextureSynthesis(const ImageBuffer& src, ImageBuffer& img, int maskChannel,
                                       PixelList& pix_list, int searchRadius, double epsilon,
                                       double curvatureWeight, double patchWeight, int patchRadius,
                                       bool forward);

}  // namespace quorblen
