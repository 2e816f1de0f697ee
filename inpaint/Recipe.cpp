// Ready inpainting recipes: fill the hole of a photo without knowing the library's passes.
#include "inpaint/Recipe.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "inpaint/Driver.h"
#include "inpaint/ElasticaTextureSynthesis.h"
#include "inpaint/FirstGuess.h"
#include "inpaint/MultiSourceSynthesis.h"
#include "inpaint/TextureElastica.h"
#include "inpaint/TextureSynthesis.h"
#include "inpaint/TextureTV.h"
#include "inpaint/WorkingImage.h"

namespace quorblen {
namespace {

constexpr RecipeInfo recipeTable[] = {
    {InpaintRecipe::TV, "tv",
     "TV diffusion: smooth fill that keeps edges sharp; no texture (fast)"},
    {InpaintRecipe::Elastica, "elastica",
     "Euler's-elastica flow: continues level lines smoothly into the hole (slower)"},
    {InpaintRecipe::Texture, "texture",
     "copies the centres of best-matching patches, from the hole's edge inwards: texture"},
    {InpaintRecipe::TextureTV, "texture-tv",
     "copies the nearby known colour that leaves the image locally smoothest (fast)"},
    {InpaintRecipe::ElasticaTexture, "elastica-texture",
     "texture scored by patch match plus elastica energy: texture that continues edges"},
    {InpaintRecipe::TextureElastica, "texture-elastica",
     "copies the nearby known colour of least elastica energy; no patches (thin holes)"},
    {InpaintRecipe::WeightedElastica, "weighted-elastica",
     "elastica-texture drawing on up to three images (--source2, --source3)"},
    {InpaintRecipe::MultiSource, "multi-source",
     "texture drawing on up to three images (--source2, --source3)"},
    {InpaintRecipe::Fallback, "fallback",
     "multi-source; without a near-exact patch match, the known colour of least energy"},
};

/// Known pixels kept around the hole for the diffusion steps: the elastica step reads the
/// curvature of band pixels one pixel outside the hole, which must themselves be interior.
constexpr int DiffusionMargin = 2;

/// How often a diverging flow halves its time step before the recipe gives up.
constexpr int MaxBackOffs = 6;

/// Chatter counts only at a speed above this many times the known colours' range per unit of
/// flow time: a settled elastica flow on photos moves below 0.3, one that chatters at 7 to 50,
/// and early iterations from the first guess at up to about 3.
constexpr double ChatterSpeed = 4.0;

constexpr RecipeParameter parameterTable[] = {
    {"iterations", "most iterations of a diffusion method", &RecipeOptions::iterations, 0, 1e6,
     false},
    {"tolerance",
     "a diffusion method stops once no sample moves faster than this per unit of flow "
     "time (0: never)",
     &RecipeOptions::tolerance, 0, HUGE_VAL, false},
    {"lambda", "tv: weight of a partly known pixel's own colour", &RecipeOptions::lambda, 0,
     HUGE_VAL, false},
    {"epsilon", "regularisation of gradients and curvatures, in sample units",
     &RecipeOptions::epsilon, 0, HUGE_VAL, true},
    {"time-step", "elastica: step of the flow; halved by itself if the flow diverges",
     &RecipeOptions::timeStep, 0, 1, true},
    {"passes", "exemplar methods: passes over the hole, each refining the last",
     &RecipeOptions::passes, 1, 100, false},
    {"search-radius", "exemplar methods: half-width of the square searched for donors, in pixels",
     &RecipeOptions::searchRadius, 1, 100, false},
    {"patch-radius", "exemplar methods that compare patches: their half-width, in pixels",
     &RecipeOptions::patchRadius, 1, 20, false},
    {"curvature-weight",
     "elastica-texture, texture-elastica, weighted-elastica, fallback: weight b of the "
     "curvature in the energy (1 + b k^2) |grad u|",
     &RecipeOptions::curvatureWeight, 0, HUGE_VAL, false},
    {"patch-weight",
     "elastica-texture, weighted-elastica: weight of the patch distance (a mean squared "
     "colour difference) against the energy",
     &RecipeOptions::patchWeight, 0, HUGE_VAL, false},
};

void checkOptions(const RecipeOptions& options) {
    for (const RecipeParameter& p : parameterTable) {
        const std::string problem = parameterProblem(p, parameterValue(p, options));
        if (!problem.empty()) {
            throw std::invalid_argument(p.name + (" " + problem));
        }
    }
}

/// Throws std::invalid_argument unless `source` is null or shares the layout of `image`.
void checkSource(const char* what, const ImageBuffer* source, const ImageBuffer& image) {
    if (source != nullptr && (source->width != image.width || source->height != image.height ||
                              source->channels != image.channels)) {
        throw std::invalid_argument(
            std::string(what) + " is " + std::to_string(source->width) + " x " +
            std::to_string(source->height) + " x " + std::to_string(source->channels) +
            " but the image is " + std::to_string(image.width) + " x " +
            std::to_string(image.height) + " x " + std::to_string(image.channels));
    }
}

/// The largest minus the smallest colour sample of the known pixels of `work`, or 1 when they
/// are all equal: no stable step moves a pixel by more in one iteration.
/// Throws std::invalid_argument, naming `what`, when a known sample is not a finite number,
/// which no step could diffuse nor any comparison judge.
double knownRange(const ImageBuffer& work, const char* what = "the image") {
    float low = HUGE_VALF;
    float high = -HUGE_VALF;
    for (int i = 0; i < work.width * work.height; ++i) {
        const float* pixel = work.data + std::ptrdiff_t(i) * work.channels;
        if (pixel[WorkAlpha] == 0.0f) {
            if (!std::isfinite(pixel[0] + pixel[1] + pixel[2])) {
                throw std::invalid_argument(
                    std::string(what) +
                    " holds samples that are not finite numbers next to the hole");
            }
            low = std::min({low, pixel[0], pixel[1], pixel[2]});
            high = std::max({high, pixel[0], pixel[1], pixel[2]});
        }
    }
    return high > low ? double(high) - double(low) : 1.0;
}

bool allFinite(const ImageBuffer& image) {
    return std::all_of(image.data,
                       image.data + std::ptrdiff_t(image.width) * image.height * image.channels,
                       [](float v) { return std::isfinite(v); });
}

/// Whether the sample that moved most from `b` to `c`, by more than `fast`, had moved the
/// other way, by at least half as much, from `a` to `b`: three successive states of a flow
/// that chatters around its values instead of settling, as an explicit step too long for the
/// image does.
bool chatters(const ImageBuffer& a, const ImageBuffer& b, const ImageBuffer& c, int colourChannels,
              double fast) {
    float largest = 0.0f;
    std::ptrdiff_t fastest = -1;
    for (std::ptrdiff_t i = 0; i < std::ptrdiff_t(c.width) * c.height * c.channels; ++i) {
        if (i % c.channels < colourChannels && std::fabs(c.data[i] - b.data[i]) > largest) {
            largest = std::fabs(c.data[i] - b.data[i]);
            fastest = i;
        }
    }
    if (fastest < 0 || largest <= fast) {
        return false;
    }
    const float last = c.data[fastest] - b.data[fastest];
    const float before = b.data[fastest] - a.data[fastest];
    return last * before < 0.0f && std::fabs(before) > 0.5f * std::fabs(last);
}

/// Runs the diffusion `method` on the working image `start` until the largest change per
/// unit of flow time falls below the tolerance or the iterations run out. A run that
/// diverges (a change larger than the known colours' range, values that are not numbers,
/// or chatter at its end) starts again from `start` with half the time step and twice the
/// iterations.
ImageBuffer diffuse(const ImageBuffer& start, int method, const RecipeOptions& options,
                    int colourChannels, const char* name, std::ostream& log) {
    ImageBuffer work(start);
    double timeStep = options.timeStep;
    int iterations = options.iterations;
    const double limit = knownRange(start);
    DiffusionRun run(start, work, method, options.lambda, options.epsilon, timeStep,
                     colourChannels);
    for (int backOffs = 0;; ++backOffs) {
        int it = 0;
        double norm = 0.0;
        bool diverged = false;
        ImageBuffer recent[2];  // the states before the last two iterations
        while (it < iterations) {
            if (it >= iterations - 2) {
                recent[it - (iterations - 2)] = work;
            }
            norm = run.iterate();
            ++it;
            diverged = !(norm <= limit);
            // TV iterations are fixed-point sweeps, one unit of flow time each.
            const double flowTime = method == Elastica ? timeStep : 1.0;
            if (diverged || norm < options.tolerance * flowTime) {
                break;
            }
        }
        diverged =
            diverged || !allFinite(work) ||
            (method == Elastica && it == iterations && iterations >= 2 &&
             chatters(recent[0], recent[1], work, colourChannels, ChatterSpeed * limit * timeStep));
        if (!diverged) {
            log << name << ": " << it << " iterations; largest change of the last " << norm << "\n";
            return work;
        }
        // Only the explicit elastica flow has a step to shorten.
        if (method != Elastica || backOffs == MaxBackOffs) {
            throw std::runtime_error(
                std::string("the ") + name + " fill diverged" +
                (method == Elastica ? " even at time step " + std::to_string(timeStep) : "") +
                "; try a larger epsilon");
        }
        timeStep /= 2;
        iterations = std::min(iterations, std::numeric_limits<int>::max() / 2) * 2;
        log << name << ": unstable after " << it << " iterations; starting again from the first "
            << "guess with time step " << timeStep << "\n";
        run.restart(start, timeStep);
    }
}

bool isDiffusion(InpaintRecipe recipe) {
    return recipe == InpaintRecipe::TV || recipe == InpaintRecipe::Elastica;
}

/// The working image of `region` cut from `image` (the input or a source of the same layout),
/// its hole given the first guess: pixels beyond the image then repeat known colours only.
ImageBuffer workingImage(const ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                         const Region& region) {
    return cropWorkingImage(nearestKnownFill(colourPlanes(image, alphaPlane), hole), hole, region);
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

/// How many pixels of `list` have no donor of `work` in the square of half-width `radius`
/// around them; they keep the first guess.
std::size_t unreachedPixels(const ImageBuffer& work, const PixelList& list, int radius) {
    // Donors counted over every rectangle from the origin: any window's count in four reads.
    const int w = work.width;
    std::vector<int> sums(std::size_t(w + 1) * (work.height + 1), 0);
    for (int y = 0; y < work.height; ++y) {
        for (int x = 0; x < w; ++x) {
            const bool donor =
                work.data[std::ptrdiff_t(y) * work.stride + x * WorkChannels + WorkDonor] == 0.0f;
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

/// Runs pass d of the exemplar `options.recipe` and returns its largest colour change.
double runPass(const PassImages& p, const RecipeOptions& o, int d) {
    const bool forward = true;  // every pass starts its priority scans from the list's front
    switch (o.recipe) {
        case InpaintRecipe::TextureTV:
            return inpaintTextureTV(nullptr, p.before, p.work, WorkDonor, p.list, o.searchRadius);
        case InpaintRecipe::Texture:
            return inpaintTextureSynthesis(p.before, p.work, WorkDonor, p.list, o.searchRadius, d,
                                           o.patchRadius, forward);
        case InpaintRecipe::ElasticaTexture:
            // Fills in place and puts the hole back at alpha 1: every pass refines every pixel.
            return inpaintElasticaTextureSynthesis(p.before, p.work, WorkDonor, p.list,
                                                   o.searchRadius, o.epsilon, o.curvatureWeight,
                                                   o.patchWeight, o.patchRadius, forward);
        case InpaintRecipe::TextureElastica:
            // Donors have a smaller donor flag than the hole pixel: known pixels of the photo
            // only, whose colours in `before` and `work` agree.
            return inpaintTextureElastica(nullptr, p.before, p.work, WorkDonor, p.list,
                                          o.searchRadius, forward, o.epsilon, o.curvatureWeight, d);
        case InpaintRecipe::WeightedElastica:
            // Leaves alpha at 1: every pass refines every pixel, judged on the last one's colours.
            return inpaintWeightedElasticaSynthesis(
                nullptr, p.extra1, p.extra2, p.before, p.work, WorkDonor, p.list, o.searchRadius,
                o.patchRadius, forward, o.epsilon, o.curvatureWeight, 0.0, o.patchWeight);
        case InpaintRecipe::MultiSource:
            return inpaintMultiSourceSynthesis(nullptr, p.extra1, p.extra2, p.before, p.work,
                                               WorkDonor, p.list, o.searchRadius, o.patchRadius,
                                               forward, 0.0f, d);
        case InpaintRecipe::Fallback:
            return inpaintSynthesisElasticaFallback(
                nullptr, p.extra1, p.extra2, p.before, p.work, WorkDonor, p.list, o.searchRadius,
                o.patchRadius, forward, o.epsilon, o.curvatureWeight, d);
        default:
            assert(false && "not an exemplar recipe");
            return 0.0;
    }
}

/// Runs `options.passes` passes of an exemplar recipe on the working image `start`, pass d
/// with level d, each reading what the previous one wrote, alphas included: the passes that
/// fill one alpha level thereby move on to the next.
ImageBuffer fillByPasses(const ImageBuffer& start, const ImageBuffer& extra1,
                         const ImageBuffer& extra2, const RecipeOptions& options, const char* name,
                         std::ostream& log) {
    ImageBuffer work(start);
    PixelList list = unknownPixels(start);
    if (const std::size_t unreached = unreachedPixels(start, list, options.searchRadius)) {
        log << name << ": " << unreached << " of " << list.size()
            << " hole pixels have no known pixel within the search radius and keep the first "
               "guess\n";
    }
    for (int d = 0; d < options.passes; ++d) {
        ImageBuffer before(work);
        const double change = runPass({before, work, extra1, extra2, list}, options, d);
        log << name << ": pass " << d + 1 << " of " << options.passes << "; largest colour change "
            << change << "\n";
    }
    return work;
}

}  // namespace

std::span<const RecipeParameter> recipeParameters() {
    return parameterTable;
}

std::string parameterDefaults(const RecipeParameter& parameter) {
    std::vector<double> values;
    for (const RecipeInfo& info : recipeTable) {
        values.push_back(parameterValue(parameter, recipeDefaults(info.recipe)));
    }
    const auto count = [&](double value) {
        return std::count(values.begin(), values.end(), value);
    };
    const double usual = *std::max_element(values.begin(), values.end(),
                                           [&](double a, double b) { return count(a) < count(b); });
    std::string text = parameterText(parameter, usual);
    const char* separator = " (";
    for (std::size_t k = 0; k < values.size(); ++k) {
        if (values[k] != usual) {
            text += separator + std::string(recipeTable[k].name) + " " +
                    parameterText(parameter, values[k]);
            separator = ", ";
        }
    }
    return text + (count(usual) < std::ptrdiff_t(values.size()) ? ")" : "");
}

std::span<const RecipeInfo> inpaintRecipes() {
    return recipeTable;
}

const RecipeInfo* findRecipe(const char* name) {
    for (const RecipeInfo& info : recipeTable) {
        if (std::string(name) == info.name) {
            return &info;
        }
    }
    return nullptr;
}

RecipeOptions recipeDefaults(InpaintRecipe recipe) {
    RecipeOptions o{};
    o.recipe = recipe;
    o.lambda = 5.0;
    o.tolerance = 1e-4;
    // The exemplar defaults reach the centre of a 64 x 64 hole and fill it in seconds. A
    // patch distance is a mean of squared colour differences (well below 0.01 for a good
    // match on a photo) while the energy sums fifteen gradient magnitudes: the weight makes
    // the match lead and the energy settle near-ties.
    o.searchRadius = 32;
    o.patchRadius = 3;
    o.curvatureWeight = 1.0;
    o.patchWeight = 3000.0;
    // Passes that score by elastica cost several times more; a second pass of theirs barely
    // changes a photo.
    o.passes = 3;
    if (recipe == InpaintRecipe::ElasticaTexture || recipe == InpaintRecipe::TextureElastica ||
        recipe == InpaintRecipe::WeightedElastica || recipe == InpaintRecipe::Fallback) {
        o.passes = 1;
    }
    o.iterations = 500;
    o.epsilon = 0.01;
    o.timeStep = 0.01;
    if (recipe == InpaintRecipe::Elastica) {
        // The explicit flow is stable only for small steps, more so with a small epsilon.
        // At 0.01 it chatters or diverges on strokes over photos; 0.0025 holds on the
        // sample photos, and 4000 steps of it make the same flow time as 1000 of 0.01.
        o.iterations = 4000;
        o.epsilon = 0.1;
        o.timeStep = 0.0025;
    }
    return o;
}

ImageBuffer fillHole(const ImageBuffer& image, int alphaPlane, const ImageBuffer& mask,
                     const RecipeOptions& options, std::ostream& log) {
    const int colourCount = image.channels - (alphaPlane >= 0 ? 1 : 0);
    if (alphaPlane >= image.channels || colourCount < 1 || colourCount > 3) {
        throw std::invalid_argument("the image has " + std::to_string(colourCount) +
                                    " colour channels; 1 to 3 can be filled");
    }
    if (mask.width != image.width || mask.height != image.height || mask.channels < 1) {
        throw std::invalid_argument("the mask is " + std::to_string(mask.width) + " x " +
                                    std::to_string(mask.height) + " but the image is " +
                                    std::to_string(image.width) + " x " +
                                    std::to_string(image.height));
    }
    checkOptions(options);
    checkSource("source2", options.source2, image);
    checkSource("source3", options.source3, image);
    const HoleFlags hole = holeFlags(mask);
    const auto holePixels = std::count(hole.begin(), hole.end(), 1);
    if (holePixels == 0) {
        log << "the mask marks no pixel: nothing to fill\n";
        return image;
    }
    if (holePixels == std::ptrdiff_t(hole.size())) {
        throw std::invalid_argument("the mask marks every pixel, leaving nothing to fill from");
    }

    const RecipeInfo& info =
        *std::find_if(std::begin(recipeTable), std::end(recipeTable),
                      [&](const RecipeInfo& entry) { return entry.recipe == options.recipe; });
    // An exemplar pass reads a donor's 3 x 3 block and its patch up to searchRadius +
    // max(1, patchRadius) from a hole pixel, and needs every hole pixel at least 2 (energy
    // and total-variation stencils) and patchRadius inside its image: the region's margin
    // gives both, so the passes see every donor the whole image offers.
    const bool diffusion = isDiffusion(options.recipe);
    const Region region = holeRegion(
        hole, image.width, image.height,
        diffusion ? DiffusionMargin : options.searchRadius + std::max(2, options.patchRadius));
    const ImageBuffer start = workingImage(image, alphaPlane, hole, region);
    ImageBuffer work;
    if (diffusion) {
        work = diffuse(start, options.recipe == InpaintRecipe::Elastica ? Elastica : DigitalTV,
                       options, colourCount, info.name, log);
    } else {
        // A copied colour that is not a number would poison every later comparison.
        knownRange(start);
        ImageBuffer extras[2];
        const ImageBuffer* sources[2] = {options.source2, options.source3};
        const char* names[2] = {"source2", "source3"};
        for (int k = 0; k < 2; ++k) {
            extras[k] = sources[k] != nullptr ? workingImage(*sources[k], alphaPlane, hole, region)
                                              : withoutDonors(start);
            knownRange(extras[k], names[k]);
        }
        work = fillByPasses(start, extras[0], extras[1], options, info.name, log);
    }

    ImageBuffer result(image);
    pasteHole(work, region, hole, result, alphaPlane);
    return result;
}

}  // namespace quorblen
