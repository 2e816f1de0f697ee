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
#include "apps/Rendering.h"
#include "host/Module.h"
#include "host/Read.h"
#include "host/SystemMemory.h"
#include "host/Write.h"

namespace quorblen::app {
namespace {

constexpr const char* sampleName = "coffee.png";
constexpr const char* sampleOutput = "coffee-2x.png";

/// The command-line options and the node knobs they set.
struct KnobOption {
    const char* option;
    const char* knob;
};
constexpr KnobOption knobOptions[] = {
    {"--iterations", "Iterations"},
    {"--lambda", "Lambda"},
    {"--a", "A"},
};

std::unique_ptr<host::Op> createOp(const char* className, host::Node& node) {
    std::unique_ptr<host::Op> op(host::Op::create(className, &node));
    if (!op) {
        throw CommandError(std::string("the host has no operator \"") + className + "\"");
    }
    return op;
}

}  // namespace

void describeUpscaleKnobs(std::ostream& out) {
    try {
        host::loadModule(moduleFile());
        host::Node node("Quorblen1");
        std::unique_ptr<host::Op> upscale = createOp("Quorblen", node);
        out << "      The node's knobs and their defaults:\n";
        for (const host::Knob& knob : upscale->knob_list()) {
            out << "        " << knob.name() << " = " << knob.text() << ": " << knob.tooltip()
                << "\n";
        }
    } catch (const std::exception& e) {
        out << "      (the node's knobs are not listed: " << e.what() << ")\n";
    }
}

namespace {

/// What the upscale command line asks for, checked.
struct UpscaleSettings {
    const Arguments& arguments;
    OutputChoices choices;
    int threads;
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

    upscale->set_input(0, reader, 0, 0);
    for (const KnobOption& knob : knobOptions) {
        if (const auto text = settings.arguments.value(knob.option)) {
            if (!upscale->set_knob(knob.knob, *text)) {
                throw UsageError(std::string(knob.option) + ": the node refuses \"" + *text + "\"");
            }
        }
    }

    TerminalProgress progress;
    InterruptGuard interruptGuard;
    if (!writeImageFile(*writer, *node, reader->channels(), output, reader->file_datatype(),
                        settings.choices, renderOptions(settings.threads, &progress))) {
        return std::nullopt;
    }
    return (settings.sample ? "Upscaled the sample photo " + input + " to " : "Wrote ") + output +
           " (" + std::to_string(2 * box.w()) + " x " + std::to_string(2 * box.h()) + ")";
}

}  // namespace

int runUpscale(const std::vector<std::string>& args) {
    std::vector<std::string> options = {"--iterations", "--lambda", "--a", "--threads"};
    options.insert(options.end(), outputOptions.begin(), outputOptions.end());
    options.insert(options.end(), frameOptions.begin(), frameOptions.end());
    const Arguments arguments(args, options, frameFlags);
    // Range checks here; the values themselves go to the node's knobs as typed, so the
    // node's own defaults stay the only ones.
    arguments.intValue("--iterations", 1, 1, 1000000);
    arguments.doubleValue("--lambda", 0.0, 0.0, 1e30);
    arguments.doubleValue("--a", 1.0, MinimumRegularization, 1e30);
    const int threads = arguments.intValue("--threads", threadCount(0), 1, 1024);

    const bool sample = arguments.positional().empty();
    if (!sample && arguments.positional().size() != 2) {
        throw UsageError("needs an INPUT and an OUTPUT file");
    }
    const std::string input = sample ? bundledDataFile(sampleName) : arguments.positional()[0];
    const std::string output = sample ? sampleOutput : arguments.positional()[1];
    const UpscaleSettings settings{arguments, outputChoices(arguments, output), threads, sample};
    host::loadModule(moduleFile());
    return runFrames("upscale", arguments, {input, output}, [&](const Frame& frame) {
        return upscaleFile(frame.name(input), frame.name(output), settings);
    });
}

}  // namespace quorblen::app
