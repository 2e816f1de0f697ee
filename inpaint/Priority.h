// Pixel priority and the fill order of the exemplar passes.
#pragma once

#include <cstdint>

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// How well the 3x3 neighbourhood of (x, y) is known: the sum of the nine confidences
/// 1 - alpha (alpha in channel 3), the centre included; 9.0 fully known, 0.0 fully unknown.
/// Precondition: the image has at least 4 channels and (x, y) lies at least one pixel inside
/// every edge.
double pixelPriority(const ImageBuffer& image, std::uint32_t x, std::uint32_t y);

/// Selects the entry of pix_list[0 .. last_pix] with the highest pixelPriority, scanning up
/// from 0 when `forward` is true and down from last_pix otherwise; among equal priorities the
/// first met in the scan wins, and a NaN priority never wins. Entries behind last_pix are
/// never read. Writes the selected entry's coordinates to x and y and returns its index.
/// When nothing is selected (last_pix < 0, or every priority is NaN or below -1) prints
/// "highestPriorityPixel: ERROR: No high priority found." and "  pix_list.size: <size>
/// last_pix: <last_pix>" as two lines on stderr, leaves x and y untouched and returns NoPixel.
/// Preconditions: last_pix < pix_list.size(); every examined entry satisfies those of
/// pixelPriority.
std::uint32_t highestPriorityPixel(const ImageBuffer& image, const PixelList& pix_list,
                                   std::int32_t last_pix, bool forward, std::uint32_t& x,
                                   std::uint32_t& y);

}  // namespace quorblen
