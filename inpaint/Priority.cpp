// Pixel priority and the selection of the next pixel to fill.
#include "inpaint/Priority.h"

#include <cassert>
#include <iostream>

#include "inpaint/KernelSupport.h"

namespace quorblen {

double pixelPriority(const ImageBuffer& image, std::uint32_t x, std::uint32_t y) {
    assert(image.channels > 3);
    assert(detail::keepsMargin(image, x, y, 1));
    const detail::PlaneAt alpha(image, x, y, 3);
    double sum = 0.0;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            // Confidence in single precision, summed in double.
            sum += static_cast<double>(1.0f - alpha(dx, dy));
        }
    }
    return sum;
}

std::uint32_t highestPriorityPixel(const ImageBuffer& image, const PixelList& pix_list,
                                   std::int32_t last_pix, bool forward, std::uint32_t& x,
                                   std::uint32_t& y) {
    assert(last_pix < 0 || static_cast<std::size_t>(last_pix) < pix_list.size());
    double best = -1.0;
    std::uint32_t chosen = NoPixel;
    for (std::int32_t i = 0; i <= last_pix; ++i) {
        const std::uint32_t index = static_cast<std::uint32_t>(forward ? i : last_pix - i);
        const PixelEntry& entry = pix_list[index];
        const double priority = pixelPriority(image, entry.x, entry.y);
        if (priority > best) {
            best = priority;
            chosen = index;
            x = entry.x;
            y = entry.y;
        }
    }
    if (chosen == NoPixel) {
        std::cerr << "highestPriorityPixel: ERROR: No high priority found.\n"
                  << "  pix_list.size: " << pix_list.size() << " last_pix: " << last_pix << '\n';
    }
    return chosen;
}

}  // namespace quorblen
