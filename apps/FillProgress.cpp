// The progress line of a fill on the terminal.
#include "apps/FillProgress.h"

#include <cmath>
#include <iostream>
#include <sstream>

namespace quorblen::app {
namespace {

/// Characters of the bar between its brackets.
constexpr int BarWidth = 30;

/// The seconds left at the pace from `first` (of a fill that had `first` done `elapsed` seconds
/// ago) to `fraction`, rounded up; -1 while too little is done to tell.
int secondsLeft(double elapsed, double first, double fraction) {
    if (fraction - first < 0.01 || fraction >= 1.0) {
        return -1;
    }
    return int(std::ceil(elapsed * (1.0 - fraction) / (fraction - first)));
}

/// "  about 12 s left", "  about 3 min left", or nothing for -1.
std::string timeLeft(int seconds) {
    if (seconds < 0) {
        return "";
    }
    return seconds < 120 ? "  about " + std::to_string(seconds) + " s left"
                         : "  about " + std::to_string((seconds + 59) / 60) + " min left";
}

}  // namespace

FillProgress::FillProgress()
    : m_logBuffer(*this, std::clog),
      m_outBuffer(*this, std::cout),
      m_log(&m_logBuffer),
      m_out(&m_outBuffer) {}

FillProgress::~FillProgress() {
    erase();
}

void FillProgress::update(std::string_view stage, double fraction) {
    // The pace counts from the first report: the setup before it says nothing of the rest.
    const auto now = std::chrono::steady_clock::now();
    if (!m_first) {
        m_first = {now, fraction};
    }
    if (!m_delay.due()) {
        return;
    }
    // Most reports change nothing on the line; those cost no more than this comparison.
    const int percent = int(fraction * 100.0);
    const int left = secondsLeft(std::chrono::duration<double>(now - m_first->first).count(),
                                 m_first->second, fraction);
    if (!m_drawn.empty() && stage == m_shown.stage && percent == m_shown.percent &&
        left == m_shown.left) {
        return;
    }
    m_shown = {std::string(stage), percent, left};
    const int filled = int(fraction * BarWidth);
    std::ostringstream line;
    line << stage << " [" << std::string(std::size_t(filled), '#')
         << std::string(std::size_t(BarWidth - filled), ' ') << "] " << percent << "%"
         << timeLeft(left);
    // Spaces cover what a longer line before left.
    const std::size_t cover =
        m_drawn.size() > line.str().size() ? m_drawn.size() - line.str().size() : 0;
    std::clog << '\r' << line.str() << std::string(cover, ' ') << std::flush;
    m_drawn = line.str();
}

void FillProgress::erase() {
    if (!m_drawn.empty()) {
        std::clog << '\r' << std::string(m_drawn.size(), ' ') << '\r' << std::flush;
        m_drawn.clear();
    }
}

int FillProgress::ErasingBuffer::overflow(int c) {
    if (c != traits_type::eof()) {
        m_progress.erase();
        m_target.put(char(c));
    }
    return traits_type::not_eof(c);
}

std::streamsize FillProgress::ErasingBuffer::xsputn(const char* s, std::streamsize n) {
    m_progress.erase();
    m_target.write(s, n);
    return n;
}

}  // namespace quorblen::app
