// Runs a fixed list of independent tasks on several threads; not part of the library's
// interface.
#pragma once

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace quorblen::detail {

/// `threads` itself when positive, else one per core.
inline int threadCount(int threads) {
    return threads > 0 ? threads : std::max(1, int(std::thread::hardware_concurrency()));
}

/// Calls task(i) once for every i in 0 .. count-1, on up to `threads` threads (0: one per
/// core), this one included, and returns when all are done. Which thread runs a task is left
/// to chance: tasks must not depend on one another's results. `task` must not throw.
template <class Task>
void runTasks(int count, int threads, const Task& task) {
    const int workers = std::min(threadCount(threads), count);
    std::atomic<int> next{0};
    const auto work = [&] {
        for (int i = next++; i < count; i = next++) {
            task(i);
        }
    };
    std::vector<std::jthread> helpers;
    for (int k = 1; k < workers; ++k) {
        helpers.emplace_back(work);
    }
    work();
}

}  // namespace quorblen::detail
