// The catalogue of inpainting recipes: their names, options, ranges and defaults.
#pragma once

#include <span>
#include <string>

#include "image/ImageBuffer.h"
#include "image/Parameter.h"
#include "inpaint/RecipeProgress.h"

namespace quorblen {

/// A way of filling a hole: by diffusion (TV, Elastica), by passes that copy colours of known
/// pixels (Texture to Fallback; best for thin holes: wires, scratches, text), or by
/// coarse-to-fine patch match (PatchMatch; best for object-sized holes).
enum class InpaintRecipe {
    TV,
    Elastica,
    Texture,
    TextureTV,
    ElasticaTexture,
    TextureElastica,
    WeightedElastica,
    MultiSource,
    Fallback,
    PatchMatch
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
    /// Exemplar and patch-match recipes: half-width of the compared patches, in pixels.
    int patchRadius;
    /// Elastica-scored recipes: weight b of the curvature in the energy (1 + b kappa^2) |grad u|
    /// (at least 0; 0 scores total variation alone).
    double curvatureWeight;
    /// Recipes that add a patch distance to the energy: its weight (at least 0).
    double patchWeight;
    /// Patch match: the most pyramid levels, the full resolution included; 0 halves until the
    /// hole is at most four patch radii deep.
    int levels;
    /// Patch match: rounds of search and vote per level (at least 1).
    int rounds;
    /// Patch match: the known surroundings searched for matches, as the margin around the
    /// hole's bounding box in multiples of its larger side (above 0).
    double window;
    /// Threads a recipe may run on (0: one per core). The result does not depend on it.
    int threads;
    /// Three-source recipes and patch match: the second and third source of donor colours,
    /// with the width, height and channels of the image (alpha at the same plane, not read);
    /// null: the image (patch match: none).
    const ImageBuffer* source2;
    const ImageBuffer* source3;
    /// The holes of source2 and source3 (a neighbouring frame's own matte): the width and
    /// height of the image, a pixel in the hole where sample 0 is not 0. A source's pixels in
    /// its hole donate nothing and its other pixels donate, those behind the image's hole
    /// included. Null: the image's mask holds for that source. Each needs its source and must
    /// leave a pixel of it known.
    const ImageBuffer* source2Mask;
    const ImageBuffer* source3Mask;
    /// Who hears how far the fill has got; null: nobody.
    RecipeProgress* progress;
};

/// The defaults of `recipe`.
RecipeOptions recipeDefaults(InpaintRecipe recipe);

/// A numeric option of the recipes, for callers that parse or document options
/// (image/Parameter.h has the words for its range and mistakes).
using RecipeParameter = Parameter<RecipeOptions>;

/// Every numeric option; fillHole checks each against its range.
std::span<const RecipeParameter> recipeParameters();

/// The defaults of `parameter` over every recipe: "5", or "0.01 (elastica 0.1)" when some
/// recipes' defaults differ from the most common one.
std::string parameterDefaults(const RecipeParameter& parameter);

}  // namespace quorblen
