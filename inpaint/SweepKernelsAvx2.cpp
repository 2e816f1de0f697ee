// The diffusion sweep kernels on four-lane AVX2 doubles. Built with -mavx2 alone: no FMA, so
// every product and sum rounds as in the scalar steps.
#include <immintrin.h>

#include "inpaint/SweepKernelsBody.h"

namespace quorblen::detail {
namespace {

struct Avx2Lanes {
    using Doubles = __m256d;

    static Doubles set(double value) { return _mm256_set1_pd(value); }
    static Doubles add(Doubles a, Doubles b) { return _mm256_add_pd(a, b); }
    static Doubles sub(Doubles a, Doubles b) { return _mm256_sub_pd(a, b); }
    static Doubles mul(Doubles a, Doubles b) { return _mm256_mul_pd(a, b); }
    static Doubles div(Doubles a, Doubles b) { return _mm256_div_pd(a, b); }
    static Doubles max(Doubles x, Doubles m) { return _mm256_max_pd(x, m); }
    static Doubles sqrt(Doubles a) { return _mm256_sqrt_pd(a); }
    static Doubles abs(Doubles a) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), a); }
    static Doubles widen(__m128 v) { return _mm256_cvtps_pd(v); }
    static __m128 narrow(Doubles v) { return _mm256_cvtpd_ps(v); }
    static double largest(Doubles v) {
        const __m128d pair = _mm_max_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1));
        return _mm_cvtsd_f64(_mm_max_sd(pair, _mm_unpackhi_pd(pair, pair)));
    }
};

}  // namespace

constinit const SweepKernels avx2SweepKernels = sweepKernelsFor<Avx2Lanes>();

}  // namespace quorblen::detail
