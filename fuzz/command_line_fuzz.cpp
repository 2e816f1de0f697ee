// Fuzzes the command-line parsing: arbitrary words, one per line of the input, through
// Arguments and the parsers of every option value the commands take.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "apps/CommandLine.h"
#include "apps/FrameLoop.h"
#include "apps/FrameSequence.h"
#include "apps/NonFiniteInput.h"
#include "fuzz/FuzzCheck.h"
#include "inpaint/Recipe.h"
#include "node/QuorblenKnobs.h"

namespace {

namespace app = quorblen::app;
using quorblen::app::Arguments;
using quorblen::app::UsageError;
using quorblen::fuzz::check;

/// A parameter as the commands read it: a value it accepts lies in its range (an integer
/// field holds a whole number by its type); absent, the field keeps its value.
template <class Options>
void checkParameter(const Arguments& arguments, const quorblen::Parameter<Options>& parameter) {
    Options options{};
    const double before = quorblen::parameterValue(parameter, options);
    app::readParameter(arguments, parameter, options);
    const double value = quorblen::parameterValue(parameter, options);
    check(arguments.has(app::optionOf(parameter.name))
              ? quorblen::parameterProblem(parameter, value).empty()
              : value == before);
}

/// --fixnan: a mode it accepts is one of the library's.
void readFixNan(const Arguments& arguments) {
    const quorblen::NonFiniteMode mode = app::fixNanMode(arguments);
    check(arguments.has(app::fixNanOption)
              ? quorblen::findNonFiniteMode(*arguments.value(app::fixNanOption))->mode == mode
              : mode == quorblen::NonFiniteMode::None);
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

/// What the commands parse besides the parameters. Each parser throws UsageError for what
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
    {"--fixnan", [](Arg a, Opt) { readFixNan(a); }},
};

/// Calls `read` with every parameter of the upscale and inpaint commands.
template <class Read>
void forEachParameter(const Read& read) {
    for (const quorblen::UpscaleParameter& parameter : quorblen::upscaleParameters()) {
        read(parameter);
    }
    for (const quorblen::RecipeParameter& parameter : quorblen::recipeParameters()) {
        read(parameter);
    }
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
    forEachParameter(
        [&](const auto& parameter) { valueOptions.push_back(app::optionOf(parameter.name)); });
    try {
        const Arguments arguments(words(std::string(reinterpret_cast<const char*>(data), size)),
                                  valueOptions, app::frameFlags);
        for (const Parser& parser : parsers) {
            try {
                parser.parse(arguments, parser.option != nullptr ? parser.option : "");
            } catch (const UsageError&) {
            }
        }
        // The commands' numeric options, each with its range, as the commands parse them.
        forEachParameter([&](const auto& parameter) {
            try {
                checkParameter(arguments, parameter);
            } catch (const UsageError&) {
            }
        });
    } catch (const UsageError&) {
    }
    return 0;
}
