// Texture-elastica inpainting: nearby better-known colours chosen by elastica energy alone.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// One pass over pix_list filling `new_img` in place, n - 1 steps for a list of n entries.
/// Each step takes the entry of highest priority in `new_img` (highestPriorityPixel, always
/// scanning in direction `forward`), moves it behind the active part of the list, and tries
/// in `new_img` at that pixel P the colour of every pixel q of the square of half-width
/// `searchRadius` pixels around it (at least one pixel inside `src`, columns outer and rows
/// inner) whose sample `maskChannel` in `new_img` is strictly below P's. The q whose colour
/// gives the lowest elasticaEnergy at P, strictly below that of P's present colour, wins; P
/// then gets alpha 0.7^(iteration + 1) and the colour `src` holds at q (its own colour of
/// `src` without a winner). At the end every listed pixel gets that alpha in `new_img` and in
/// `src`. `epsilon` and `curvatureWeight` are used in single precision. Prints
/// "ratio : <curvatureWeight as passed>" and "inpaintTextureElastica: Changed <n> pixels out
/// of <size> this iteration." on passLog(), n counting the steps with a winner. `ignored` is
/// never read.
/// Preconditions: `src` and `new_img` share width and height, `src` has at least 4 channels
/// and `maskChannel` < channels of `new_img`; every listed pixel lies at least 2 pixels inside
/// every edge.
/// Returns the largest |src at P - src at its winner| over the filled pixels and channels 0-2;
/// -1.0, after printing "Error: new_img doesn't have an alpha channel!" and changing nothing,
/// when `new_img` has fewer than 4 channels.
double inpaintTextureElastica(const ImageBuffer* ignored, ImageBuffer& src, ImageBuffer& new_img,
                              int maskChannel, PixelList& pix_list, int searchRadius, bool forward,
                              double epsilon, double curvatureWeight, double iteration);

}  // namespace quorblen
