// The first guess of a recipe: every hole pixel coloured like its nearest known pixel.
#pragma once

#include <cstddef>
#include <vector>

#include "image/ImageBuffer.h"
#include "inpaint/WorkingImage.h"

namespace quorblen {

/// For every hole pixel of `box` (inside an image of `width` x `height` pixels whose hole
/// `hole` flags, row by row), the known pixel nearest to it in 4-neighbour steps: a
/// breadth-first search from all known pixels at once, in index order; the first to arrive
/// wins. The pixels come in the order the search reaches them. The search runs through hole
/// pixels only, so it needs no pixel beyond the box.
/// Preconditions: `box` holds every hole pixel and the pixels next to them, and at least one
/// pixel is known.
std::vector<GuessSource> nearestKnownPixels(const HoleFlags& hole, int width, int height,
                                            const Region& box);

/// The working image of `region` cut from `image` (1 to 3 colour planes besides `alphaPlane`,
/// -1: none), its hole given the first guess over the whole image: pixels beyond the image
/// then repeat known colours only. The hole may flag pixels anywhere in the image.
/// Preconditions: those of cropWorkingImage.
ImageBuffer firstGuessWorkingImage(const ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                                   const Region& region);

}  // namespace quorblen
