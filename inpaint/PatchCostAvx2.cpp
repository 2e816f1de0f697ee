// The patch comparison on eight-lane AVX2 vectors. Built with -mavx2 alone: no FMA, so every
// square and sum rounds as in the SSE version.
#include <immintrin.h>

#include "inpaint/PatchCost.h"

namespace quorblen::detail {
namespace {

__m256 squaredDifference(const float* t, const float* s) {
    const __m256 d = _mm256_sub_ps(_mm256_loadu_ps(t), _mm256_loadu_ps(s));
    return _mm256_mul_ps(d, d);
}

float total(__m256 lanes) {
    const __m128 h = _mm_add_ps(_mm256_castps256_ps128(lanes), _mm256_extractf128_ps(lanes, 1));
    const __m128 pairs = _mm_add_ps(h, _mm_movehl_ps(h, h));
    return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
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
            lanes = _mm256_add_ps(lanes, squaredDifference(t + i, s + i));
        }
        if (i < n) {
            lanes = _mm256_add_ps(lanes, _mm256_and_ps(squaredDifference(t + i, s + i), tail));
        }
        sum = total(lanes);
        if (sum > bound) {
            break;
        }
    }
    return sum;
}

}  // namespace quorblen::detail
