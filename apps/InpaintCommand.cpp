// quorblen inpaint: fills a masked region of an image file with one of the library's recipes.
#include <algorithm>
#include <array>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/FillProgress.h"
#include "apps/FrameLoop.h"
#include "apps/ImageFiles.h"
#include "apps/Rendering.h"
#include "inpaint/Inpaint.h"

namespace quorblen::app {
namespace {

constexpr const char* sampleName = "coffee.png";
constexpr const char* sampleMaskName = "coffee-mask.png";
constexpr const char* sampleOutput = "coffee-inpainted.png";

std::string flagOf(const RecipeParameter& parameter) {
    return std::string("--") + parameter.name;
}

}  // namespace

void describeInpaintDefaults(std::ostream& out) {
    out << "      Methods:\n";
    for (const RecipeInfo& info : inpaintRecipes()) {
        out << "        " << info.name << ": " << info.summary << "\n";
    }
    out << "        The exemplar methods (texture to fallback) copy colours of known pixels\n"
           "        within --search-radius of a hole pixel; a pixel farther from every known\n"
           "        pixel keeps the first guess, the colour of its nearest known pixel.\n";
    out << "        (The library's dual TV driver method is the upscaler's 2x solver: it keeps\n"
           "        every 2x2 block mean of its first guess and cannot fill a hole, so it is\n"
           "        not offered here; the upscale command uses that solver.)\n"
           "      Options (range; default):\n";
    for (const RecipeParameter& parameter : recipeParameters()) {
        out << "        " << flagOf(parameter) << " (" << parameterRange(parameter) << "; "
            << parameterDefaults(parameter) << ")\n            " << parameter.meaning << "\n";
    }
    out << "        --source2 FILE, --source3 FILE (default: INPUT itself)\n"
           "            more donor images of INPUT's size for weighted-elastica, multi-source and\n"
           "            fallback; their pixels under the mask donate nothing\n";
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
    std::string sources[2];  // --source2, --source3; empty: INPUT itself
    OutputChoices choices;

    /// The file names, INPUT and OUTPUT first.
    std::array<std::string*, 5> files() {
        return {&input, &output, &mask, &sources[0], &sources[1]};
    }
};

/// The options the inpaint command takes a value for.
std::vector<std::string> valueOptions() {
    std::vector<std::string> options{"--mask", "--method", "--source2", "--source3"};
    options.insert(options.end(), outputOptions.begin(), outputOptions.end());
    options.insert(options.end(), frameOptions.begin(), frameOptions.end());
    for (const RecipeParameter& parameter : recipeParameters()) {
        options.push_back(flagOf(parameter));
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
        std::visit(
            [&](auto field) {
                auto& value = settings.options.*field;
                if constexpr (std::is_same_v<std::remove_reference_t<decltype(value)>, int>) {
                    value = arguments.intValue(flagOf(parameter), value, int(parameter.min),
                                               int(parameter.max));
                } else {
                    value = arguments.doubleValue(flagOf(parameter), value, parameter.min,
                                                  parameter.max, parameter.minExclusive);
                }
            },
            parameter.field);
    }
    settings.sources[0] = arguments.value("--source2").value_or("");
    settings.sources[1] = arguments.value("--source3").value_or("");
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

/// The hole MASK marks, one sample per pixel: 1 where any of its colour channels is non-zero,
/// or its alpha when it has nothing else. Empty `settings.mask`: INPUT's non-zero alpha.
ImageBuffer readHole(const Settings& settings, const LoadedImage& input) {
    LoadedImage mask;
    std::vector<int> planes;
    if (settings.mask.empty()) {
        if (alphaPlane(input) < 0) {
            throw CommandError(settings.input + " has no alpha channel to use as the mask");
        }
        planes.push_back(alphaPlane(input));
    } else {
        mask = readImageFile(settings.mask, fileOptions(settings));
        checkSameSize(mask, settings.mask, input, settings.input);
        for (int plane = 0; plane < mask.pixels.channels; ++plane) {
            if (plane != alphaPlane(mask)) {
                planes.push_back(plane);
            }
        }
        if (planes.empty()) {
            planes.push_back(alphaPlane(mask));
        }
    }
    const ImageBuffer& from = settings.mask.empty() ? input.pixels : mask.pixels;
    ImageBuffer hole(from.width, from.height, 1);
    for (int i = 0; i < hole.width * hole.height; ++i) {
        const float* pixel = from.data + std::ptrdiff_t(i) * from.channels;
        hole.data[i] = std::any_of(planes.begin(), planes.end(),
                                   [&](int plane) { return pixel[plane] != 0.0f; });
    }
    return hole;
}

/// The donor image `path` in the layout of `input`: each of input's channels taken from the
/// same channel of the file or, for a channel it lacks, from its first channel.
ImageBuffer readSource(const std::string& path, const LoadedImage& input,
                       const std::string& inputPath, const host::RenderOptions& options) {
    const LoadedImage source = readImageFile(path, options);
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

/// Fills the hole of the files `settings` names; the frame work of the inpaint command.
std::optional<std::string> inpaintFile(Settings settings) {
    checkWritableImagePath(settings.output);
    LoadedImage input = readImageFile(settings.input, fileOptions(settings));
    const ImageBuffer hole = readHole(settings, input);
    ImageBuffer sources[2];
    const ImageBuffer** sourceFields[2] = {&settings.options.source2, &settings.options.source3};
    for (int k = 0; k < 2; ++k) {
        if (!settings.sources[k].empty()) {
            sources[k] =
                readSource(settings.sources[k], input, settings.input, fileOptions(settings));
            *sourceFields[k] = &sources[k];
        }
    }

    const auto holePixels = std::count(hole.data, hole.data + hole.width * hole.height, 1.0f);
    {
        FillProgress progress;
        settings.options.progress = &progress;
        try {
            input.pixels = fillHole(input.pixels, alphaPlane(input), hole, settings.options,
                                    progress.log(), &progress.out());
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
    return runFrames("inpaint", arguments, names, [&](const Frame& frame) {
        Settings files = settings;
        for (std::string* name : files.files()) {
            *name = frame.name(*name);
        }
        return inpaintFile(files);
    });
}

}  // namespace quorblen::app
