// Texture-elastica inpainting.
#include "inpaint/TextureElastica.h"

#include <cassert>
#include <ostream>

#include "inpaint/EnergyTrials.h"
#include "inpaint/FastSearch.h"
#include "inpaint/PassLog.h"
#include "inpaint/PassState.h"
#include "inpaint/PassThreads.h"

namespace quorblen {

double inpaintTextureElastica(const ImageBuffer* /*ignored*/, ImageBuffer& src,
                              ImageBuffer& new_img, int maskChannel, PixelList& pix_list,
                              int searchRadius, bool forward, double epsilon,
                              double curvatureWeight, double iteration) {
    detail::WorkerPool pool(1);
    return detail::inpaintTextureElasticaOn(pool, src, new_img, maskChannel, pix_list, searchRadius,
                                            forward, epsilon, curvatureWeight, iteration);
}

namespace detail {

double inpaintTextureElasticaOn(WorkerPool& pool, ImageBuffer& src, ImageBuffer& new_img,
                                int maskChannel, PixelList& pix_list, int searchRadius,
                                bool forward, double epsilon, double curvatureWeight,
                                double iteration) {
    if (lacksAlpha(new_img)) {
        return -1.0;
    }
    assert(src.width == new_img.width && src.height == new_img.height);
    assert(src.channels > AlphaChannel && maskChannel >= 0 && maskChannel < new_img.channels);
    const float level = alphaLevel(iteration + 1.0);
    PassState pass(new_img, pix_list);
    EnergyTrials trials(pool.size(), epsilon, curvatureWeight);
    // Candidates are read from `new_img` column by column, each filled pixel refreshed.
    ColumnPlanes planes;
    if (maskChannel > 2) {
        planes = ColumnPlanes(new_img, new_img.width, new_img.height, {0, 1, 2, maskChannel});
    }
    const ColumnPlanes* const sources[] = {&planes};
    // One step fewer than entries: the entry left at the front is only marked below.
    for (std::size_t step = 1; step < pix_list.size(); ++step) {
        if (!pass.next(forward)) {
            break;
        }
        const int x = int(pass.x);
        const int y = int(pass.y);
        assert(keepsMargin(new_img, x, y, 2));
        EnergyProbe probe(new_img, pass.x, pass.y, epsilon, curvatureWeight);
        // Read once: trying colours rewrites P when the mask is a colour channel.
        const float maskHere = sampleAt(new_img, x, y, maskChannel);
        Choice donor;
        if (maskChannel > 2) {
            // The tried colours never reach the mask, and P itself is no candidate (its mask
            // is not below its own): the search need not write P.
            trials.load(new_img, x, y);
            donor = searchByEnergy(
                pool, src, x, y, searchRadius, 1, sources, probe.current(),
                [&](float mask) { return maskHere > mask; },
                [&](int worker, const float* colours, std::size_t n, double* scores) {
                    trials.energies(worker, colours, n, scores);
                });
        } else {
            donor = searchCandidates(
                src, pass.x, pass.y, searchRadius, 1, 1, probe.current(),
                [&](int cx, int cy, int) {
                    return maskHere > sampleAt(new_img, cx, cy, maskChannel);
                },
                [&](int cx, int cy, int) { return probe.tryColour(new_img, cx, cy); });
        }
        pass.setAlpha(new_img, level);
        // Judged by the colours of new_img, written from src.
        copyColour(src, donor.x, donor.y, new_img, x, y);
        if (maskChannel > 2) {
            planes.refresh(new_img, x, y);
        }
        pass.record(src, src, donor);
    }
    for (const PixelEntry& entry : pix_list) {
        setAlpha(new_img, entry.x, entry.y, level);
        setAlpha(src, entry.x, entry.y, level);
    }
    passLog() << "ratio : " << curvatureWeight << '\n';
    pass.tally.report("inpaintTextureElastica", pix_list.size());
    return pass.tally.maxChange;
}

}  // namespace detail
}  // namespace quorblen
