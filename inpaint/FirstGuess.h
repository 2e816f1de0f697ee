// The first guess of a recipe: every hole pixel coloured like its nearest known pixel.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/WorkingImage.h"

namespace quorblen {

/// `colour` with every hole pixel given the colour of its nearest known pixel in 4-neighbour
/// steps (a breadth-first search from all known pixels at once; the first to arrive wins).
/// Precondition: `hole` has one flag per pixel of `colour` and at least one pixel is known.
ImageBuffer nearestKnownFill(const ImageBuffer& colour, const HoleFlags& hole);

/// The working image of `region` cut from `image` (1 to 3 colour planes besides `alphaPlane`,
/// -1: none), its hole given the first guess, as nearestKnownFill over the whole image gives
/// it: pixels beyond the image then repeat known colours only.
/// Preconditions: those of colourPlanes and nearestKnownFill.
ImageBuffer firstGuessWorkingImage(const ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                                   const Region& region);

}  // namespace quorblen
