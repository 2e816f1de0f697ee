// quorblen inpaint: fills a masked region of an image file with one of the library's recipes.
#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/FillProgress.h"
#include "apps/FrameCache.h"
#include "apps/FrameLoop.h"
#include "apps/FrameSequence.h"
#include "apps/ImageFiles.h"
#include "apps/NonFiniteInput.h"
#include "apps/Rendering.h"
#include "inpaint/Inpaint.h"

namespace quorblen::app {
namespace {

constexpr const char* sampleName = "coffee.png";
constexpr const char* sampleMaskName = "coffee-mask.png";
constexpr const char* sampleOutput = "coffee-inpainted.png";
/// The farthest a source may be read from the frame being filled, in frames.
constexpr int MaxFrameOffset = 1000000;

}  // namespace

void describeInpaintDefaults(std::ostream& out) {
    out << "      Methods:\n";
    for (const RecipeInfo& info : inpaintRecipes()) {
        out << "        " << info.name << ": " << info.summary << "\n";
    }
    out << "        The exemplar methods (texture to fallback) copy colours of known pixels\n"
           "        within --search-radius of a hole pixel; a pixel farther from every known\n"
           "        pixel keeps the first guess, the colour of its nearest known pixel.\n"
           "        patchmatch searches the whole window around the hole (--window) at every\n"
           "        scale of a pyramid: the method for holes where a whole object must go.\n"
           "        For thin holes (wires, scratches, text) texture keeps more detail.\n";
    out << "        (The library's dual TV driver method is the upscaler's 2x solver: it keeps\n"
           "        every 2x2 block mean of its first guess and cannot fill a hole, so it is\n"
           "        not offered here; the upscale command uses that solver.)\n"
           "      Options (range; default):\n";
    for (const RecipeParameter& parameter : recipeParameters()) {
        describeParameter(out, parameter, parameterDefaults(parameter));
    }
    out << "        --source2 FILE, --source3 FILE (default: INPUT itself)\n"
           "            more donor images of INPUT's size for weighted-elastica, multi-source,\n"
           "            fallback and patchmatch; their pixels under the mask donate nothing\n"
           "        --source2-offset N, --source3-offset N (with --frames)\n"
           "            fill frame F from frame F+N (N may be negative) of the source, a\n"
           "            sequence named with a frame token (default: INPUT's), whose hole is\n"
           "            MASK at frame F+N (or its alpha with --mask alpha): its background\n"
           "            behind F's hole donates, so -1 and 1 make a clean plate from the frames\n"
           "            around F. A frame before 0, or whose file or mask does not exist, is\n"
           "            left out with a note and INPUT takes its place.\n";
    describeFixNan(out);
}

namespace {

/// The command line, checked.
struct Settings {
    bool sample = false;
    std::string input;
    std::string output;
    std::string mask;  // empty: INPUT's alpha marks the hole
    const RecipeInfo* method = nullptr;
    RecipeOptions options{};
    std::string sources[2];                      // --source2, --source3; empty: INPUT itself
    std::optional<int> offsets[2];               // --source2-offset, --source3-offset
    NonFiniteMode fixNan = NonFiniteMode::None;  // for INPUT and the sources
    /// A source read at its offset brings its frame's mask (empty: the source's alpha);
    /// without one, MASK holds for it.
    std::optional<std::string> sourceMasks[2];
    OutputChoices choices;

    /// The file names, INPUT and OUTPUT first.
    std::array<std::string*, 5> files() {
        return {&input, &output, &mask, &sources[0], &sources[1]};
    }
};

/// The options the inpaint command takes a value for.
std::vector<std::string> valueOptions() {
    std::vector<std::string> options{"--mask",    "--method",         "--source2",
                                     "--source3", "--source2-offset", "--source3-offset",
                                     fixNanOption};
    options.insert(options.end(), outputOptions.begin(), outputOptions.end());
    options.insert(options.end(), frameOptions.begin(), frameOptions.end());
    for (const RecipeParameter& parameter : recipeParameters()) {
        options.push_back(optionOf(parameter.name));
    }
    return options;
}

Settings parseSettings(const Arguments& arguments) {
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
    settings.method = &inpaintRecipes()[0];
    if (const auto name = arguments.value("--method")) {
        settings.method = findRecipe(name->c_str());
        if (settings.method == nullptr) {
            std::string names;
            for (const RecipeInfo& info : inpaintRecipes()) {
                names += (names.empty() ? "" : ", ") + std::string(info.name);
            }
            throw UsageError("--method must be one of " + names + ", not \"" + *name + "\"");
        }
    }
    settings.options = recipeDefaults(settings.method->recipe);
    for (const RecipeParameter& parameter : recipeParameters()) {
        readParameter(arguments, parameter, settings.options);
    }
    settings.fixNan = fixNanMode(arguments);
    for (int k = 0; k < 2; ++k) {
        const std::string source = "--source" + std::to_string(k + 2);
        settings.sources[k] = arguments.value(source).value_or("");
        if (!arguments.has(source + "-offset")) {
            continue;
        }
        const double offset = *arguments.number(source + "-offset", true);
        if (std::fabs(offset) > MaxFrameOffset) {
            throw UsageError(source + "-offset must be at least " +
                             std::to_string(-MaxFrameOffset) + " and at most " +
                             std::to_string(MaxFrameOffset) + ", not " + formatNumber(offset));
        }
        settings.offsets[k] = int(offset);
        if (settings.sources[k].empty()) {
            settings.sources[k] = settings.input;
        }
        if (!arguments.has("--frames")) {
            throw UsageError(source + "-offset needs --frames RANGE");
        }
        if (!hasFrameToken(settings.sources[k])) {
            throw UsageError(source + "-offset needs a " + source +
                             " name with a frame token (#, @ or %0Nd), not " + settings.sources[k]);
        }
    }
    settings.choices = outputChoices(arguments, settings.output);
    return settings;
}

/// How the command reads and writes files: on the recipe's threads.
host::RenderOptions fileOptions(const Settings& settings) {
    return renderOptions(threadCount(settings.options.threads), nullptr);
}

/// The plane of `image` that holds alpha; -1 when it has none.
int alphaPlane(const LoadedImage& image) {
    if (!image.channels.contains(host::Chan_Alpha)) {
        return -1;
    }
    return int(std::count_if(image.channels.begin(), image.channels.end(),
                             [](host::Channel z) { return z < host::Chan_Alpha; }));
}

/// Throws CommandError unless `image`, read from `path`, has the size of `input`.
void checkSameSize(const LoadedImage& image, const std::string& path, const LoadedImage& input,
                   const std::string& inputPath) {
    if (image.pixels.width != input.pixels.width || image.pixels.height != input.pixels.height) {
        throw CommandError(path + " is " + std::to_string(image.pixels.width) + " x " +
                           std::to_string(image.pixels.height) + " but " + inputPath + " is " +
                           std::to_string(input.pixels.width) + " x " +
                           std::to_string(input.pixels.height));
    }
}

/// The hole the file `maskPath` marks in `image` (read from `imagePath`), one flag per pixel:
/// set where any of the mask's colour channels is non-zero, or its alpha when it has nothing
/// else. Empty `maskPath`: the image's non-zero alpha.
HoleFlags readHole(const std::string& maskPath, const LoadedImage& image,
                   const std::string& imagePath, FrameCache& cache) {
    std::shared_ptr<const LoadedImage> mask;
    std::vector<int> planes;
    if (maskPath.empty()) {
        if (alphaPlane(image) < 0) {
            throw CommandError(imagePath + " has no alpha channel to use as the mask");
        }
        planes.push_back(alphaPlane(image));
    } else {
        mask = cache.read(maskPath);
        checkSameSize(*mask, maskPath, image, imagePath);
        for (int plane = 0; plane < mask->pixels.channels; ++plane) {
            if (plane != alphaPlane(*mask)) {
                planes.push_back(plane);
            }
        }
        if (planes.empty()) {
            planes.push_back(alphaPlane(*mask));
        }
    }
    const ImageBuffer& from = maskPath.empty() ? image.pixels : mask->pixels;
    HoleFlags hole(std::size_t(from.width) * std::size_t(from.height));
    for (std::size_t i = 0; i < hole.size(); ++i) {
        const float* pixel = from.data + std::ptrdiff_t(i) * from.channels;
        hole[i] = std::any_of(planes.begin(), planes.end(),
                              [&](int plane) { return pixel[plane] != 0.0f; });
    }
    return hole;
}

/// `hole`, the flags of an image of `width` x `height`, as a one-channel mask: 1 at the
/// flagged pixels, 0 elsewhere.
ImageBuffer holeMask(const HoleFlags& hole, int width, int height) {
    ImageBuffer mask(width, height, 1);
    std::copy(hole.begin(), hole.end(), mask.data);
    return mask;
}

/// The donor image `source`, read from `path`, in the layout of `input`: each of input's
/// channels taken from the same channel of the file or, for a channel it lacks, from its first
/// channel.
ImageBuffer readSource(const LoadedImage& source, const std::string& path, const LoadedImage& input,
                       const std::string& inputPath) {
    checkSameSize(source, path, input, inputPath);
    ImageBuffer pixels(input.pixels.width, input.pixels.height, input.pixels.channels);
    int plane = 0;
    for (host::Channel z : input.channels) {
        int from = 0;
        for (host::Channel s : source.channels) {
            if (s == z) {
                break;
            }
            ++from;
        }
        from = from < source.pixels.channels ? from : 0;
        for (int i = 0; i < pixels.width * pixels.height; ++i) {
            pixels.data[std::ptrdiff_t(i) * pixels.channels + plane] =
                source.pixels.data[std::ptrdiff_t(i) * source.pixels.channels + from];
        }
        ++plane;
    }
    return pixels;
}

/// Points source k of `files`, the names of frame `frame`, at frame `frame` + its offset of
/// the sequence `patterns` names, with that frame's mask. Leaves it out (INPUT in its place),
/// saying so on std::clog, when that frame is before 0 or its file or mask does not exist.
void placeNeighbour(Settings& files, const Settings& patterns, int k, int frame) {
    const int number = frame + *patterns.offsets[k];
    std::string missing;
    if (number < 0) {
        missing = "there is no frame " + std::to_string(number);
    } else {
        files.sources[k] = frameFileName(patterns.sources[k], number);
        files.sourceMasks[k] = frameFileName(patterns.mask, number);
        for (const std::string* path : {&files.sources[k], &*files.sourceMasks[k]}) {
            std::error_code error;
            if (missing.empty() && !path->empty() && !std::filesystem::exists(*path, error)) {
                missing = *path + " does not exist";
            }
        }
    }
    if (!missing.empty()) {
        std::clog << "--source" << k + 2 << " left out at frame " << frame << ": " << missing
                  << "\n";
        files.sources[k].clear();
        files.sourceMasks[k].reset();
    }
}

/// Fills the hole of the files `settings` names; the frame work of the inpaint command.
/// `inputReadLater`: a later frame reads this frame's INPUT again (as a neighbour source).
std::optional<std::string> inpaintFile(Settings settings, FrameCache& cache, bool inputReadLater) {
    checkWritableImagePath(settings.output);
    // The fill changes INPUT's pixels: it takes the cached image, which saves a copy, unless
    // this frame or a later one reads the file again.
    const bool readAgain = inputReadLater || settings.mask == settings.input ||
                           settings.sources[0] == settings.input ||
                           settings.sources[1] == settings.input;
    LoadedImage input =
        readAgain ? LoadedImage(*cache.read(settings.input)) : cache.take(settings.input);
    const HoleFlags hole = readHole(settings.mask, input, settings.input, cache);
    fixNonFinite(input.pixels, settings.fixNan, settings.input);
    ImageBuffer sources[2];
    ImageBuffer sourceHoles[2];
    const ImageBuffer** sourceFields[2] = {&settings.options.source2, &settings.options.source3};
    const ImageBuffer** maskFields[2] = {&settings.options.source2Mask,
                                         &settings.options.source3Mask};
    for (int k = 0; k < 2; ++k) {
        if (settings.sources[k].empty()) {
            continue;
        }
        const auto source = cache.read(settings.sources[k]);
        sources[k] = readSource(*source, settings.sources[k], input, settings.input);
        fixNonFinite(sources[k], settings.fixNan, settings.sources[k]);
        *sourceFields[k] = &sources[k];
        if (settings.sourceMasks[k]) {
            sourceHoles[k] =
                holeMask(readHole(*settings.sourceMasks[k], *source, settings.sources[k], cache),
                         source->pixels.width, source->pixels.height);
            *maskFields[k] = &sourceHoles[k];
        }
    }

    const auto holePixels = std::count(hole.begin(), hole.end(), 1);
    {
        FillProgress progress;
        settings.options.progress = &progress;
        try {
            fillHoleInPlace(input.pixels, alphaPlane(input), hole, settings.options, progress.log(),
                            &progress.out());
        } catch (const std::invalid_argument& e) {
            throw CommandError(settings.input + ": " + e.what());
        }
    }

    InterruptGuard interruptGuard;
    if (!writeImageFile(input, settings.output, settings.choices, fileOptions(settings))) {
        return std::nullopt;
    }
    if (holePixels == 0) {
        return "Wrote " + settings.output + " (nothing to fill)";
    }
    return (settings.sample
                ? "Filled the strokes of the sample mask " + settings.mask + " in the photo " +
                      settings.input
                : "Filled " + std::to_string(holePixels) + " pixels of " + settings.input) +
           " (" + settings.method->name + "); wrote " + settings.output;
}

}  // namespace

int runInpaint(const std::vector<std::string>& args) {
    const Arguments arguments(args, valueOptions(), frameFlags);
    Settings settings = parseSettings(arguments);
    std::vector<std::string> names;
    for (const std::string* name : settings.files()) {
        names.push_back(*name);
    }
    FrameCache cache(fileOptions(settings));
    // A source in INPUT's sequence at a negative offset reads each INPUT again at a later frame.
    bool inputReadLater = false;
    for (int k = 0; k < 2; ++k) {
        inputReadLater = inputReadLater || (settings.offsets[k] && *settings.offsets[k] < 0 &&
                                            settings.sources[k] == settings.input);
    }
    return runFrames("inpaint", arguments, names, [&](const Frame& frame) {
        Settings files = settings;
        for (std::string* name : files.files()) {
            *name = frame.name(*name);
        }
        for (int k = 0; k < 2; ++k) {
            if (settings.offsets[k]) {
                placeNeighbour(files, settings, k, *frame.number);
            }
        }
        cache.nextFrame();
        return inpaintFile(files, cache, inputReadLater);
    });
}

}  // namespace quorblen::app
