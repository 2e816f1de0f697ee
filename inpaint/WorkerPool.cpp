// The worker threads of the inpainting's threaded parts, woken many times a second for short
// jobs.
#include "inpaint/WorkerPool.h"

#include <algorithm>
#include <chrono>

namespace quorblen::detail {
namespace {

/// How long a worker polls before it sleeps: longer than the caller's work between two jobs
/// (a pass's bookkeeping between two pixels' searches), so that it is awake for the next.
/// Timed, not counted: how long a poll lasts differs from processor to processor.
constexpr auto SpinTime = std::chrono::microseconds(300);
/// Polls between two looks at the clock.
constexpr int PollsPerLook = 1024;

constexpr std::uint64_t Closed = std::uint64_t(1) << 31;
constexpr std::uint64_t Running = Closed - 1;

std::uint64_t generationOf(std::uint64_t state) {
    return state >> 32;
}

/// One poll's breather: a compiler barrier only. The polls last SpinTime at most, and the
/// pause instruction's length differs from processor to processor (under a hypervisor it
/// may even leave the guest).
void relax() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// Polls until `until` holds or SpinTime has passed; returns whether it holds.
template <class Until>
bool pollFor(Until until) {
    const auto end = std::chrono::steady_clock::now() + SpinTime;
    for (;;) {
        for (int i = 0; i < PollsPerLook; ++i) {
            if (until()) {
                return true;
            }
            relax();
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
    }
}

/// Waits until `value` differs from `old`: polls first, then sleeps.
template <class T>
void awaitChange(const std::atomic<T>& value, T old) {
    if (pollFor([&] { return value.load(std::memory_order_acquire) != old; })) {
        return;
    }
    while (value.load(std::memory_order_acquire) == old) {
        value.wait(old, std::memory_order_acquire);
    }
}

}  // namespace

int threadsFor(int threads, std::size_t items, std::size_t least) {
    const std::size_t wanted = std::size_t(threadCount(threads));
    return int(std::max<std::size_t>(1, std::min(wanted, items / std::max<std::size_t>(least, 1))));
}

WorkerPool::WorkerPool(int threads) {
    threads = threadCount(threads);
    m_workers.reserve(static_cast<std::size_t>(threads - 1));
    for (int k = 1; k < threads; ++k) {
        m_workers.emplace_back([this, k](std::stop_token stop) { serve(k, stop); });
    }
}

WorkerPool::~WorkerPool() {
    for (std::jthread& worker : m_workers) {
        worker.request_stop();
    }
    // Wakes the workers, which see the stop before any job.
    m_generation.fetch_add(1, std::memory_order_release);
    m_generation.notify_all();
}

void WorkerPool::run(const std::function<void(int)>& job) {
    if (m_workers.empty()) {
        job(0);
        return;
    }
    m_job = &job;
    const std::uint32_t generation = m_generation.load(std::memory_order_relaxed) + 1;
    m_state.store(std::uint64_t(generation) << 32, std::memory_order_release);
    m_generation.store(generation, std::memory_order_release);
    m_generation.notify_all();
    job(0);
    // The workers still to come find the job closed; those in it are busy and finish soon.
    m_state.fetch_or(Closed, std::memory_order_acq_rel);
    // Polls, then yields: on a busy machine a worker in the job may wait for this core.
    const auto finished = [&] { return (m_state.load(std::memory_order_acquire) & Running) == 0; };
    if (!pollFor(finished)) {
        while (!finished()) {
            std::this_thread::yield();
        }
    }
}

void WorkerPool::serve(int index, const std::stop_token& stop) {
    std::uint32_t seen = 0;
    for (;;) {
        awaitChange(m_generation, seen);
        seen = m_generation.load(std::memory_order_acquire);
        if (stop.stop_requested()) {
            return;
        }
        std::uint64_t state = m_state.load(std::memory_order_acquire);
        bool joined = false;
        while (!joined && generationOf(state) == seen && (state & Closed) == 0) {
            joined = m_state.compare_exchange_weak(state, state + 1, std::memory_order_acq_rel);
        }
        if (joined) {
            (*m_job)(index);
            m_state.fetch_sub(1, std::memory_order_release);
        }
    }
}

}  // namespace quorblen::detail
