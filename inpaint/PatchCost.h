// The patch comparison of the patch-match fill, built once per instruction set; not part of the
// library's interface.
#pragma once

#include <cstddef>

namespace quorblen::detail {

/// Sum of squared differences between two patches of `rows` rows of `n` floats each, their
/// rows `step` floats apart, starting at `t` and `s`. The squares go into eight lanes (float i
/// of a row into lane i mod 8) and the lanes are summed as ((l0 + l4) + (l2 + l6)) +
/// ((l1 + l5) + (l3 + l7)), whatever the instruction set. After each row whose running total
/// exceeds `bound` it stops and returns that total: the whole sum could only be larger.
/// Reads up to 7 floats past the end of each row (their values do not matter).
using PatchCostFunction = float (*)(const float* t, const float* s, std::ptrdiff_t step, int rows,
                                    int n, float bound);

/// Eight all-ones lanes then eight zero lanes: eight lanes loaded from 8 - k keep the first k.
alignas(32) inline constexpr int PatchTailMasks[16] = {-1, -1, -1, -1, -1, -1, -1, -1,
                                                       0,  0,  0,  0,  0,  0,  0,  0};

/// The four-lane SSE version, for every x86-64 processor.
float patchCostSse(const float* t, const float* s, std::ptrdiff_t step, int rows, int n,
                   float bound);
/// The eight-lane AVX2 version; run it only where `avx2Available()`.
float patchCostAvx2(const float* t, const float* s, std::ptrdiff_t step, int rows, int n,
                    float bound);

/// The fastest version this processor runs.
PatchCostFunction fastestPatchCost();

}  // namespace quorblen::detail
