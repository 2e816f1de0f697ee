// Tolerant comparison, edge gradient, curvature and patch distance.
#include "inpaint/Measures.h"

#include <cassert>
#include <cmath>

#include "inpaint/KernelSupport.h"

namespace quorblen {
namespace {

/// Six times the smallest normal float (bits 0x01C00000).
constexpr float TinyDifference = 0x1.8p-124f;
/// The largest relative difference still equal: 2^-22, twice the float epsilon.
constexpr float RelativeTolerance = 0x1p-22f;

constexpr int AlphaChannel = 3;

}  // namespace

bool approxEqual(float a, float b) {
    const float d = std::fabs(a - b);
    if (d < TinyDifference) {
        return true;
    }
    const float scale = std::fabs(b) > std::fabs(a) ? std::fabs(b) : std::fabs(a);
    return d / scale <= RelativeTolerance;
}

float edgeGradientMagnitude(const ImageBuffer& image, std::uint32_t x, std::uint32_t y, int c,
                            int k) {
    assert(detail::keepsMargin(image, x, y, 1));
    assert(c >= 0 && c < image.channels && k >= 0 && k < 4);
    return detail::edgeTerms(detail::PlaneAt(image, x, y, c), k).g;
}

double curvature(const ImageBuffer& image, std::uint32_t x, std::uint32_t y, int c, float epsilon) {
    assert(detail::keepsMargin(image, x, y, 1));
    assert(c >= 0 && c < image.channels);
    return detail::curvatureAt(detail::PlaneAt(image, x, y, c), detail::squaredInFloat(epsilon));
}

double patchDistance(const ImageBuffer& a, std::uint32_t xa, std::uint32_t ya, const ImageBuffer& b,
                     std::uint32_t xb, std::uint32_t yb, int r, bool& valid) {
    assert(a.channels > AlphaChannel && b.channels > AlphaChannel);
    double sum = 0.0;
    double wsum = 0.0;
    if (r >= 0) {
        // Patch origins; signed so that a patch reaching over an edge trips the asserts.
        const long long ax = static_cast<long long>(xa) - r;
        const long long ay = static_cast<long long>(ya) - r;
        const long long bx = static_cast<long long>(xb) - r;
        const long long by = static_cast<long long>(yb) - r;
        assert(detail::keepsMargin(a, ax, ay, 0) &&
               detail::keepsMargin(a, ax + 2 * r, ay + 2 * r, 0));
        assert(detail::keepsMargin(b, bx, by, 0) &&
               detail::keepsMargin(b, bx + 2 * r, by + 2 * r, 0));
        // Column offset outer, row offset inner: the order the sums are taken in.
        for (int i = 0; i <= 2 * r; ++i) {
            for (int j = 0; j <= 2 * r; ++j) {
                const float* pa = a.data + detail::sampleIndex(a, ax + i, ay + j, 0);
                const float* pb = b.data + detail::sampleIndex(b, bx + i, by + j, 0);
                if (approxEqual(pa[AlphaChannel], 1.0f) || !approxEqual(pb[AlphaChannel], 0.0f)) {
                    continue;
                }
                const int dist2 = (i - r) * (i - r) + (j - r) * (j - r);
                const double w = static_cast<double>(1.0f - pa[AlphaChannel]) /
                                 std::sqrt(static_cast<double>(dist2) + 1.0);
                // One weight per colour channel, added one at a time.
                wsum += w;
                wsum += w;
                wsum += w;
                for (int c = 0; c < 3; ++c) {
                    const float delta = pa[c] - pb[c];
                    sum += static_cast<double>(delta * delta) * w;
                }
            }
        }
    }
    if (std::fabs(wsum) <= detail::TinyWeightSum) {
        valid = false;
        return 0.0;
    }
    valid = true;
    return sum / wsum;
}

}  // namespace quorblen
