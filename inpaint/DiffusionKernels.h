// Per-channel diffusion kernels of the inpainting library.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

int nearestPixelWithValue(const ImageBuffer& image, int c, int x, int y, int& outX, int& outY,
                          int radius, float value);
double tvInpaintStep(const ImageBuffer& mask, const ImageBuffer& current, ImageBuffer& next, int c,
                     int alphaChannel, const PixelList& pix_list, double lambda, double epsilon);
double elasticaInpaintStep(const ImageBuffer& mask, const ImageBuffer& current, ImageBuffer& next,
                           int c, int alphaChannel, const PixelList& pix_list,
                           const BandList& band_list, double lambda, double epsilon,
                           double timeStep);
double tvFlowInpaintStep(const ImageBuffer& mask, const ImageBuffer& current, ImageBuffer& next,
                         int c, int alphaChannel, const PixelList& pix_list,
                         const BandList& band_list, double lambda, double epsilon, double timeStep);
double tvDenoiseStep(const ImageBuffer& observed, const ImageBuffer& current, ImageBuffer& next,
                     ImageBuffer& gradient, int c, double lambda, double epsilon);
double peronaMalikStep(const ImageBuffer& current, ImageBuffer& next, int c, double timeStep,
                       double K);
double localGradientMagnitude(const ImageBuffer& image, int x, int y, int c, double epsilon);
double localTotalVariation(const ImageBuffer& image, int x, int y);

}  // namespace quorblen
