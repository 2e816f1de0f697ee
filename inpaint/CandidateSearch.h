// The candidate search of the exemplar and elastica fill passes, and the scores they give it;
// not part of the library's interface.
#pragma once

#include <algorithm>
#include <cstdint>

#include "image/ImageBuffer.h"
#include "inpaint/ElasticaEnergy.h"
#include "inpaint/FillPixels.h"
#include "inpaint/KernelSupport.h"
#include "inpaint/Measures.h"

namespace quorblen::detail {

/// The outcome of a candidate search: the centre and source of the winner, its score, and
/// whether any candidate won. Without a winner the centre is the pixel itself, source 0.
struct Choice {
    int x;
    int y;
    int source;
    double score;
    bool found;
};

/// Searches the (2 radius + 1)^2 window around (x, y) for the candidate of lowest score.
///
/// The contract every pass's result rests on, which a faster search must keep to the bit:
/// - The window's centres are clipped to keep `margin` pixels from the edges of `bounds`.
/// - Candidates are visited columns outer (cx ascending), rows inner (cy ascending), and at
///   each centre sources 0 .. sourceCount - 1 inner-most.
/// - eligible(cx, cy, s) is called once per candidate and, when it holds, score(cx, cy, s)
///   right after it: the calls follow the visiting order.
/// - A candidate wins when its score is strictly below (`<`) the best so far, which starts at
///   `start`: ties keep the first candidate in visiting order, a NaN score never wins.
///
/// Calls may have effects a later call sees: EnergyProbe::tryColour leaves the tried colour
/// at the pixel being filled (every try rewrites all of it, so a score does not depend on the
/// candidates before it), and an eligibility test may read that pixel (inpaintTextureElastica's
/// does when its mask is a colour channel). A search split over threads or vector lanes must
/// give each its own copy of such state and reduce in visiting order.
template <class Eligible, class Score>
Choice searchCandidates(const ImageBuffer& bounds, std::int64_t x, std::int64_t y, int radius,
                        int margin, int sourceCount, double start, Eligible eligible, Score score) {
    Choice best{static_cast<int>(x), static_cast<int>(y), 0, start, false};
    const std::int64_t x0 = std::max<std::int64_t>(x - radius, margin);
    const std::int64_t x1 = std::min<std::int64_t>(x + radius, bounds.width - 1 - margin);
    const std::int64_t y0 = std::max<std::int64_t>(y - radius, margin);
    const std::int64_t y1 = std::min<std::int64_t>(y + radius, bounds.height - 1 - margin);
    for (std::int64_t cx = x0; cx <= x1; ++cx) {
        for (std::int64_t cy = y0; cy <= y1; ++cy) {
            for (int s = 0; s < sourceCount; ++s) {
                const int qx = static_cast<int>(cx);
                const int qy = static_cast<int>(cy);
                if (!eligible(qx, qy, s)) {
                    continue;
                }
                const double value = score(qx, qy, s);
                if (value < best.score) {
                    best = {qx, qy, s, value, true};
                }
            }
        }
    }
    return best;
}

/// Whether sample `maskChannel` is exactly 0.0 at all nine pixels of the 3x3 block around
/// (x, y): -0.0 counts as known, a NaN does not.
inline bool knownBlock(const ImageBuffer& image, int x, int y, int maskChannel) {
    const PlaneAt mask(image, x, y, maskChannel);
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            if (!(mask(dx, dy) == 0.0f)) {
                return false;
            }
        }
    }
    return true;
}

/// Whether (cx, cy) of `source` may serve a patch comparison: its 3x3 block is known and its
/// patch of radius r lies inside `bounds`.
inline bool patchCandidate(const ImageBuffer& source, const ImageBuffer& bounds, int cx, int cy,
                           int maskChannel, int r) {
    return knownBlock(source, cx, cy, maskChannel) && keepsMargin(bounds, cx, cy, r);
}

/// patchDistance with its validity flag dropped: the passes score a comparison with no
/// usable pixel pair as 0.0.
inline double patchScore(const ImageBuffer& target, std::uint32_t x, std::uint32_t y,
                         const ImageBuffer& compare, int cx, int cy, int r) {
    bool valid = false;
    return patchDistance(target, x, y, compare, static_cast<std::uint32_t>(cx),
                         static_cast<std::uint32_t>(cy), r, valid);
}

/// The local elastica energy around the pixel being filled, in the image where candidate
/// colours are tried.
struct EnergyProbe {
    /// epsilon and curvatureWeight are used in single precision.
    EnergyProbe(ImageBuffer& image, std::uint32_t x, std::uint32_t y, double epsilon,
                double curvatureWeight)
        : image(image),
          x(x),
          y(y),
          epsilon(static_cast<float>(epsilon)),
          curvatureWeight(static_cast<float>(curvatureWeight)) {}

    ImageBuffer& image;
    std::uint32_t x;
    std::uint32_t y;
    float epsilon;
    float curvatureWeight;

    /// The energy with the colour standing at the pixel now.
    double current() const { return elasticaEnergy(image, x, y, epsilon, curvatureWeight); }

    /// Writes colour (cx, cy) of `from` at the pixel, where it stays until the next write,
    /// and returns the energy with it in place.
    double tryColour(const ImageBuffer& from, int cx, int cy) {
        copyColour(from, cx, cy, image, x, y);
        return current();
    }
};

/// The score of the passes that weigh texture against smoothness: the colour of (cx, cy) of
/// `from` is tried at the probe's pixel first, then the patch of the probe's pixel in `target`
/// is compared with that of (cx, cy) in `compare` (which sees the tried colour when it is the
/// probe's image); returns distance * patchWeight + energy.
inline double elasticaPatchScore(EnergyProbe& probe, const ImageBuffer& from,
                                 const ImageBuffer& target, const ImageBuffer& compare, int cx,
                                 int cy, int r, double patchWeight) {
    const double energy = probe.tryColour(from, cx, cy);
    return patchScore(target, probe.x, probe.y, compare, cx, cy, r) * patchWeight + energy;
}

}  // namespace quorblen::detail
