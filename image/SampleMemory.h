// Memory for sample arrays: the large ones on transparent huge pages.
#pragma once

#include <cstddef>

namespace quorblen {

/// The huge page size of x86-64 Linux: arrays of at least this many bytes start on a multiple
/// of it and span whole multiples of it.
inline constexpr std::size_t HugePageBytes = std::size_t(2) << 20;

/// Uncleared memory for `bytes` bytes (> 0, asserted), aligned for any scalar type. An array
/// of HugePageBytes or more is 2 MiB-aligned and asks the kernel for transparent huge pages,
/// so that its first touch faults once per 2 MiB rather than once per 4 KiB page; the kernel
/// may refuse, and then it is ordinary memory. Throws std::bad_alloc when the memory cannot
/// be had. Release it with releaseSamples.
void* allocateSamples(std::size_t bytes);

/// Releases memory from allocateSamples; null does nothing.
void releaseSamples(void* samples) noexcept;

}  // namespace quorblen
