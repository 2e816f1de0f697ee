// Ctrl-C handling and the terminal progress bar of the commands.
#include "apps/Rendering.h"

#include <unistd.h>

#include <boost/timer/progress_display.hpp>
#include <chrono>
#include <csignal>
#include <iostream>
#include <optional>

namespace quorblen::app {
namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

extern "C" void onInterrupt(int) {
    interrupted.store(true);
}

}  // namespace

InterruptGuard::InterruptGuard() {
    interrupted.store(false);
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
}

InterruptGuard::~InterruptGuard() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

const std::atomic<bool>& InterruptGuard::flag() {
    return interrupted;
}

struct TerminalProgress::Display {
    static constexpr unsigned long steps = 100;
    bool terminal = isatty(STDERR_FILENO) != 0;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    std::optional<boost::timer::progress_display> bar;
};

TerminalProgress::TerminalProgress() : m_display(std::make_unique<Display>()) {}

TerminalProgress::~TerminalProgress() = default;

void TerminalProgress::update(double fraction) {
    Display& d = *m_display;
    if (!d.terminal) {
        return;
    }
    if (!d.bar) {
        // Short renders finish before a bar would be worth drawing.
        if (std::chrono::steady_clock::now() - d.start < std::chrono::milliseconds(500)) {
            return;
        }
        d.bar.emplace(Display::steps, std::cerr, "\n", "", "");
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
