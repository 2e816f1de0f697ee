// The loop every command runs its work in: one file, or each frame of a sequence.
#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace quorblen::app {

class Arguments;

/// The options of the frame loop, for a command's lists of value and flag options.
inline const std::vector<std::string> frameOptions = {"--frames"};
inline const std::vector<std::string> frameFlags = {"--quiet", "--verbose", "--skip-bad-frames"};

/// One run of a command's work: a frame of the sequence, or the one run without --frames.
struct Frame {
    std::optional<int> number;

    /// `pattern` with its frame token replaced by this frame's number; `pattern` itself when
    /// it has none.
    std::string name(const std::string& pattern) const;
};

/// A command's work on one frame. Returns what it wrote, in one line ("Wrote out.png (1200 x
/// 800)"), or nothing when the user interrupted it and no file was written. Throws
/// CommandError when the frame fails.
using FrameWork = std::function<std::optional<std::string>(const Frame& frame)>;

/// Runs `work` for the command `command` once or, with --frames, for every frame of the range
/// in ascending order, and returns the program's exit code. `names` are the command line's file
/// names, INPUT and OUTPUT first: with --frames both need a frame token and the others
/// (a mask) may have one; without, none may. -q (--quiet) silences standard output and
/// std::clog, where the commands' notes and progress go, for the whole run; -v (--verbose)
/// prints a line per frame with its time. A failed frame stops the run with its error; with
/// --skip-bad-frames it is reported and skipped, and the run ends with ExitFailure.
/// Throws UsageError for a bad range or misplaced frame tokens.
int runFrames(const std::string& command, const Arguments& arguments,
              const std::vector<std::string>& names, const FrameWork& work);

/// Lists the frame and message options and the exit codes.
void describeFrameOptions(std::ostream& out);

}  // namespace quorblen::app
