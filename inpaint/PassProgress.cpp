// How far the calling thread's fill pass has got through its list.
#include "inpaint/PassProgress.h"

#include <utility>

namespace quorblen {
namespace {

/// This thread's innermost scope; null: nobody listens.
thread_local PassProgressScope* listener = nullptr;

}  // namespace

PassProgressScope::PassProgressScope(std::function<void(double)> report)
    : m_report(std::move(report)), m_previous(listener) {
    listener = this;
}

PassProgressScope::~PassProgressScope() {
    listener = m_previous;
}

void passStepsDone(std::size_t done, std::size_t steps) {
    if (listener == nullptr || steps == 0) {
        return;
    }
    const std::size_t hundredth = steps / 100 + 1;
    if (done % hundredth == 0 || done == steps) {
        listener->m_report(double(done) / double(steps));
    }
}

}  // namespace quorblen
