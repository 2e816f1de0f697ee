// The patch comparison on eight-lane AVX2 vectors. Built with -mavx2 alone: no FMA, so every
// square and sum rounds as in the SSE version.
#include "image/Avx2Vectors.h"
#include "inpaint/PatchCost.h"

namespace quorblen::detail {
namespace {

using V = Avx2Vectors;

__m256 squaredDifference(const float* t, const float* s) {
    const __m256 d = V::sub(V::load(t), V::load(s));
    return V::mul(d, d);
}

}  // namespace

float patchCostAvx2(const float* t, const float* s, std::ptrdiff_t step, int rows, int n,
                    float bound) {
    __m256 lanes = _mm256_setzero_ps();
    const int whole = n & ~7;
    const __m256 tail = _mm256_castsi256_ps(
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(PatchTailMasks + 8 - (n - whole))));
    float sum = 0.0f;
    for (int row = 0; row < rows; ++row, t += step, s += step) {
        int i = 0;
        for (; i < whole; i += 8) {
            lanes = V::add(lanes, squaredDifference(t + i, s + i));
        }
        if (i < n) {
            lanes = V::add(lanes, V::both(squaredDifference(t + i, s + i), tail));
        }
        sum = V::sum(lanes);
        if (sum > bound) {
            break;
        }
    }
    return sum;
}

}  // namespace quorblen::detail
