// The quorblen program: upscales, converts and inpaints image files.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "apps/CommandLine.h"
#include "apps/Commands.h"
#include "apps/FrameLoop.h"
#include "apps/ImageFiles.h"
#include "apps/LibraryLines.h"
#include "apps/Rendering.h"

namespace {

using namespace quorblen::app;

struct Command {
    const char* name;
    int (*run)(const std::vector<std::string>& args);
    const char* usage;
    void (*describe)(std::ostream& out);  // more help, or null
};

const Command commands[] = {
    {"upscale", runUpscale,
     "upscale INPUT OUTPUT [--OPTION VALUE]... [--fixnan MODE]\n"
     "        [-d TYPE] [--compression NAME] [--frames RANGE [--skip-bad-frames]] [-q | -v]\n"
     "      Enlarge INPUT to twice its width and height, smoothing noise in flat areas\n"
     "      while keeping edges; every 2x2 block of OUTPUT keeps its input pixel's mean.\n"
     "      --lambda is the main control.",
     describeUpscaleOptions},
    {"convert", runConvert,
     "convert INPUT OUTPUT [-d TYPE] [--compression NAME]\n"
     "        [--frames RANGE [--skip-bad-frames]] [-q | -v]\n"
     "      Convert between the raw format (.raw) and image files, both ways.",
     nullptr},
    {"inpaint", runInpaint,
     "inpaint INPUT OUTPUT --mask MASK [--method NAME] [--OPTION VALUE]... [--fixnan MODE]\n"
     "        [-d TYPE] [--compression NAME] [--frames RANGE [--skip-bad-frames]] [-q | -v]\n"
     "      Fill the region MASK marks (non-zero pixels; or 'alpha' for INPUT's alpha).\n"
     "      Without arguments: fill the bundled strokes over the sample photo.",
     describeInpaintDefaults},
};

void printUsage(std::ostream& out, const Command& command) {
    out << "  " << command.usage << "\n";
    if (command.describe != nullptr) {
        command.describe(out);
    }
}

void printHelp(std::ostream& out) {
    out << "Usage: quorblen COMMAND ARGUMENTS...\n"
           "       quorblen              upscale the bundled sample photo\n"
           "       quorblen --help | --version\n\nCommands:\n";
    for (const Command& command : commands) {
        printUsage(out, command);
    }
    out << "\nOutput options of every command:\n";
    describeOutputOptions(out);
    out << "\nSequence and message options of every command:\n";
    describeFrameOptions(out);
}

}  // namespace

int main(int argc, char** argv) {
    // Before anything slow (loading the module, reading files) can be interrupted.
    installInterruptHandler();
    filterLibraryLines();
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string name = "upscale";
    if (!args.empty()) {
        if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
            printHelp(std::cout);
            return ExitOk;
        }
        if (args[0] == "--version") {
            std::cout << "quorblen " << QUORBLEN_VERSION << "\n";
            return ExitOk;
        }
        name = args[0];
        args.erase(args.begin());
    }
    const std::string prefix = "quorblen " + name + ": ";
    for (const Command& command : commands) {
        if (name != command.name) {
            continue;
        }
        for (const std::string& arg : args) {
            if (arg == "--help" || arg == "-h") {
                std::cout << "usage: quorblen\n";
                printUsage(std::cout, command);
                describeOutputOptions(std::cout);
                describeFrameOptions(std::cout);
                return ExitOk;
            }
        }
        try {
            return command.run(args);
        } catch (const UsageError& e) {
            std::cerr << prefix << e.what() << "\n"
                      << "usage: quorblen " << command.usage << "\n";
            return ExitUsage;
        } catch (const std::exception& e) {
            std::cerr << prefix << e.what() << "\n";
            return ExitFailure;
        }
    }
    std::cerr << "quorblen: unknown command \"" << name << "\" (try quorblen --help)\n";
    return ExitUsage;
}
