// Texture-guided TV inpainting.
#include "inpaint/TextureTV.h"

#include <cassert>

#include "inpaint/CandidateEnergy.h"
#include "inpaint/DiffusionKernels.h"
#include "inpaint/FastSearch.h"
#include "inpaint/PassState.h"
#include "inpaint/PassThreads.h"

namespace quorblen {

double inpaintTextureTV(const ImageBuffer* /*ignored*/, const ImageBuffer& source,
                        ImageBuffer& output, int maskChannel, const PixelList& pix_list,
                        int searchRadius) {
    detail::WorkerPool pool(1);
    return detail::inpaintTextureTVOn(pool, source, output, maskChannel, pix_list, searchRadius);
}

namespace detail {

double inpaintTextureTVOn(WorkerPool& pool, const ImageBuffer& source, ImageBuffer& output,
                          int maskChannel, const PixelList& pix_list, int searchRadius) {
    assert(source.channels >= 3 && maskChannel >= 0 && maskChannel < source.channels);
    assert(output.width == source.width && output.height == source.height && output.channels >= 3);
    // Candidates are judged in `trial`, where the chosen colours stay for the later entries.
    ImageBuffer trial(source);
    // Candidates are read from `source` column by column: its colour and mask.
    const ColumnPlanes planes(source, source.width, source.height, {0, 1, 2, maskChannel});
    const ColumnPlanes* const sources[] = {&planes};
    PassTally tally;
    for (const PixelEntry& p : pix_list) {
        const int x = static_cast<int>(p.x);
        const int y = static_cast<int>(p.y);
        const CandidateTotalVariation variation(trial, x, y);
        const Choice donor = searchByEnergy(
            pool, source, x, y, searchRadius, 0, sources, localTotalVariation(trial, x, y),
            [](float mask) { return mask == 0.0f; },
            [&](int, const float* colours, std::size_t n, double* scores) {
                variation.score(colours, n, scores);
            });
        copyColour(source, donor.x, donor.y, trial, x, y);
        copyColour(source, donor.x, donor.y, output, x, y);
        tally.record(source, x, y, source, donor);
    }
    tally.report("inpaintTextureTV", pix_list.size());
    return tally.maxChange;
}

}  // namespace detail
}  // namespace quorblen
