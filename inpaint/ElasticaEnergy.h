// The local Euler's-elastica energy by which the elastica-scored passes judge a colour.
#pragma once

#include <cstdint>

#include "image/ImageBuffer.h"

namespace quorblen {

/// Elastica energy density of pixel (x, y): over colour channels 0-2, the sum of
/// (1 + curvatureWeight * kappa^2) * G, kappa the curvature of the channel (regularised by
/// `epsilon`, see `curvature`) and G its gradient magnitude from the four one-sided
/// differences, sqrt(sum of their squares / 2). Pass epsilon > 0: a flat channel gives NaN
/// otherwise.
/// Precondition: at least 3 channels and (x, y) at least one pixel inside every edge.
double elasticaDensity(const ImageBuffer& img, std::uint32_t x, std::uint32_t y, float epsilon,
                       float curvatureWeight);

/// Elastica energy around pixel (x, y): the elasticaDensity of the pixel and of its right,
/// lower, left and upper neighbours, summed in that order. Reads every pixel (x + i, y + j)
/// with |i| <= 2 and |j| <= 1, or |i| <= 1 and |j| <= 2.
/// Precondition: at least 3 channels and (x, y) at least two pixels inside every edge.
double elasticaEnergy(const ImageBuffer& img, std::uint32_t x, std::uint32_t y, float epsilon,
                      float curvatureWeight);

}  // namespace quorblen
