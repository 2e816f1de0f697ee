// Argument parsing and error reporting shared by the quorblen commands.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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

/// `value` as people write it: the shortest text that reads back as it (1e-30, 0.5, 1e+30).
std::string formatNumber(double value);

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

    /// The option as an integer in [min, max], or `fallback` when absent.
    int intValue(const std::string& option, int fallback, int min, int max) const;
    /// The option as a finite number in [min, max] (min excluded when `minExclusive`),
    /// or `fallback` when absent.
    double doubleValue(const std::string& option, double fallback, double min, double max,
                       bool minExclusive = false) const;

private:
    std::vector<std::string> m_positional;
    std::map<std::string, std::string> m_values;
};

/// The file `name` shipped with the program (the bundled sample photo and mask): looked up
/// in the source tree the program was built from, then beside the installed program.
std::string bundledDataFile(const std::string& name);

/// The Quorblen module file: beside the program, or in the installed module folder.
std::string moduleFile();

}  // namespace quorblen::app
