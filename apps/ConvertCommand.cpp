// quorblen convert (placeholder until the command lands; its helper replaces this file).
#include "apps/CommandLine.h"
#include "apps/Commands.h"

namespace quorblen::app {

int runConvert(const std::vector<std::string>&) {
    throw CommandError("not available yet");
}

}  // namespace quorblen::app
