// Ready inpainting recipes: fill the hole of a photo without knowing the library's passes.
#include "inpaint/Recipe.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "inpaint/Driver.h"
#include "inpaint/FirstGuess.h"
#include "inpaint/WorkingImage.h"

namespace quorblen {
namespace {

constexpr RecipeInfo recipeTable[] = {
    {InpaintRecipe::TV, "tv",
     "TV diffusion: smooth fill that keeps edges sharp; no texture (fast)"},
    {InpaintRecipe::Elastica, "elastica",
     "Euler's-elastica flow: continues level lines smoothly into the hole (slower)"},
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
    {"patch-radius", "exemplar methods: half-width of the compared patches, in pixels",
     &RecipeOptions::patchRadius, 1, 20, false},
    {"curvature-weight", "elastica-scored methods: weight b of the curvature, (1 + b k^2) |grad u|",
     &RecipeOptions::curvatureWeight, 0, HUGE_VAL, false},
    {"patch-weight", "methods that add a patch distance to the energy: its weight",
     &RecipeOptions::patchWeight, 0, HUGE_VAL, false},
};

void checkOptions(const RecipeOptions& options) {
    for (const RecipeParameter& p : parameterTable) {
        const double value = parameterValue(p, options);
        if (!(value >= p.min && value <= p.max) || (p.minExclusive && value == p.min)) {
            std::ostringstream message;
            message << p.name << " must be " << (p.minExclusive ? "above " : "at least ") << p.min;
            if (p.max < HUGE_VAL) {
                message << " and at most " << p.max;
            }
            message << ", not " << value;
            throw std::invalid_argument(message.str());
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
/// Throws std::invalid_argument when a known sample is not a finite number, which no step
/// could diffuse.
double knownRange(const ImageBuffer& work) {
    float low = HUGE_VALF;
    float high = -HUGE_VALF;
    for (int i = 0; i < work.width * work.height; ++i) {
        const float* pixel = work.data + std::ptrdiff_t(i) * work.channels;
        if (pixel[WorkAlpha] == 0.0f) {
            if (!std::isfinite(pixel[0] + pixel[1] + pixel[2])) {
                throw std::invalid_argument(
                    "the image holds samples that are not finite numbers next to the hole");
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

}  // namespace

std::span<const RecipeParameter> recipeParameters() {
    return parameterTable;
}

double parameterValue(const RecipeParameter& parameter, const RecipeOptions& options) {
    return std::visit([&](auto field) { return double(options.*field); }, parameter.field);
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
    o.passes = 3;
    o.searchRadius = 12;
    o.patchRadius = 2;
    o.curvatureWeight = 30.0;
    o.patchWeight = 1.0;
    switch (recipe) {
        case InpaintRecipe::TV:
            o.iterations = 500;
            o.epsilon = 0.01;
            o.timeStep = 0.01;
            break;
        case InpaintRecipe::Elastica:
            // The explicit flow is stable only for small steps, more so with a small epsilon.
            // At 0.01 it chatters or diverges on strokes over photos; 0.0025 holds on the
            // sample photos, and 4000 steps of it make the same flow time as 1000 of 0.01.
            o.iterations = 4000;
            o.epsilon = 0.1;
            o.timeStep = 0.0025;
            break;
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

    const ImageBuffer guess = nearestKnownFill(colourPlanes(image, alphaPlane), hole);
    const Region region = holeRegion(hole, image.width, image.height, DiffusionMargin);
    const ImageBuffer start = cropWorkingImage(guess, hole, region);
    const RecipeInfo& info =
        *std::find_if(std::begin(recipeTable), std::end(recipeTable),
                      [&](const RecipeInfo& entry) { return entry.recipe == options.recipe; });
    const int method = options.recipe == InpaintRecipe::Elastica ? Elastica : DigitalTV;
    const ImageBuffer work = diffuse(start, method, options, colourCount, info.name, log);

    ImageBuffer result(image);
    pasteHole(work, region, hole, result, alphaPlane);
    return result;
}

}  // namespace quorblen
