// quorblen inpaint: fills a masked region of an image file with the diffusion inpainting driver.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <vector>

#include <boost/format.hpp>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/ImageFiles.h"
#include "apps/Rendering.h"
#include "inpaint/Inpaint.h"
#include "tv/Offsets.h"

namespace quorblen::app {
namespace {

constexpr const char* sampleName = "coffee.png";
constexpr const char* sampleMaskName = "coffee-mask.png";
constexpr const char* sampleOutput = "coffee-inpainted.png";

/// Known pixels kept around the hole in the working region. The elastica step reads the
/// curvature of band pixels one pixel outside the hole, which must themselves be interior.
constexpr int Margin = 2;

/// The weight of a partly known pixel's own colour, for every method.
constexpr double DefaultLambda = 5.0;

/// A --method value and its defaults. The explicit elastica step is stable only for small
/// time steps, more so with a small epsilon; its defaults hold on the sample photo's strokes
/// with a factor of two to spare.
struct MethodChoice {
    const char* name;
    InpaintMethod method;
    int iterations;
    double epsilon;
    double timeStep;
};
constexpr MethodChoice methodChoices[] = {
    {"tv", DigitalTV, 500, 0.01, 0.01},
    {"elastica", Elastica, 2000, 0.1, 0.01},
    {"dual-tv", DualTV, 50, 0.01, 0.01},
};

}  // namespace

void describeInpaintDefaults(std::ostream& out) {
    out << "      --lambda L      weight of a partly known pixel's own colour (default "
        << DefaultLambda
        << ")\n"
           "      --dump PATTERN  write the working crop after every iteration, e.g. d%03d.exr\n"
           "      Defaults by method:\n";
    for (const MethodChoice& choice : methodChoices) {
        out << "        " << choice.name << ": " << choice.iterations << " iterations, epsilon "
            << choice.epsilon;
        if (choice.method == Elastica) {
            out << ", time step " << choice.timeStep;
        }
        out << "\n";
    }
}

namespace {

/// The command line, checked.
struct Settings {
    bool sample = false;
    std::string input;
    std::string output;
    std::string mask;  // empty: INPUT's alpha marks the hole
    MethodChoice method = methodChoices[0];
    int iterations = 0;
    double lambda = 0.0;
    double epsilon = 0.0;
    double timeStep = 0.0;
    std::string dump;  // Boost.Format pattern, or empty
    OutputChoices choices;
};

Settings parseSettings(const std::vector<std::string>& args) {
    std::vector<std::string> options = {"--mask",    "--method",    "--iterations", "--lambda",
                                        "--epsilon", "--time-step", "--dump"};
    options.insert(options.end(), outputOptions.begin(), outputOptions.end());
    const Arguments arguments(args, options);
    Settings settings;
    settings.sample = arguments.positional().empty();
    if (settings.sample) {
        settings.input = bundledDataFile(sampleName);
        settings.mask = bundledDataFile(sampleMaskName);
        settings.output = sampleOutput;
    } else if (arguments.positional().size() != 2) {
        throw UsageError("needs an INPUT and an OUTPUT file");
    } else {
        settings.input = arguments.positional()[0];
        settings.output = arguments.positional()[1];
    }
    if (const auto mask = arguments.value("--mask")) {
        settings.mask = *mask == "alpha" ? "" : *mask;
    } else if (!settings.sample) {
        throw UsageError("needs --mask MASK (an image file, or 'alpha' for INPUT's alpha)");
    }
    if (const auto name = arguments.value("--method")) {
        const auto* found =
            std::find_if(std::begin(methodChoices), std::end(methodChoices),
                         [&](const MethodChoice& choice) { return *name == choice.name; });
        if (found == std::end(methodChoices)) {
            throw UsageError("--method must be tv, elastica or dual-tv, not \"" + *name + "\"");
        }
        settings.method = *found;
    }
    settings.iterations =
        arguments.intValue("--iterations", settings.method.iterations, 0, 1000000);
    settings.lambda = arguments.doubleValue("--lambda", DefaultLambda, 0.0, 1e30);
    settings.epsilon = arguments.doubleValue("--epsilon", settings.method.epsilon, 0.0, 1e30, true);
    settings.timeStep =
        arguments.doubleValue("--time-step", settings.method.timeStep, 0.0, 1e30, true);
    settings.dump = arguments.value("--dump").value_or("");
    if (!settings.dump.empty()) {
        // The driver feeds the pattern the iteration number; refuse a bad one before reading.
        std::string first;
        try {
            first = (boost::format(settings.dump) % 0).str();
        } catch (const boost::io::format_error&) {
            throw UsageError(
                "--dump needs a pattern with one number directive, such as "
                "step%03d.exr, not \"" +
                settings.dump + "\"");
        }
        checkWritableImagePath(first);
    }
    settings.choices = outputChoices(arguments, settings.output);
    checkWritableImagePath(settings.output);
    return settings;
}

/// The planes of `image` that hold colour: all but alpha.
std::vector<int> colourPlanes(const LoadedImage& image) {
    std::vector<int> planes;
    int plane = 0;
    for (host::Channel z : image.channels) {
        if (z != host::Chan_Alpha) {
            planes.push_back(plane);
        }
        ++plane;
    }
    return planes;
}

/// The plane of `image` that holds alpha; -1 when it has none.
int alphaPlane(const LoadedImage& image) {
    if (!image.channels.contains(host::Chan_Alpha)) {
        return -1;
    }
    return int(std::count_if(image.channels.begin(), image.channels.end(),
                             [](host::Channel z) { return z < host::Chan_Alpha; }));
}

/// One flag per pixel, row by row: whether it is to be filled.
using Hole = std::vector<unsigned char>;

/// The pixels whose sample is non-zero in any of `planes` of `image`.
Hole nonZeroPixels(const ImageBuffer& image, const std::vector<int>& planes) {
    Hole hole(std::size_t(image.width) * image.height, 0);
    for (std::size_t i = 0; i < hole.size(); ++i) {
        const float* pixel = image.data + i * image.channels;
        hole[i] = std::any_of(planes.begin(), planes.end(), [&](int p) { return pixel[p] != 0; });
    }
    return hole;
}

/// The hole MASK marks: its non-zero pixels, in its colour channels, or in its alpha when it
/// has nothing else. Empty `settings.mask`: INPUT's non-zero alpha.
Hole readHole(const Settings& settings, const LoadedImage& input) {
    if (settings.mask.empty()) {
        const int alpha = alphaPlane(input);
        if (alpha < 0) {
            throw CommandError(settings.input + " has no alpha channel to use as the mask");
        }
        return nonZeroPixels(input.pixels, {alpha});
    }
    const LoadedImage mask = readImageFile(settings.mask, renderOptions(1, nullptr));
    if (mask.pixels.width != input.pixels.width || mask.pixels.height != input.pixels.height) {
        throw CommandError(
            "the mask " + settings.mask + " is " + std::to_string(mask.pixels.width) + " x " +
            std::to_string(mask.pixels.height) + " but " + settings.input + " is " +
            std::to_string(input.pixels.width) + " x " + std::to_string(input.pixels.height));
    }
    std::vector<int> planes = colourPlanes(mask);
    if (planes.empty()) {
        planes.push_back(alphaPlane(mask));
    }
    return nonZeroPixels(mask.pixels, planes);
}

/// The input's colour as 3 planes (a grey input repeated), each hole pixel given the colour of
/// its nearest known pixel (in 4-neighbour steps): the first guess the driver refines.
ImageBuffer firstGuess(const ImageBuffer& input, const std::vector<int>& planes, const Hole& hole) {
    const int width = input.width;
    const int height = input.height;
    // A breadth-first search from every known pixel at once: each hole pixel takes its
    // colour from the known pixel whose search reaches it first.
    std::vector<int> source(hole.size(), -1);
    std::vector<int> queue;
    queue.reserve(hole.size());
    for (std::size_t i = 0; i < hole.size(); ++i) {
        if (!hole[i]) {
            source[i] = int(i);
            queue.push_back(int(i));
        }
    }
    for (std::size_t head = 0; head < queue.size(); ++head) {
        const int i = queue[head];
        const int x = i % width;
        const int y = i / width;
        for (const Offset& n : NeighbourOffsets) {
            const int nx = x + n.dx;
            const int ny = y + n.dy;
            if (nx >= 0 && nx < width && ny >= 0 && ny < height && source[ny * width + nx] < 0) {
                source[ny * width + nx] = source[i];
                queue.push_back(ny * width + nx);
            }
        }
    }
    ImageBuffer guess(width, height, 3);
    for (std::size_t i = 0; i < hole.size(); ++i) {
        const float* from = input.data + std::size_t(source[i]) * input.channels;
        for (int c = 0; c < 3; ++c) {
            guess.data[i * 3 + c] = from[planes[std::min<std::size_t>(c, planes.size() - 1)]];
        }
    }
    return guess;
}

/// A box of pixels: columns x0 .. x1-1, rows y0 .. y1-1.
struct Region {
    int x0, y0, x1, y1;
};

/// The hole's bounding box grown by Margin on every side; it may reach beyond the image.
Region workingRegion(const Hole& hole, int width, int height) {
    Region box{width, height, 0, 0};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (hole[std::size_t(y) * width + x]) {
                box = {std::min(box.x0, x), std::min(box.y0, y), std::max(box.x1, x + 1),
                       std::max(box.y1, y + 1)};
            }
        }
    }
    return {box.x0 - Margin, box.y0 - Margin, box.x1 + Margin, box.y1 + Margin};
}

/// The driver's 4-channel image of `region`: colour from `guess`, alpha 1 in the hole. Pixels
/// beyond the image repeat the nearest edge pixel as known colour, so that a hole touching the
/// edge still lies inside the region, where the steps can reach all its neighbours.
ImageBuffer workingImage(const ImageBuffer& guess, const Hole& hole, const Region& region) {
    ImageBuffer work(region.x1 - region.x0, region.y1 - region.y0, 4);
    for (int y = region.y0; y < region.y1; ++y) {
        for (int x = region.x0; x < region.x1; ++x) {
            const int cx = std::clamp(x, 0, guess.width - 1);
            const int cy = std::clamp(y, 0, guess.height - 1);
            const std::size_t from = std::size_t(cy) * guess.width + cx;
            float* to = work.data + (y - region.y0) * work.stride + (x - region.x0) * 4;
            std::copy_n(guess.data + from * 3, 3, to);
            to[3] = cx == x && cy == y && hole[from] ? 1.0f : 0.0f;
        }
    }
    return work;
}

/// The mask image the dual TV method needs: the solver step makes each 2x2 block (2X, 2Y) of
/// the working image average to the mask's pixel (X, Y). Putting the working image's own block
/// means there keeps the picture in place, so the step smooths it without moving it.
ImageBuffer dualTvReference(const ImageBuffer& work) {
    ImageBuffer mask(work);
    for (int y = 0; y < work.height / 2; ++y) {
        for (int x = 0; x < work.width / 2; ++x) {
            for (int c = 0; c < 3; ++c) {
                const float* block = work.data + 2 * y * work.stride + 2 * x * 4 + c;
                const float sum =
                    (block[0] + block[4]) + (block[work.stride] + block[work.stride + 4]);
                mask.data[y * mask.stride + x * 4 + c] = 0.25f * sum;
            }
        }
    }
    return mask;
}

/// Runs the driver on the hole's working region and puts the result into `pixels` at hole
/// pixels only (the dual TV method smooths known pixels too). `planes` are the colour planes.
void fillHole(const Settings& settings, const std::vector<int>& planes, const Hole& hole,
              ImageBuffer& pixels) {
    const ImageBuffer guess = firstGuess(pixels, planes, hole);
    const Region region = workingRegion(hole, pixels.width, pixels.height);
    ImageBuffer work = workingImage(guess, hole, region);
    const ImageBuffer mask = settings.method.method == DualTV ? dualTvReference(work) : work;
    inpaint(mask, work, settings.iterations, !settings.dump.empty(), settings.method.method,
            settings.dump, settings.lambda, settings.epsilon, settings.timeStep);

    for (int y = region.y0 + Margin; y < region.y1 - Margin; ++y) {
        for (int x = region.x0 + Margin; x < region.x1 - Margin; ++x) {
            if (!hole[std::size_t(y) * pixels.width + x]) {
                continue;
            }
            const float* from = work.data + (y - region.y0) * work.stride + (x - region.x0) * 4;
            float* to = pixels.data + y * pixels.stride + x * pixels.channels;
            for (std::size_t k = 0; k < planes.size(); ++k) {
                if (!std::isfinite(from[k])) {
                    throw CommandError("the " + std::string(settings.method.name) +
                                       " method diverged; try a smaller --time-step or a "
                                       "larger --epsilon");
                }
                to[planes[k]] = from[k];
            }
        }
    }
}

}  // namespace

int runInpaint(const std::vector<std::string>& args) {
    const Settings settings = parseSettings(args);
    LoadedImage input = readImageFile(settings.input, renderOptions(1, nullptr));
    const std::vector<int> planes = colourPlanes(input);
    if (planes.empty() || planes.size() > 3) {
        throw CommandError(settings.input + " has " + std::to_string(planes.size()) +
                           " colour channels; 1 to 3 can be filled");
    }
    const Hole hole = readHole(settings, input);
    const auto holePixels = std::count(hole.begin(), hole.end(), 1);
    if (holePixels == std::ptrdiff_t(hole.size())) {
        throw CommandError("the mask covers all of " + settings.input + ": nothing to fill from");
    }

    if (holePixels > 0) {
        fillHole(settings, planes, hole, input.pixels);
    }

    InterruptGuard interruptGuard;
    if (!writeImageFile(input, settings.output, settings.choices, renderOptions(1, nullptr))) {
        std::cerr << "quorblen inpaint: interrupted; " << settings.output << " was not written\n";
        return ExitInterrupted;
    }
    std::cout << (settings.sample
                      ? "Filled the strokes of the sample mask " + settings.mask +
                            " in the photo " + settings.input
                      : "Filled " + std::to_string(holePixels) + " pixels of " + settings.input)
              << " (" << settings.method.name << ", " << settings.iterations
              << " iterations); wrote " << settings.output << "\n";
    return ExitOk;
}

}  // namespace quorblen::app
