// The vector kernels of the diffusion iterations, built once per instruction set, and the lane
// groups they update; not part of the library's interface.
#pragma once

#include <cstddef>
#include <vector>

#include "inpaint/PixelList.h"

namespace quorblen::detail {

/// Pixels a kernel updates at once, on every instruction set.
inline constexpr int GroupLanes = 4;

/// Pixels of one row run of a list that a kernel updates together, as indices y * width + x
/// into planes of the image's size. A full group holds four neighbours from left to right, so
/// that every stencil sample of the four loads at once; a group short of four (the end of a
/// run) repeats its last pixel, which the kernel then updates more than once to one value.
struct LaneGroup {
    std::ptrdiff_t pixel[GroupLanes];
};

/// The groups of `list` (an image `width` pixels wide): each run of neighbours in a row, in
/// list order, cut into groups of four from its start.
std::vector<LaneGroup> laneGroups(const PixelList& list, int width);
std::vector<LaneGroup> laneGroups(const BandList& list, int width);

/// One colour plane of a diffusion step: the values `u` of the previous iteration, the plane
/// `v` the step writes its group pixels to, and the interleaved image that receives them too,
/// at out[(y * width + x) * outStep] (null: none). Planes hold one float per pixel, row after
/// row.
struct SweepPlane {
    const float* u;
    float* v;
    float* out;
    int outStep;
    std::ptrdiff_t width;
};

/// The elastica fields of one colour plane: gradient magnitude G, curvature K and their
/// product KG, planes as above.
struct FieldPlanes {
    float* gradient;
    float* curvature;
    float* product;
};

/// The per-pixel work of the diffusion steps over lane groups. Every instruction set gives the
/// bits of the scalar steps (tvInpaintStep, elasticaInpaintStep): each lane does the scalar
/// operations in the scalar order. Every group pixel and the pixels its stencil reads must lie
/// inside the planes' image (the steps' interior-pixel precondition).
struct SweepKernels {
    /// tvInpaintStep on `plane` for `count` groups: `selfWeights` holds lambda * (1 - alpha)
    /// rounded to float for each lane of each group. Returns the largest |old - new| (before
    /// rounding to float); a NaN change never enters it.
    double (*tvSweep)(const LaneGroup* groups, std::size_t count, const float* selfWeights,
                      const SweepPlane& plane, double eps2);
    /// The first pass of elasticaInpaintStep: G, K and KG of plane.u at the `count` groups of
    /// band pixels. Reads u only.
    void (*elasticaFields)(const LaneGroup* band, std::size_t count, const SweepPlane& plane,
                           double eps2, const FieldPlanes& fields);
    /// The second pass of elasticaInpaintStep for `count` groups, from fields made by
    /// elasticaFields (0 off the band). Returns the largest change as tvSweep does.
    double (*elasticaSweep)(const LaneGroup* groups, std::size_t count, const SweepPlane& plane,
                            const FieldPlanes& fields, double epsilon, double timeStep);
};

/// Two-lane SSE2 double arithmetic, for every x86-64 processor.
extern const SweepKernels sseSweepKernels;
/// Four-lane AVX2 double arithmetic; run it only where avx2Available() (tv/RowKernels.h).
extern const SweepKernels avx2SweepKernels;

/// The widest kernels this processor runs.
const SweepKernels& fastestSweepKernels();

}  // namespace quorblen::detail
