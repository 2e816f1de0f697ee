// How much memory the machine has.
#include "host/SystemMemory.h"

#include <unistd.h>

#include <cstdio>

namespace host {
namespace {

std::string gigabytes(double bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f GB", bytes / 1e9);
    return text;
}

}  // namespace

std::uint64_t physicalMemory() {
    return std::uint64_t(sysconf(_SC_PHYS_PAGES)) * std::uint64_t(sysconf(_SC_PAGESIZE));
}

std::string memoryShortfall(double bytes) {
    const double available = double(physicalMemory());
    if (bytes <= available) {
        return {};
    }
    return gigabytes(bytes) + " of memory, more than the " + gigabytes(available) +
           " this machine has";
}

}  // namespace host
