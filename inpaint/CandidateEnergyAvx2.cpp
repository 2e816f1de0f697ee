// The candidate scorers on four-lane AVX2 vectors. Built with -mavx2 alone: no FMA, so every
// product and sum rounds as in the scalar scorers.
#include "image/Avx2Vectors.h"
#include "inpaint/CandidateEnergyBody.h"

namespace quorblen::detail {
namespace {

// Four candidates: floats in 128-bit vectors, doubles in 256-bit ones.
struct Avx2Lanes : Avx2Vectors {
    using Floats = __m128;
    static constexpr std::size_t count = 4;

    using Avx2Vectors::set;
    static Floats set(float value) { return SseVectors::set(value); }
    static Floats colour(const float* colours, int c) {
        return _mm_setr_ps(colours[c], colours[3 + c], colours[6 + c], colours[9 + c]);
    }
};

}  // namespace

constinit const CandidateKernels avx2CandidateKernels = candidateKernelsFor<Avx2Lanes>();

}  // namespace quorblen::detail
