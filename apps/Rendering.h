// What the commands need around a render: Ctrl-C handling and a progress display.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>

#include "host/Render.h"
#include "image/ThreadCount.h"

namespace quorblen::app {

/// Installs the program's handler of Ctrl-C (SIGINT), SIGTERM and SIGHUP (a closed terminal),
/// and ignores SIGXFSZ, so that a file size limit fails a write like a full disk. Called first
/// thing in main, before anything slow (loading the module, reading files) can be interrupted.
/// While an InterruptGuard is alive the handler only sets InterruptGuard::flag(); elsewhere it
/// ends the program at once with ExitInterrupted and "quorblen: interrupted" on standard
/// error. A signal the program inherited as ignored stays ignored.
void installInterruptHandler();

/// While alive, Ctrl-C, SIGTERM and SIGHUP set `flag()` instead of ending the program, so that a
/// render in flight, which polls the flag, is cancelled cleanly and nothing half-written is
/// left behind.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    static const std::atomic<bool>& flag();
};

/// Whether a progress display on standard error is worth drawing yet: standard error is a
/// terminal and half a second has passed since the object was made.
class DisplayDelay {
public:
    DisplayDelay();
    bool due() const;
    /// Seconds since the object was made.
    double elapsed() const;

private:
    bool m_terminal;
    std::chrono::steady_clock::time_point m_start;
};

/// A progress bar on std::clog (standard error, unless -q silences it), shown only when
/// standard error is a terminal and the render is still running after half a second.
class TerminalProgress : public host::ProgressSink {
public:
    TerminalProgress();
    ~TerminalProgress() override;
    void update(double fraction) override;

private:
    struct Display;
    std::unique_ptr<Display> m_display;
};

/// Render options for a command: `threads` threads, the interrupt flag of InterruptGuard and,
/// when given, a progress sink.
host::RenderOptions renderOptions(int threads, host::ProgressSink* progress);

}  // namespace quorblen::app
