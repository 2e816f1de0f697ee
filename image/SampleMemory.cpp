// Memory for sample arrays: the large ones on transparent huge pages.
#include "image/SampleMemory.h"

#include <cassert>
#include <cstdlib>
#include <limits>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace quorblen {

void* allocateSamples(std::size_t bytes) {
    assert(bytes > 0);
    void* samples = nullptr;
    if (bytes < HugePageBytes) {
        samples = std::malloc(bytes);
    } else if (bytes <= std::numeric_limits<std::size_t>::max() - HugePageBytes) {
        // Whole huge pages, so that no other allocation shares the last one.
        const std::size_t whole = (bytes + HugePageBytes - 1) / HugePageBytes * HugePageBytes;
        samples = std::aligned_alloc(HugePageBytes, whole);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
        // Only advice: where transparent huge pages are off, the refusal leaves small pages.
        if (samples != nullptr) {
            static_cast<void>(madvise(samples, whole, MADV_HUGEPAGE));
        }
#endif
    }
    if (samples == nullptr) {
        throw std::bad_alloc();
    }
    return samples;
}

void releaseSamples(void* samples) noexcept {
    std::free(samples);
}

}  // namespace quorblen
