// Fuzzes the command-line parsing: arbitrary words, one per line of the input, through
// Arguments and the parsers of every option value the commands take.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/FrameLoop.h"
#include "apps/FrameSequence.h"
#include "fuzz/FuzzCheck.h"
#include "inpaint/Recipe.h"

namespace {

namespace app = quorblen::app;
using quorblen::RecipeOptions;
using quorblen::RecipeParameter;
using quorblen::app::Arguments;
using quorblen::app::UsageError;
using quorblen::fuzz::check;

/// An integer option in [min, max]: absent gives the fallback, which lies outside the range.
void parseInt(const Arguments& arguments, const std::string& option, int min, int max) {
    const int value = arguments.intValue(option, min - 1, min, max);
    check(arguments.has(option) ? value >= min && value <= max : value == min - 1);
}

/// A floating-point option in [min, max] (min excluded when `minExclusive`): absent gives NaN.
void parseDouble(const Arguments& arguments, const std::string& option, double min, double max,
                 bool minExclusive) {
    const double value = arguments.doubleValue(option, NAN, min, max, minExclusive);
    check(arguments.has(option) ? value >= min && value <= max && !(minExclusive && value == min)
                                : std::isnan(value));
}

/// A frame range: ascending frames, each once, from 0 to 999999999.
void parseFrames(const Arguments& arguments, const std::string& option) {
    if (const auto range = arguments.value(option)) {
        const std::vector<int> frames = app::parseFrameRange(*range);
        check(!frames.empty() && frames.front() >= 0 && frames.back() <= 999999999 &&
              std::adjacent_find(frames.begin(), frames.end(), std::greater_equal<>()) ==
                  frames.end());
    }
}

/// Each positional word as a frame name: two frames differ in their names exactly when it has
/// a frame token.
void expandFrameNames(const Arguments& arguments) {
    for (const std::string& name : arguments.positional()) {
        check((app::frameFileName(name, 7) != app::frameFileName(name, 123456)) ==
              app::hasFrameToken(name));
    }
}

/// What the commands parse, with its ranges. Each parser throws UsageError for what
/// it refuses and checks what it accepts; a new parser is one more entry, reading its option
/// or, with a null one, the positional words.
using Arg = const Arguments&;
using Opt = const std::string&;
struct Parser {
    const char* option;
    void (*parse)(Arg arguments, Opt option);
};
const Parser parsers[] = {
    {"--frames", [](Arg a, Opt o) { parseFrames(a, o); }},
    {nullptr, [](Arg a, Opt) { expandFrameNames(a); }},
    {"--iterations", [](Arg a, Opt o) { parseInt(a, o, 1, 1000000); }},
    {"--threads", [](Arg a, Opt o) { parseInt(a, o, 1, 1024); }},
    {"--lambda", [](Arg a, Opt o) { parseDouble(a, o, 0.0, 1e30, false); }},
    {"--a", [](Arg a, Opt o) { parseDouble(a, o, app::MinimumRegularization, 1e30, false); }},
};

/// The inpaint command's option for a recipe parameter.
std::string optionOf(const RecipeParameter& parameter) {
    return std::string("--") + parameter.name;
}

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
    std::vector<std::string> valueOptions = {"--mask", "--method"};
    for (const Parser& parser : parsers) {
        if (parser.option != nullptr) {
            valueOptions.push_back(parser.option);
        }
    }
    for (const RecipeParameter& parameter : quorblen::recipeParameters()) {
        valueOptions.push_back(optionOf(parameter));
    }
    try {
        const Arguments arguments(words(std::string(reinterpret_cast<const char*>(data), size)),
                                  valueOptions, app::frameFlags);
        for (const Parser& parser : parsers) {
            try {
                parser.parse(arguments, parser.option != nullptr ? parser.option : "");
            } catch (const UsageError&) {
            }
        }
        // The inpaint command's options, each with its range, as the command parses them.
        for (const RecipeParameter& p : quorblen::recipeParameters()) {
            try {
                if (std::holds_alternative<int RecipeOptions::*>(p.field)) {
                    parseInt(arguments, optionOf(p), int(p.min), int(p.max));
                } else {
                    parseDouble(arguments, optionOf(p), p.min, p.max, p.minExclusive);
                }
            } catch (const UsageError&) {
            }
        }
    } catch (const UsageError&) {
    }
    return 0;
}
