// How much memory the machine has, for refusing images that cannot fit before reading them.
#pragma once

#include <cstdint>
#include <string>

namespace host {

/// The machine's physical memory in bytes.
std::uint64_t physicalMemory();

/// Empty when `bytes` fit in the machine's physical memory; otherwise how much is needed, as
/// "111.8 GB of memory, more than the 23.4 GB this machine has".
std::string memoryShortfall(double bytes);

}  // namespace host
