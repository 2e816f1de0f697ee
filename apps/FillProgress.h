// The progress line of a fill on the terminal.
#pragma once

#include <chrono>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>

#include "apps/Rendering.h"
#include "inpaint/RecipeProgress.h"

namespace quorblen::app {

/// A line on std::clog (standard error, unless -q silences it) that shows how far a fill has
/// got: the stage ("texture: pass 2 of 3"), a bar and an estimate of the time left, redrawn in
/// place; drawn only when standard error is a terminal and the fill is still running after
/// half a second. The fill's other lines go through log() and out(), which take the line's
/// place on the terminal; the next update draws it again below them. It is erased when the
/// object goes.
class FillProgress : public RecipeProgress {
public:
    FillProgress();
    ~FillProgress() override;
    FillProgress(const FillProgress&) = delete;
    FillProgress& operator=(const FillProgress&) = delete;

    void update(std::string_view stage, double fraction) override;

    /// Streams that write to std::clog and std::cout once the progress line is erased.
    std::ostream& log() { return m_log; }
    std::ostream& out() { return m_out; }

private:
    /// Erases the progress line, if drawn, before anything passes to `target`.
    class ErasingBuffer : public std::streambuf {
    public:
        ErasingBuffer(FillProgress& progress, std::ostream& target)
            : m_progress(progress), m_target(target) {}

    protected:
        int overflow(int c) override;
        std::streamsize xsputn(const char* s, std::streamsize n) override;

    private:
        FillProgress& m_progress;
        std::ostream& m_target;
    };

    void erase();

    DisplayDelay m_delay;
    // When the first report came, and its fraction.
    std::optional<std::pair<std::chrono::steady_clock::time_point, double>> m_first;
    /// What the line shows: the stage, the percentage and the seconds left (-1: unknown).
    struct Shown {
        std::string stage;
        int percent;
        int left;
    };
    Shown m_shown;
    std::string m_drawn;  // the line on the terminal; empty: none
    ErasingBuffer m_logBuffer;
    ErasingBuffer m_outBuffer;
    std::ostream m_log;
    std::ostream m_out;
};

}  // namespace quorblen::app
