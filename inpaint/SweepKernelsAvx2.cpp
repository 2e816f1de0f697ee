// The diffusion sweep kernels on four-lane AVX2 doubles. Built with -mavx2 alone: no FMA, so
// every product and sum rounds as in the scalar steps.
#include "image/Avx2Vectors.h"
#include "inpaint/SweepKernelsBody.h"

namespace quorblen::detail {

constinit const SweepKernels avx2SweepKernels = sweepKernelsFor<Avx2Vectors>();

}  // namespace quorblen::detail
