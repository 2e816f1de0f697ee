// The frame loop: frames in order, verbosity, skipped frames and interrupts.
#include "apps/FrameLoop.h"

#include <chrono>
#include <cmath>
#include <iostream>

#include "apps/CommandLine.h"
#include "apps/FrameSequence.h"
#include "apps/Rendering.h"

namespace quorblen::app {
namespace {

/// While alive, standard output and std::clog discard what they are given (-q).
class Silence {
public:
    explicit Silence(bool quiet)
        : m_out(quiet ? std::cout.rdbuf(nullptr) : nullptr),
          m_log(quiet ? std::clog.rdbuf(nullptr) : nullptr) {}
    ~Silence() {
        if (m_out != nullptr) {
            std::cout.rdbuf(m_out);
            std::clog.rdbuf(m_log);
        }
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    std::streambuf* m_out;
    std::streambuf* m_log;
};

/// Throws UsageError unless the frame tokens of `names` suit `sequence` (--frames given).
void checkFrameTokens(const std::vector<std::string>& names, bool sequence) {
    for (std::size_t k = 0; k < names.size(); ++k) {
        if (sequence && k < 2 && !hasFrameToken(names[k])) {
            throw UsageError(
                "--frames needs INPUT and OUTPUT names with a frame token (#, @ or "
                "%0Nd), not " +
                names[k]);
        }
        if (!sequence && hasFrameToken(names[k])) {
            throw UsageError(names[k] + " has a frame token (#, @ or %0Nd): give --frames RANGE");
        }
    }
}

}  // namespace

std::string Frame::name(const std::string& pattern) const {
    return number ? frameFileName(pattern, *number) : pattern;
}

int runFrames(const std::string& command, const Arguments& arguments,
              const std::vector<std::string>& names, const FrameWork& work) {
    const std::optional<std::string> range = arguments.value("--frames");
    checkFrameTokens(names, range.has_value());
    const bool verbose = arguments.has("--verbose");
    if (verbose && arguments.has("--quiet")) {
        throw UsageError("-q and -v exclude each other");
    }
    std::vector<Frame> frames(1);
    if (range) {
        frames.clear();
        for (const int number : parseFrameRange(*range)) {
            frames.push_back({number});
        }
    }
    const bool skipBadFrames = arguments.has("--skip-bad-frames");
    const std::string prefix = "quorblen " + command + ": ";
    const Silence silence(arguments.has("--quiet"));
    std::vector<int> skipped;
    for (const Frame& frame : frames) {
        const std::string label =
            frame.number ? "frame " + std::to_string(*frame.number) + ": " : "";
        const auto start = std::chrono::steady_clock::now();
        std::optional<std::string> written;
        try {
            written = work(frame);
        } catch (const CommandError& e) {
            // A read cut short by Ctrl-C fails as well; it ends the run as an interrupt.
            if (!InterruptGuard::flag().load()) {
                if (!frame.number || !skipBadFrames) {
                    throw CommandError(label + e.what());
                }
                std::cerr << prefix << label << "skipped: " << e.what() << "\n";
                skipped.push_back(*frame.number);
                continue;
            }
        }
        if (!written) {
            std::cerr << prefix << "interrupted; " << frame.name(names[1]) << " was not written\n";
            return ExitInterrupted;
        }
        if (verbose) {
            const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
            std::cout << label << *written << " in "
                      << formatNumber(std::round(seconds.count() * 100.0) / 100.0) << " s\n";
        } else if (!frame.number) {
            std::cout << *written << "\n";
        }
    }
    if (range) {
        std::cout << "Wrote " << frames.size() - skipped.size() << " of " << frames.size()
                  << " frames of " << names[1] << "\n";
    }
    if (!skipped.empty()) {
        std::string list;
        for (const int number : skipped) {
            list += (list.empty() ? "" : ", ") + std::to_string(number);
        }
        std::cerr << prefix << skipped.size() << " of " << frames.size()
                  << " frames skipped: " << list << "\n";
        return ExitFailure;
    }
    return ExitOk;
}

void describeFrameOptions(std::ostream& out) {
    out << "      --frames RANGE  run over a numbered sequence: INPUT and OUTPUT (and MASK,\n"
           "                      which without one serves every frame) name the frame by a\n"
           "                      token: # for four digits (shot.#.exr: shot.0001.exr), @ for\n"
           "                      one digit each (@@@), or %0Nd. RANGE: 1-100, 1-100x5 (every\n"
           "                      fifth), 3,7,10-20 or a mix. Frames run in ascending order;\n"
           "                      each finished frame is complete on disk. A name with a token\n"
           "                      needs --frames.\n"
           "      --skip-bad-frames  report a frame that fails (a missing or unreadable input)\n"
           "                      and go on with the next, instead of stopping there\n"
           "      -q, --quiet     print errors only\n"
           "      -v, --verbose   print a line per frame with its sizes and time\n"
           "      Exit status: 0 done; 1 a file or frame failed (or was skipped); 2 bad\n"
           "      usage; 130 interrupted (Ctrl-C, TERM or HUP), which leaves no partial file.\n";
}

}  // namespace quorblen::app
