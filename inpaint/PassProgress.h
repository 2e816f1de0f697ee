// How far the calling thread's fill pass has got through its list, for the recipes' progress.
#pragma once

#include <cstddef>
#include <functional>

namespace quorblen {

/// While alive, has the fill passes the calling thread runs report how far through their list
/// they are: report(fraction), fraction being the share of the list's pixels filled so far,
/// called on this thread every hundredth of the list or so. Scopes nest; other threads are not
/// affected. Passes that pick their pixels by priority report; inpaintTextureTV does not.
class PassProgressScope {
public:
    explicit PassProgressScope(std::function<void(double)> report);
    ~PassProgressScope();
    PassProgressScope(const PassProgressScope&) = delete;
    PassProgressScope& operator=(const PassProgressScope&) = delete;

private:
    std::function<void(double)> m_report;
    PassProgressScope* m_previous;
    friend void passStepsDone(std::size_t done, std::size_t steps);
};

/// Called by a pass after step `done` of `steps`: passes it on to this thread's scope, if any,
/// when it completes another hundredth.
void passStepsDone(std::size_t done, std::size_t steps);

}  // namespace quorblen
