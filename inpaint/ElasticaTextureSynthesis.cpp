// Elastica texture synthesis.
#include "inpaint/ElasticaTextureSynthesis.h"

#include <algorithm>
#include <cassert>

#include "inpaint/EnergyTrials.h"
#include "inpaint/FastSearch.h"
#include "inpaint/PassState.h"
#include "inpaint/PassThreads.h"

namespace quorblen {

double inpaintElasticaTextureSynthesis(const ImageBuffer& src, ImageBuffer& img, int maskChannel,
                                       PixelList& pix_list, int searchRadius, double epsilon,
                                       double curvatureWeight, double patchWeight, int patchRadius,
                                       bool forward) {
    detail::WorkerPool pool(1);
    return detail::inpaintElasticaTextureSynthesisOn(pool, src, img, maskChannel, pix_list,
                                                     searchRadius, epsilon, curvatureWeight,
                                                     patchWeight, patchRadius, forward);
}

namespace detail {

double inpaintElasticaTextureSynthesisOn(WorkerPool& pool, const ImageBuffer& src, ImageBuffer& img,
                                         int maskChannel, PixelList& pix_list, int searchRadius,
                                         double epsilon, double curvatureWeight, double patchWeight,
                                         int patchRadius, bool forward) {
    assert(src.width == img.width && src.height == img.height);
    assert(src.channels > AlphaChannel && img.channels > AlphaChannel);
    assert(maskChannel >= 0 && maskChannel < src.channels);
    PassState pass(img, pix_list);
    // The candidates are those of `src`, which the pass does not write; patches are compared
    // on `img`, which it does.
    const CandidateMap candidates(src, src, maskChannel, patchRadius);
    PatchPlanes planes(img, src.width, src.height, patchRadius);
    const PatchSource sources[] = {{&src, &planes, &candidates}};
    const PatchSearch search{pool, fastestPatchLanes(), src, searchRadius, sources};
    EnergyTrials trials(pool.size(), epsilon, curvatureWeight);
    const bool prunable = elasticaPrunable(patchWeight, curvatureWeight);
    SeedTracker seeds;
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!pass.next(forward)) {
            break;
        }
        const int x = int(pass.x);
        const int y = int(pass.y);
        assert(keepsMargin(img, x, y, std::max(2, patchRadius)));
        EnergyProbe probe(img, pass.x, pass.y, epsilon, curvatureWeight);
        const double start = probe.current() + 100000.0;
        Choice choice;
        if (approxEqual(sampleAt(img, x, y, AlphaChannel), 1.0f)) {
            // The pixel counts on neither side of a comparison: the colours tried there
            // change the energy alone.
            trials.load(img, x, y);
            const PatchTarget target(img, x, y, patchRadius, planes.columnStep());
            choice = searchPatches(
                search, x, y, target, start, patchWeight, prunable, seeds.seedFor(x, y),
                [&](int worker, const float* c) { return trials.energy(worker, c); });
        } else {
            choice = searchCandidates(
                src, x, y, searchRadius, 1, 1, start,
                [&](int cx, int cy, int) {
                    return patchCandidate(src, src, cx, cy, maskChannel, patchRadius);
                },
                [&](int cx, int cy, int) {
                    return elasticaPatchScore(probe, src, img, img, cx, cy, patchRadius,
                                              patchWeight);
                });
        }
        seeds.record(x, y, choice);
        copyColour(src, choice.x, choice.y, img, x, y);
        pass.setAlpha(img, 0.5f);
        planes.refresh(img, x, y);
        pass.record(src, src, choice);
    }
    // The region counts as unknown again for the next pass, which starts from these colours.
    for (const PixelEntry& entry : pix_list) {
        setAlpha(img, entry.x, entry.y, 1.0f);
    }
    pass.tally.report("inpaintElasticaTextureSynthesis", pix_list.size());
    return pass.tally.maxChange;
}

}  // namespace detail
}  // namespace quorblen
