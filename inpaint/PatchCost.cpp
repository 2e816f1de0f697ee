// The patch comparison on four-lane SSE vectors (two vectors make the eight lanes), and the
// choice of version at run time.
#include "inpaint/PatchCost.h"

#include "image/SseVectors.h"
#include "tv/RowKernels.h"

namespace quorblen::detail {
namespace {

using V = SseVectors;

__m128 squaredDifference(const float* t, const float* s) {
    const __m128 d = V::sub(V::load(t), V::load(s));
    return V::mul(d, d);
}

/// The eight lanes' sum: ((l0 + l4) + (l2 + l6)) + ((l1 + l5) + (l3 + l7)), as on AVX2.
float total(__m128 low, __m128 high) {
    return V::sum(V::add(low, high));
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
            low = V::add(low, squaredDifference(t + i, s + i));
            high = V::add(high, squaredDifference(t + i + 4, s + i + 4));
        }
        if (i < n) {
            low = V::add(low, V::both(squaredDifference(t + i, s + i), tailLow));
            high = V::add(high, V::both(squaredDifference(t + i + 4, s + i + 4), tailHigh));
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
