// The candidate scorers on four-lane AVX2 vectors. Built with -mavx2 alone: no FMA, so every
// product and sum rounds as in the scalar scorers.
#include <immintrin.h>

#include "inpaint/CandidateEnergyBody.h"

namespace quorblen::detail {
namespace {

// Four candidates: floats in 128-bit vectors, doubles in 256-bit ones.
struct Avx2Lanes {
    using Floats = __m128;
    using Doubles = __m256d;
    static constexpr std::size_t count = 4;

    static Floats set(float value) { return _mm_set1_ps(value); }
    static Doubles set(double value) { return _mm256_set1_pd(value); }
    static Floats add(Floats a, Floats b) { return _mm_add_ps(a, b); }
    static Doubles add(Doubles a, Doubles b) { return _mm256_add_pd(a, b); }
    static Floats sub(Floats a, Floats b) { return _mm_sub_ps(a, b); }
    static Doubles sub(Doubles a, Doubles b) { return _mm256_sub_pd(a, b); }
    static Floats mul(Floats a, Floats b) { return _mm_mul_ps(a, b); }
    static Doubles mul(Doubles a, Doubles b) { return _mm256_mul_pd(a, b); }
    static Doubles div(Doubles a, Doubles b) { return _mm256_div_pd(a, b); }
    static Doubles sqrt(Doubles v) { return _mm256_sqrt_pd(v); }
    static Doubles widen(Floats v) { return _mm256_cvtps_pd(v); }
    static Floats narrow(Doubles v) { return _mm256_cvtpd_ps(v); }
    static Floats colour(const float* colours, int c) {
        return _mm_setr_ps(colours[c], colours[3 + c], colours[6 + c], colours[9 + c]);
    }
    static void store(double* out, Doubles v) { _mm256_storeu_pd(out, v); }
};

}  // namespace

constinit const CandidateKernels avx2CandidateKernels = candidateKernelsFor<Avx2Lanes>();

}  // namespace quorblen::detail
