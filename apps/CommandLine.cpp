// Argument parsing and lookup of the files the program ships with.
#include "apps/CommandLine.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>

namespace quorblen::app {
namespace {

bool contains(const std::vector<std::string>& list, const std::string& word) {
    return std::find(list.begin(), list.end(), word) != list.end();
}

/// Short spellings of options, as oiiotool has them.
constexpr std::pair<const char*, const char*> shortOptions[] = {
    {"-d", "--data-type"}, {"-q", "--quiet"}, {"-v", "--verbose"}};

std::filesystem::path programDirectory() {
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::current_path() : self.parent_path();
}

}  // namespace

std::string optionOf(const char* name) {
    return std::string("--") + name;
}

Arguments::Arguments(const std::vector<std::string>& args,
                     const std::vector<std::string>& valueOptions,
                     const std::vector<std::string>& flagOptions) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string arg = args[i];
        for (const auto& [shortName, longName] : shortOptions) {
            if (arg == shortName &&
                (contains(valueOptions, longName) || contains(flagOptions, longName))) {
                arg = longName;
            }
        }
        if (arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
            m_positional.push_back(arg);
            continue;
        }
        const std::size_t equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        if (contains(flagOptions, name) && equals == std::string::npos) {
            m_values[name] = "";
        } else if (contains(valueOptions, name)) {
            if (equals != std::string::npos) {
                m_values[name] = arg.substr(equals + 1);
            } else if (i + 1 < args.size()) {
                m_values[name] = args[++i];
            } else {
                throw UsageError(name + " needs a value");
            }
        } else {
            throw UsageError("unknown option " + name);
        }
    }
}

std::optional<std::string> Arguments::value(const std::string& option) const {
    auto found = m_values.find(option);
    if (found == m_values.end()) {
        return std::nullopt;
    }
    return found->second;
}

/// `text` as a number of type T, or a UsageError naming `option` and what it must be.
template <class T>
T parseNumber(const std::string& option, const std::string& text, const char* what) {
    T number{};
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, number);
    if (ec != std::errc() || ptr != end || text.empty()) {
        throw UsageError(option + " must be " + what + ", not \"" + text + "\"");
    }
    return number;
}

std::optional<double> Arguments::number(const std::string& option, bool whole) const {
    const std::optional<std::string> text = value(option);
    if (!text) {
        return std::nullopt;
    }
    if (whole) {
        return double(parseNumber<long long>(option, *text, "a whole number"));
    }
    return parseNumber<double>(option, *text, "a number");
}

std::string bundledDataFile(const std::string& name) {
    const std::filesystem::path candidates[] = {
        std::filesystem::path(QUORBLEN_SOURCE_DATA_DIR) / name,
        programDirectory() / ".." / QUORBLEN_DATA_INSTALL_DIR / name,
    };
    for (const std::filesystem::path& candidate : candidates) {
        std::error_code ec;
        if (std::filesystem::is_regular_file(candidate, ec)) {
            return candidate.lexically_normal().string();
        }
    }
    throw CommandError("cannot find the bundled file " + name);
}

std::string moduleFile() {
    const std::filesystem::path candidates[] = {
        programDirectory() / "Quorblen.so",
        programDirectory() / ".." / QUORBLEN_MODULE_INSTALL_DIR / "Quorblen.so",
    };
    for (const std::filesystem::path& candidate : candidates) {
        std::error_code ec;
        if (std::filesystem::is_regular_file(candidate, ec)) {
            return candidate.lexically_normal().string();
        }
    }
    throw CommandError(
        "cannot find the Quorblen module (Quorblen.so) beside the program or in " +
        (programDirectory() / ".." / QUORBLEN_MODULE_INSTALL_DIR).lexically_normal().string());
}

}  // namespace quorblen::app
