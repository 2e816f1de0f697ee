// Fuzzes the command-line parsing: arbitrary words, one per line of the input, through
// Arguments and every parser of what the commands take.
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "fuzz/FuzzCheck.h"

namespace {

using quorblen::app::Arguments;
using quorblen::app::UsageError;
using quorblen::fuzz::check;

/// An integer option in [min, max]: absent gives the fallback, which lies outside the range.
void parseInt(const Arguments& arguments, const std::string& option, int min, int max) {
    const int value = arguments.intValue(option, min - 1, min, max);
    check(arguments.has(option) ? value >= min && value <= max : value == min - 1);
}

/// A floating-point option from `min` (excluded when `minExclusive`) to 1e30: absent gives NaN.
void parseDouble(const Arguments& arguments, const std::string& option, double min,
                 bool minExclusive) {
    const double value = arguments.doubleValue(option, NAN, min, 1e30, minExclusive);
    check(arguments.has(option) ? value >= min && value <= 1e30 && !(minExclusive && value == min)
                                : std::isnan(value));
}

/// What the commands parse, with the ranges they ask for. Each parser throws UsageError for
/// what it refuses and checks what it accepts; a new parser is one more entry.
using Arg = const Arguments&;
using Opt = const std::string&;
struct Parser {
    const char* option;
    void (*parse)(Arg arguments, Opt option);
};
const Parser parsers[] = {
    {"--iterations", [](Arg a, Opt o) { parseInt(a, o, 1, 1000000); }},
    {"--threads", [](Arg a, Opt o) { parseInt(a, o, 1, 1024); }},
    {"--lambda", [](Arg a, Opt o) { parseDouble(a, o, 0.0, false); }},
    {"--epsilon", [](Arg a, Opt o) { parseDouble(a, o, 0.0, true); }},
    {"--a", [](Arg a, Opt o) { parseDouble(a, o, quorblen::app::MinimumRegularization, false); }},
};

/// The lines of `text`.
std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> result;
    std::size_t start = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos;
         end = text.find('\n', start)) {
        result.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    result.push_back(text.substr(start));
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> valueOptions = {"--mask"};
    for (const Parser& parser : parsers) {
        valueOptions.push_back(parser.option);
    }
    try {
        const Arguments arguments(words(std::string(reinterpret_cast<const char*>(data), size)),
                                  valueOptions, {"--verbose"});
        for (const Parser& parser : parsers) {
            try {
                parser.parse(arguments, parser.option);
            } catch (const UsageError&) {
            }
        }
    } catch (const UsageError&) {
    }
    return 0;
}
