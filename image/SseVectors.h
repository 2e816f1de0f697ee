// The SSE2 operations the vector kernels are written in, one name per operation over four floats
// (__m128) or two doubles (__m128d); not part of the library's interface.
#pragma once

#include <emmintrin.h>

namespace quorblen::detail {
// Internal linkage on purpose: the units built with -mavx2 include these too, and of inline
// functions with external linkage the linker keeps one copy, which could be the VEX-encoded
// one and end up called by the SSE2 units on a processor without AVX.
namespace {

/// SSE2 operations. Each is the one instruction (or the fixed sequence) it names, so kernels
/// written in them round as the scalar code they mirror.
struct SseVectors {
    using Floats = __m128;
    using Doubles = __m128d;
    static constexpr int FloatLanes = 4;
    static constexpr int DoubleLanes = 2;

    static __m128 load(const float* p) { return _mm_loadu_ps(p); }
    static void store(float* p, __m128 v) { _mm_storeu_ps(p, v); }
    static void store(double* p, __m128d v) { _mm_storeu_pd(p, v); }
    static __m128 set(float value) { return _mm_set1_ps(value); }
    static __m128d set(double value) { return _mm_set1_pd(value); }

    static __m128 add(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
    static __m128d add(__m128d a, __m128d b) { return _mm_add_pd(a, b); }
    static __m128 sub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
    static __m128d sub(__m128d a, __m128d b) { return _mm_sub_pd(a, b); }
    static __m128 mul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
    static __m128d mul(__m128d a, __m128d b) { return _mm_mul_pd(a, b); }
    static __m128 div(__m128 a, __m128 b) { return _mm_div_ps(a, b); }
    static __m128d div(__m128d a, __m128d b) { return _mm_div_pd(a, b); }
    static __m128d max(__m128d a, __m128d b) { return _mm_max_pd(a, b); }
    static __m128 rcp(__m128 v) { return _mm_rcp_ps(v); }
    static __m128d sqrt(__m128d v) { return _mm_sqrt_pd(v); }
    static __m128d abs(__m128d v) { return andNot(set(-0.0), v); }

    /// Bitwise (not a) and b.
    static __m128d andNot(__m128d a, __m128d b) { return _mm_andnot_pd(a, b); }
    /// Bitwise a and b.
    static __m128 both(__m128 a, __m128 b) { return _mm_and_ps(a, b); }
    static __m128d both(__m128d a, __m128d b) { return _mm_and_pd(a, b); }
    /// Lanes of all bits set where the comparison holds, clear elsewhere.
    static __m128 greater(__m128 a, __m128 b) { return _mm_cmpgt_ps(a, b); }
    static __m128d greater(__m128d a, __m128d b) { return _mm_cmpgt_pd(a, b); }
    static __m128d atMost(__m128d a, __m128d b) { return _mm_cmple_pd(a, b); }
    /// The lanes' sign bits, lane 0 lowest.
    static unsigned signs(__m128 v) { return unsigned(_mm_movemask_ps(v)); }
    static unsigned signs(__m128d v) { return unsigned(_mm_movemask_pd(v)); }

    /// Floats 0 and 1 as doubles.
    static __m128d widenLow(__m128 v) { return _mm_cvtps_pd(v); }
    /// Floats 2 and 3 as doubles.
    static __m128d widenHigh(__m128 v) { return _mm_cvtps_pd(_mm_movehl_ps(v, v)); }
    /// The two doubles as floats 0 and 1; floats 2 and 3 are 0.
    static __m128 narrow(__m128d v) { return _mm_cvtpd_ps(v); }
    /// The doubles of `low` as floats 0 and 1, those of `high` as floats 2 and 3.
    static __m128 narrow(__m128d low, __m128d high) {
        return _mm_movelh_ps(narrow(low), narrow(high));
    }

    /// (l0 + l2) + (l1 + l3), in float.
    static float sum(__m128 v) {
        const __m128 pairs = add(v, _mm_movehl_ps(v, v));
        return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
    }
    /// The larger lane.
    static double largest(__m128d v) { return _mm_cvtsd_f64(_mm_max_sd(v, _mm_unpackhi_pd(v, v))); }
};

}  // namespace
}  // namespace quorblen::detail
