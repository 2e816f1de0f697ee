// The TV upscale's row kernels on eight-lane AVX2 vectors. Built with -mavx2 alone: no FMA, so
// every product and sum rounds as in the SSE kernels.
#include "image/Avx2Vectors.h"
#include "tv/RowKernelsBody.h"

namespace quorblen::detail {
namespace {

struct Avx2Lanes : Avx2Vectors {
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
