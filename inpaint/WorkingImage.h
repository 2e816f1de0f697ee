// The working image of a recipe: the hole's surroundings cropped (and padded) out of a photo,
// and the way back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "image/ImageBuffer.h"

namespace quorblen {

/// One flag per pixel, row by row: whether the pixel is to be filled.
using HoleFlags = std::vector<std::uint8_t>;

/// The channels of a working image: colour 0-2, the fill state in alpha, and a donor flag,
/// 0.0 exactly at the known pixels of the photo (the only ones a colour may be copied from)
/// and 1.0 at hole pixels and at padding.
inline constexpr int WorkAlpha = 3;
inline constexpr int WorkDonor = 4;
inline constexpr int WorkChannels = 5;

/// A box of pixels: columns x0 .. x1-1, rows y0 .. y1-1; it may reach beyond the image.
struct Region {
    int x0, y0, x1, y1;
};

/// The flags of the pixels whose sample 0 in `mask` is not 0 (NaN included).
HoleFlags holeFlags(const ImageBuffer& mask);

/// The bounding box of the flagged pixels grown by `margin` on every side.
/// Precondition: at least one pixel is flagged.
Region holeRegion(const HoleFlags& hole, int width, int height, int margin);

/// The part of `region` inside an image of `width` x `height` pixels.
Region insideImage(const Region& region, int width, int height);

/// A hole pixel and the known pixel whose colour it takes, as indices y * width + x into the
/// image.
struct GuessSource {
    std::size_t pixel;
    std::size_t source;
};

/// The working image of `region` (WorkChannels channels): alpha 1 at hole pixels and 0
/// elsewhere, the donor flag as described above, and the colour of `image` at each pixel, or
/// for a pixel that `guesses` lists, at its source. The colour is every plane but `alphaPlane`
/// (-1: none) in order, the last one repeated when there are fewer than 3 (a grey image gives
/// three equal planes). Pixels beyond the image repeat the colour of the nearest edge pixel,
/// its guess included, and count as known but not as donors, so a hole touching the edge
/// still lies inside the region with its margin. Guesses for pixels outside the region change
/// nothing.
/// Precondition: `image` has 1 to 3 planes besides its alpha.
ImageBuffer cropWorkingImage(const ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                             const Region& region, const std::vector<GuessSource>& guesses);

/// The largest minus the smallest colour sample of the known pixels (alpha 0) of the working
/// image `work`, or 1 when they are all equal: no stable diffusion step moves a pixel by more
/// in one iteration.
/// Throws std::invalid_argument, naming `what` ("<what> holds samples that are not finite
/// numbers next to the hole"), when a known sample is not a finite number, which no step
/// could diffuse nor any comparison judge.
double knownRange(const ImageBuffer& work, const char* what);

/// Writes colour channels 0.. of `work` (the working image of `region`) into the planes of
/// `image` other than `alphaPlane`, at the hole pixels only.
/// Precondition: `image` has the size the flags were made for and 1 to 3 colour planes.
void pasteHole(const ImageBuffer& work, const Region& region, const HoleFlags& hole,
               ImageBuffer& image, int alphaPlane);

}  // namespace quorblen
