// Per-channel diffusion kernels of the inpainting library: the digital TV filter and
// denoising sweeps, anisotropic diffusion and the local variation measures.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// One Jacobi sweep of the digital TV filter on channel c: each pixel of pix_list becomes the
/// mean of its four neighbours weighted by 1 / sqrt(g_k^2 + epsilon^2) (g_k the edge gradient
/// magnitudes), plus its own value weighted by lambda * (1 - alpha), alpha being sample
/// `alphaChannel` of `current`. Reads `current`, writes channel c of `next` at listed pixels
/// only; `mask` is not read. epsilon must be > 0.
/// Preconditions: `current` and `next` share width, height and channel count; every listed
/// pixel is interior (1 <= x <= width-2, 1 <= y <= height-2).
/// Returns the largest |old - new| (before rounding to float); 0.0 and no write for an empty
/// list.
double tvInpaintStep(const ImageBuffer& mask, const ImageBuffer& current, ImageBuffer& next, int c,
                     int alphaChannel, const PixelList& pix_list, double lambda, double epsilon);

/// One Jacobi sweep of the digital TV denoising filter on channel c over the whole image.
/// Sample 0 of every pixel of `gradient` receives localGradientMagnitude of `current`; then
/// each interior pixel of `next` becomes the mean of its four neighbours in `current`, edge
/// weights 1/|grad u| at both ends, plus `observed` weighted by lambda. Border pixels of
/// `next` are not written. epsilon must be > 0.
/// Preconditions: all four images share width and height; `observed`, `current` and `next`
/// share their channel count and have channel c.
/// Returns the largest |old - new| (before rounding to float); 0.0 when width or height is
/// below 3.
double tvDenoiseStep(const ImageBuffer& observed, const ImageBuffer& current, ImageBuffer& next,
                     ImageBuffer& gradient, int c, double lambda, double epsilon);

/// One explicit step of anisotropic diffusion with conductance exp(-(|d| / K)^2) on channel c:
/// every interior pixel of `next` receives u + timeStep * sum of conductance-weighted
/// differences to its four neighbours in `current`. K <= 0 means 0.01. Border pixels are not
/// written, nor anything when width or height is below 3.
/// Precondition: `current` and `next` share width, height and channel count.
/// Returns 0.0 always.
double peronaMalikStep(const ImageBuffer& current, ImageBuffer& next, int c, double timeStep,
                       double K);

/// sqrt of the sum of the squared differences of channel c from (x, y) to its four
/// neighbours, plus epsilon^2, all in double; a neighbour beyond the edge is clamped onto it.
/// Precondition: (x, y) lies inside the image.
double localGradientMagnitude(const ImageBuffer& image, int x, int y, int c, double epsilon);

/// Total variation of the colour (channels 0-2) around (x, y): for the pixel and its four
/// neighbours, the root of the sum of the four squared one-sided differences of each channel
/// times sqrt(1/2), summed.
/// Precondition: at least 3 channels and (x, y) lies at least two pixels inside every edge
/// (2 <= x <= width-3, 2 <= y <= height-3).
double localTotalVariation(const ImageBuffer& image, int x, int y);

}  // namespace quorblen
