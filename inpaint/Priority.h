// Pixel priority and the fill order of the exemplar passes.
#pragma once

#include <cstdint>

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

double pixelPriority(const ImageBuffer& image, std::uint32_t x, std::uint32_t y);
std::uint32_t highestPriorityPixel(const ImageBuffer& image, const PixelList& pix_list,
                                   std::int32_t last_pix, bool forward, std::uint32_t& x,
                                   std::uint32_t& y);

}  // namespace quorblen
