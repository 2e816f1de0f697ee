// The TV upscale's row kernels on eight-lane AVX2 vectors. Built with -mavx2 alone: no FMA, so
// every product and sum rounds as in the SSE kernels, and AVX2's vrcpps gives exactly the
// approximate reciprocals of SSE's rcpps.
#include <immintrin.h>

#include "tv/RowKernelsBody.h"

namespace quorblen::detail {
namespace {

struct Avx2Lanes {
    using Floats = __m256;
    using Doubles = __m256d;
    static constexpr int count = 8;

    static Floats load(const float* p) { return _mm256_loadu_ps(p); }
    static void store(float* p, Floats v) { _mm256_storeu_ps(p, v); }
    static Floats set(float value) { return _mm256_set1_ps(value); }
    static Doubles set(double value) { return _mm256_set1_pd(value); }
    static Floats add(Floats a, Floats b) { return _mm256_add_ps(a, b); }
    static Doubles add(Doubles a, Doubles b) { return _mm256_add_pd(a, b); }
    static Floats sub(Floats a, Floats b) { return _mm256_sub_ps(a, b); }
    static Doubles sub(Doubles a, Doubles b) { return _mm256_sub_pd(a, b); }
    static Floats mul(Floats a, Floats b) { return _mm256_mul_ps(a, b); }
    static Doubles mul(Doubles a, Doubles b) { return _mm256_mul_pd(a, b); }
    static Floats div(Floats a, Floats b) { return _mm256_div_ps(a, b); }
    static Floats rcp(Floats v) { return _mm256_rcp_ps(v); }
    static Doubles sqrt(Doubles v) { return _mm256_sqrt_pd(v); }
    static Doubles widenLow(Floats v) { return _mm256_cvtps_pd(_mm256_castps256_ps128(v)); }
    static Doubles widenHigh(Floats v) { return _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)); }
    static Floats narrow(Doubles low, Doubles high) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(low)),
                                    _mm256_cvtpd_ps(high), 1);
    }
    static Floats swapPairs(Floats v) { return _mm256_permute_ps(v, _MM_SHUFFLE(2, 3, 0, 1)); }
    static Floats evenToPairs(Floats v) { return _mm256_permute_ps(v, _MM_SHUFFLE(2, 2, 0, 0)); }
    static Floats pairs(const float* p, int step) {
        return _mm256_setr_ps(p[0], p[0], p[step], p[step], p[2 * step], p[2 * step], p[3 * step],
                              p[3 * step]);
    }
};

}  // namespace

constinit const RowKernels avx2RowKernels = rowKernelsFor<Avx2Lanes>();

}  // namespace quorblen::detail
