// Ready inpainting recipes: the input checked, the hole cut out for its family's runner, the
// result pasted back.
#include "inpaint/Recipe.h"

#include <algorithm>
#include <cassert>
#include <ostream>
#include <stdexcept>
#include <string>

#include "inpaint/PassLog.h"
#include "inpaint/RecipeRunner.h"

namespace quorblen {
namespace {

using detail::RecipeRunner;

/// Every family of recipes; each recipe belongs to exactly one.
const RecipeRunner* const runners[] = {&detail::diffusionRunner, &detail::exemplarRunner,
                                       &detail::patchMatchRunner};

const RecipeRunner& runnerOf(InpaintRecipe recipe) {
    const auto runs = [&](const RecipeRunner* runner) {
        return std::find(runner->recipes.begin(), runner->recipes.end(), recipe) !=
               runner->recipes.end();
    };
    const auto* found = std::find_if(std::begin(runners), std::end(runners), runs);
    assert(found != std::end(runners) && "every recipe has a runner");
    return **found;
}

/// The number of colour planes of `image`, all but `alphaPlane`. Throws std::invalid_argument
/// unless there are 1 to 3.
int colourPlanes(const ImageBuffer& image, int alphaPlane) {
    const int colourCount = image.channels - (alphaPlane >= 0 ? 1 : 0);
    if (alphaPlane >= image.channels || colourCount < 1 || colourCount > 3) {
        throw std::invalid_argument("the image has " + std::to_string(colourCount) +
                                    " colour channels; 1 to 3 can be filled");
    }
    return colourCount;
}

void checkOptions(const RecipeOptions& options) {
    for (const RecipeParameter& p : recipeParameters()) {
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

/// Throws std::invalid_argument, naming `what`, unless `mask` has the size of `image`.
void checkMaskSize(const std::string& what, const ImageBuffer& mask, const ImageBuffer& image) {
    if (mask.width != image.width || mask.height != image.height || mask.channels < 1) {
        throw std::invalid_argument(what + " is " + std::to_string(mask.width) + " x " +
                                    std::to_string(mask.height) + " but the image is " +
                                    std::to_string(image.width) + " x " +
                                    std::to_string(image.height));
    }
}

/// Throws std::invalid_argument unless `mask`, the hole of source `what`, is null or has the
/// size of `image`, comes with its source and leaves a pixel of it known.
void checkSourceMask(const char* what, const ImageBuffer* mask, const ImageBuffer* source,
                     const ImageBuffer& image) {
    if (mask == nullptr) {
        return;
    }
    // Named in words every front end shares (the field, the keyword and the file differ).
    const std::string name = "the mask of " + std::string(what);
    checkMaskSize(name, *mask, image);
    if (source == nullptr) {
        throw std::invalid_argument(name + " is given without " + what);
    }
    const HoleFlags hole = holeFlags(*mask);
    if (std::count(hole.begin(), hole.end(), 1) == std::ptrdiff_t(hole.size())) {
        throw std::invalid_argument(name + " marks every pixel, leaving " + what +
                                    " nothing to donate");
    }
}

}  // namespace

void fillHoleInPlace(ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                     const RecipeOptions& options, std::ostream& log, std::ostream* passLines) {
    const int colourCount = colourPlanes(image, alphaPlane);
    if (hole.size() != std::size_t(image.width) * std::size_t(image.height)) {
        throw std::invalid_argument("the mask has " + std::to_string(hole.size()) +
                                    " pixels but the image has " +
                                    std::to_string(std::size_t(image.width) * image.height));
    }
    checkOptions(options);
    checkSource("source2", options.source2, image);
    checkSource("source3", options.source3, image);
    checkSourceMask("source2", options.source2Mask, options.source2, image);
    checkSourceMask("source3", options.source3Mask, options.source3, image);
    const auto holePixels = std::count(hole.begin(), hole.end(), 1);
    if (holePixels == 0) {
        log << "the mask marks no pixel: nothing to fill\n";
        return;
    }
    if (holePixels == std::ptrdiff_t(hole.size())) {
        throw std::invalid_argument("the mask marks every pixel, leaving nothing to fill from");
    }

    const std::span<const RecipeInfo> recipes = inpaintRecipes();
    const RecipeInfo& info =
        *std::find_if(recipes.begin(), recipes.end(),
                      [&](const RecipeInfo& entry) { return entry.recipe == options.recipe; });
    const RecipeRunner& runner = runnerOf(options.recipe);
    const Region box = holeRegion(hole, image.width, image.height, 0);
    const int margin = runner.margin(options, box, image.width, image.height);
    const Region region{box.x0 - margin, box.y0 - margin, box.x1 + margin, box.y1 + margin};
    ImageBuffer work = firstGuessWorkingImage(image, alphaPlane, hole, region);
    // No step could diffuse, nor any comparison judge, a known colour that is not a number.
    const double range = knownRange(work, "the image");
    const PassLogScope passScope(passLines != nullptr ? *passLines : passLog());
    const detail::RecipeJob job{range, options,    colourCount, info.name,
                                log,   alphaPlane, hole,        region};
    runner.fill(job, work);
    job.report(info.name, 1.0);
    pasteHole(work, region, hole, image, alphaPlane);
}

ImageBuffer fillHole(const ImageBuffer& image, int alphaPlane, const ImageBuffer& mask,
                     const RecipeOptions& options, std::ostream& log, std::ostream* passLines) {
    // The image's planes are judged before the mask, the mask before the options.
    colourPlanes(image, alphaPlane);
    checkMaskSize("the mask", mask, image);
    ImageBuffer result(image);
    fillHoleInPlace(result, alphaPlane, holeFlags(mask), options, log, passLines);
    return result;
}

}  // namespace quorblen
