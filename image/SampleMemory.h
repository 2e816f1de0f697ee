// Memory for sample arrays: the large ones on transparent huge pages.
#pragma once

#include <cstddef>

namespace quorblen {

/// Asks the kernel to back the whole 2 MiB pages inside `bytes` bytes at `memory` with
/// transparent huge pages, so that their first touch faults once per 2 MiB rather than once
/// per 4 KiB. Only advice: ranges under 2 MiB, other systems and a kernel that refuses leave
/// ordinary pages. The memory stays the caller's (array new and array delete as before).
void adviseHugePages(void* memory, std::size_t bytes) noexcept;

}  // namespace quorblen
