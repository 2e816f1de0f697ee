// Frame ranges and frame tokens in file names.
#include "apps/FrameSequence.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <string_view>

#include "apps/CommandLine.h"

namespace quorblen::app {
namespace {

constexpr int MaxFrame = 999999999;
constexpr std::size_t MaxFrames = 1000000;
constexpr auto npos = std::string_view::npos;

/// The frame number `text`, or -1 when it is not a whole number from 0 to MaxFrame.
int frameNumber(std::string_view text) {
    int number = -1;
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, number);
    return ec == std::errc() && ptr == end && number >= 0 && number <= MaxFrame ? number : -1;
}

/// The length of the frame token at `name[i]` (0: none) and the digits it asks for.
std::pair<std::size_t, std::size_t> frameToken(std::string_view name, std::size_t i) {
    const char c = name[i];
    if (c == '#' || c == '@') {
        const std::size_t length = std::min(name.find_first_not_of(c, i), name.size()) - i;
        return {length, c == '#' ? 4 * length : length};
    }
    if (c != '%') {
        return {0, 0};
    }
    // printf's "%d" and "%0Nd"; "%5d" would pad with spaces, so it is no token.
    const std::size_t digits = name.find_first_not_of("0123456789", i + 1);
    const std::string_view width = name.substr(i + 1, digits - i - 1);
    if (digits == npos || name[digits] != 'd' || width.size() > 3 ||
        !(width.empty() || width[0] == '0')) {
        return {0, 0};
    }
    return {digits + 1 - i, width.empty() ? 0 : std::size_t(frameNumber(width))};
}

}  // namespace

std::vector<int> parseFrameRange(const std::string& range) {
    const auto bad = [&](const char* what) {
        return UsageError(std::string("--frames ") + what + ", not \"" + range + "\"");
    };
    std::vector<int> frames;
    for (std::size_t start = 0; start <= range.size();) {
        const std::size_t comma = std::min(range.find(',', start), range.size());
        const std::string_view item = std::string_view(range).substr(start, comma - start);
        start = comma + 1;
        const std::size_t dash = item.find('-');
        const std::size_t x = item.find('x');
        const int first = frameNumber(item.substr(0, std::min(dash, x)));
        const int last = dash == npos ? first : frameNumber(item.substr(dash + 1, x - dash - 1));
        const int step = x == npos ? 1 : frameNumber(item.substr(x + 1));
        if (first < 0 || last < 0 || step < 1 || (x != npos && dash > x)) {
            throw bad("must be like 1-100, 1-100x5 or 3,7,10-20 (frames 0 to 999999999)");
        }
        if (last < first) {
            throw bad("must not run backwards");
        }
        if (frames.size() + std::size_t((last - first) / step) >= MaxFrames) {
            throw bad("may hold at most a million frames");
        }
        // No overflow: both frame and step are at most MaxFrame.
        for (int frame = first; frame <= last; frame += step) {
            frames.push_back(frame);
        }
    }
    std::sort(frames.begin(), frames.end());
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
    return frames;
}

std::string frameFileName(const std::string& name, int frame) {
    assert(frame >= 0);
    const std::string number = std::to_string(frame);
    std::string result;
    for (std::size_t i = 0; i < name.size();) {
        const auto [length, width] = frameToken(name, i);
        if (length == 0) {
            result += name[i++];
            continue;
        }
        result.append(width > number.size() ? width - number.size() : 0, '0');
        result += number;
        i += length;
    }
    return result;
}

bool hasFrameToken(const std::string& name) {
    // The first token turns into a digit where the name has '#', '@' or '%'.
    return frameFileName(name, 0) != name;
}

}  // namespace quorblen::app
