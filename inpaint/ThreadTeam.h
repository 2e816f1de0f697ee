// Threads that run the parts of one job together; not part of the library's interface.
#pragma once

#include <barrier>
#include <functional>
#include <thread>
#include <vector>

namespace quorblen::detail {

/// `size` threads, the one that made the team among them, that run the parts 0 .. size-1 of a
/// job at once, each part on its own thread. The others sleep between jobs and end with the
/// team. Only the thread that made the team runs jobs. Made for jobs of milliseconds, as a
/// diffusion iteration: the caller sleeps until every part is done, which leaves the cores to
/// the parts on a busy machine (WorkerPool's caller polls, for jobs of microseconds).
class ThreadTeam {
public:
    /// Precondition: size >= 1. Throws std::system_error when a thread cannot start.
    explicit ThreadTeam(int size);
    ~ThreadTeam();
    ThreadTeam(const ThreadTeam&) = delete;
    ThreadTeam& operator=(const ThreadTeam&) = delete;

    int size() const { return m_size; }

    /// Runs job(part) for every part, part 0 on the calling thread, and returns once all have
    /// returned. The job must not throw.
    void run(const std::function<void(int)>& job);

private:
    int m_size;
    std::barrier<> m_barrier;
    const std::function<void(int)>* m_job = nullptr;  // null: the threads end
    std::vector<std::jthread> m_threads;              // last: they end before the rest goes
};

}  // namespace quorblen::detail
