// What an upscale asks of the solve: the Quorblen node's knobs with their defaults, and the
// table of upscale parameters the program's options and the Python keywords read.
#pragma once

#include <span>

#include "image/Parameter.h"
#include "tv/TvUpscale.h"

namespace host {
class Op;
}

namespace quorblen {

/// The settings of an upscale. The member initialisers are the defaults of the node's knobs
/// Iterations, Lambda and A, the only ones: the node and the programs that run its enlargement
/// without the host (the command line's options, the Python module) start from them.
struct UpscaleOptions {
    /// Solver iterations per channel; below 1 the node changes nothing.
    int iterations = 5;
    /// Fidelity to the input; larger values smooth less.
    double lambda = 5.0;
    /// Regularisation of gradient magnitudes, in sample units: keeps the solver from dividing
    /// by zero.
    double regularization = 0.0001;
    /// Threads to solve on; 0: one per core. The result does not depend on it.
    int threads = 0;
};

/// An upscale parameter and the node's knob it sets (null: none, the host's render threads).
struct UpscaleParameter : Parameter<UpscaleOptions> {
    const char* knob;
};

/// Every upscale parameter with the range front-ends accept, in the order the help lists them.
std::span<const UpscaleParameter> upscaleParameters();

/// Sets the knobs of the Quorblen operator `node` to the values of `options`, as text that
/// reads back as each value. False when the node refuses one.
bool setUpscaleKnobs(host::Op& node, const UpscaleOptions& options);

/// The whole solve `options` ask for. The knobs hold doubles; the solver works in single
/// precision.
inline TvUpscaleSettings upscaleSettings(const UpscaleOptions& options) {
    return TvUpscaleSettings{options.iterations, static_cast<float>(options.lambda),
                             static_cast<float>(options.regularization), options.threads};
}

}  // namespace quorblen
