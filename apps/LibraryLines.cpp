// Keeping the lines libraries print on their own out of the program's standard error.
#include "apps/LibraryLines.h"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace quorblen::app {
namespace {

/// What has come through the filter since the last end of line. The stream's own lock
/// serialises the calls that touch it.
std::string pending;

/// Whether `line` tells of a defect of the program itself, which ends it: glibc's failed
/// assertion and libstdc++'s uncaught exception (two lines). Those are kept; hiding them would
/// hide why.
bool isDefectLine(std::string_view line) {
    return line.find(": Assertion `") != std::string_view::npos ||
           line.starts_with("terminate called ") || line.starts_with("  what():  ");
}

void writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written <= 0) {
            return;
        }
        text.remove_prefix(std::size_t(written));
    }
}

/// Passes on every complete line that tells of a defect; keeps the unfinished rest for the next
/// call.
ssize_t writeFiltered(void*, const char* data, std::size_t size) {
    pending.append(data, size);
    std::size_t start = 0;
    for (std::size_t end; (end = pending.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string_view line(pending.data() + start, end + 1 - start);
        if (isDefectLine(line)) {
            writeAll(line);
        }
    }
    pending.erase(0, start);
    return ssize_t(size);
}

int closeFiltered(void*) {
    if (isDefectLine(pending)) {
        writeAll(pending);
    }
    pending.clear();
    return 0;
}

}  // namespace

void filterLibraryLines() {
    if (FILE* filtered =
            fopencookie(nullptr, "w", {nullptr, writeFiltered, nullptr, closeFiltered})) {
        // Unbuffered: every line goes out when it is complete, as on the real stream.
        std::setvbuf(filtered, nullptr, _IONBF, 0);
        stderr = filtered;
    }
}

}  // namespace quorblen::app
