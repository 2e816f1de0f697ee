// The AVX2 operations the vector kernels are written in, one name per operation over eight
// floats (__m256) or four doubles (__m256d); included only by units built with -mavx2 (and not
// -mfma, so that products and sums round as in the SSE2 and scalar code); not part of the
// library's interface.
#pragma once

#include <immintrin.h>

#include "image/SseVectors.h"

namespace quorblen::detail {
// Internal linkage, as SseVectors: these units' copies of the 128-bit operations are
// VEX-encoded and must never serve the SSE2 units.
namespace {

/// AVX2 operations, and SseVectors' arithmetic on 128-bit vectors for lanes that keep floats
/// in those.
struct Avx2Vectors : SseVectors {
    using Floats = __m256;
    using Doubles = __m256d;
    static constexpr int FloatLanes = 8;
    static constexpr int DoubleLanes = 4;

    using SseVectors::add;
    using SseVectors::mul;
    using SseVectors::sub;

    static __m256 load(const float* p) { return _mm256_loadu_ps(p); }
    static void store(float* p, __m256 v) { _mm256_storeu_ps(p, v); }
    static void store(double* p, __m256d v) { _mm256_storeu_pd(p, v); }
    static __m256 set(float value) { return _mm256_set1_ps(value); }
    static __m256d set(double value) { return _mm256_set1_pd(value); }

    static __m256 add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
    static __m256d add(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
    static __m256 sub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
    static __m256d sub(__m256d a, __m256d b) { return _mm256_sub_pd(a, b); }
    static __m256 mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
    static __m256d mul(__m256d a, __m256d b) { return _mm256_mul_pd(a, b); }
    static __m256 div(__m256 a, __m256 b) { return _mm256_div_ps(a, b); }
    static __m256d div(__m256d a, __m256d b) { return _mm256_div_pd(a, b); }
    static __m256d max(__m256d a, __m256d b) { return _mm256_max_pd(a, b); }
    // vrcpps gives exactly the approximate reciprocals of SSE's rcpps.
    static __m256 rcp(__m256 v) { return _mm256_rcp_ps(v); }
    static __m256d sqrt(__m256d v) { return _mm256_sqrt_pd(v); }
    static __m256d abs(__m256d v) { return andNot(set(-0.0), v); }

    /// Bitwise (not a) and b.
    static __m256d andNot(__m256d a, __m256d b) { return _mm256_andnot_pd(a, b); }
    /// Bitwise a and b.
    static __m256 both(__m256 a, __m256 b) { return _mm256_and_ps(a, b); }
    static __m256d both(__m256d a, __m256d b) { return _mm256_and_pd(a, b); }
    /// Lanes of all bits set where the comparison holds, clear elsewhere.
    static __m256 greater(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_GT_OQ); }
    static __m256d greater(__m256d a, __m256d b) { return _mm256_cmp_pd(a, b, _CMP_GT_OQ); }
    static __m256d atMost(__m256d a, __m256d b) { return _mm256_cmp_pd(a, b, _CMP_LE_OQ); }
    /// The lanes' sign bits, lane 0 lowest.
    static unsigned signs(__m256 v) { return unsigned(_mm256_movemask_ps(v)); }
    static unsigned signs(__m256d v) { return unsigned(_mm256_movemask_pd(v)); }

    /// Floats 0 .. 3.
    static __m128 lower(__m256 v) { return _mm256_castps256_ps128(v); }
    /// Floats 4 .. 7.
    static __m128 upper(__m256 v) { return _mm256_extractf128_ps(v, 1); }
    /// Four floats as doubles.
    static __m256d widen(__m128 v) { return _mm256_cvtps_pd(v); }
    /// Floats 0 .. 3 as doubles.
    static __m256d widenLow(__m256 v) { return widen(lower(v)); }
    /// Floats 4 .. 7 as doubles.
    static __m256d widenHigh(__m256 v) { return widen(upper(v)); }
    /// Four doubles as floats.
    static __m128 narrow(__m256d v) { return _mm256_cvtpd_ps(v); }
    /// The doubles of `low` as floats 0 .. 3, those of `high` as floats 4 .. 7.
    static __m256 narrow(__m256d low, __m256d high) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(narrow(low)), narrow(high), 1);
    }

    /// The sum of the halves' lanes as SseVectors::sum of (l0 + l4, l1 + l5, l2 + l6, l3 + l7).
    static float sum(__m256 v) { return SseVectors::sum(add(lower(v), upper(v))); }
    /// The larger lane.
    static double largest(__m256d v) {
        return SseVectors::largest(
            SseVectors::max(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1)));
    }
};

}  // namespace
}  // namespace quorblen::detail
