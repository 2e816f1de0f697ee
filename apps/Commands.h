// The commands of the quorblen program.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace quorblen::app {

/// Each command takes the words after its name and returns the program's exit code. It
/// throws UsageError for a bad command line and CommandError for a failure; main reports
/// both as one line on standard error.
int runUpscale(const std::vector<std::string>& args);
int runConvert(const std::vector<std::string>& args);
int runInpaint(const std::vector<std::string>& args);

/// Lists the upscale command's other options with their ranges, defaults and the node's knobs
/// they set.
void describeUpscaleOptions(std::ostream& out);

/// Lists the inpaint command's other options and its defaults for each method.
void describeInpaintDefaults(std::ostream& out);

}  // namespace quorblen::app
