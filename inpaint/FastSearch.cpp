// The candidate maps of the patch search.
#include "inpaint/FastSearch.h"

#include <cassert>

namespace quorblen::detail {

CandidateMap::CandidateMap(const ImageBuffer& source, const ImageBuffer& bounds, int maskChannel,
                           int r)
    // lanes() reads up to LaneBlock - 1 flags past the last column.
    : m_height(bounds.height),
      m_flags(std::size_t(bounds.width) * std::size_t(bounds.height) + LaneBlock, 0) {
    assert(maskChannel >= 0 && maskChannel < source.channels);
    assert(source.width >= bounds.width && source.height >= bounds.height);
    for (int x = 1; x < bounds.width - 1; ++x) {
        for (int y = 1; y < bounds.height - 1; ++y) {
            const bool flag = patchCandidate(source, bounds, x, y, maskChannel, r);
            m_flags[std::size_t(x * m_height + y)] = flag;
            m_any = m_any || flag;
        }
    }
}

}  // namespace quorblen::detail
