// Argument parsing and error reporting shared by the quorblen commands.
#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "image/Parameter.h"

namespace quorblen::app {

/// Exit codes of the program.
enum ExitCode : int { ExitOk = 0, ExitFailure = 1, ExitUsage = 2, ExitInterrupted = 130 };

/// A mistake in the command line; what() is the one line to show (without the program name).
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A failure while running a command (unreadable input, unwritable output, ...).
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The arguments of one command: positional words and "--name value" / "--name=value"
/// options; "-d TYPE" stands for "--data-type TYPE", "-q" for "--quiet", "-v" for "--verbose".
/// Options must be among those the command declares.
class Arguments {
public:
    /// Parses `args`; `valueOptions` take a value, `flagOptions` take none.
    /// Throws UsageError for an unknown option or a missing value.
    Arguments(const std::vector<std::string>& args, const std::vector<std::string>& valueOptions,
              const std::vector<std::string>& flagOptions = {});

    const std::vector<std::string>& positional() const { return m_positional; }
    bool has(const std::string& option) const { return m_values.count(option) != 0; }
    std::optional<std::string> value(const std::string& option) const;

    /// The option as a number (with `whole`, a whole number), or nothing when absent.
    /// Throws UsageError naming the option when its text is not one.
    std::optional<double> number(const std::string& option, bool whole) const;

private:
    std::vector<std::string> m_positional;
    std::map<std::string, std::string> m_values;
};

/// The option that sets the parameter called `name`: "--" and the name.
std::string optionOf(const char* name);

/// Sets the field of `parameter` in `options` from its option, when the command line has it.
/// Throws UsageError naming the option for a value that is not a number of the field's kind
/// or lies outside the parameter's range ("--a must be at least 1e-30 and at most 1e+30, not
/// 0").
template <class Options>
void readParameter(const Arguments& arguments, const Parameter<Options>& parameter,
                   Options& options) {
    const std::string option = optionOf(parameter.name);
    if (const std::optional<double> value = arguments.number(option, isWholeNumber(parameter))) {
        if (const std::string problem = parameterProblem(parameter, *value); !problem.empty()) {
            throw UsageError(option + " " + problem);
        }
        setParameter(parameter, *value, options);
    }
}

/// Lists `parameter` in a command's help: its option, range and `defaults`, then its meaning
/// and `note`.
template <class Options>
void describeParameter(std::ostream& out, const Parameter<Options>& parameter,
                       const std::string& defaults, const std::string& note = "") {
    out << "        " << optionOf(parameter.name) << " (" << parameterRange(parameter) << "; "
        << defaults << ")\n            " << parameter.meaning << note << "\n";
}

/// The file `name` shipped with the program (the bundled sample photo and mask): looked up
/// in the source tree the program was built from, then beside the installed program.
std::string bundledDataFile(const std::string& name);

/// The Quorblen module file: beside the program, or in the installed module folder.
std::string moduleFile();

}  // namespace quorblen::app
