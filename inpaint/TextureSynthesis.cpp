// Texture-synthesis inpainting.
#include "inpaint/TextureSynthesis.h"

#include <algorithm>
#include <cassert>

#include "inpaint/FastSearch.h"
#include "inpaint/PassState.h"
#include "inpaint/PassThreads.h"

namespace quorblen {

double inpaintTextureSynthesis(const ImageBuffer& src, ImageBuffer& out, int maskChannel,
                               const PixelList& pix_list, int searchRadius, double iteration,
                               int patchRadius, bool forward) {
    detail::WorkerPool pool(1);
    return detail::inpaintTextureSynthesisOn(pool, src, out, maskChannel, pix_list, searchRadius,
                                             iteration, patchRadius, forward);
}

namespace detail {

double inpaintTextureSynthesisOn(WorkerPool& pool, const ImageBuffer& src, ImageBuffer& out,
                                 int maskChannel, const PixelList& pix_list, int searchRadius,
                                 double iteration, int patchRadius, bool forward, bool fillInOut) {
    if (lacksAlpha(src)) {
        return -1.0;
    }
    assert(maskChannel >= 0 && maskChannel < src.channels);
    assert(out.width == src.width && out.height == src.height && out.channels > AlphaChannel);
    // Priorities, levels and patches are read from the copy, which holds every fill at once;
    // colours always come from `src`.
    ImageBuffer copy = fillInOut ? ImageBuffer() : src;
    ImageBuffer& fill = fillInOut ? out : copy;
    const float levelOut = alphaLevel(iteration + 1.0);
    PassState pass(fill, pix_list, approxLevel(alphaLevel(iteration)));
    // The candidates are those of `src`, which the pass does not write.
    const CandidateMap candidates(src, src, maskChannel, patchRadius);
    PatchPlanes planes(fill, src.width, src.height, patchRadius);
    const PatchSource sources[] = {{&src, &planes, &candidates}};
    const PatchSearch search{pool, fastestPatchLanes(), src, searchRadius, sources};
    SeedTracker seeds;
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!pass.next(forward)) {
            break;
        }
        const int x = int(pass.x);
        const int y = int(pass.y);
        assert(keepsMargin(src, x, y, std::max(1, patchRadius)));
        const PatchTarget target(fill, x, y, patchRadius, planes.columnStep());
        const Choice match = searchPatches(search, x, y, target, 100000.0, 1.0, true,
                                           seeds.seedFor(x, y), NoEnergy{});
        seeds.record(x, y, match);
        copyColour(src, match.x, match.y, fill, x, y);
        pass.setAlpha(fill, levelOut);
        planes.refresh(fill, x, y);
        if (!fillInOut) {
            copyColour(src, match.x, match.y, out, x, y);
            setAlpha(out, x, y, levelOut);
        }
        pass.record(src, src, match);
    }
    pass.tally.report("inpaintTextureSynthesis", pix_list.size());
    return pass.tally.maxChange;
}

}  // namespace detail
}  // namespace quorblen
