// quorblen upscale: Read -> Quorblen -> Write, wired and rendered through the host.
#include <iostream>
#include <memory>
#include <thread>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/ImageFiles.h"
#include "apps/Rendering.h"
#include "host/Module.h"
#include "host/Read.h"
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

std::string firstError(const host::Op& op, const std::string& fallback) {
    return op.messageHandler().getFirstError().value_or(fallback);
}

int defaultThreads() {
    return std::max(1u, std::thread::hardware_concurrency());
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

int runUpscale(const std::vector<std::string>& args) {
    const Arguments arguments(args, {"--iterations", "--lambda", "--a", "--threads"});
    // Range checks here; the values themselves go to the node's knobs as typed, so the
    // node's own defaults stay the only ones.
    arguments.intValue("--iterations", 1, 1, 1000000);
    arguments.doubleValue("--lambda", 0.0, 0.0, 1e30);
    arguments.doubleValue("--a", 1.0, MinimumRegularization, 1e30);
    const int threads = arguments.intValue("--threads", defaultThreads(), 1, 1024);

    const bool sample = arguments.positional().empty();
    if (!sample && arguments.positional().size() != 2) {
        throw UsageError("needs an INPUT and an OUTPUT file");
    }
    const std::string input = sample ? bundledDataFile(sampleName) : arguments.positional()[0];
    const std::string output = sample ? sampleOutput : arguments.positional()[1];
    checkWritableImagePath(output);

    host::loadModule(moduleFile());
    host::Node readNode("Read1");
    host::Node upscaleNode("Quorblen1");
    host::Node writeNode("Write1");
    std::unique_ptr<host::Op> read = createOp("Read", readNode);
    std::unique_ptr<host::Op> upscale = createOp("Quorblen", upscaleNode);
    std::unique_ptr<host::Op> writeOp = createOp("Write", writeNode);
    auto* reader = dynamic_cast<host::Read*>(read.get());
    auto* writer = dynamic_cast<host::Write*>(writeOp.get());
    if (reader == nullptr || writer == nullptr) {
        throw CommandError("the host's Read or Write operator is not an image reader or writer");
    }

    reader->file(input);
    reader->validate(true);
    if (reader->aborted()) {
        throw CommandError(firstError(*reader, "cannot read " + input));
    }
    const host::Format& in = reader->format();
    if (std::int64_t(2 * in.width) * (2 * in.height) * reader->channels().size() >
        std::numeric_limits<std::int32_t>::max()) {
        throw CommandError(input + " is too large to upscale (" + std::to_string(in.width) + " x " +
                           std::to_string(in.height) + ")");
    }

    upscale->set_input(0, reader, 0, 0);
    for (const KnobOption& knob : knobOptions) {
        if (const auto text = arguments.value(knob.option)) {
            if (!upscale->set_knob(knob.knob, *text)) {
                throw UsageError(std::string(knob.option) + ": the node refuses \"" + *text + "\"");
            }
        }
    }

    TerminalProgress progress;
    InterruptGuard interruptGuard;
    writer->set_input(0, upscale.get(), 0, 0);
    writer->file(output.c_str());
    writer->set_file_type_from_filename();
    writer->channels(reader->channels());
    writer->datatype(reader->file_datatype());
    writer->render_options(renderOptions(threads, &progress));
    if (!writer->execute()) {
        if (writer->cancelled()) {
            std::cerr << "quorblen upscale: interrupted; " << output << " was not written\n";
            return ExitInterrupted;
        }
        throw CommandError(firstError(*writer, "cannot write " + output));
    }
    std::cout << (sample ? "Upscaled the sample photo " + input + " to " : "Wrote ") << output
              << " (" << 2 * in.width << " x " << 2 * in.height << ")\n";
    return ExitOk;
}

}  // namespace quorblen::app
