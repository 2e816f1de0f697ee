// The patch-match recipe: coarse-to-fine patch match over a window around the hole.
#include <algorithm>
#include <cmath>
#include <vector>

#include "inpaint/PatchMatch.h"
#include "inpaint/RecipeRunner.h"

namespace quorblen::detail {
namespace {

constexpr InpaintRecipe patchMatchRecipes[] = {InpaintRecipe::PatchMatch};

/// `window` times the larger side of the hole's bounding box, plus the patch radius so that the
/// patches of the hole's outermost pixels stay inside: the window follows the hole's size, not
/// the image's. It stops at the image edge farthest from the box, beyond which it would only
/// add padding (a wire across the frame would otherwise pad the frame to several times its
/// size).
int patchMatchMargin(const RecipeOptions& options, const Region& holeBox, int width, int height) {
    const int side = std::max(holeBox.x1 - holeBox.x0, holeBox.y1 - holeBox.y0);
    const int farthestEdge =
        std::max({holeBox.x0, holeBox.y0, width - holeBox.x1, height - holeBox.y1});
    return int(std::min(std::ceil(options.window * side), double(farthestEdge))) +
           options.patchRadius;
}

/// The fill over the image and the sources given, each with its own hole.
void fillByPatchMatch(const RecipeJob& job, ImageBuffer& work) {
    const RecipeOptions& o = job.options;
    std::vector<ImageBuffer> sources;
    for (int k = 0; k < 2; ++k) {
        if (job.hasSource(k)) {
            sources.push_back(job.cutSource(k));
        }
    }
    work = quorblen::fillByPatchMatch(work, sources, job.colourChannels,
                                      {o.levels, o.rounds, o.patchRadius, o.threads}, job.name,
                                      job.log);
}

}  // namespace

const RecipeRunner patchMatchRunner{patchMatchRecipes, patchMatchMargin, fillByPatchMatch};

}  // namespace quorblen::detail
