// Interrupt handling (Ctrl-C, TERM, HUP) and the terminal progress bar of the commands.
#include "apps/Rendering.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <boost/timer/progress_display.hpp>
#include <chrono>
#include <iostream>
#include <optional>
#include <thread>

#include "apps/CommandLine.h"

namespace quorblen::app {
namespace {

std::atomic<bool> interrupted{false};
std::atomic<int> guards{0};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "used from a signal handler");

extern "C" void onInterrupt(int) {
    if (guards.load() > 0) {
        interrupted.store(true);
        return;
    }
    // Outside a guarded render nothing would see the flag: stop now, as the default action
    // would, with the program's own exit code. write and _exit are safe in a signal handler.
    constexpr char message[] = "quorblen: interrupted\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, message, sizeof message - 1);
    _exit(ExitInterrupted);
}

}  // namespace

void installInterruptHandler() {
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    // Reads and writes in flight resume after the handler, as they did under std::signal.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    // A closed terminal or ssh session (HUP) stops the program as Ctrl-C and TERM do.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        // A signal the parent ignores (a background job of a script) stays ignored.
        struct sigaction inherited = {};
        if (sigaction(signal, nullptr, &inherited) == 0 && inherited.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
    // Past a file size limit (ulimit -f) a write fails with EFBIG and is reported, rather than
    // the signal ending the program with a core and a temporary file left behind.
    signal(SIGXFSZ, SIG_IGN);
}

InterruptGuard::InterruptGuard() {
    interrupted.store(false);
    guards.fetch_add(1);
}

InterruptGuard::~InterruptGuard() {
    guards.fetch_sub(1);
}

const std::atomic<bool>& InterruptGuard::flag() {
    return interrupted;
}

DisplayDelay::DisplayDelay()
    : m_terminal(isatty(STDERR_FILENO) != 0), m_start(std::chrono::steady_clock::now()) {}

bool DisplayDelay::due() const {
    // Short runs finish before a display would be worth drawing.
    return m_terminal && elapsed() >= 0.5;
}

double DisplayDelay::elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

struct TerminalProgress::Display {
    static constexpr unsigned long steps = 100;
    DisplayDelay delay;
    std::optional<boost::timer::progress_display> bar;
};

TerminalProgress::TerminalProgress() : m_display(std::make_unique<Display>()) {}

TerminalProgress::~TerminalProgress() = default;

void TerminalProgress::update(double fraction) {
    Display& d = *m_display;
    if (!d.bar) {
        if (!d.delay.due()) {
            return;
        }
        d.bar.emplace(Display::steps, std::clog, "\n", "", "");
    }
    const auto target = static_cast<unsigned long>(fraction * Display::steps);
    if (target > d.bar->count() && d.bar->count() < Display::steps) {
        *d.bar += std::min(target, Display::steps) - d.bar->count();
    }
}

host::RenderOptions renderOptions(int threads, host::ProgressSink* progress) {
    host::RenderOptions options;
    options.threads = threads;
    options.progress = progress;
    options.interrupt = &InterruptGuard::flag();
    return options;
}

}  // namespace quorblen::app
