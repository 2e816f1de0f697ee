// The pixel lists the inpainting routines work on.
#pragma once

#include <cstdint>
#include <vector>

namespace quorblen {

/// One pixel to fill: its column, row and a tag (-1 when the list is built) that moves
/// with the entry when a pass reorders the list.
struct PixelEntry {
    std::uint32_t x;
    std::uint32_t y;
    std::int32_t tag;
};

/// Pixels to fill, in an order that decides ties.
using PixelList = std::vector<PixelEntry>;

/// A pixel of the diffusion driver's band list.
struct PixelCoord {
    std::int32_t x;
    std::int32_t y;
};
using BandList = std::vector<PixelCoord>;

/// What `highestPriorityPixel` returns when it selects nothing; never an index.
inline constexpr std::uint32_t NoPixel = 0xFFFFFFFFu;

/// The step the diffusion driver runs.
enum InpaintMethod : int { DigitalTV = 0, DualTV = 1, Elastica = 2 };

}  // namespace quorblen
