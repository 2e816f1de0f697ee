// The nearest-neighbour field of the patch-match fill: for every patch that overlaps the hole,
// a known patch like it, in the image or in an extra source, found by randomized search with
// propagation. Not part of the library's interface.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "inpaint/WorkerPool.h"

namespace quorblen::detail {

/// One level of the fill's pyramid: colours (`channels` floats per pixel, row by row, with
/// PatchRowSlack floats after the last pixel), which pixels are hole, and what the patches of
/// radius `radius` may serve as.
struct PatchLevel {
    int width = 0;
    int height = 0;
    int channels = 0;
    int radius = 0;
    std::vector<float> colour;
    std::vector<std::uint8_t> hole;
    /// Whether the patch centred on the pixel overlaps the hole (it then gets a match).
    std::vector<std::uint8_t> target;
    /// Whether the patch centred on the pixel lies wholly inside the level and outside the
    /// hole (it may then serve as a match).
    std::vector<std::uint8_t> donor;
    /// The donor centres, row by row.
    std::vector<int> donors;
    /// Steps between 4-neighbours from the pixel to the nearest known pixel (0 when known).
    std::vector<int> distance;

    std::size_t index(int x, int y) const { return std::size_t(y) * width + x; }
    const float* at(int x, int y) const { return colour.data() + index(x, y) * channels; }
    float* at(int x, int y) { return colour.data() + index(x, y) * channels; }
};

/// Floats a level's colour array holds past its last pixel: a patch row read in whole lanes may
/// run up to that far beyond its end.
inline constexpr int PatchRowSlack = 8;

/// Sizes a level of `width` x `height` pixels with `channels` colour channels and patch radius
/// `radius`; its colours are left to the caller.
PatchLevel makePatchLevel(int width, int height, int channels, int radius);

/// Fills the target, donor, donors and distance fields of `level` from its hole flags.
void classifyPatches(PatchLevel& level);

/// The images of one level that matches may lie in: the level being filled first, then the
/// extra sources' levels, all of one size, channel count and patch radius, each with its own
/// hole (its donors are its own). Only the first one's targets get matches.
using PatchImages = std::span<const PatchLevel>;

/// A match of the field: the image of the donor patch (an index into the level's PatchImages),
/// its centre, and the sum of squared colour differences to it over the target patch's pixels
/// inside the level.
struct PatchMatchEntry {
    int source = 0;
    int x = -1;
    int y = -1;
    float cost = 0.0f;
};

/// The nearest-neighbour field of a level: one entry per pixel, meaningful at targets.
using MatchField = std::vector<PatchMatchEntry>;

/// The donor patches of all of `images`.
std::size_t donorCount(PatchImages images);

/// The samples a target patch compares: its pixels inside the level times the channels.
int patchSamples(const PatchLevel& level, int x, int y);

/// A field for `images` whose every target holds a donor: for `coarse` (the field of the next
/// coarser level `coarser`, the one filled, or empty) each target takes its parent's match
/// doubled and shifted by its place within the parent, in the same image, where that is a
/// donor; the others take a donor of any image drawn by `seed`. Costs are left at 0.
/// Precondition: the images have at least one donor between them.
MatchField initialField(PatchImages images, const PatchLevel* coarser, const MatchField& coarse,
                        std::uint64_t seed);

/// Improves `field` over the current colours of images[0]: re-scores every target, keeping
/// instead the patch at the target's own place in an extra source where that is a donor and
/// closer (a locked-off shot's neighbouring frame shows the background there), then runs
/// `sweeps` sweeps of propagation from the neighbours and random search over the whole level
/// (in the image of the best match so far), alternately forward and backward. Targets are
/// treated in fixed tiles, each on one of the pool's threads; a tile sees its own targets' new
/// matches and the others' from before the sweep, so the result depends on `seed` but not on
/// the thread count.
void improveField(PatchImages images, MatchField& field, int sweeps, std::uint64_t seed,
                  WorkerPool& pool);

}  // namespace quorblen::detail
