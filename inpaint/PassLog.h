// Where the fill passes print their summary lines.
#pragma once

#include <iosfwd>

namespace quorblen {

/// The stream the calling thread's fill passes print their lines on ("<routine>: Changed n
/// pixels out of m this iteration.", TextureElastica's "ratio : " line, the missing-alpha
/// error): std::cout unless a PassLogScope of this thread points it elsewhere. The passes
/// print only from the thread that called them.
std::ostream& passLog();

/// While alive, points the calling thread's passLog() at `stream`, which must outlive it; the
/// sink it replaced comes back when it ends, so scopes nest. Other threads are not affected.
class PassLogScope {
public:
    explicit PassLogScope(std::ostream& stream);
    ~PassLogScope();
    PassLogScope(const PassLogScope&) = delete;
    PassLogScope& operator=(const PassLogScope&) = delete;

private:
    std::ostream* m_previous;
};

}  // namespace quorblen
