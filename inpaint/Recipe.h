// Ready inpainting recipes: fill the hole of a photo without knowing the library's passes.
#pragma once

#include <iosfwd>
#include <span>
#include <string>

#include "image/ImageBuffer.h"
#include "image/Parameter.h"

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
    /// Three-source recipes: the second and third source of donor colours, with the width,
    /// height and channels of the image (alpha at the same plane, not read); null: the image.
    /// The mask holds for every source: its pixels in the hole donate nothing.
    const ImageBuffer* source2;
    const ImageBuffer* source3;
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

/// Fills the hole of `image` and returns the result: `image` with the hole pixels' colour
/// replaced, every other sample (alpha included) bit for bit as it was.
///
/// `alphaPlane` is the plane of `image` holding alpha (-1: none); the 1 to 3 other planes are
/// colour (1: grey). `mask` has the width and height of `image`; a pixel belongs to the hole
/// when sample 0 of `mask` is not 0. The hole may touch the image's edges: the recipe works on
/// the hole's surroundings padded beyond the edge. Progress, back-offs and the reason for
/// doing nothing go to `log`, one line each; the library's passes print their own summary
/// lines on standard output.
///
/// The exemplar recipes copy every colour they write from a known pixel of a source within
/// `searchRadius` of the hole pixel; they start from a first guess (each hole pixel coloured
/// like its nearest known pixel), which a pixel keeps when no donor lies within reach (`log`
/// counts such pixels).
///
/// A mask that marks no pixel returns `image` unchanged (saying so on `log`).
/// Throws std::invalid_argument for bad input: sizes that differ, no colour plane or more
/// than 3, a mask that marks every pixel (nothing to fill from), an option out of its range.
/// Throws std::runtime_error when a recipe fails (the elastica flow still diverging at a
/// small fraction of its time step), and std::bad_alloc.
ImageBuffer fillHole(const ImageBuffer& image, int alphaPlane, const ImageBuffer& mask,
                     const RecipeOptions& options, std::ostream& log);

}  // namespace quorblen
