// Texture-guided TV inpainting.
#include "inpaint/TextureTV.h"

#include <cassert>

#include "inpaint/DiffusionKernels.h"
#include "inpaint/PassState.h"

namespace quorblen {

double inpaintTextureTV(const ImageBuffer* /*ignored*/, const ImageBuffer& source,
                        ImageBuffer& output, int maskChannel, const PixelList& pix_list,
                        int searchRadius) {
    assert(source.channels >= 3 && maskChannel >= 0 && maskChannel < source.channels);
    assert(output.width == source.width && output.height == source.height && output.channels >= 3);
    using namespace detail;
    // Candidates are tried here; the chosen colours stay for the later entries.
    ImageBuffer trial(source);
    PassTally tally;
    for (const PixelEntry& p : pix_list) {
        const int x = static_cast<int>(p.x);
        const int y = static_cast<int>(p.y);
        const Choice donor = searchCandidates(
            source, x, y, searchRadius, 0, 1, localTotalVariation(trial, x, y),
            [&](int cx, int cy, int) { return sampleAt(source, cx, cy, maskChannel) == 0.0f; },
            [&](int cx, int cy, int) {
                copyColour(source, cx, cy, trial, x, y);
                return localTotalVariation(trial, x, y);
            });
        copyColour(source, donor.x, donor.y, trial, x, y);
        copyColour(source, donor.x, donor.y, output, x, y);
        tally.record(source, x, y, source, donor);
    }
    tally.report("inpaintTextureTV", pix_list.size());
    return tally.maxChange;
}

}  // namespace quorblen
