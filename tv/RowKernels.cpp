// The TV upscale's row kernels on four-lane SSE vectors, and the choice of kernels at run time.
#include "tv/RowKernels.h"

#include "image/SseVectors.h"
#include "tv/RowKernelsBody.h"

namespace quorblen::detail {
namespace {

struct SseLanes : SseVectors {
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
