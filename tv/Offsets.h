// The neighbour and transverse offset tables shared by the TV step and the inpainting kernels.
#pragma once

#include <array>

namespace quorblen {

struct Offset {
    int dx;
    int dy;
};

/// The four neighbour directions k = 0..3: right, down, left, up (+dy is the next row).
inline constexpr std::array<Offset, 4> NeighbourOffsets{{{+1, 0}, {0, +1}, {-1, 0}, {0, -1}}};

/// For each direction k, the offsets p1..p4 of the transverse sum ((u(p1) + u(p2)) - u(p3)) - u(p4)
/// across the edge between a pixel and its neighbour k: the two central differences across
/// direction k, at the pixel and at the neighbour.
inline constexpr std::array<std::array<Offset, 4>, 4> TransverseOffsets{{
    {{{+1, +1}, {0, +1}, {+1, -1}, {0, -1}}},
    {{{+1, +1}, {+1, 0}, {-1, +1}, {-1, 0}}},
    {{{-1, +1}, {0, +1}, {-1, -1}, {0, -1}}},
    {{{+1, -1}, {+1, 0}, {-1, -1}, {-1, 0}}},
}};

}  // namespace quorblen
