// The large-hole fill: coarse-to-fine patch match over a pyramid of the hole's surroundings.
#pragma once

#include <iosfwd>
#include <span>

#include "image/ImageBuffer.h"

namespace quorblen {

/// How fillByPatchMatch runs.
struct PatchMatchSettings {
    /// The most pyramid levels, the full resolution included; 0: halve until the hole is at
    /// most four patch radii deep. A coarser level is made only while it keeps at least as
    /// many donor patches as hole pixels.
    int levels = 0;
    /// Rounds of search and vote per level.
    int rounds = 4;
    /// Half-width of the compared patches, in pixels.
    int patchRadius = 4;
    /// Threads to run on (0: one per core); the result is the same for every count.
    int threads = 0;
};

/// Fills the hole of the working image `work` (WorkChannels channels, see WorkingImage.h) by
/// patch match over an image pyramid, coarsest level first. On each level every patch that
/// overlaps the hole is matched with its most similar patch lying wholly in the known pixels
/// of `work` or of one of `sources`, by randomized search with propagation over the whole
/// level, the matches of the coarser level as the start; the patch at the target's own place
/// in a source is tried too, where a still neighbouring frame shows the background behind the
/// hole. Patches are compared by colour and by the strength of their texture. Each hole pixel
/// then takes the mean of the colours the overlapping matches give it, weighted by how well
/// each matches and how close to the known pixels it lies; on the two finest levels it takes
/// the colour of the match of largest weight instead, which keeps texture sharp.
/// The coarsest level starts from the working image's colours (the first guess), each finer
/// one from the coarser result enlarged. Known pixels and padding (known, not donors) never
/// change; padding takes no part. Returns `work` with the hole's colours replaced; the first
/// `colourChannels` channels are compared and filled, the later colour channels repeat the
/// last of them. Each level's summary goes to `log`, prefixed with `name`. A working image
/// whose sources with it hold no patch wholly known keeps its first guess (said on `log`).
/// `sources` (possibly none) are working images cut from other images as `work` was
/// (RecipeJob::cutSource), each with its own hole: alpha not 0, their known pixels donate.
/// Preconditions: settings.rounds >= 1, settings.patchRadius >= 1, 1 <= colourChannels <= 3,
/// every known colour sample finite, at least one hole pixel, every source of the size and
/// padding of `work`.
ImageBuffer fillByPatchMatch(const ImageBuffer& work, std::span<const ImageBuffer> sources,
                             int colourChannels, const PatchMatchSettings& settings,
                             const char* name, std::ostream& log);

}  // namespace quorblen
