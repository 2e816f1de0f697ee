// The worker threads of the inpainting's threaded parts, woken many times a second for short
// jobs; not part of the library's interface.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "image/ThreadCount.h"

namespace quorblen::detail {

/// The threads a request for `threads` (0: one per core) gives `items` items of work, so that
/// each thread has at least `least` items: at least 1.
int threadsFor(int threads, std::size_t items, std::size_t least);

/// Runs one job at a time on up to `size()` threads: the calling thread and the workers that
/// wake in time. Made for jobs of a few microseconds each, as one pixel's candidate search: a
/// worker spins a little before it sleeps, so that the next job usually finds it awake, and
/// the caller never waits for a worker that has not joined (on a busy machine a sleeping
/// worker may not run for milliseconds). A job therefore shares its work out as it goes,
/// every call taking parts from a common queue until none are left; run(count, task) does so
/// for coarser work too (a patch search's rows and tiles).
class WorkerPool {
public:
    /// A pool of `threads` threads in all; 0 means one per core.
    explicit WorkerPool(int threads);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// The number of threads a job runs on, the caller's included.
    int size() const { return static_cast<int>(m_workers.size()) + 1; }

    /// Calls job(0) on this thread and job(k) on every worker k (1 .. size() - 1) that joins
    /// before job(0) returns, and returns when every call has returned. The job must not
    /// throw.
    void run(const std::function<void(int)>& job);

    /// Calls task(i) once for every i in 0 .. count-1, each on whichever thread takes it next,
    /// and returns when all have returned: tasks must not depend on one another's results. The
    /// task must not throw.
    template <class Task>
    void run(int count, const Task& task) {
        std::atomic<int> next{0};
        run([&](int) {
            for (int i = next++; i < count; i = next++) {
                task(i);
            }
        });
    }

private:
    void serve(int index, const std::stop_token& stop);

    const std::function<void(int)>* m_job = nullptr;
    std::atomic<std::uint32_t> m_generation{0};  // bumped for every job
    // The current job's generation (high half), whether it still takes workers (Closed) and
    // how many run it (low bits).
    std::atomic<std::uint64_t> m_state{0};
    std::vector<std::jthread> m_workers;  // last: they stop before the rest goes
};

}  // namespace quorblen::detail
