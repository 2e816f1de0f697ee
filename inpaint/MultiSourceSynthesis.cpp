// The three-source exemplar passes: by patch distance, weighted with the elastica energy, and
// with an elastica fallback.
#include "inpaint/MultiSourceSynthesis.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <functional>
#include <utility>

#include "inpaint/PassState.h"

namespace quorblen {
namespace {

using namespace detail;

/// The working state of one three-source pass.
class ThreeSourcePass {
public:
    /// The pass fills the entries of pix_list whose alpha passes atLevel(alpha). `epsilon` and
    /// `curvatureWeight` serve the elastica-scored passes, which also need the energy copy.
    ThreeSourcePass(const ImageBuffer& src, const ImageBuffer& extraSrc1,
                    const ImageBuffer& extraSrc2, const PixelList& pix_list,
                    std::function<bool(float)> atLevel, int maskChannel, int patchRadius,
                    bool withEnergy, double epsilon = 0.0, double curvatureWeight = 0.0)
        : fill(src),
          steps(fill, pix_list, std::move(atLevel)),
          energy(withEnergy ? src : ImageBuffer()),
          colour{&src, &extraSrc1, &extraSrc2},
          compare{&fill, &extraSrc1, &extraSrc2},
          m_maskChannel(maskChannel),
          m_patchRadius(patchRadius),
          m_epsilon(epsilon),
          m_curvatureWeight(curvatureWeight) {
        assert(src.channels > AlphaChannel && maskChannel >= 0);
        assert(covers(extraSrc1, src, std::max(AlphaChannel, maskChannel) + 1));
        assert(covers(extraSrc2, src, std::max(AlphaChannel, maskChannel) + 1));
    }

    /// Holds the fills and alphas of the pass; source 0 is compared on it.
    ImageBuffer fill;
    /// The steps, in the fill order over the fill copy's alphas, which are written through it.
    PassState steps;
    /// Where the elastica-scored passes try candidate colours; empty otherwise.
    ImageBuffer energy;
    /// The sources in their order, and the image each is compared on.
    std::array<const ImageBuffer*, 3> colour;
    std::array<const ImageBuffer*, 3> compare;

    const ImageBuffer& src() const { return *colour[0]; }

    /// Asserts the margin the pixel being filled keeps from the edges of `src`.
    void assertMargin([[maybe_unused]] int margin) const {
        assert(keepsMargin(src(), steps.x, steps.y, std::max(margin, m_patchRadius)));
    }

    /// Whether the candidate of source s at (cx, cy) may serve a patch comparison.
    bool patchEligible(int cx, int cy, int s) const {
        return patchCandidate(*colour[s], src(), cx, cy, m_maskChannel, m_patchRadius);
    }

    /// The patch distance between the pixel being filled and the candidate of source s at
    /// (cx, cy).
    double distance(int cx, int cy, int s) const {
        return patchScore(fill, steps.x, steps.y, *compare[s], cx, cy, m_patchRadius);
    }

    /// The candidate of lowest patch distance, below 100000.
    Choice bestPatch(int searchRadius) const {
        return searchCandidates(
            src(), steps.x, steps.y, searchRadius, 1, 3, 100000.0,
            [&](int cx, int cy, int s) { return patchEligible(cx, cy, s); },
            [&](int cx, int cy, int s) { return distance(cx, cy, s); });
    }

    /// The elastica energy at the pixel being filled, in the energy copy.
    EnergyProbe probe() {
        return EnergyProbe(energy, steps.x, steps.y, m_epsilon, m_curvatureWeight);
    }

    /// Writes the colour of `choice` at the pixel being filled into the fill copy (with alpha
    /// `alpha`), the energy copy when there is one, and `out` (with the alpha too when
    /// `markOut`), and tracks the change against `src`.
    void apply(const Choice& choice, float alpha, ImageBuffer& out, bool markOut) {
        const ImageBuffer& from = *colour[static_cast<std::size_t>(choice.source)];
        copyColour(from, choice.x, choice.y, fill, steps.x, steps.y);
        steps.setAlpha(fill, alpha);
        if (energy.data != nullptr) {
            copyColour(from, choice.x, choice.y, energy, steps.x, steps.y);
        }
        copyColour(from, choice.x, choice.y, out, steps.x, steps.y);
        if (markOut) {
            setAlpha(out, steps.x, steps.y, alpha);
        }
        steps.record(src(), from, choice);
    }

private:
    int m_maskChannel;
    int m_patchRadius;
    double m_epsilon;
    double m_curvatureWeight;
};

}  // namespace

double inpaintMultiSourceSynthesis(const ImageBuffer* /*ignored*/, const ImageBuffer& extraSrc1,
                                   const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                   ImageBuffer& out, int maskChannel, const PixelList& pix_list,
                                   int searchRadius, int patchRadius, bool forward,
                                   float /*ignoredValue*/, double iteration) {
    assert(covers(out, src, AlphaChannel + 1));
    ThreeSourcePass pass(src, extraSrc1, extraSrc2, pix_list, approxLevel(alphaLevel(iteration)),
                         maskChannel, patchRadius, false);
    const float levelOut = alphaLevel(iteration + 1.0);
    bool picked = false;
    int source = 0;
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        // Without a pixel at the level the step treats the previous pick again, if any.
        picked = pass.steps.next(forward) || picked;
        if (!picked) {
            continue;
        }
        pass.assertMargin(1);
        Choice match = pass.bestPatch(searchRadius);
        // The last winner's source carries over, also to a step without a winner.
        if (match.found) {
            source = match.source;
        }
        match.source = source;
        pass.apply(match, levelOut, out, true);
    }
    return pass.steps.tally.maxChange;
}

double inpaintWeightedElasticaSynthesis(const ImageBuffer* /*ignored*/,
                                        const ImageBuffer& extraSrc1, const ImageBuffer& extraSrc2,
                                        const ImageBuffer& src, ImageBuffer& out, int maskChannel,
                                        const PixelList& pix_list, int searchRadius,
                                        int patchRadius, bool forward, double epsilon,
                                        double curvatureWeight, double /*ignoredValue*/,
                                        double patchWeight) {
    assert(covers(out, src, 3));
    ThreeSourcePass pass(
        src, extraSrc1, extraSrc2, pix_list, [](float alpha) { return alpha == 1.0f; }, maskChannel,
        patchRadius, true, epsilon, curvatureWeight);
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!pass.steps.next(forward)) {
            break;
        }
        pass.assertMargin(2);
        EnergyProbe probe = pass.probe();
        const Choice choice = searchCandidates(
            src, pass.steps.x, pass.steps.y, searchRadius, 1, 3, probe.current() + 100000.0,
            [&](int cx, int cy, int s) { return pass.patchEligible(cx, cy, s); },
            [&](int cx, int cy, int s) {
                return elasticaPatchScore(probe, *pass.colour[s], pass.fill, *pass.compare[s], cx,
                                          cy, patchRadius, patchWeight);
            });
        pass.apply(choice, 0.5f, out, false);
    }
    return pass.steps.tally.maxChange;
}

double inpaintSynthesisElasticaFallback(const ImageBuffer* /*ignored*/,
                                        const ImageBuffer& extraSrc1, const ImageBuffer& extraSrc2,
                                        const ImageBuffer& src, ImageBuffer& out, int maskChannel,
                                        const PixelList& pix_list, int searchRadius,
                                        int patchRadius, bool forward, double epsilon,
                                        double curvatureWeight, double iteration) {
    // A best patch this close is taken as it is; above it single pixels may lower the energy.
    constexpr double CloseMatch = 0.0005;
    assert(covers(out, src, AlphaChannel + 1));
    ThreeSourcePass pass(src, extraSrc1, extraSrc2, pix_list, approxLevel(alphaLevel(iteration)),
                         maskChannel, patchRadius, true, epsilon, curvatureWeight);
    const float levelOut = alphaLevel(iteration + 1.0);
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!pass.steps.next(forward)) {
            break;
        }
        pass.assertMargin(2);
        Choice choice = pass.bestPatch(searchRadius);
        if (choice.score > CloseMatch) {
            EnergyProbe probe = pass.probe();
            const Choice smoothest = searchCandidates(
                src, pass.steps.x, pass.steps.y, searchRadius, 1, 3, probe.current(),
                [&](int cx, int cy, int s) {
                    return sampleAt(*pass.colour[s], cx, cy, maskChannel) == 0.0f;
                },
                [&](int cx, int cy, int s) { return probe.tryColour(*pass.colour[s], cx, cy); });
            if (smoothest.found) {
                choice = smoothest;
            }
        }
        pass.apply(choice, levelOut, out, true);
    }
    return pass.steps.tally.maxChange;
}

}  // namespace quorblen
