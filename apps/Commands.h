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

/// The smallest A (--a) the upscale command takes. The node narrows A to single precision, and
/// below about 2.4e-38 the solver's weights overflow in flat areas and its output turns NaN.
inline constexpr double MinimumRegularization = 1e-30;

/// Lists the Quorblen node's knobs with their defaults and tooltips, as the loaded module
/// declares them; says so when the module cannot be loaded.
void describeUpscaleKnobs(std::ostream& out);

/// Lists the inpaint command's other options and its defaults for each method.
void describeInpaintDefaults(std::ostream& out);

}  // namespace quorblen::app
