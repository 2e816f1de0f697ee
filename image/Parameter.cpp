// Words for numeric parameters: their values, ranges and mistakes.
#include "image/Parameter.h"

#include <charconv>
#include <cmath>
#include <string_view>

namespace quorblen {

std::string formatNumber(double value) {
    // Both shortest texts that read back as the value; plain digits unless the exponent form
    // is much shorter (0.0001 and 1000000, but 1e-30 and 1e+30).
    char scientific[32];
    char fixed[400];
    const std::string_view shortest(
        scientific, std::to_chars(scientific, scientific + sizeof scientific, value).ptr);
    const std::string_view digits(
        fixed, std::to_chars(fixed, fixed + sizeof fixed, value, std::chars_format::fixed).ptr);
    return std::string(digits.size() <= shortest.size() + 2 ? digits : shortest);
}

std::string valueText(const NumberRange& range, double value) {
    // Whole numbers in range print all their digits; 1e+06 iterations reads badly.
    if (range.whole && value == std::trunc(value) && std::fabs(value) < 1e15) {
        return std::to_string(static_cast<long long>(value));
    }
    return formatNumber(value);
}

std::string rangeText(const NumberRange& range) {
    const std::string min = valueText(range, range.min);
    if (range.max < HUGE_VAL) {
        return min + (range.minExclusive ? " (excluded)" : "") + " to " +
               valueText(range, range.max);
    }
    return (range.minExclusive ? "above " : "at least ") + min;
}

std::string rangeProblem(const NumberRange& range, double value) {
    if (!std::isfinite(value)) {
        return "must be a finite number, not " + formatNumber(value);
    }
    if (value >= range.min && value <= range.max && !(range.minExclusive && value == range.min)) {
        return "";
    }
    std::string text = std::string("must be ") + (range.minExclusive ? "above " : "at least ") +
                       valueText(range, range.min);
    if (range.max < HUGE_VAL) {
        text += " and at most " + valueText(range, range.max);
    }
    return text + ", not " + valueText(range, value);
}

}  // namespace quorblen
