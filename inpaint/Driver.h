// The diffusion inpainting driver.
#pragma once

#include <string>

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

void inpaint(const ImageBuffer& mask, ImageBuffer& work, int iterations, bool dumpEveryIteration,
             int method, const std::string& fileName, double lambda, double epsilon,
             double timeStep);

}  // namespace quorblen
