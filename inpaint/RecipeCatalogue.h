// The catalogue of inpainting recipes: their names, options, ranges and defaults.
#pragma once

#include <span>
#include <string>
#include <variant>

#include "image/ImageBuffer.h"
#include "inpaint/RecipeProgress.h"

namespace quorblen {

/// A way of filling a hole: by diffusion (TV, Elastica) or by passes that copy colours of
/// known pixels (the others).
enum class InpaintRecipe {
    TV,
    Elastica,
    Texture,
    TextureTV,
    ElasticaTexture,
    TextureElastica,
    WeightedElastica,
    MultiSource,
    Fallback
};

/// A recipe's name (as the command line spells it) and what it does, in one line.
struct RecipeInfo {
    InpaintRecipe recipe;
    const char* name;
    const char* summary;
};

/// Every recipe, in the order the help lists them.
std::span<const RecipeInfo> inpaintRecipes();

/// The recipe called `name`; nullptr when there is none.
const RecipeInfo* findRecipe(const char* name);

/// How a recipe runs. Start from recipeDefaults(recipe), which holds every default;
/// recipeParameters() gives the range of each number.
struct RecipeOptions {
    InpaintRecipe recipe;
    /// Diffusion recipes: the most iterations; they stop earlier once the largest change of
    /// an iteration falls below `tolerance` (0 to MaxIterations).
    int iterations;
    /// Stopping threshold of the diffusion recipes, in sample units per unit of flow time
    /// (the largest change of an iteration divided by its time step, TV counting 1); 0 runs
    /// every iteration.
    double tolerance;
    /// TV: weight of a partly known pixel's own colour (at least 0).
    double lambda;
    /// Regularisation of gradient magnitudes and curvatures, in sample units (above 0).
    double epsilon;
    /// Elastica: the step of the explicit flow (above 0); halved automatically, restarting
    /// from the first guess, when the flow diverges.
    double timeStep;
    /// Exemplar recipes: passes over the hole, each refining what the previous one left.
    int passes;
    /// Exemplar recipes: half-width of the square of candidate donor pixels around a hole
    /// pixel, in pixels.
    int searchRadius;
    /// Exemplar recipes: half-width of the compared patches, in pixels.
    int patchRadius;
    /// Elastica-scored recipes: weight b of the curvature in the energy (1 + b kappa^2) |grad u|
    /// (at least 0; 0 scores total variation alone).
    double curvatureWeight;
    /// Recipes that add a patch distance to the energy: its weight (at least 0).
    double patchWeight;
    /// Threads a recipe may run on (0: one per core). The result does not depend on it.
    int threads;
    /// Three-source recipes: the second and third source of donor colours, with the width,
    /// height and channels of the image (alpha at the same plane, not read); null: the image.
    /// The mask holds for every source: its pixels in the hole donate nothing.
    const ImageBuffer* source2;
    const ImageBuffer* source3;
    /// Who hears how far the fill has got; null: nobody.
    RecipeProgress* progress;
};

/// The defaults of `recipe`.
RecipeOptions recipeDefaults(InpaintRecipe recipe);

/// A numeric option of the recipes, for callers that parse or document options: its name
/// (words joined by '-'), what it means with its unit, the field it sets and its range.
struct RecipeParameter {
    const char* name;
    const char* meaning;
    std::variant<int RecipeOptions::*, double RecipeOptions::*> field;
    double min;
    double max;  // HUGE_VAL: no upper limit
    bool minExclusive;
};

/// Every numeric option; fillHole checks each against its range.
std::span<const RecipeParameter> recipeParameters();

/// The value of `parameter` in `options`, as a double.
double parameterValue(const RecipeParameter& parameter, const RecipeOptions& options);

/// What is wrong with `value` for `parameter` ("must be at least 1 and at most 100, not 0"),
/// or an empty string when it lies in the range.
std::string parameterProblem(const RecipeParameter& parameter, double value);

/// The range of `parameter` in words: "0 to 1e+06", "0 (excluded) to 1", "above 0", ...
std::string parameterRange(const RecipeParameter& parameter);

/// The defaults of `parameter` over every recipe: "5", or "0.01 (elastica 0.1)" when some
/// recipes' defaults differ from the most common one.
std::string parameterDefaults(const RecipeParameter& parameter);

}  // namespace quorblen
