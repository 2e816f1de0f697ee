// How many threads a request for some number of threads gives.
#pragma once

#include <algorithm>
#include <thread>

namespace quorblen {

/// `threads` itself when positive, else one per core (at least 1): what every `threads`
/// parameter of the library and the program means by 0.
inline int threadCount(int threads) {
    return threads > 0 ? threads : std::max(1, int(std::thread::hardware_concurrency()));
}

}  // namespace quorblen
