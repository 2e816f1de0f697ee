// How fillHole hands a hole to the runner of a family of recipes; not part of the library's
// interface.
#pragma once

#include <cassert>
#include <iosfwd>
#include <span>
#include <string_view>

#include "image/ImageBuffer.h"
#include "inpaint/FirstGuess.h"
#include "inpaint/RecipeCatalogue.h"
#include "inpaint/WorkingImage.h"

namespace quorblen::detail {

/// One fillHole call as a runner sees it, its input checked.
struct RecipeJob {
    /// knownRange of the working image at the start, which also checked that the known colours
    /// are finite numbers.
    double colourRange;
    const RecipeOptions& options;
    /// The image's colour planes, 1 to 3 (the working image repeats the last).
    int colourChannels;
    /// The recipe's name, which begins each of its lines on `log`.
    const char* name;
    std::ostream& log;
    /// How the working image was cut from the image.
    int alphaPlane;
    const HoleFlags& hole;
    const Region& region;

    /// Whether extra source k (0: options.source2, 1: options.source3) is given.
    bool hasSource(int k) const { return (k == 0 ? options.source2 : options.source3) != nullptr; }

    /// The working image of extra source k (0: options.source2, 1: options.source3) cut as
    /// the image's was, so that it lines up with it: the same region and padding, its alpha
    /// and donor flag from the source's own mask (source2Mask, source3Mask) or, without one,
    /// from the image's hole. Every runner builds its sources here. Throws std::invalid_argument,
    /// naming the source, when a sample it knows is not a finite number.
    /// Precondition: hasSource(k) (fillHole checked its mask).
    ImageBuffer cutSource(int k) const {
        assert(hasSource(k));
        const ImageBuffer* mask = k == 0 ? options.source2Mask : options.source3Mask;
        ImageBuffer work =
            firstGuessWorkingImage(k == 0 ? *options.source2 : *options.source3, alphaPlane,
                                   mask != nullptr ? holeFlags(*mask) : hole, region);
        // A copied colour that is not a number would poison every later comparison.
        knownRange(work, k == 0 ? "source2" : "source3");
        return work;
    }

    /// Tells options.progress, if any, that `fraction` of the fill is done, in `stage`.
    void report(std::string_view stage, double fraction) const {
        if (options.progress != nullptr) {
            options.progress->update(stage, fraction);
        }
    }
};

/// A family of recipes, one file each: the recipes it runs, the margin its passes need and the
/// fill. A new family adds its recipes to the catalogue and its runner here and to fillHole's
/// list.
struct RecipeRunner {
    /// The recipes of the family; no other family runs them.
    std::span<const InpaintRecipe> recipes;
    /// How far outside the hole's bounding box `holeBox` (in an image of `width` x `height`)
    /// the working image reaches for `options`: the margin every hole pixel must keep from the
    /// working image's edges for the preconditions of the family's passes, and for them to
    /// reach every donor they may use.
    int (*margin)(const RecipeOptions& options, const Region& holeBox, int width, int height);
    /// Fills the hole of the working image `work` in place: on entry the hole's region cut
    /// from the image, its hole given the first guess, every hole pixel at least the margin
    /// inside it. Throws std::invalid_argument for input only the family reads (its sources),
    /// and std::runtime_error when the fill fails.
    void (*fill)(const RecipeJob& job, ImageBuffer& work);
};

/// TV and elastica diffusion.
extern const RecipeRunner diffusionRunner;

/// The exemplar recipes: passes that copy colours of known pixels.
extern const RecipeRunner exemplarRunner;

/// Coarse-to-fine patch match.
extern const RecipeRunner patchMatchRunner;

}  // namespace quorblen::detail
