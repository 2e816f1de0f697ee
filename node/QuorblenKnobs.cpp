// The upscale parameters: the node's knobs and the threads, with the ranges front-ends accept.
#include "node/QuorblenKnobs.h"

#include "host/Op.h"

namespace quorblen {
namespace {

// A is narrowed to single precision, and below about 2.4e-38 the solver's weights overflow in
// flat areas and its output turns NaN: 1e-30 keeps well clear. 1e30 bounds the doubles so that
// they stay finite as floats.
constexpr UpscaleParameter upscaleTable[] = {
    {{"iterations", "solver iterations per channel", &UpscaleOptions::iterations, 1, 1000000,
      false},
     "Iterations"},
    {{"lambda", "fidelity to the input: larger values smooth less", &UpscaleOptions::lambda, 0,
      1e30, false},
     "Lambda"},
    {{"a", "regularisation of gradient magnitudes, in sample units (against division by zero)",
      &UpscaleOptions::regularization, 1e-30, 1e30, false},
     "A"},
    {{"threads", "threads to solve on, 0 for one per core; the result does not depend on it",
      &UpscaleOptions::threads, 0, 1024, false},
     nullptr},
};

}  // namespace

std::span<const UpscaleParameter> upscaleParameters() {
    return upscaleTable;
}

bool setUpscaleKnobs(host::Op& node, const UpscaleOptions& options) {
    for (const UpscaleParameter& parameter : upscaleTable) {
        if (parameter.knob != nullptr &&
            !node.set_knob(parameter.knob,
                           parameterText(parameter, parameterValue(parameter, options)))) {
            return false;
        }
    }
    return true;
}

}  // namespace quorblen
