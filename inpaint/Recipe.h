// Ready inpainting recipes: fill the hole of a photo without knowing the library's passes.
#pragma once

#include <iosfwd>

#include "image/ImageBuffer.h"
#include "inpaint/RecipeCatalogue.h"
#include "inpaint/WorkingImage.h"

namespace quorblen {

/// Fills the hole of `image` and returns the result: `image` with the hole pixels' colour
/// replaced, every other sample (alpha included) bit for bit as it was.
///
/// `alphaPlane` is the plane of `image` holding alpha (-1: none); the 1 to 3 other planes are
/// colour (1: grey). `mask` has the width and height of `image`; a pixel belongs to the hole
/// when sample 0 of `mask` is not 0. The hole may touch the image's edges: the recipe works on
/// the hole's surroundings padded beyond the edge. Progress, back-offs and the reason for
/// doing nothing go to `log`, one line each. The library's passes print their own summary
/// lines on `passLines` (null: this thread's passLog(), standard output unless redirected);
/// `log` and `passLines` may be the same stream.
///
/// The exemplar recipes copy every colour they write from a known pixel of a source within
/// `searchRadius` of the hole pixel; they start from a first guess (each hole pixel coloured
/// like its nearest known pixel), which a pixel keeps when no donor lies within reach (`log`
/// counts such pixels).
///
/// A mask that marks no pixel returns `image` unchanged (saying so on `log`).
/// A source given with its own mask (`source2Mask`, `source3Mask`: a neighbouring frame of a
/// sequence, its object elsewhere) donates its pixels outside that mask, also those behind the
/// image's hole; a source without one donates only pixels outside the image's hole.
///
/// Throws std::invalid_argument for bad input: sizes that differ, no colour plane or more
/// than 3, a mask that marks every pixel (nothing to fill from), a source mask without its
/// source or marking every pixel, an option out of its range.
/// Throws std::runtime_error when a recipe fails (the elastica flow still diverging at a
/// small fraction of its time step), and std::bad_alloc.
ImageBuffer fillHole(const ImageBuffer& image, int alphaPlane, const ImageBuffer& mask,
                     const RecipeOptions& options, std::ostream& log,
                     std::ostream* passLines = nullptr);

/// fillHole on `image` itself, for a caller that has no use for the unfilled image: fills the
/// hole that `hole` flags (one flag per pixel, row by row) and changes nothing but the hole
/// pixels' colour samples, saving a copy of the image. Throws as fillHole does (a flag count
/// other than the pixel count is a mask of the wrong size), leaving `image` as it was.
void fillHoleInPlace(ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                     const RecipeOptions& options, std::ostream& log,
                     std::ostream* passLines = nullptr);

}  // namespace quorblen
