// Numeric parameters of the library's routines, declared once for every front-end: name,
// meaning, field, range, and the words for their ranges, defaults and mistakes.
#pragma once

#include <string>
#include <type_traits>
#include <variant>

namespace quorblen {

/// `value` as people write it: the shortest text that reads back as it, in plain digits
/// unless the exponent form is more than two characters shorter (0.0001, 1000000, 0.5, 1e-30,
/// 1e+30, nan, inf).
std::string formatNumber(double value);

/// A numeric parameter of the options `Options` of a routine family: its name (words joined
/// by '-'), what it means with its unit, the field it sets and its range. Front-ends (the
/// command line's options, Python's keywords, help texts, fuzz targets) read every parameter
/// from such a table, each through one small reader.
template <class Options>
struct Parameter {
    const char* name;
    const char* meaning;
    std::variant<int Options::*, double Options::*> field;
    double min;
    double max;  // HUGE_VAL: no upper limit
    bool minExclusive;
};

/// Whether `parameter` sets a whole number.
template <class Options>
bool isWholeNumber(const Parameter<Options>& parameter) {
    return std::holds_alternative<int Options::*>(parameter.field);
}

/// The value of `parameter` in `options`, as a double.
template <class Options>
double parameterValue(const Parameter<Options>& parameter, const Options& options) {
    return std::visit([&](auto field) { return double(options.*field); }, parameter.field);
}

/// Stores `value` in the field of `parameter` in `options` (a whole number for an int field).
template <class Options>
void setParameter(const Parameter<Options>& parameter, double value, Options& options) {
    std::visit(
        [&](auto field) {
            options.*field = static_cast<std::remove_reference_t<decltype(options.*field)>>(value);
        },
        parameter.field);
}

/// What the texts of a parameter need: its range and whether it is a whole number.
struct NumberRange {
    double min;
    double max;
    bool minExclusive;
    bool whole;
};

/// The range and kind of `parameter`.
template <class Options>
NumberRange numberRange(const Parameter<Options>& parameter) {
    return {parameter.min, parameter.max, parameter.minExclusive, isWholeNumber(parameter)};
}

/// `value` as the text of a value in `range`: an integer's digits ("1000000") for a whole
/// number, else formatNumber's ("1e+30").
std::string valueText(const NumberRange& range, double value);

/// `range` in words: "1 to 100", "0 (excluded) to 1", "at least 0", "above 0".
std::string rangeText(const NumberRange& range);

/// What is wrong with `value` for `range`, to follow a parameter's name or option ("must be at
/// least 1 and at most 100, not 0", "must be above 0, not 0", "must be a finite number, not
/// nan"), or an empty string when it lies in the range.
std::string rangeProblem(const NumberRange& range, double value);

/// The range of `parameter` in words (rangeText).
template <class Options>
std::string parameterRange(const Parameter<Options>& parameter) {
    return rangeText(numberRange(parameter));
}

/// What is wrong with `value` for `parameter` (rangeProblem); empty when nothing is.
template <class Options>
std::string parameterProblem(const Parameter<Options>& parameter, double value) {
    return rangeProblem(numberRange(parameter), value);
}

/// `value` as the text of a value of `parameter` (valueText).
template <class Options>
std::string parameterText(const Parameter<Options>& parameter, double value) {
    return valueText(numberRange(parameter), value);
}

}  // namespace quorblen
