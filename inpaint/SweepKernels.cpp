// The diffusion sweep kernels on SSE2 double pairs, the choice of kernels at run time, and the
// lane groups of a pixel list.
#include "inpaint/SweepKernels.h"

#include <algorithm>

#include "image/SseVectors.h"
#include "inpaint/SweepKernelsBody.h"
#include "tv/RowKernels.h"

namespace quorblen::detail {
namespace {

/// Four double lanes as two SSE2 pairs: lanes 0 and 1 low, 2 and 3 high.
struct SseLanes {
    using V = SseVectors;
    struct Doubles {
        __m128d low;
        __m128d high;
    };

    static Doubles set(double value) { return {V::set(value), V::set(value)}; }
    static Doubles add(Doubles a, Doubles b) {
        return {V::add(a.low, b.low), V::add(a.high, b.high)};
    }
    static Doubles sub(Doubles a, Doubles b) {
        return {V::sub(a.low, b.low), V::sub(a.high, b.high)};
    }
    static Doubles mul(Doubles a, Doubles b) {
        return {V::mul(a.low, b.low), V::mul(a.high, b.high)};
    }
    static Doubles div(Doubles a, Doubles b) {
        return {V::div(a.low, b.low), V::div(a.high, b.high)};
    }
    static Doubles max(Doubles x, Doubles m) {
        return {V::max(x.low, m.low), V::max(x.high, m.high)};
    }
    static Doubles sqrt(Doubles a) { return {V::sqrt(a.low), V::sqrt(a.high)}; }
    static Doubles abs(Doubles a) { return {V::abs(a.low), V::abs(a.high)}; }
    static Doubles widen(__m128 v) { return {V::widenLow(v), V::widenHigh(v)}; }
    static __m128 narrow(Doubles v) { return V::narrow(v.low, v.high); }
    static double largest(Doubles v) { return V::largest(V::max(v.low, v.high)); }
};

/// Appends the groups of one run of neighbours in a row, given from its right end `x` leftwards
/// over `length` pixels (list order), each group from left to right.
void appendRun(std::vector<LaneGroup>& groups, std::ptrdiff_t row, std::ptrdiff_t x,
               std::ptrdiff_t length) {
    for (std::ptrdiff_t done = 0; done < length; done += GroupLanes) {
        const std::ptrdiff_t size = std::min<std::ptrdiff_t>(GroupLanes, length - done);
        LaneGroup group;
        for (int j = 0; j < GroupLanes; ++j) {
            group.pixel[j] = row + x - done - size + 1 + std::min<std::ptrdiff_t>(j, size - 1);
        }
        groups.push_back(group);
    }
}

template <class List>
std::vector<LaneGroup> groupsOf(const List& list, int width) {
    std::vector<LaneGroup> groups;
    groups.reserve(list.size() / GroupLanes + 1);
    for (std::size_t i = 0; i < list.size();) {
        // A run: the entries that follow one another leftwards along one row.
        std::size_t end = i + 1;
        while (end < list.size() && list[end].y == list[i].y &&
               std::ptrdiff_t(list[end].x) == std::ptrdiff_t(list[i].x) - std::ptrdiff_t(end - i)) {
            ++end;
        }
        appendRun(groups, std::ptrdiff_t(list[i].y) * width, list[i].x, std::ptrdiff_t(end - i));
        i = end;
    }
    return groups;
}

}  // namespace

constinit const SweepKernels sseSweepKernels = sweepKernelsFor<SseLanes>();

const SweepKernels& fastestSweepKernels() {
    // Decided once: the processor does not change under a running program.
    static const SweepKernels& fastest = avx2Available() ? avx2SweepKernels : sseSweepKernels;
    return fastest;
}

std::vector<LaneGroup> laneGroups(const PixelList& list, int width) {
    return groupsOf(list, width);
}

std::vector<LaneGroup> laneGroups(const BandList& list, int width) {
    return groupsOf(list, width);
}

}  // namespace quorblen::detail
