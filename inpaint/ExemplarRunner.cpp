// The exemplar recipes: passes over the hole that copy colours of known pixels, each refining
// what the previous one left.
#include <algorithm>
#include <cassert>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "inpaint/Driver.h"
#include "inpaint/ElasticaTextureSynthesis.h"
#include "inpaint/MultiSourceSynthesis.h"
#include "inpaint/PassProgress.h"
#include "inpaint/PassThreads.h"
#include "inpaint/RecipeRunner.h"

namespace quorblen::detail {
namespace {

constexpr InpaintRecipe exemplarRecipes[] = {
    InpaintRecipe::Texture,         InpaintRecipe::TextureTV,        InpaintRecipe::ElasticaTexture,
    InpaintRecipe::TextureElastica, InpaintRecipe::WeightedElastica, InpaintRecipe::MultiSource,
    InpaintRecipe::Fallback};

/// An exemplar pass reads a donor's 3 x 3 block and its patch up to searchRadius +
/// max(1, patchRadius) from a hole pixel, and needs every hole pixel at least 2 (energy and
/// total-variation stencils) and patchRadius inside its image: the margin gives both, so the
/// passes see every donor the whole image offers.
int exemplarMargin(const RecipeOptions& options, const Region& /*holeBox*/, int /*width*/,
                   int /*height*/) {
    return options.searchRadius + std::max(2, options.patchRadius);
}

/// `work` with no pixel left to donate. An extra source that is the image itself offers
/// exactly the candidates of source 0, which wins every tie: passing it without donors gives
/// the same fill without scoring every candidate three times.
ImageBuffer withoutDonors(const ImageBuffer& work) {
    ImageBuffer copy(work);
    for (std::ptrdiff_t i = 0; i < std::ptrdiff_t(copy.width) * copy.height; ++i) {
        copy.data[i * WorkChannels + WorkDonor] = 1.0f;
    }
    return copy;
}

/// How many pixels of `list` have no donor of any of the working images `sources` (laid out
/// alike) in the square of half-width `radius` around them; they keep the first guess.
std::size_t unreachedPixels(std::span<const ImageBuffer* const> sources, const PixelList& list,
                            int radius) {
    const ImageBuffer& work = *sources.front();
    // Donors counted over every rectangle from the origin: any window's count in four reads.
    const int w = work.width;
    std::vector<int> sums(std::size_t(w + 1) * (work.height + 1), 0);
    for (int y = 0; y < work.height; ++y) {
        for (int x = 0; x < w; ++x) {
            const std::ptrdiff_t at = std::ptrdiff_t(y) * work.stride + x * WorkChannels;
            const bool donor = std::any_of(sources.begin(), sources.end(), [&](const auto* s) {
                return s->data[at + WorkDonor] == 0.0f;
            });
            sums[std::size_t(y + 1) * (w + 1) + x + 1] =
                donor + sums[std::size_t(y) * (w + 1) + x + 1] +
                sums[std::size_t(y + 1) * (w + 1) + x] - sums[std::size_t(y) * (w + 1) + x];
        }
    }
    const auto sumTo = [&](int x, int y) {
        return sums[std::size_t(std::clamp(y, 0, work.height)) * (w + 1) + std::clamp(x, 0, w)];
    };
    return std::size_t(std::count_if(list.begin(), list.end(), [&](const PixelEntry& p) {
        const int x0 = int(p.x) - radius;
        const int y0 = int(p.y) - radius;
        const int x1 = int(p.x) + radius + 1;
        const int y1 = int(p.y) + radius + 1;
        return sumTo(x1, y1) - sumTo(x0, y1) - sumTo(x1, y0) + sumTo(x0, y0) == 0;
    }));
}

/// The images of one exemplar pass: `before` the working image as the previous pass left it
/// (the passes' source), `work` the image the pass fills (a copy of `before` on entry), the
/// extra sources and the list of hole pixels.
struct PassImages {
    ImageBuffer& before;
    ImageBuffer& work;
    const ImageBuffer& extra1;
    const ImageBuffer& extra2;
    PixelList& list;
};

/// Runs pass d of the exemplar `options.recipe` on `pool` and returns its largest colour
/// change.
double runPass(WorkerPool& pool, const PassImages& p, const RecipeOptions& o, int d) {
    const bool forward = true;    // every pass starts its priority scans from the list's front
    const bool fillInOut = true;  // `work` holds `before`: it serves as the passes' copy
    switch (o.recipe) {
        case InpaintRecipe::TextureTV:
            return inpaintTextureTVOn(pool, p.before, p.work, WorkDonor, p.list, o.searchRadius,
                                      fillInOut);
        case InpaintRecipe::Texture:
            return inpaintTextureSynthesisOn(pool, p.before, p.work, WorkDonor, p.list,
                                             o.searchRadius, d, o.patchRadius, forward, fillInOut);
        case InpaintRecipe::ElasticaTexture:
            // Fills in place and puts the hole back at alpha 1: every pass refines every pixel.
            return inpaintElasticaTextureSynthesisOn(pool, p.before, p.work, WorkDonor, p.list,
                                                     o.searchRadius, o.epsilon, o.curvatureWeight,
                                                     o.patchWeight, o.patchRadius, forward);
        case InpaintRecipe::TextureElastica:
            // Donors have a smaller donor flag than the hole pixel: known pixels of the photo
            // only, whose colours in `before` and `work` agree.
            return inpaintTextureElasticaOn(pool, p.before, p.work, WorkDonor, p.list,
                                            o.searchRadius, forward, o.epsilon, o.curvatureWeight,
                                            d);
        case InpaintRecipe::WeightedElastica:
            // Leaves alpha at 1: every pass refines every pixel, judged on the last one's colours.
            return inpaintWeightedElasticaSynthesisOn(
                pool, p.extra1, p.extra2, p.before, p.work, WorkDonor, p.list, o.searchRadius,
                o.patchRadius, forward, o.epsilon, o.curvatureWeight, o.patchWeight);
        case InpaintRecipe::MultiSource:
            return inpaintMultiSourceSynthesisOn(pool, p.extra1, p.extra2, p.before, p.work,
                                                 WorkDonor, p.list, o.searchRadius, o.patchRadius,
                                                 forward, d, fillInOut);
        case InpaintRecipe::Fallback:
            return inpaintSynthesisElasticaFallbackOn(
                pool, p.extra1, p.extra2, p.before, p.work, WorkDonor, p.list, o.searchRadius,
                o.patchRadius, forward, o.epsilon, o.curvatureWeight, d, fillInOut);
        default:
            assert(false && "not an exemplar recipe");
            return 0.0;
    }
}

/// Runs `options.passes` passes of the exemplar recipe of `job` on its working image `work`,
/// pass d with level d, each reading what the previous one wrote, alphas included: the passes
/// that fill one alpha level thereby move on to the next. The extra sources are source2 and
/// source3 cut like the working image, or the working image without donors.
void fillByPasses(const RecipeJob& job, ImageBuffer& work) {
    const RecipeOptions& options = job.options;
    const bool threeSources = options.recipe == InpaintRecipe::WeightedElastica ||
                              options.recipe == InpaintRecipe::MultiSource ||
                              options.recipe == InpaintRecipe::Fallback;
    // A source given is cut, and so checked, whichever recipe runs; the image without donors
    // stands for both missing ones, and is made only for the recipes that read sources.
    ImageBuffer extras[2];
    ImageBuffer noDonors;
    const ImageBuffer* sources[2] = {&noDonors, &noDonors};
    for (int k = 0; k < 2; ++k) {
        if (job.hasSource(k)) {
            extras[k] = job.cutSource(k);
            sources[k] = &extras[k];
        } else if (threeSources && noDonors.data == nullptr) {
            noDonors = withoutDonors(work);
        }
    }
    PixelList list = unknownPixels(work);
    // Sources with their own masks may reach pixels the image cannot.
    const ImageBuffer* donors[] = {&work, sources[0], sources[1]};
    if (const std::size_t unreached =
            unreachedPixels(std::span(donors, threeSources ? 3 : 1), list, options.searchRadius)) {
        job.log << job.name << ": " << unreached << " of " << list.size()
                << " hole pixels have no known pixel within the search radius and keep the "
                   "first guess\n";
    }
    WorkerPool pool(options.threads);
    ImageBuffer before;  // one array for every pass
    for (int d = 0; d < options.passes; ++d) {
        const std::string stage = std::string(job.name) + ": pass " + std::to_string(d + 1) +
                                  " of " + std::to_string(options.passes);
        const auto share = [&](double within) { return (d + within) / options.passes; };
        job.report(stage, share(0.0));
        // The passes that pick by priority say how far through their list they are.
        const PassProgressScope progressScope(
            [&](double within) { job.report(stage, share(within)); });
        before = work;
        const double change =
            runPass(pool, {before, work, *sources[0], *sources[1], list}, options, d);
        job.report(stage, share(1.0));
        job.log << job.name << ": pass " << d + 1 << " of " << options.passes
                << "; largest colour change " << change << "\n";
    }
}

}  // namespace

const RecipeRunner exemplarRunner{exemplarRecipes, exemplarMargin, fillByPasses};

}  // namespace quorblen::detail
