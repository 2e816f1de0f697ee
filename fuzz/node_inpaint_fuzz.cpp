// Fuzzes the Quorblen node and every inpainting recipe on tiny images of any float bits (NaN,
// infinities, subnormals) with any knob values the program accepts.
//
// Input: one byte choosing the node or a recipe, then what that one reads: sizes, counts and
// integer options from one byte each, floating-point knob values from eight bytes each (a
// double), samples from four bytes each (a float's bits). Bytes past the end read as 0.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "fuzz/FuzzCheck.h"
#include "host/OpWrapper.h"
#include "host/Render.h"
#include "inpaint/Inpaint.h"
#include "node/Quorblen.h"

namespace {

using quorblen::ImageBuffer;
using quorblen::fuzz::check;

/// Images are 1 to this many pixels a side.
constexpr int MaxSide = 12;
/// More iterations find nothing new on images this small; they only slow the search.
constexpr int MaxIterations = 4;
/// Integer recipe options (iterations, passes, radii) go at most this far above their
/// minimum, for the same reason: a diverging elastica run repeats its iterations with
/// doubled counts up to six times.
constexpr int MaxIntegerOption = 3;

/// The input, read from the front.
class ByteReader {
public:
    ByteReader(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    /// The next sizeof(T) bytes as a T; bytes past the end are 0.
    template <class T>
    T take() {
        unsigned char bytes[sizeof(T)] = {};
        const std::size_t n = std::min(sizeof(T), m_size);
        std::memcpy(bytes, m_data, n);
        m_data += n;
        m_size -= n;
        T value;
        std::memcpy(&value, bytes, sizeof(T));
        return value;
    }

    /// A whole number in [min, max] from the next byte.
    int small(int min, int max) { return min + take<std::uint8_t>() % (max - min + 1); }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

/// What a command accepts for a floating-point option: from `min` (excluded when
/// `minExclusive`) to `max`.
struct Range {
    double min;
    double max;
    bool minExclusive;
};
constexpr Range Lambda{0.0, 1e30, false};
constexpr Range Regularization{quorblen::app::MinimumRegularization, 1e30, false};

/// A knob value as a user types it and as the program reads it.
struct Number {
    std::string text;
    double value;
};

/// The next double of the input as a user would type it, when the command line's own check
/// of `range` accepts it; nothing when the program would refuse it.
std::optional<Number> takeNumber(ByteReader& in, Range range) {
    char text[32];
    const std::string word(text, std::to_chars(text, text + sizeof text, in.take<double>()).ptr);
    try {
        return Number{word,
                      quorblen::app::Arguments({"--value", word}, {"--value"})
                          .doubleValue("--value", 0.0, range.min, range.max, range.minExclusive)};
    } catch (const quorblen::app::UsageError&) {
        return std::nullopt;
    }
}

/// A width x height x channels image of samples from the input.
ImageBuffer takeImage(ByteReader& in, int width, int height, int channels) {
    ImageBuffer image(width, height, channels);
    std::generate_n(image.data, width * height * channels, [&] { return in.take<float>(); });
    return image;
}

/// The node as the host runs it: knobs set from text, an in-memory image as input 0 and every
/// row of the output pulled by the host's renderer, on one or two threads.
void runNode(ByteReader& in) {
    const int width = in.small(1, MaxSide);
    const int height = in.small(1, MaxSide);
    const int channels = in.small(1, host::Chan_Last);
    const int threads = in.small(1, 2);
    const std::string iterations = std::to_string(in.small(1, MaxIterations));
    const std::optional<Number> lambda = takeNumber(in, Lambda);
    const std::optional<Number> a = takeNumber(in, Regularization);
    // The channels the host asks for, those the input lacks included; none means all it has.
    host::ChannelSet requested(in.take<std::uint32_t>());
    if (!lambda || !a) {
        return;
    }
    ImageBuffer image = takeImage(in, width, height, channels);

    host::Node hostNode("Quorblen1");
    std::unique_ptr<host::Op> op(quorblen::build(&hostNode));
    auto& node = dynamic_cast<host::OpWrapper&>(*op);
    check(node.set_knob("Iterations", iterations) && node.set_knob("Lambda", lambda->text) &&
          node.set_knob("A", a->text));
    node.set_input(0, &image);
    if (requested.empty()) {
        requested = host::ChannelSet(std::uint32_t((std::uint64_t(1) << channels) - 1));
    }
    // The upscale command writes whatever the node makes: from the values of any image file
    // (finite, of moderate size) it must make finite values.
    const bool moderate = std::all_of(image.data, image.data + width * height * channels,
                                      [](float v) { return std::abs(v) <= 1e6f; });
    host::RenderOptions options;
    options.threads = threads;
    std::vector<int> delivered(2 * height, 0);
    const host::Box area{0, 0, 2 * width, 2 * height};
    const bool complete = host::render(node, requested, area, options, [&](int y, host::Row& row) {
        ++delivered[y];
        for (host::Channel z : requested) {
            check(!moderate || std::all_of(row[z], row[z] + 2 * width,
                                           [](float v) { return std::isfinite(v); }));
        }
    });
    check(complete &&
          std::all_of(delivered.begin(), delivered.end(), [](int n) { return n == 1; }));
}

/// Sets `parameter` of `options` as the inpaint command would from its option: a double as
/// typed and checked against the parameter's range, an integer within its range but at most
/// MaxIntegerOption above its minimum. False when the program would refuse it.
bool takeOption(ByteReader& in, const quorblen::RecipeParameter& parameter,
                quorblen::RecipeOptions& options) {
    if (const auto* field = std::get_if<int quorblen::RecipeOptions::*>(&parameter.field)) {
        const double max = std::min(parameter.max, parameter.min + MaxIntegerOption);
        options.*(*field) = in.small(int(parameter.min), int(max));
        return true;
    }
    const std::optional<Number> number =
        takeNumber(in, {parameter.min, parameter.max, parameter.minExclusive});
    if (number) {
        options.*std::get<double quorblen::RecipeOptions::*>(parameter.field) = number->value;
    }
    return number.has_value();
}

/// A recipe as the inpaint command runs it: an image with any planes, one of them alpha or
/// none, a mask whose non-zero samples mark the hole, and every numeric option.
void runRecipe(ByteReader& in, const quorblen::RecipeInfo& recipe) {
    const int width = in.small(1, MaxSide);
    const int height = in.small(1, MaxSide);
    const int channels = in.small(1, host::Chan_Last);
    const int alphaPlane = in.small(-1, channels - 1);
    quorblen::RecipeOptions options = quorblen::recipeDefaults(recipe.recipe);
    for (const quorblen::RecipeParameter& parameter : quorblen::recipeParameters()) {
        if (!takeOption(in, parameter, options)) {
            return;
        }
    }
    const ImageBuffer image = takeImage(in, width, height, channels);
    const ImageBuffer mask = takeImage(in, width, height, 1);

    std::ostream log(nullptr);
    ImageBuffer filled;
    try {
        filled = quorblen::fillHole(image, alphaPlane, mask, options, log);
    } catch (const std::invalid_argument&) {
        return;  // refused up front, as the command refuses it
    } catch (const std::runtime_error&) {
        return;  // the recipe gave up, which the command reports
    }
    // The hole's colour is filled with numbers; every other sample is as it was.
    check(filled.width == width && filled.height == height && filled.channels == channels);
    for (int i = 0; i < width * height * channels; ++i) {
        if (mask.data[i / channels] != 0.0f && i % channels != alphaPlane) {
            check(std::isfinite(filled.data[i]));
        } else {
            check(std::memcmp(filled.data + i, image.data + i, sizeof(float)) == 0);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // What the library prints on standard output would only slow the search down.
    std::cout.setstate(std::ios::badbit);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteReader in(data, size);
    // 0: the node; 1 and up: the recipes, in the library's order.
    const std::span<const quorblen::RecipeInfo> recipes = quorblen::inpaintRecipes();
    const std::size_t choice = in.take<std::uint8_t>() % (1 + recipes.size());
    if (choice == 0) {
        runNode(in);
    } else {
        runRecipe(in, recipes[choice - 1]);
    }
    return 0;
}
