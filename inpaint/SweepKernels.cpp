// The diffusion sweep kernels on SSE2 double pairs, the choice of kernels at run time, and the
// lane groups of a pixel list.
#include "inpaint/SweepKernels.h"

#include <emmintrin.h>

#include <algorithm>

#include "inpaint/SweepKernelsBody.h"
#include "tv/RowKernels.h"

namespace quorblen::detail {
namespace {

/// Four double lanes as two SSE2 pairs: lanes 0 and 1 low, 2 and 3 high.
struct SseLanes {
    struct Doubles {
        __m128d low;
        __m128d high;
    };

    static Doubles set(double value) { return {_mm_set1_pd(value), _mm_set1_pd(value)}; }
    static Doubles add(Doubles a, Doubles b) {
        return {_mm_add_pd(a.low, b.low), _mm_add_pd(a.high, b.high)};
    }
    static Doubles sub(Doubles a, Doubles b) {
        return {_mm_sub_pd(a.low, b.low), _mm_sub_pd(a.high, b.high)};
    }
    static Doubles mul(Doubles a, Doubles b) {
        return {_mm_mul_pd(a.low, b.low), _mm_mul_pd(a.high, b.high)};
    }
    static Doubles div(Doubles a, Doubles b) {
        return {_mm_div_pd(a.low, b.low), _mm_div_pd(a.high, b.high)};
    }
    static Doubles max(Doubles x, Doubles m) {
        return {_mm_max_pd(x.low, m.low), _mm_max_pd(x.high, m.high)};
    }
    static Doubles sqrt(Doubles a) { return {_mm_sqrt_pd(a.low), _mm_sqrt_pd(a.high)}; }
    static Doubles abs(Doubles a) {
        const __m128d sign = _mm_set1_pd(-0.0);
        return {_mm_andnot_pd(sign, a.low), _mm_andnot_pd(sign, a.high)};
    }
    static Doubles widen(__m128 v) { return {_mm_cvtps_pd(v), _mm_cvtps_pd(_mm_movehl_ps(v, v))}; }
    static __m128 narrow(Doubles v) {
        return _mm_movelh_ps(_mm_cvtpd_ps(v.low), _mm_cvtpd_ps(v.high));
    }
    static double largest(Doubles v) {
        const __m128d pair = _mm_max_pd(v.low, v.high);
        return _mm_cvtsd_f64(_mm_max_sd(pair, _mm_unpackhi_pd(pair, pair)));
    }
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
