// The TV upscale's row kernels on four-lane SSE vectors, and the choice of kernels at run time.
#include "tv/RowKernels.h"

#include <emmintrin.h>

#include "tv/RowKernelsBody.h"

namespace quorblen::detail {
namespace {

struct SseLanes {
    using Floats = __m128;
    using Doubles = __m128d;
    static constexpr int count = 4;

    static Floats load(const float* p) { return _mm_loadu_ps(p); }
    static void store(float* p, Floats v) { _mm_storeu_ps(p, v); }
    static Floats set(float value) { return _mm_set1_ps(value); }
    static Doubles set(double value) { return _mm_set1_pd(value); }
    static Floats add(Floats a, Floats b) { return _mm_add_ps(a, b); }
    static Doubles add(Doubles a, Doubles b) { return _mm_add_pd(a, b); }
    static Floats sub(Floats a, Floats b) { return _mm_sub_ps(a, b); }
    static Doubles sub(Doubles a, Doubles b) { return _mm_sub_pd(a, b); }
    static Floats mul(Floats a, Floats b) { return _mm_mul_ps(a, b); }
    static Doubles mul(Doubles a, Doubles b) { return _mm_mul_pd(a, b); }
    static Floats div(Floats a, Floats b) { return _mm_div_ps(a, b); }
    static Floats rcp(Floats v) { return _mm_rcp_ps(v); }
    static Doubles sqrt(Doubles v) { return _mm_sqrt_pd(v); }
    static Doubles widenLow(Floats v) { return _mm_cvtps_pd(v); }
    static Doubles widenHigh(Floats v) { return _mm_cvtps_pd(_mm_movehl_ps(v, v)); }
    static Floats narrow(Doubles low, Doubles high) {
        return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
    }
    static Floats swapPairs(Floats v) { return _mm_shuffle_ps(v, v, _MM_SHUFFLE(2, 3, 0, 1)); }
    static Floats evenToPairs(Floats v) { return _mm_shuffle_ps(v, v, _MM_SHUFFLE(2, 2, 0, 0)); }
    static Floats pairs(const float* p, int step) {
        return _mm_setr_ps(p[0], p[0], p[step], p[step]);
    }
};

}  // namespace

constinit const RowKernels sseRowKernels = rowKernelsFor<SseLanes>();

bool avx2Available() {
    return __builtin_cpu_supports("avx2");
}

const RowKernels& fastestRowKernels() {
    // Decided once: the processor does not change under a running program.
    static const RowKernels& fastest = avx2Available() ? avx2RowKernels : sseRowKernels;
    return fastest;
}

}  // namespace quorblen::detail
