// The catalogue of inpainting recipes: their names, options, ranges and defaults.
#include "inpaint/RecipeCatalogue.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace quorblen {
namespace {

constexpr RecipeInfo recipeTable[] = {
    {InpaintRecipe::TV, "tv",
     "TV diffusion: smooth fill that keeps edges sharp; no texture (fast)"},
    {InpaintRecipe::Elastica, "elastica",
     "Euler's-elastica flow: continues level lines smoothly into the hole (slower)"},
    {InpaintRecipe::Texture, "texture",
     "copies the centres of best-matching patches, from the hole's edge inwards: texture; "
     "thin holes (wires, scratches, text)"},
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
    {InpaintRecipe::PatchMatch, "patchmatch",
     "coarse-to-fine patch match over the hole's surroundings in up to three images "
     "(--source2, --source3): object-sized holes"},
};

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
    {"patch-radius",
     "exemplar methods that compare patches, and patchmatch: their half-width, in pixels",
     &RecipeOptions::patchRadius, 1, 20, false},
    {"curvature-weight",
     "elastica-texture, texture-elastica, weighted-elastica, fallback: weight b of the "
     "curvature in the energy (1 + b k^2) |grad u|",
     &RecipeOptions::curvatureWeight, 0, HUGE_VAL, false},
    {"patch-weight",
     "elastica-texture, weighted-elastica: weight of the patch distance (a mean squared "
     "colour difference) against the energy",
     &RecipeOptions::patchWeight, 0, HUGE_VAL, false},
    {"levels",
     "patchmatch: most pyramid levels, the full resolution included (0: halve until the hole "
     "is at most four patch radii deep)",
     &RecipeOptions::levels, 0, 16, false},
    {"rounds", "patchmatch: rounds of search and vote per pyramid level", &RecipeOptions::rounds, 1,
     100, false},
    {"window",
     "patchmatch: margin of known surroundings searched for matches around the hole's "
     "bounding box, in multiples of its larger side",
     &RecipeOptions::window, 0, 100, true},
    {"threads", "threads to run on, 0 for one per core; the result does not depend on it",
     &RecipeOptions::threads, 0, 1024, false},
};

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
    // Patch match compares larger patches: they hold more of an object's shape.
    if (recipe == InpaintRecipe::PatchMatch) {
        o.patchRadius = 4;
    }
    o.curvatureWeight = 1.0;
    o.patchWeight = 3000.0;
    o.levels = 0;
    o.rounds = 4;
    o.window = 1.0;
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

}  // namespace quorblen
