// Fuzzes the Quorblen node and every inpainting recipe on tiny images of any float bits (NaN,
// infinities, subnormals) with any knob values the program accepts.
//
// Input: one byte choosing the node or a recipe, then what that one reads: sizes, counts and
// integer options from one byte each, floating-point knob values from eight bytes each (a
// double), samples from four bytes each (a float's bits). Bytes past the end read as 0.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/CommandLine.h"
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
/// Integer options (iterations, passes, radii) go at most this far above their minimum: more
/// iterations find nothing new on images this small, and a diverging elastica run repeats its
/// iterations with doubled counts up to six times.
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

/// The next double of the input as the program reads it from the text a user would type, when
/// the command line's own check of `parameter` accepts it; nothing when the program would
/// refuse it.
template <class Options>
std::optional<double> takeNumber(ByteReader& in, const quorblen::Parameter<Options>& parameter) {
    const std::string word = quorblen::formatNumber(in.take<double>());
    const std::string option = quorblen::app::optionOf(parameter.name);
    Options options{};
    try {
        quorblen::app::readParameter(quorblen::app::Arguments({option, word}, {option}), parameter,
                                     options);
    } catch (const quorblen::app::UsageError&) {
        return std::nullopt;
    }
    return quorblen::parameterValue(parameter, options);
}

/// Sets `parameter` of `options` as a command would from its option: a double as typed and
/// checked against the parameter's range, an integer within its range but at most
/// MaxIntegerOption above its minimum. False when the program would refuse it.
template <class Options>
bool takeOption(ByteReader& in, const quorblen::Parameter<Options>& parameter, Options& options) {
    if (quorblen::isWholeNumber(parameter)) {
        const double max = std::min(parameter.max, parameter.min + MaxIntegerOption);
        quorblen::setParameter(parameter, in.small(int(parameter.min), int(max)), options);
        return true;
    }
    const std::optional<double> number = takeNumber(in, parameter);
    if (number) {
        quorblen::setParameter(parameter, *number, options);
    }
    return number.has_value();
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
    // The knobs, in the table's order: Iterations, Lambda, A.
    quorblen::UpscaleOptions knobs;
    for (const quorblen::UpscaleParameter& parameter : quorblen::upscaleParameters()) {
        if (parameter.knob != nullptr && !takeOption(in, parameter, knobs)) {
            return;
        }
    }
    // The channels the host asks for, those the input lacks included; none means all it has.
    host::ChannelSet requested(in.take<std::uint32_t>());
    ImageBuffer image = takeImage(in, width, height, channels);

    host::Node hostNode("Quorblen1");
    std::unique_ptr<host::Op> op(quorblen::build(&hostNode));
    auto& node = dynamic_cast<host::OpWrapper&>(*op);
    check(quorblen::setUpscaleKnobs(node, knobs));
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
