// The Quorblen node's knob defaults, and the solve its knob values ask for.
#pragma once

#include "tv/TvUpscale.h"

namespace quorblen {

/// The defaults of the knobs Iterations, Lambda and A. Programs that run the node's
/// enlargement without the host (the Python module) start from the same values.
inline constexpr int DefaultIterations = 5;
inline constexpr double DefaultLambda = 5.0;
inline constexpr double DefaultRegularization = 0.0001;

/// The whole solve the knob values ask for, on `threads` threads (0: one per core). The knobs
/// hold doubles; the solver works in single precision.
inline TvUpscaleSettings upscaleSettings(int iterations, double lambda, double regularization,
                                         int threads) {
    return TvUpscaleSettings{iterations, static_cast<float>(lambda),
                             static_cast<float>(regularization), threads};
}

}  // namespace quorblen
