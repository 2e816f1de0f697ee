// Texture-synthesis inpainting.
#include "inpaint/TextureSynthesis.h"

#include <algorithm>
#include <cassert>

#include "inpaint/PassState.h"

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
    PassState pass(fill, pix_list, approxLevel(alphaLevel(iteration)));
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!pass.next(forward)) {
            break;
        }
        assert(keepsMargin(src, pass.x, pass.y, std::max(1, patchRadius)));
        const Choice match = searchCandidates(
            src, pass.x, pass.y, searchRadius, 1, 1, 100000.0,
            [&](int cx, int cy, int) {
                return patchCandidate(src, src, cx, cy, maskChannel, patchRadius);
            },
            [&](int cx, int cy, int) {
                return patchScore(fill, pass.x, pass.y, fill, cx, cy, patchRadius);
            });
        copyColour(src, match.x, match.y, fill, pass.x, pass.y);
        pass.setAlpha(fill, levelOut);
        copyColour(src, match.x, match.y, out, pass.x, pass.y);
        setAlpha(out, pass.x, pass.y, levelOut);
        pass.record(src, src, match);
    }
    pass.tally.report("inpaintTextureSynthesis", pix_list.size());
    return pass.tally.maxChange;
}

}  // namespace quorblen
