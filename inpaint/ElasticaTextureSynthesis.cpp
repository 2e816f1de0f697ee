// Elastica texture synthesis.
#include "inpaint/ElasticaTextureSynthesis.h"

#include <algorithm>
#include <cassert>

#include "inpaint/PassState.h"

namespace quorblen {

double inpaintElasticaTextureSynthesis(const ImageBuffer& src, ImageBuffer& img, int maskChannel,
                                       PixelList& pix_list, int searchRadius, double epsilon,
                                       double curvatureWeight, double patchWeight, int patchRadius,
                                       bool forward) {
    using namespace detail;
    assert(src.width == img.width && src.height == img.height);
    assert(src.channels > AlphaChannel && img.channels > AlphaChannel);
    assert(maskChannel >= 0 && maskChannel < src.channels);
    PassState pass(img, pix_list);
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!pass.next(forward)) {
            break;
        }
        assert(keepsMargin(img, pass.x, pass.y, std::max(2, patchRadius)));
        EnergyProbe probe(img, pass.x, pass.y, epsilon, curvatureWeight);
        const Choice choice = searchCandidates(
            src, pass.x, pass.y, searchRadius, 1, 1, probe.current() + 100000.0,
            [&](int cx, int cy, int) {
                return patchCandidate(src, src, cx, cy, maskChannel, patchRadius);
            },
            [&](int cx, int cy, int) {
                return elasticaPatchScore(probe, src, img, img, cx, cy, patchRadius, patchWeight);
            });
        copyColour(src, choice.x, choice.y, img, pass.x, pass.y);
        pass.setAlpha(img, 0.5f);
        pass.record(src, src, choice);
    }
    // The region counts as unknown again for the next pass, which starts from these colours.
    for (const PixelEntry& entry : pix_list) {
        setAlpha(img, entry.x, entry.y, 1.0f);
    }
    pass.tally.report("inpaintElasticaTextureSynthesis", pix_list.size());
    return pass.tally.maxChange;
}

}  // namespace quorblen
