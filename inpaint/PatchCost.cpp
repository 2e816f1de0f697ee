// The patch comparison on four-lane SSE vectors (two vectors make the eight lanes), and the
// choice of version at run time.
#include "inpaint/PatchCost.h"

#include <emmintrin.h>

#include "tv/RowKernels.h"

namespace quorblen::detail {
namespace {

__m128 squaredDifference(const float* t, const float* s) {
    const __m128 d = _mm_sub_ps(_mm_loadu_ps(t), _mm_loadu_ps(s));
    return _mm_mul_ps(d, d);
}

float total(__m128 low, __m128 high) {
    const __m128 h = _mm_add_ps(low, high);                   // l0+l4, l1+l5, l2+l6, l3+l7
    const __m128 pairs = _mm_add_ps(h, _mm_movehl_ps(h, h));  // (l0+l4)+(l2+l6), (l1+l5)+(l3+l7)
    return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
}

}  // namespace

float patchCostSse(const float* t, const float* s, std::ptrdiff_t step, int rows, int n,
                   float bound) {
    __m128 low = _mm_setzero_ps();
    __m128 high = _mm_setzero_ps();
    const int whole = n & ~7;
    const int* tail = PatchTailMasks + 8 - (n - whole);
    const __m128 tailLow =
        _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(tail)));
    const __m128 tailHigh =
        _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(tail + 4)));
    float sum = 0.0f;
    for (int row = 0; row < rows; ++row, t += step, s += step) {
        int i = 0;
        for (; i < whole; i += 8) {
            low = _mm_add_ps(low, squaredDifference(t + i, s + i));
            high = _mm_add_ps(high, squaredDifference(t + i + 4, s + i + 4));
        }
        if (i < n) {
            low = _mm_add_ps(low, _mm_and_ps(squaredDifference(t + i, s + i), tailLow));
            high = _mm_add_ps(high, _mm_and_ps(squaredDifference(t + i + 4, s + i + 4), tailHigh));
        }
        sum = total(low, high);
        if (sum > bound) {
            break;
        }
    }
    return sum;
}

PatchCostFunction fastestPatchCost() {
    return avx2Available() ? patchCostAvx2 : patchCostSse;
}

}  // namespace quorblen::detail
