// Fuzzes the Quorblen node and the inpainting methods on tiny images of any float bits (NaN,
// infinities, subnormals) with any knob values the program accepts.
//
// Input: one byte choosing the entry of `targets`, then what that entry reads: sizes and
// counts from one byte each, knob values from eight bytes each (a double), samples from four
// bytes each (a float's bits). Bytes past the end read as 0.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
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
/// `minExclusive`) to 1e30.
struct Range {
    double min;
    bool minExclusive;
};
constexpr Range NonNegative{0.0, false};  // --lambda
constexpr Range Positive{0.0, true};      // --epsilon, --time-step
constexpr Range Regularization{quorblen::app::MinimumRegularization, false};  // --a

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
        return Number{word, quorblen::app::Arguments({"--value", word}, {"--value"})
                                .doubleValue("--value", 0.0, range.min, 1e30, range.minExclusive)};
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
    const std::optional<Number> lambda = takeNumber(in, NonNegative);
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
    const bool complete = host::render(node, requested, options, [&](int y, host::Row& row) {
        ++delivered[y];
        for (host::Channel z : requested) {
            check(!moderate || std::all_of(row[z], row[z] + 2 * width,
                                           [](float v) { return std::isfinite(v); }));
        }
    });
    check(complete &&
          std::all_of(delivered.begin(), delivered.end(), [](int n) { return n == 1; }));
}

/// Known pixels the inpaint command keeps around a hole, repeating the picture's edge.
constexpr int Margin = 2;

/// An inpainting method as the inpaint command runs it: the driver on the command's working
/// image, a picture of 3 colour planes with alpha 1 in the hole and 0 elsewhere, framed by
/// Margin known pixels. The working image is its own mask (the command hands the dual TV
/// method block means as its reference instead; any colour is as valid). `keepsKnownPixels`:
/// whether the method must leave pixels outside the hole as they were.
template <quorblen::InpaintMethod method, bool keepsKnownPixels>
void runDriver(ByteReader& in) {
    const int width = in.small(1, MaxSide);
    const int height = in.small(1, MaxSide);
    const int iterations = in.small(0, MaxIterations);
    const std::optional<Number> lambda = takeNumber(in, NonNegative);
    const std::optional<Number> epsilon = takeNumber(in, Positive);
    const std::optional<Number> timeStep = takeNumber(in, Positive);
    if (!lambda || !epsilon || !timeStep) {
        return;
    }
    const ImageBuffer colour = takeImage(in, width, height, 3);
    ImageBuffer work(width + 2 * Margin, height + 2 * Margin, 4);
    for (int y = 0; y < work.height; ++y) {
        for (int x = 0; x < work.width; ++x) {
            const int px = std::clamp(x - Margin, 0, width - 1);
            const int py = std::clamp(y - Margin, 0, height - 1);
            float* to = work.data + y * work.stride + x * 4;
            std::copy_n(colour.data + py * colour.stride + px * 3, 3, to);
            const bool inPicture = px == x - Margin && py == y - Margin;
            to[3] = inPicture && (in.take<std::uint8_t>() & 1) != 0 ? 1.0f : 0.0f;
        }
    }
    const ImageBuffer before = work;
    quorblen::inpaint(before, work, iterations, false, method, "", lambda->value, epsilon->value,
                      timeStep->value);

    for (int i = 0; i < work.width * work.height; ++i) {
        // Alpha never changes; with a method that keeps known pixels, neither does their colour.
        const int first = keepsKnownPixels && before.data[i * 4 + 3] == 0.0f ? 0 : 3;
        check(std::memcmp(before.data + i * 4 + first, work.data + i * 4 + first,
                          sizeof(float) * (4 - first)) == 0);
    }
}

/// Everything the target drives; the first input byte chooses.
void (*const targets[])(ByteReader&) = {
    runNode,
    runDriver<quorblen::DigitalTV, true>,
    runDriver<quorblen::Elastica, true>,
    // The dual TV method smooths the whole working image, known pixels included.
    runDriver<quorblen::DualTV, false>,
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The driver's progress bar would only slow the search down.
    std::cout.setstate(std::ios::badbit);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteReader in(data, size);
    targets[in.take<std::uint8_t>() % std::size(targets)](in);
    return 0;
}
