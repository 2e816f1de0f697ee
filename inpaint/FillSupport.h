// Helpers the exemplar and elastica fill passes share; not part of the library's interface.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <utility>

#include "image/ImageBuffer.h"
#include "inpaint/ElasticaEnergy.h"
#include "inpaint/FillOrder.h"
#include "inpaint/KernelSupport.h"
#include "inpaint/Measures.h"
#include "inpaint/PixelList.h"
#include "inpaint/Priority.h"

namespace quorblen::detail {

constexpr int AlphaChannel = 3;

/// Sample c of pixel (x, y).
inline float sampleAt(const ImageBuffer& image, std::ptrdiff_t x, std::ptrdiff_t y, int c) {
    return image.data[sampleIndex(image, x, y, c)];
}

/// Sets the alpha (channel 3) of pixel (x, y).
inline void setAlpha(ImageBuffer& image, std::ptrdiff_t x, std::ptrdiff_t y, float alpha) {
    image.data[sampleIndex(image, x, y, AlphaChannel)] = alpha;
}

/// Copies channels 0-2 of pixel (fx, fy) of `from` to pixel (tx, ty) of `to`, each image
/// addressed with its own layout.
inline void copyColour(const ImageBuffer& from, std::ptrdiff_t fx, std::ptrdiff_t fy,
                       ImageBuffer& to, std::ptrdiff_t tx, std::ptrdiff_t ty) {
    std::copy_n(from.data + sampleIndex(from, fx, fy, 0), 3, to.data + sampleIndex(to, tx, ty, 0));
}

/// The running maximum of |a - b| over channels 0-2 of pixel (ax, ay) of `a` and (bx, by) of
/// `b`, each difference taken in double; a NaN difference never replaces the maximum.
inline double trackColourChange(double maxChange, const ImageBuffer& a, std::ptrdiff_t ax,
                                std::ptrdiff_t ay, const ImageBuffer& b, std::ptrdiff_t bx,
                                std::ptrdiff_t by) {
    for (int c = 0; c < 3; ++c) {
        const double d = static_cast<double>(sampleAt(a, ax, ay, c)) -
                         static_cast<double>(sampleAt(b, bx, by, c));
        maxChange = std::max(maxChange, std::fabs(d));
    }
    return maxChange;
}

/// The alpha level 0.7^exponent, computed in double and stored as float.
inline float alphaLevel(double exponent) {
    return static_cast<float>(std::pow(0.7, exponent));
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

/// The outcome of a candidate search: the centre and source of the winner, its score, and
/// whether any candidate won. Without a winner the centre is the pixel itself, source 0.
struct Choice {
    int x;
    int y;
    int source;
    double score;
    bool found;
};

/// Searches the (2 radius + 1)^2 window around (x, y) for the candidate of lowest score. The
/// window's centres are kept `margin` pixels from the edges of `bounds` and visited columns
/// outer, rows inner, both ascending, and at each centre sources 0 .. sourceCount - 1 in turn.
/// A candidate is scored by score(cx, cy, s) when eligible(cx, cy, s) holds, and wins when its
/// score is strictly below the best so far, which starts at `start`: ties keep the first.
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

/// The level test of the passes that fill the pixels at alpha `level`, within tolerance.
inline auto approxLevel(float level) {
    return [level](float alpha) { return approxEqual(alpha, level); };
}

/// The state of a pass that consumes its list: each step takes the entry of highest priority
/// (as highestPriorityPixel selects it over the active part), moves it behind the active part
/// and fills it. The pass writes the alphas of `image` through `order` only.
struct ListConsumer {
    ListConsumer(const ImageBuffer& image, PixelList& list)
        : image(image), list(list), order(image, list) {}

    const ImageBuffer& image;
    PixelList& list;
    FillOrder order;
    std::int32_t last = static_cast<std::int32_t>(list.size()) - 1;
    std::int32_t changed = 0;
    double maxChange = 0.0;
    /// The pixel being filled.
    std::uint32_t x = 0;
    std::uint32_t y = 0;

    /// Selects the next pixel and swaps its entry (tag and all) with the last active one,
    /// which it replaces. Returns false, changing nothing, when nothing is selected.
    bool next(bool forward) {
        const std::uint32_t index = order.best(forward);
        if (index == NoPixel) {
            // highestPriorityPixel finds nothing either, and reports it.
            highestPriorityPixel(image, list, last, forward, x, y);
            return false;
        }
        x = list[index].x;
        y = list[index].y;
        std::swap(list[index], list[static_cast<std::size_t>(last)]);
        order.retire(index, static_cast<std::uint32_t>(last));
        --last;
        return true;
    }

    /// Counts a step whose pixel took the colour of `src` at `choice`.
    void record(const ImageBuffer& src, const Choice& choice) {
        changed += choice.found;
        maxChange = trackColourChange(maxChange, src, x, y, src, choice.x, choice.y);
    }
};

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

/// Whether `image` lacks an alpha channel; prints the passes' error line on std::cout when it
/// does.
inline bool lacksAlpha(const ImageBuffer& image) {
    if (image.channels > AlphaChannel) {
        return false;
    }
    std::cout << "Error: new_img doesn't have an alpha channel!\n";
    return true;
}

/// Prints "<routine>: Changed <changed> pixels out of <listSize> this iteration." on std::cout.
inline void reportChanges(const char* routine, std::int32_t changed, std::size_t listSize) {
    std::cout << routine << ": Changed " << changed << " pixels out of " << listSize
              << " this iteration.\n";
}

/// Whether `image` covers the width and height of `extent` with at least `channels` channels.
inline bool covers(const ImageBuffer& image, const ImageBuffer& extent, int channels) {
    return image.width >= extent.width && image.height >= extent.height &&
           image.channels >= channels;
}

}  // namespace quorblen::detail
