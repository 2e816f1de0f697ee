// The patch distance's lane kernels on AVX2 (four doubles a vector). Built with -mavx2
// alone: no FMA, so every product and sum rounds as in patchDistance.
#include "image/Avx2Vectors.h"
#include "inpaint/PatchLanesBody.h"

namespace quorblen::detail {
namespace {

struct Avx2Lanes : Avx2Vectors {
    /// Eight flags of 0 or -1 as the bits of eight floats.
    static Floats flagsAsFloats(const std::int32_t* p) {
        return _mm256_castsi256_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
    }
    /// Four flags of 0 or -1, widened to the lanes' 64 bits.
    static Doubles loadMask(const std::int32_t* p) {
        const __m128i flags = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        return _mm256_castsi256_pd(_mm256_cvtepi32_epi64(flags));
    }
};

}  // namespace

constinit const PatchLaneKernels avx2PatchLanes{scoreBlockWith<Avx2Lanes>};

}  // namespace quorblen::detail
