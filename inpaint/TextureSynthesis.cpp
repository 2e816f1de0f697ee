// Texture-synthesis inpainting.
#include "inpaint/TextureSynthesis.h"

#include <algorithm>
#include <cassert>

#include "inpaint/FillSupport.h"

namespace quorblen {

double inpaintTextureSynthesis(const ImageBuffer& src, ImageBuffer& out, int maskChannel,
                               const PixelList& pix_list, int searchRadius, double iteration,
                               int patchRadius, bool forward) {
    using namespace detail;
    if (lacksAlpha(src)) {
        return -1.0;
    }
    assert(maskChannel >= 0 && maskChannel < src.channels);
    assert(out.width == src.width && out.height == src.height && out.channels > AlphaChannel);
    // Priorities, levels and patches are read from the copy, which holds every fill at once;
    // colours always come from `src`.
    ImageBuffer fill(src);
    const float levelOut = alphaLevel(iteration + 1.0);
    std::int32_t changed = 0;
    double maxChange = 0.0;
    FillOrder order(fill, pix_list, approxLevel(alphaLevel(iteration)));
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!order.select(forward, x, y)) {
            break;
        }
        assert(keepsMargin(src, x, y, std::max(1, patchRadius)));
        const Choice match = searchCandidates(
            src, x, y, searchRadius, 1, 1, 100000.0,
            [&](int cx, int cy, int) {
                return patchCandidate(src, src, cx, cy, maskChannel, patchRadius);
            },
            [&](int cx, int cy, int) { return patchScore(fill, x, y, fill, cx, cy, patchRadius); });
        changed += match.found;
        copyColour(src, match.x, match.y, fill, x, y);
        order.setAlpha(fill, x, y, levelOut);
        copyColour(src, match.x, match.y, out, x, y);
        setAlpha(out, x, y, levelOut);
        maxChange = trackColourChange(maxChange, src, x, y, src, match.x, match.y);
    }
    reportChanges("inpaintTextureSynthesis", changed, pix_list.size());
    return maxChange;
}

}  // namespace quorblen
