// Memory for sample arrays: the large ones on transparent huge pages.
#include "image/SampleMemory.h"

#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace quorblen {

void adviseHugePages(void* memory, std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr std::uintptr_t HugePageBytes = std::uintptr_t(2) << 20;
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t first = (begin + HugePageBytes - 1) & ~(HugePageBytes - 1);
    const std::uintptr_t last = (begin + bytes) & ~(HugePageBytes - 1);
    if (last > first) {
        static_cast<void>(madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE));
    }
#else
    static_cast<void>(memory);
    static_cast<void>(bytes);
#endif
}

}  // namespace quorblen
