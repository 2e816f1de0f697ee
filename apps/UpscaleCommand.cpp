// quorblen upscale: Read -> Quorblen -> Write, wired and rendered through the host.
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <thread>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/FrameLoop.h"
#include "apps/ImageFiles.h"
#include "apps/NonFiniteInput.h"
#include "apps/Rendering.h"
#include "host/Module.h"
#include "host/Read.h"
#include "host/SystemMemory.h"
#include "host/Write.h"
#include "node/QuorblenKnobs.h"

namespace quorblen::app {
namespace {

constexpr const char* sampleName = "coffee.png";
constexpr const char* sampleOutput = "coffee-2x.png";

std::unique_ptr<host::Op> createOp(const char* className, host::Node& node) {
    std::unique_ptr<host::Op> op(host::Op::create(className, &node));
    if (!op) {
        throw CommandError(std::string("the host has no operator \"") + className + "\"");
    }
    return op;
}

int defaultThreads() {
    return std::max(1u, std::thread::hardware_concurrency());
}

}  // namespace

void describeUpscaleOptions(std::ostream& out) {
    out << "      Options (range; default):\n";
    const UpscaleOptions defaults;
    for (const UpscaleParameter& parameter : upscaleParameters()) {
        describeParameter(
            out, parameter, parameterText(parameter, parameterValue(parameter, defaults)),
            parameter.knob != nullptr ? std::string(" (the node's ") + parameter.knob + ")"
                                      : std::string());
    }
    describeFixNan(out);
}

namespace {

/// What the upscale command line asks for, checked.
struct UpscaleSettings {
    UpscaleOptions options;
    NonFiniteMode fixNan;
    OutputChoices choices;
    bool sample;
};

/// Upscales the file `input` to `output`; the frame work of the upscale command.
std::optional<std::string> upscaleFile(const std::string& input, const std::string& output,
                                       const UpscaleSettings& settings) {
    checkWritableImagePath(output);
    host::Node readNode("Read1");
    host::Node upscaleNode("Quorblen1");
    host::Node writeNode("Write1");
    std::unique_ptr<host::Op> read = createOp("Read", readNode);
    // Between the reader and the node; destroyed after the node, before the reader.
    RepairedInput repaired(settings.fixNan, input);
    std::unique_ptr<host::Op> upscale = createOp("Quorblen", upscaleNode);
    std::unique_ptr<host::Op> writeOp = createOp("Write", writeNode);
    auto* reader = dynamic_cast<host::Read*>(read.get());
    auto* node = dynamic_cast<host::Iop*>(upscale.get());
    auto* writer = dynamic_cast<host::Write*>(writeOp.get());
    if (reader == nullptr || node == nullptr || writer == nullptr) {
        throw CommandError("the host's Read, Quorblen or Write operator is not of its kind");
    }

    openImageFile(*reader, input);
    // The node holds the input and its enlargement as floats: refuse before reading pixels.
    const host::Box& box = reader->info().box();
    const double samples = double(box.w()) * box.h() * reader->channels().size();
    const std::string shortfall = host::memoryShortfall(5.0 * samples * sizeof(float));
    if (4.0 * samples > std::numeric_limits<std::int32_t>::max() || !shortfall.empty()) {
        throw CommandError(input + " is too large to upscale (" + std::to_string(box.w()) + " x " +
                           std::to_string(box.h()) + "): the enlargement " +
                           (shortfall.empty() ? "would hold more than 2^31 - 1 samples"
                                              : "and its input need " + shortfall));
    }

    repaired.set_input(0, reader, 0, 0);
    upscale->set_input(0, &repaired, 0, 0);
    if (!setUpscaleKnobs(*upscale, settings.options)) {
        throw CommandError("the Quorblen node refuses the values of its knobs");
    }

    const int threads = settings.options.threads > 0 ? settings.options.threads : defaultThreads();
    {
        TerminalProgress progress;
        InterruptGuard interruptGuard;
        if (!writeImageFile(*writer, *node, reader->channels(), output, reader->file_datatype(),
                            settings.choices, renderOptions(threads, &progress))) {
            return std::nullopt;
        }
    }
    if (settings.fixNan == NonFiniteMode::None) {
        warnNonFinite(input, repaired.nonFiniteCount());
    }
    return (settings.sample ? "Upscaled the sample photo " + input + " to " : "Wrote ") + output +
           " (" + std::to_string(2 * box.w()) + " x " + std::to_string(2 * box.h()) + ")";
}

}  // namespace

int runUpscale(const std::vector<std::string>& args) {
    std::vector<std::string> options = {fixNanOption};
    for (const UpscaleParameter& parameter : upscaleParameters()) {
        options.push_back(optionOf(parameter.name));
    }
    options.insert(options.end(), outputOptions.begin(), outputOptions.end());
    options.insert(options.end(), frameOptions.begin(), frameOptions.end());
    const Arguments arguments(args, options, frameFlags);
    UpscaleOptions upscaleOptions;
    for (const UpscaleParameter& parameter : upscaleParameters()) {
        readParameter(arguments, parameter, upscaleOptions);
    }

    const bool sample = arguments.positional().empty();
    if (!sample && arguments.positional().size() != 2) {
        throw UsageError("needs an INPUT and an OUTPUT file");
    }
    const std::string input = sample ? bundledDataFile(sampleName) : arguments.positional()[0];
    const std::string output = sample ? sampleOutput : arguments.positional()[1];
    const UpscaleSettings settings{upscaleOptions, fixNanMode(arguments),
                                   outputChoices(arguments, output), sample};
    host::loadModule(moduleFile());
    return runFrames("upscale", arguments, {input, output}, [&](const Frame& frame) {
        return upscaleFile(frame.name(input), frame.name(output), settings);
    });
}

}  // namespace quorblen::app
