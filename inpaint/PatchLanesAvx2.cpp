// The patch distance's lane kernels on AVX2 (four doubles a vector). Built with -mavx2
// alone: no FMA, so every product and sum rounds as in patchDistance.
#include <immintrin.h>

#include "inpaint/PatchLanesBody.h"

namespace quorblen::detail {
namespace {

struct Avx2Vectors {
    using F = __m256;
    using D = __m256d;
    static constexpr int FloatLanes = 8;
    static constexpr int DoubleLanes = 4;

    static F load(const float* p) { return _mm256_loadu_ps(p); }
    static F set(float value) { return _mm256_set1_ps(value); }
    static F addF(F a, F b) { return _mm256_add_ps(a, b); }
    static F subF(F a, F b) { return _mm256_sub_ps(a, b); }
    static F bothF(F a, F b) { return _mm256_and_ps(a, b); }
    static F greaterF(F a, F b) { return _mm256_cmp_ps(a, b, _CMP_GT_OQ); }
    static unsigned signsF(F v) { return unsigned(_mm256_movemask_ps(v)); }
    /// Eight flags of 0 or -1 as the bits of eight floats.
    static F flagsAsFloats(const std::int32_t* p) {
        return _mm256_castsi256_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
    }
    static F mulF(F a, F b) { return _mm256_mul_ps(a, b); }
    static D widenLow(F v) { return _mm256_cvtps_pd(_mm256_castps256_ps128(v)); }
    static D widenHigh(F v) { return _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)); }

    static D set(double value) { return _mm256_set1_pd(value); }
    static D add(D a, D b) { return _mm256_add_pd(a, b); }
    static D mul(D a, D b) { return _mm256_mul_pd(a, b); }
    static D div(D a, D b) { return _mm256_div_pd(a, b); }
    static D andNot(D a, D b) { return _mm256_andnot_pd(a, b); }
    static D both(D a, D b) { return _mm256_and_pd(a, b); }
    static void store(double* p, D v) { _mm256_storeu_pd(p, v); }
    static unsigned signs(D v) { return unsigned(_mm256_movemask_pd(v)); }
    static D greater(D a, D b) { return _mm256_cmp_pd(a, b, _CMP_GT_OQ); }
    static D atMost(D a, D b) { return _mm256_cmp_pd(a, b, _CMP_LE_OQ); }
    /// Four flags of 0 or -1, widened to the lanes' 64 bits.
    static D loadMask(const std::int32_t* p) {
        const __m128i flags = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        return _mm256_castsi256_pd(_mm256_cvtepi32_epi64(flags));
    }
};

}  // namespace

constinit const PatchLaneKernels avx2PatchLanes{scoreBlockWith<Avx2Vectors>};

}  // namespace quorblen::detail
