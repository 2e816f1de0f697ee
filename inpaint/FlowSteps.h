// Explicit flow steps of inpainting: Euler's elastica and the TV flow.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// One explicit step of Euler's-elastica inpainting with phi(kappa) = 1 + 30 kappa^2 on
/// channel c. Gradient magnitude G, curvature K and their product are first computed at the
/// band_list pixels (zero elsewhere); each pix_list pixel then moves by timeStep times the
/// divergence of the elastica flux, scaled by G + epsilon. Reads `current`, writes channel c
/// of `next` at pix_list pixels only; `mask`, `alphaChannel` and `lambda` are not read.
/// epsilon must be > 0.
/// Preconditions: `current` and `next` share width, height and channel count; every pixel of
/// both lists is interior (1 <= x <= width-2, 1 <= y <= height-2). That margin suffices: the
/// transverse points of a listed pixel's neighbours are its own diagonal neighbours, so
/// nothing beyond its 3x3 block is read.
/// Returns the largest |old - new| (before rounding to float); 0.0 for an empty pix_list.
double elasticaInpaintStep(const ImageBuffer& mask, const ImageBuffer& current, ImageBuffer& next,
                           int c, int alphaChannel, const PixelList& pix_list,
                           const BandList& band_list, double lambda, double epsilon,
                           double timeStep);

/// One explicit step of the TV flow u_t = div(grad u / |grad u|) on channel c: the unit
/// normal field (forward differences, regularised by epsilon unsquared) is computed at the
/// band_list pixels (zero elsewhere), and each pix_list pixel moves by timeStep times its
/// backward-difference divergence. Reads `current`, writes channel c of `next` at pix_list
/// pixels only; `mask`, `alphaChannel` and `lambda` are not read. epsilon must be > 0.
/// Preconditions: `current` and `next` share width, height and channel count; band_list
/// pixels have 0 <= x <= width-2, 0 <= y <= height-2 and pix_list pixels 1 <= x <= width-1,
/// 1 <= y <= height-1 (interior pixels satisfy both).
/// Returns the largest |old - new| (before rounding to float); 0.0 for an empty pix_list.
double tvFlowInpaintStep(const ImageBuffer& mask, const ImageBuffer& current, ImageBuffer& next,
                         int c, int alphaChannel, const PixelList& pix_list,
                         const BandList& band_list, double lambda, double epsilon, double timeStep);

}  // namespace quorblen
