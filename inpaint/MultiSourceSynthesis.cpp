// The three-source exemplar passes: by patch distance, weighted with the elastica energy, and
// with an elastica fallback.
#include "inpaint/MultiSourceSynthesis.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <functional>
#include <utility>

#include "inpaint/EnergyTrials.h"
#include "inpaint/FastSearch.h"
#include "inpaint/PassState.h"
#include "inpaint/PassThreads.h"

namespace quorblen {
namespace {

using namespace detail;

/// The working state of one three-source pass.
class ThreeSourcePass {
public:
    /// The pass fills the entries of pix_list whose alpha passes atLevel(alpha), its searches
    /// running on `pool`. The fills go to `*fillIn` when given, which holds `src` on entry,
    /// else to a copy of `src`. `epsilon` and `curvatureWeight` serve the elastica-scored
    /// passes.
    ThreeSourcePass(WorkerPool& pool, const ImageBuffer& src, const ImageBuffer& extraSrc1,
                    const ImageBuffer& extraSrc2, const PixelList& pix_list,
                    std::function<bool(float)> atLevel, int maskChannel, int patchRadius,
                    int searchRadius, ImageBuffer* fillIn, double epsilon = 0.0,
                    double curvatureWeight = 0.0)
        : m_copy(fillIn != nullptr ? ImageBuffer() : src),
          fill(fillIn != nullptr ? *fillIn : m_copy),
          steps(fill, pix_list, std::move(atLevel)),
          colour{&src, &extraSrc1, &extraSrc2},
          compare{&fill, &extraSrc1, &extraSrc2},
          trials(pool.size(), epsilon, curvatureWeight),
          m_pool(pool),
          m_maskChannel(maskChannel),
          m_patchRadius(patchRadius),
          m_searchRadius(searchRadius),
          m_epsilon(epsilon),
          m_curvatureWeight(curvatureWeight) {
        assert(src.channels > AlphaChannel && maskChannel >= 0);
        assert(covers(extraSrc1, src, std::max(AlphaChannel, maskChannel) + 1));
        assert(covers(extraSrc2, src, std::max(AlphaChannel, maskChannel) + 1));
        // Planes only for sources that offer candidates: an extra source without donors
        // costs nothing.
        for (std::size_t s = 0; s < 3; ++s) {
            m_candidates[s] = CandidateMap(*colour[s], src, maskChannel, patchRadius);
            if (m_candidates[s].any()) {
                m_planes[s] = PatchPlanes(*compare[s], src.width, src.height, patchRadius);
            }
            m_sources[s] = {colour[s], m_candidates[s].any() ? &m_planes[s] : nullptr,
                            &m_candidates[s]};
        }
    }

private:
    ImageBuffer m_copy;  // the fill copy when the pass owns it

public:
    /// Holds the fills and alphas of the pass; source 0 is compared on it, and the elastica
    /// energy, which reads colours only, is taken on it.
    ImageBuffer& fill;
    /// The steps, in the fill order over the fill copy's alphas, which are written through it.
    PassState steps;
    /// The sources in their order, and the image each is compared on.
    std::array<const ImageBuffer*, 3> colour;
    std::array<const ImageBuffer*, 3> compare;

    const ImageBuffer& src() const { return *colour[0]; }

    /// Asserts the margin the pixel being filled keeps from the edges of `src`.
    void assertMargin([[maybe_unused]] int margin) const {
        assert(keepsMargin(src(), steps.x, steps.y, std::max(margin, m_patchRadius)));
    }

    /// The patch search's choice with score(distance) * patchWeight +
    /// energy(worker, colour) for each candidate below `start`, or the distance alone.
    template <class Energy>
    Choice searchPatch(double start, double patchWeight, bool prunable, Energy energy) {
        const int x = int(steps.x);
        const int y = int(steps.y);
        const PatchSearch search{m_pool, fastestPatchLanes(), src(), m_searchRadius, m_sources};
        const PatchTarget target(fill, x, y, m_patchRadius, src().height);
        const Choice choice = searchPatches(search, x, y, target, start, patchWeight, prunable,
                                            m_seeds.seedFor(x, y), energy);
        m_seeds.record(x, y, choice);
        return choice;
    }

    /// The candidate of lowest patch distance, below 100000.
    Choice bestPatch() { return searchPatch(100000.0, 1.0, true, NoEnergy{}); }

    /// The candidate of lowest distance * patchWeight + energy at the pixel being filled with
    /// its colour, below the energy of the present colour plus 100000.
    Choice bestWeighted(double patchWeight) {
        trials.load(fill, int(steps.x), int(steps.y));
        const bool prunable = elasticaPrunable(patchWeight, m_curvatureWeight);
        return searchPatch(probe().current() + 100000.0, patchWeight, prunable,
                           [&](int worker, const float* c) { return trials.energy(worker, c); });
    }

    /// The single known pixel of the window whose colour gives the lowest energy at the pixel
    /// being filled, below that of its present colour.
    Choice smoothest() {
        const int x = int(steps.x);
        const int y = int(steps.y);
        if (!m_columnsMade) {
            // The sources are read-only: their colour and mask columns serve the whole pass;
            // a source without a known pixel offers nothing.
            for (std::size_t s = 0; s < 3; ++s) {
                if (offersColours(*colour[s])) {
                    m_columnPlanes[s] = ColumnPlanes(*colour[s], src().width, src().height,
                                                     {0, 1, 2, m_maskChannel});
                    m_columns[s] = &m_columnPlanes[s];
                }
            }
            m_columnsMade = true;
        }
        trials.load(fill, x, y);
        return searchByEnergy(
            m_pool, src(), x, y, m_searchRadius, 1, m_columns, probe().current(),
            [](float mask) { return mask == 0.0f; },
            [&](int worker, const float* colours, std::size_t n, double* scores) {
                trials.energies(worker, colours, n, scores);
            });
    }

    /// Whether sample m_maskChannel of `source` is 0.0 at some pixel of src's extent.
    bool offersColours(const ImageBuffer& source) const {
        for (int y = 0; y < src().height; ++y) {
            for (int x = 0; x < src().width; ++x) {
                if (sampleAt(source, x, y, m_maskChannel) == 0.0f) {
                    return true;
                }
            }
        }
        return false;
    }

    /// The elastica energy at the pixel being filled.
    EnergyProbe probe() {
        return EnergyProbe(fill, steps.x, steps.y, m_epsilon, m_curvatureWeight);
    }

    /// Writes the colour of `choice` at the pixel being filled into the fill copy (with alpha
    /// `alpha`) and `out` when it is not the fill copy (with the alpha too when `markOut`, as
    /// it must be for the fill copy), and tracks the change against `src`.
    void apply(const Choice& choice, float alpha, ImageBuffer& out, bool markOut) {
        assert(markOut || &out != &fill);
        const ImageBuffer& from = *colour[static_cast<std::size_t>(choice.source)];
        copyColour(from, choice.x, choice.y, fill, steps.x, steps.y);
        steps.setAlpha(fill, alpha);
        if (m_sources[0].planes != nullptr) {
            m_planes[0].refresh(fill, int(steps.x), int(steps.y));
        }
        if (&out != &fill) {
            copyColour(from, choice.x, choice.y, out, steps.x, steps.y);
            if (markOut) {
                setAlpha(out, steps.x, steps.y, alpha);
            }
        }
        steps.record(src(), from, choice);
    }

    /// Each worker's copy of the neighbourhood of the pixel being filled in the fill copy.
    EnergyTrials trials;

private:
    WorkerPool& m_pool;
    int m_maskChannel;
    int m_patchRadius;
    int m_searchRadius;
    double m_epsilon;
    double m_curvatureWeight;
    std::array<CandidateMap, 3> m_candidates;
    std::array<PatchPlanes, 3> m_planes;
    std::array<PatchSource, 3> m_sources;
    std::array<ColumnPlanes, 3> m_columnPlanes;  // made at the first energy search
    std::array<const ColumnPlanes*, 3> m_columns{};
    bool m_columnsMade = false;
    SeedTracker m_seeds;
};

}  // namespace

double inpaintMultiSourceSynthesis(const ImageBuffer* /*ignored*/, const ImageBuffer& extraSrc1,
                                   const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                   ImageBuffer& out, int maskChannel, const PixelList& pix_list,
                                   int searchRadius, int patchRadius, bool forward,
                                   float /*ignoredValue*/, double iteration) {
    WorkerPool pool(1);
    return inpaintMultiSourceSynthesisOn(pool, extraSrc1, extraSrc2, src, out, maskChannel,
                                         pix_list, searchRadius, patchRadius, forward, iteration);
}

double inpaintWeightedElasticaSynthesis(const ImageBuffer* /*ignored*/,
                                        const ImageBuffer& extraSrc1, const ImageBuffer& extraSrc2,
                                        const ImageBuffer& src, ImageBuffer& out, int maskChannel,
                                        const PixelList& pix_list, int searchRadius,
                                        int patchRadius, bool forward, double epsilon,
                                        double curvatureWeight, double /*ignoredValue*/,
                                        double patchWeight) {
    WorkerPool pool(1);
    return inpaintWeightedElasticaSynthesisOn(pool, extraSrc1, extraSrc2, src, out, maskChannel,
                                              pix_list, searchRadius, patchRadius, forward, epsilon,
                                              curvatureWeight, patchWeight);
}

double inpaintSynthesisElasticaFallback(const ImageBuffer* /*ignored*/,
                                        const ImageBuffer& extraSrc1, const ImageBuffer& extraSrc2,
                                        const ImageBuffer& src, ImageBuffer& out, int maskChannel,
                                        const PixelList& pix_list, int searchRadius,
                                        int patchRadius, bool forward, double epsilon,
                                        double curvatureWeight, double iteration) {
    WorkerPool pool(1);
    return inpaintSynthesisElasticaFallbackOn(pool, extraSrc1, extraSrc2, src, out, maskChannel,
                                              pix_list, searchRadius, patchRadius, forward, epsilon,
                                              curvatureWeight, iteration);
}

namespace detail {

double inpaintMultiSourceSynthesisOn(WorkerPool& pool, const ImageBuffer& extraSrc1,
                                     const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                     ImageBuffer& out, int maskChannel, const PixelList& pix_list,
                                     int searchRadius, int patchRadius, bool forward,
                                     double iteration, bool fillInOut) {
    assert(covers(out, src, AlphaChannel + 1));
    ThreeSourcePass pass(pool, src, extraSrc1, extraSrc2, pix_list,
                         approxLevel(alphaLevel(iteration)), maskChannel, patchRadius, searchRadius,
                         fillInOut ? &out : nullptr);
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
        Choice match = pass.bestPatch();
        // The last winner's source carries over, also to a step without a winner.
        if (match.found) {
            source = match.source;
        }
        match.source = source;
        pass.apply(match, levelOut, out, true);
    }
    return pass.steps.tally.maxChange;
}

double inpaintWeightedElasticaSynthesisOn(WorkerPool& pool, const ImageBuffer& extraSrc1,
                                          const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                          ImageBuffer& out, int maskChannel,
                                          const PixelList& pix_list, int searchRadius,
                                          int patchRadius, bool forward, double epsilon,
                                          double curvatureWeight, double patchWeight) {
    assert(covers(out, src, 3));
    ThreeSourcePass pass(
        pool, src, extraSrc1, extraSrc2, pix_list, [](float alpha) { return alpha == 1.0f; },
        maskChannel, patchRadius, searchRadius, nullptr, epsilon, curvatureWeight);
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!pass.steps.next(forward)) {
            break;
        }
        pass.assertMargin(2);
        // Colours are tried in the workers' copies of the fill copy's neighbourhood, which no
        // patch distance reads.
        pass.apply(pass.bestWeighted(patchWeight), 0.5f, out, false);
    }
    return pass.steps.tally.maxChange;
}

double inpaintSynthesisElasticaFallbackOn(WorkerPool& pool, const ImageBuffer& extraSrc1,
                                          const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                          ImageBuffer& out, int maskChannel,
                                          const PixelList& pix_list, int searchRadius,
                                          int patchRadius, bool forward, double epsilon,
                                          double curvatureWeight, double iteration,
                                          bool fillInOut) {
    // A best patch this close is taken as it is; above it single pixels may lower the energy.
    constexpr double CloseMatch = 0.0005;
    assert(covers(out, src, AlphaChannel + 1));
    ThreeSourcePass pass(pool, src, extraSrc1, extraSrc2, pix_list,
                         approxLevel(alphaLevel(iteration)), maskChannel, patchRadius, searchRadius,
                         fillInOut ? &out : nullptr, epsilon, curvatureWeight);
    const float levelOut = alphaLevel(iteration + 1.0);
    for (std::size_t step = 0; step < pix_list.size(); ++step, forward = !forward) {
        if (!pass.steps.next(forward)) {
            break;
        }
        pass.assertMargin(2);
        Choice choice = pass.bestPatch();
        if (choice.score > CloseMatch) {
            const Choice smoothest = pass.smoothest();
            if (smoothest.found) {
                choice = smoothest;
            }
        }
        pass.apply(choice, levelOut, out, true);
    }
    return pass.steps.tally.maxChange;
}

}  // namespace detail
}  // namespace quorblen
