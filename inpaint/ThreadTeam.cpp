// Threads that run the parts of one job together.
#include "inpaint/ThreadTeam.h"

#include <cassert>

namespace quorblen::detail {

ThreadTeam::ThreadTeam(int size) : m_size(size), m_barrier(size) {
    assert(size >= 1);
    m_threads.reserve(std::size_t(size - 1));
    const auto member = [this](int part) {
        // Each job begins and ends at the barrier; between jobs the threads sleep in it.
        for (;;) {
            m_barrier.arrive_and_wait();
            if (m_job == nullptr) {
                return;
            }
            (*m_job)(part);
            m_barrier.arrive_and_wait();
        }
    };
    try {
        for (int part = 1; part < size; ++part) {
            m_threads.emplace_back(member, part);
        }
    } catch (...) {
        // The threads that started wait for the whole team: count out the missing ones and
        // let the others end.
        for (int missing = int(m_threads.size()) + 1; missing < size; ++missing) {
            m_barrier.arrive_and_drop();
        }
        m_barrier.arrive_and_wait();
        throw;
    }
}

ThreadTeam::~ThreadTeam() {
    m_job = nullptr;
    if (!m_threads.empty()) {
        m_barrier.arrive_and_wait();
    }
}

void ThreadTeam::run(const std::function<void(int)>& job) {
    if (m_size == 1) {
        job(0);
        return;
    }
    m_job = &job;
    m_barrier.arrive_and_wait();
    job(0);
    m_barrier.arrive_and_wait();
}

}  // namespace quorblen::detail
