// What the fuzz targets share: a check that stops the run when a promise is broken.
#pragma once

#include <cstdlib>

namespace quorblen::fuzz {

/// Aborts, which libFuzzer reports as a crash with the input that caused it, when `condition`
/// does not hold.
inline void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace quorblen::fuzz
