// The library's parameter tables as Python keyword arguments: names, checks, docstrings and
// signatures, and the `fixnan` keyword.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <string>

#include <pybind11/pybind11.h>

#include "image/ImageBuffer.h"
#include "image/NonFinite.h"
#include "image/Parameter.h"

namespace quorblen::python {

namespace py = pybind11;

/// The keyword of the parameter called `name`: the name with '_' for '-', and "lam" for
/// "lambda", a word Python reserves.
std::string keywordOf(const char* name);

/// `value` as a number for the keyword `keyword`: an integer (Python's or NumPy's), or when
/// not `whole` anything `float()` takes but text. Throws py::type_error naming the keyword.
double numberOf(const py::handle& value, const std::string& keyword, bool whole);

/// When `keyword` is that of a parameter of `table`, sets its field in `options` from `value`
/// (None leaves it as it is) and returns true; false for another keyword.
/// Throws py::type_error for a value of the wrong type, py::value_error for one outside the
/// parameter's range ("a must be at least 1e-30 and at most 1e+30, not 0").
template <class Table, class Options>
bool setKeyword(const Table& table, const std::string& keyword, const py::handle& value,
                Options& options) {
    for (const auto& parameter : table) {
        if (keyword != keywordOf(parameter.name)) {
            continue;
        }
        if (!value.is_none()) {
            const double number = numberOf(value, keyword, isWholeNumber(parameter));
            if (const std::string problem = parameterProblem(parameter, number); !problem.empty()) {
                throw py::value_error(keyword + " " + problem);
            }
            setParameter(parameter, number, options);
        }
        return true;
    }
    return false;
}

/// Raises the TypeError of Python for a keyword `function` does not take.
[[noreturn]] void unexpectedKeyword(const char* function, const std::string& keyword);

/// The keyword that chooses a NonFiniteMode.
inline constexpr const char* fixNanKeyword = "fixnan";

/// The mode `value` names. Throws py::type_error when it is not a str, py::value_error for
/// another word.
NonFiniteMode fixNanMode(const py::handle& value);

/// Reads the keyword arguments of `function` (its **kwargs): those of `table` into `options`
/// (setKeyword) and `fixnan` into the mode it returns (None when absent); the keywords of
/// `others` are left to the caller. Throws py::type_error for any other keyword.
template <class Table, class Options>
NonFiniteMode readKeywords(const char* function, const py::kwargs& keywords, const Table& table,
                           Options& options, std::initializer_list<const char*> others = {}) {
    NonFiniteMode mode = NonFiniteMode::None;
    for (const auto& [key, value] : keywords) {
        const std::string keyword = py::str(key);
        if (keyword == fixNanKeyword) {
            mode = fixNanMode(value);
        } else if (std::find(others.begin(), others.end(), keyword) == others.end() &&
                   !setKeyword(table, keyword, value, options)) {
            unexpectedKeyword(function, keyword);
        }
    }
    return mode;
}

/// The docstring lines of `parameter`: its keyword, range and `defaults`, then its meaning.
template <class Options>
std::string keywordHelp(const Parameter<Options>& parameter, const std::string& defaults) {
    return "    " + keywordOf(parameter.name) + " (" + parameterRange(parameter) + "; " + defaults +
           ")\n        " + parameter.meaning + "\n";
}

/// `value` as Python writes a literal of it: "5", or "5.0" and "0.0001" for a float.
std::string pythonNumber(double value, bool whole);

/// The keyword of `parameter` in a signature, with its type: "lam: float = 5.0" for the default
/// `value`, or "lam: float | None = None" without one.
template <class Options>
std::string keywordSignature(const Parameter<Options>& parameter, std::optional<double> value) {
    const bool whole = isWholeNumber(parameter);
    return keywordOf(parameter.name) + ": " + (whole ? "int" : "float") +
           (value ? " = " + pythonNumber(*value, whole) : " | None = None");
}

/// The signature and the docstring lines of `fixnan`.
std::string fixNanSignature();
std::string fixNanHelp();

/// Repairs `image`, the argument `name`, as `mode` says (repairNonFinite). Under None, when
/// some samples are not finite, warns with a RuntimeWarning saying how many; under Error
/// raises ValueError naming the argument and the count.
void fixNonFinite(ImageBuffer& image, NonFiniteMode mode, const char* name);

}  // namespace quorblen::python
