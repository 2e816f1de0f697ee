// The words for parameters: numbers that read back as themselves, ranges and mistakes.
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <limits>

#include "image/Parameter.h"

namespace quorblen {
namespace {

struct Options {
    int count;
    double weight;
};
constexpr Parameter<Options> count{"count", "", &Options::count, 1, 100, false};
constexpr Parameter<Options> step{"step", "", &Options::weight, 0, 1, true};
constexpr Parameter<Options> weight{"weight", "", &Options::weight, 1e-30, HUGE_VAL, false};

TEST(Parameter, NumbersPrintShortAndReadBackExactly) {
    const struct {
        double value;
        const char* text;
    } cases[] = {{0.0001, "0.0001"},
                 {1e6, "1000000"},
                 {1e-30, "1e-30"},
                 {1e30, "1e+30"},
                 {0.1 + 0.2, "0.30000000000000004"},
                 {-2.5, "-2.5"},
                 {HUGE_VAL, "inf"},
                 {1e-5, "0.00001"},
                 {1.5e-7, "1.5e-07"}};
    for (const auto& c : cases) {
        const std::string text = formatNumber(c.value);
        EXPECT_EQ(text, c.text);
        double back = 0.0;
        std::from_chars(text.data(), text.data() + text.size(), back);
        EXPECT_EQ(back, c.value) << text;
    }
}

TEST(Parameter, RangesAndMistakesInWords) {
    const struct {
        const Parameter<Options>& parameter;
        double value;
        const char* range;
        const char* problem;
    } cases[] = {
        {count, 0, "1 to 100", "must be at least 1 and at most 100, not 0"},
        {count, 100, "1 to 100", ""},
        {count, 1e6, "1 to 100", "must be at least 1 and at most 100, not 1000000"},
        {step, 0, "0 (excluded) to 1", "must be above 0 and at most 1, not 0"},
        {step, 1, "0 (excluded) to 1", ""},
        {weight, 0, "at least 1e-30", "must be at least 1e-30, not 0"},
        {weight, HUGE_VAL, "at least 1e-30", "must be a finite number, not inf"},
        {weight, std::nan(""), "at least 1e-30", "must be a finite number, not nan"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(parameterRange(c.parameter), c.range);
        EXPECT_EQ(parameterProblem(c.parameter, c.value), c.problem);
    }
}

}  // namespace
}  // namespace quorblen
