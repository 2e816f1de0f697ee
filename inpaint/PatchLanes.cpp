// The patch distance's lane kernels on SSE2, their inputs, and the choice of kernels at run
// time.
#include "inpaint/PatchLanes.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>

#include "image/SseVectors.h"
#include "inpaint/FillPixels.h"
#include "inpaint/PatchLanesBody.h"
#include "tv/RowKernels.h"

namespace quorblen::detail {
namespace {

struct SseLanes : SseVectors {
    /// Four flags of 0 or -1 as the bits of four floats.
    static Floats flagsAsFloats(const std::int32_t* p) {
        return _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    /// Two flags of 0 or -1, each repeated to fill its lane's 64 bits.
    static Doubles loadMask(const std::int32_t* p) {
        const __m128i flags = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        return _mm_castsi128_pd(_mm_unpacklo_epi32(flags, flags));
    }
};

/// How many pairs a block adds between two looks at its bound.
constexpr int PairsPerCheck = 4;

/// The padding behind every plane: lane 0 is live, so its patch lies inside the image, and
/// the other lanes read at most LaneBlock - 1 rows below it.
constexpr std::size_t PlanePadding = LaneBlock;

}  // namespace

constinit const PatchLaneKernels ssePatchLanes{scoreBlockWith<SseLanes>};

const PatchLaneKernels& fastestPatchLanes() {
    static const PatchLaneKernels& fastest = avx2Available() ? avx2PatchLanes : ssePatchLanes;
    return fastest;
}

PatchPlanes::PatchPlanes(const ImageBuffer& image, int width, int height, int r)
    : m_width(width),
      m_height(height),
      m_radius(std::max(r, 0)),
      m_colour(image, width, height, {0, 1, 2}, PlanePadding) {
    r = m_radius;
    assert(image.channels > AlphaChannel && image.width >= width && image.height >= height);
    const std::size_t size = std::size_t(width) * std::size_t(height) + PlanePadding;
    m_known.assign(size, 0);
    m_complete.assign(size, 0);
    for (int x = 0; x < width; ++x) {
        for (int y = 0; y < height; ++y) {
            copyKnown(image, x, y);
        }
    }
    // Unknown pixels counted over every column segment: each centre's patch in 2r + 1 reads.
    // Only the 2r + 1 columns around the centre column are kept, in a ring.
    const std::size_t span = std::size_t(2 * r + 1);
    std::vector<int> below(std::size_t(height) + 1);
    std::vector<int> unknownAcross(span * std::size_t(height));
    std::vector<int> unknown(static_cast<std::size_t>(height));
    const auto segments = [&](int x) {
        return unknownAcross.data() + std::size_t(x) % span * std::size_t(height);
    };
    for (int x = 0; x < width; ++x) {
        for (int y = 0; y < height; ++y) {
            below[std::size_t(y) + 1] =
                below[std::size_t(y)] + (m_known[std::size_t(at(x, y))] == 0);
        }
        int* column = segments(x);
        for (int y = r; y < height - r; ++y) {
            column[y] = below[std::size_t(y + r + 1)] - below[std::size_t(y - r)];
        }
        const int cx = x - r;
        if (cx < r) {
            continue;
        }
        // The ring holds the 2r + 1 columns of centre column cx now, in some order.
        std::fill(unknown.begin(), unknown.end(), 0);
        for (std::size_t k = 0; k < span; ++k) {
            const int* segment = unknownAcross.data() + k * std::size_t(height);
            for (int y = r; y < height - r; ++y) {
                unknown[std::size_t(y)] += segment[y];
            }
        }
        for (int y = r; y < height - r; ++y) {
            m_complete[std::size_t(at(cx, y))] = unknown[std::size_t(y)] == 0;
        }
    }
}

void PatchPlanes::copyKnown(const ImageBuffer& image, int x, int y) {
    m_known[std::size_t(at(x, y))] =
        approxEqual(sampleAt(image, x, y, AlphaChannel), 0.0f) ? -1 : 0;
}

void PatchPlanes::check(int x, int y) {
    const int r = m_radius;
    bool complete = x >= r && y >= r && x < m_width - r && y < m_height - r;
    for (int i = -r; complete && i <= r; ++i) {
        for (int j = -r; complete && j <= r; ++j) {
            complete = m_known[std::size_t(at(x + i, y + j))] != 0;
        }
    }
    m_complete[std::size_t(at(x, y))] = complete;
}

void PatchPlanes::refresh(const ImageBuffer& image, int x, int y) {
    const std::int32_t was = m_known[std::size_t(at(x, y))];
    m_colour.refresh(image, x, y);
    copyKnown(image, x, y);
    if (m_known[std::size_t(at(x, y))] == was) {
        return;
    }
    for (int i = std::max(0, x - m_radius); i <= std::min<int>(m_width - 1, x + m_radius); ++i) {
        for (int j = std::max(0, y - m_radius); j <= std::min<int>(m_height - 1, y + m_radius);
             ++j) {
            check(i, j);
        }
    }
}

double keptSum(const PatchTarget& target, double bound, double patchWeight) {
    constexpr double Infinite = std::numeric_limits<double>::infinity();
    const double full = target.fullWeightSum;
    // The kernels' old test. With full > 0.0 and patchWeight > 0.0 it is monotone in s, as
    // rounding to nearest is: once it holds for a sum it holds for every larger one.
    const auto drops = [&](double s) { return s / full * patchWeight > bound; };
    if (!target.growing || !(full > 0.0) || !(patchWeight > 0.0) || !drops(Infinite)) {
        return Infinite;
    }
    if (drops(0.0)) {
        return -std::numeric_limits<double>::denorm_min();
    }
    // Doubles from +0.0 to +inf order as their bit patterns: bisect the patterns between a
    // kept sum (lo) and a dropped one (hi), first narrowed around the inverse of the test.
    using Bits = std::uint64_t;
    Bits lo = std::bit_cast<Bits>(0.0);
    Bits hi = std::bit_cast<Bits>(Infinite);
    const double guess = bound / patchWeight * full;
    if (guess >= 0.0 && guess < Infinite) {
        constexpr Bits Near = 4;
        const Bits at = std::bit_cast<Bits>(guess);
        if (at > lo + Near && !drops(std::bit_cast<double>(at - Near))) {
            lo = at - Near;
        }
        if (at + Near < hi && drops(std::bit_cast<double>(at + Near))) {
            hi = at + Near;
        }
    }
    while (hi - lo > 1) {
        const Bits mid = lo + (hi - lo) / 2;
        (drops(std::bit_cast<double>(mid)) ? hi : lo) = mid;
    }
    return std::bit_cast<double>(lo);
}

PatchTarget::PatchTarget(const ImageBuffer& target, int x, int y, int r, std::ptrdiff_t step) {
    assert(target.channels > AlphaChannel && keepsMargin(target, x, y, r));
    // The order and arithmetic of patchDistance: column offset outer, row offset inner.
    for (int i = 0; i <= 2 * r; ++i) {
        for (int j = 0; j <= 2 * r; ++j) {
            const float* pa = target.data + sampleIndex(target, x - r + i, y - r + j, 0);
            if (approxEqual(pa[AlphaChannel], 1.0f)) {
                continue;
            }
            const int dist2 = (i - r) * (i - r) + (j - r) * (j - r);
            const double w = static_cast<double>(1.0f - pa[AlphaChannel]) /
                             std::sqrt(static_cast<double>(dist2) + 1.0);
            offset.push_back((i - r) * step + (j - r));
            weight.push_back(w);
            for (int c = 0; c < 3; ++c) {
                colour[c].push_back(pa[c]);
            }
            fullWeightSum += w;
            fullWeightSum += w;
            fullWeightSum += w;
            growing = growing && w > TinyWeightSum;
        }
    }
    for (int end = PairsPerCheck; end < int(offset.size()) + PairsPerCheck; end += PairsPerCheck) {
        checkpoints.push_back(std::min(end, int(offset.size())));
    }
    // Only a growing target is pruned, and only its weights are all numbers to sort.
    if (!growing || offset.size() > HeavyPairs::MaxPairs) {
        return;
    }
    std::vector<std::size_t> order(offset.size());
    for (std::size_t p = 0; p < order.size(); ++p) {
        order[p] = p;
    }
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return weight[a] > weight[b] || (weight[a] == weight[b] && a < b);
    });
    for (const std::size_t p : order) {
        float w = static_cast<float>(weight[p]);
        if (static_cast<double>(w) > weight[p]) {
            w = std::nextafter(w, 0.0f);
        }
        heavy.offset.push_back(offset[p]);
        heavy.weight.push_back(w);
        for (int c = 0; c < 3; ++c) {
            heavy.colour[c].push_back(colour[c][p]);
        }
    }
}

}  // namespace quorblen::detail
