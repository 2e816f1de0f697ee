// Threads that run the parts of one job together; not part of the library's interface.
#pragma once

#include <barrier>
#include <functional>
#include <thread>
#include <vector>

namespace quorblen::detail {

/// `size` threads, the one that made the team among them, that run the parts 0 .. size-1 of a
/// job at once and may wait for one another between its phases. The others sleep between jobs
/// and end with the team. Only the thread that made the team runs jobs.
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

    /// Called by every part of a running job: returns once all parts have called it, so that
    /// what each wrote before is seen by all after.
    void sync() { m_barrier.arrive_and_wait(); }

private:
    int m_size;
    std::barrier<> m_barrier;
    const std::function<void(int)>* m_job = nullptr;  // null: the threads end
    std::vector<std::jthread> m_threads;              // last: they end before the rest goes
};

/// The threads a request for `threads` (0: one per core) gives `items` items of work, so that
/// each thread has at least `least` items: at least 1.
int threadsFor(int threads, std::size_t items, std::size_t least);

}  // namespace quorblen::detail
