// The large-hole fill: coarse-to-fine patch match over a pyramid of the hole's surroundings.
#include "inpaint/PatchMatch.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <span>
#include <vector>

#include "inpaint/PatchSearch.h"
#include "inpaint/WorkerPool.h"
#include "inpaint/WorkingImage.h"

namespace quorblen {
namespace {

using detail::MatchField;
using detail::PatchLevel;
using detail::PatchMatchEntry;

/// One level's images: the one filled, then the extra sources'.
using LevelImages = std::vector<PatchLevel>;

/// Sweeps of the search per round: one forward, one backward.
constexpr int SweepsPerRound = 2;

/// The automatic pyramid stops once the hole is at most this many patch radii deep: deeper
/// pyramids average fine texture away on their coarse levels and lose it for good.
constexpr int CoarsestDepth = 4;

/// On this many of the finest levels each hole pixel takes its best vote instead of the mean
/// of its votes: the mean of matches that disagree blurs texture.
constexpr std::size_t SharpLevels = 2;

/// How much more a match's vote counts per pixel it lies closer to the known pixels than the
/// pixel voted for: matches near the hole's edge, which see most known colour, lead.
constexpr double EdgeTrust = 1.6;

/// The share of matches whose cost sets the scale of the vote weights: a match at that cost
/// counts exp(-1/2) of a perfect one.
constexpr double CostScaleQuantile = 0.05;

/// Votes never weigh less than exp(-this) of a perfect match, so that every pixel gets some.
constexpr double LargestCostRatio = 50.0;

/// Channels after the colours that describe the texture around a pixel: its mean absolute
/// difference to the next pixel across and down, over a small square. They make a smooth patch
/// a poor match for a textured one, which colour alone does not when the hole's first guess is
/// smooth.
constexpr int TextureChannels = 2;
constexpr int TextureRadius = 2;
/// The texture channels' factor: on the sample photos twice the mean absolute difference
/// keeps the fill's texture as strong as its surroundings'; more starts to cost colour.
constexpr float TextureWeight = 2.0f;

/// Sets the texture channels of `level` from its first `colours` channels (their mean).
void addTexture(PatchLevel& level, int colours) {
    const int w = level.width;
    const int h = level.height;
    std::vector<float> grey(std::size_t(w) * h);
    for (std::size_t i = 0; i < grey.size(); ++i) {
        float sum = 0.0f;
        for (int c = 0; c < colours; ++c) {
            sum += level.colour[i * level.channels + c];
        }
        grey[i] = sum / float(colours);
    }
    for (int axis = 0; axis < TextureChannels; ++axis) {
        std::vector<float> step(grey.size());
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const int nx = axis == 0 ? std::min(x + 1, w - 1) : x;
                const int ny = axis == 1 ? std::min(y + 1, h - 1) : y;
                step[level.index(x, y)] =
                    std::fabs(grey[level.index(nx, ny)] - grey[level.index(x, y)]);
            }
        }
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                float sum = 0.0f;
                int count = 0;
                for (int ny = std::max(y - TextureRadius, 0);
                     ny <= std::min(y + TextureRadius, h - 1); ++ny) {
                    for (int nx = std::max(x - TextureRadius, 0);
                         nx <= std::min(x + TextureRadius, w - 1); ++nx) {
                        sum += step[level.index(nx, ny)];
                        ++count;
                    }
                }
                level.at(x, y)[colours + axis] = TextureWeight * sum / float(count);
            }
        }
    }
}

/// The part of the working image `work` inside the image: its box without the padding.
Region insideOf(const ImageBuffer& work) {
    Region inside{work.width, work.height, 0, 0};
    for (int y = 0; y < work.height; ++y) {
        for (int x = 0; x < work.width; ++x) {
            const float* p = work.data + std::ptrdiff_t(y) * work.stride + x * work.channels;
            if (p[WorkDonor] == 0.0f || p[WorkAlpha] != 0.0f) {
                inside = {std::min(inside.x0, x), std::min(inside.y0, y),
                          std::max(inside.x1, x + 1), std::max(inside.y1, y + 1)};
            }
        }
    }
    return inside;
}

/// Level 0 of the pyramid of the working image `work`: its part `inside`, its hole where alpha
/// is not 0.
PatchLevel fullLevel(const ImageBuffer& work, int channels, int radius, const Region& inside) {
    PatchLevel level = detail::makePatchLevel(inside.x1 - inside.x0, inside.y1 - inside.y0,
                                              channels + TextureChannels, radius);
    for (int y = 0; y < level.height; ++y) {
        for (int x = 0; x < level.width; ++x) {
            const float* p = work.data + std::ptrdiff_t(y + inside.y0) * work.stride +
                             (x + inside.x0) * work.channels;
            std::copy_n(p, channels, level.at(x, y));
            level.hole[level.index(x, y)] = p[WorkAlpha] != 0.0f;
        }
    }
    addTexture(level, channels);
    detail::classifyPatches(level);
    return level;
}

/// The next coarser level: half the size (rounded up), each pixel the mean of its 2 x 2
/// children inside `fine`, a hole pixel when any child is.
PatchLevel halved(const PatchLevel& fine) {
    PatchLevel level = detail::makePatchLevel((fine.width + 1) / 2, (fine.height + 1) / 2,
                                              fine.channels, fine.radius);
    for (int y = 0; y < level.height; ++y) {
        for (int x = 0; x < level.width; ++x) {
            float* out = level.at(x, y);
            int count = 0;
            for (int cy = 2 * y; cy < std::min(2 * y + 2, fine.height); ++cy) {
                for (int cx = 2 * x; cx < std::min(2 * x + 2, fine.width); ++cx) {
                    const float* child = fine.at(cx, cy);
                    for (int c = 0; c < fine.channels; ++c) {
                        out[c] += child[c];
                    }
                    level.hole[level.index(x, y)] |= fine.hole[fine.index(cx, cy)];
                    ++count;
                }
            }
            for (int c = 0; c < fine.channels; ++c) {
                out[c] /= float(count);
            }
        }
    }
    detail::classifyPatches(level);
    return level;
}

/// The coarser neighbour at position k / 2 - 1/4 and its weight: 3/4 towards the nearer
/// coarse pixel, 1/4 towards the other, the edge pixel repeated beyond the edge.
struct Taps {
    int near;
    int far;
};
Taps tapsOf(int k, int coarseSize) {
    const int near = std::min(k / 2, coarseSize - 1);
    const int far = std::clamp(k % 2 == 0 ? k / 2 - 1 : k / 2 + 1, 0, coarseSize - 1);
    return {near, far};
}

/// Gives the hole pixels of `fine` the colours of `coarse` enlarged bilinearly.
void enlargeInto(const PatchLevel& coarse, PatchLevel& fine) {
    for (int y = 0; y < fine.height; ++y) {
        const Taps ty = tapsOf(y, coarse.height);
        for (int x = 0; x < fine.width; ++x) {
            if (!fine.hole[fine.index(x, y)]) {
                continue;
            }
            const Taps tx = tapsOf(x, coarse.width);
            for (int c = 0; c < fine.channels; ++c) {
                const float nearRow =
                    0.75f * coarse.at(tx.near, ty.near)[c] + 0.25f * coarse.at(tx.far, ty.near)[c];
                const float farRow =
                    0.75f * coarse.at(tx.near, ty.far)[c] + 0.25f * coarse.at(tx.far, ty.far)[c];
                fine.at(x, y)[c] = 0.75f * nearRow + 0.25f * farRow;
            }
        }
    }
}

/// The vote weight of every target's match before its distance to the known pixels counts:
/// exp(-m / (2 s)), m the match's mean squared difference per sample and s the quantile
/// CostScaleQuantile of m over the targets.
std::vector<double> matchWeights(const PatchLevel& level, const MatchField& field) {
    std::vector<double> weights(field.size(), 0.0);
    std::vector<double> means;
    for (int y = 0; y < level.height; ++y) {
        for (int x = 0; x < level.width; ++x) {
            const std::size_t i = level.index(x, y);
            if (level.target[i]) {
                weights[i] = double(field[i].cost) / detail::patchSamples(level, x, y);
                means.push_back(weights[i]);
            }
        }
    }
    const auto quantile =
        means.begin() + std::ptrdiff_t(double(means.size() - 1) * CostScaleQuantile);
    std::nth_element(means.begin(), quantile, means.end());
    const double scale = 2.0 * *quantile;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        if (level.target[i]) {
            const double ratio = scale > 0.0 ? weights[i] / scale : 0.0;
            weights[i] = std::exp(-std::min(ratio, LargestCostRatio));
        }
    }
    return weights;
}

/// Gives every hole pixel of images[0] the colours its overlapping matches hold for it, each
/// from its match's image: their weighted mean, or with `sharp` those of the match of largest
/// weight (the first in row order on a tie). Reads known pixels only, so the rows are
/// independent.
void vote(LevelImages& images, const MatchField& field, detail::WorkerPool& pool, bool sharp) {
    PatchLevel& level = images.front();
    const std::vector<double> weights = matchWeights(level, field);
    const int r = level.radius;
    // Distances to the known pixels differ by at most 2r within a patch.
    std::vector<double> trust(4 * r + 1);
    for (int d = -2 * r; d <= 2 * r; ++d) {
        trust[d + 2 * r] = std::pow(EdgeTrust, d);
    }
    // The colours of each target's match, in its image.
    std::vector<const float*> matched(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (level.target[i]) {
            matched[i] = images[std::size_t(field[i].source)].at(field[i].x, field[i].y);
        }
    }
    pool.run(level.height, [&](int y) {
        for (int x = 0; x < level.width; ++x) {
            const std::size_t i = level.index(x, y);
            if (!level.hole[i]) {
                continue;
            }
            double sum[3 + TextureChannels] = {};
            double weightSum = 0.0;
            double top = -1.0;
            const float* topFrom = nullptr;
            for (int oy = std::max(-r, -y); oy <= std::min(r, level.height - 1 - y); ++oy) {
                for (int ox = std::max(-r, -x); ox <= std::min(r, level.width - 1 - x); ++ox) {
                    const std::size_t q = level.index(x + ox, y + oy);
                    const double w =
                        weights[q] * trust[level.distance[i] - level.distance[q] + 2 * r];
                    const float* from =
                        matched[q] - (std::ptrdiff_t(oy) * level.width + ox) * level.channels;
                    for (int c = 0; c < level.channels; ++c) {
                        sum[c] += w * double(from[c]);
                    }
                    weightSum += w;
                    if (w > top) {
                        top = w;
                        topFrom = from;
                    }
                }
            }
            for (int c = 0; c < level.channels; ++c) {
                // Summed in double, stored as float.
                level.at(x, y)[c] = sharp ? topFrom[c] : float(sum[c] / weightSum);
            }
        }
    });
}

/// The most steps from a hole pixel of `level` to a known one.
int depthOf(const PatchLevel& level) {
    return *std::max_element(level.distance.begin(), level.distance.end());
}

std::size_t holePixels(const PatchLevel& level) {
    return std::size_t(std::count(level.hole.begin(), level.hole.end(), 1));
}

/// The pyramid, finest level first.
std::vector<LevelImages> pyramid(LevelImages full, const PatchMatchSettings& settings) {
    std::vector<LevelImages> levels;
    levels.push_back(std::move(full));
    while (settings.levels == 0
               ? depthOf(levels.back().front()) > CoarsestDepth * settings.patchRadius
               : int(levels.size()) < settings.levels) {
        LevelImages next;
        for (const PatchLevel& image : levels.back()) {
            next.push_back(halved(image));
        }
        if (detail::donorCount(next) < std::max<std::size_t>(1, holePixels(next.front()))) {
            break;
        }
        levels.push_back(std::move(next));
    }
    return levels;
}

/// The seed of the random search of round `round` of level `level`.
std::uint64_t seedOf(std::size_t level, int round) {
    return (std::uint64_t(level) << 32 | std::uint32_t(round)) * 0x9E3779B97F4A7C15ull;
}

/// The mean cost per sample of the matches of `field`.
double meanCost(const PatchLevel& level, const MatchField& field) {
    double sum = 0.0;
    std::size_t count = 0;
    for (int y = 0; y < level.height; ++y) {
        for (int x = 0; x < level.width; ++x) {
            if (level.target[level.index(x, y)]) {
                sum += double(field[level.index(x, y)].cost) / detail::patchSamples(level, x, y);
                ++count;
            }
        }
    }
    return sum / double(count);
}

}  // namespace

ImageBuffer fillByPatchMatch(const ImageBuffer& work, std::span<const ImageBuffer> sources,
                             int colourChannels, const PatchMatchSettings& settings,
                             const char* name, std::ostream& log) {
    assert(work.channels == WorkChannels && colourChannels >= 1 && colourChannels <= 3);
    assert(settings.rounds >= 1 && settings.patchRadius >= 1);
    const Region inside = insideOf(work);
    LevelImages full{fullLevel(work, colourChannels, settings.patchRadius, inside)};
    for (const ImageBuffer& source : sources) {
        assert(source.width == work.width && source.height == work.height &&
               source.channels == WorkChannels);
        full.push_back(fullLevel(source, colourChannels, settings.patchRadius, inside));
    }
    assert(holePixels(full.front()) > 0);
    if (detail::donorCount(full) == 0) {
        log << name << ": no patch of radius " << settings.patchRadius
            << " lies wholly in the known pixels; the hole keeps the first guess\n";
        return work;
    }
    std::vector<LevelImages> levels = pyramid(std::move(full), settings);
    MatchField field;
    detail::WorkerPool pool(settings.threads);
    for (std::size_t k = levels.size(); k-- > 0;) {
        PatchLevel& level = levels[k].front();
        const PatchLevel* coarser = k + 1 < levels.size() ? &levels[k + 1].front() : nullptr;
        if (coarser != nullptr) {
            enlargeInto(*coarser, level);
        }
        field = detail::initialField(levels[k], coarser, field, seedOf(k, -1));
        for (int round = 0; round < settings.rounds; ++round) {
            detail::improveField(levels[k], field, SweepsPerRound, seedOf(k, round), pool);
            vote(levels[k], field, pool, k < SharpLevels);
        }
        log << name << ": level " << levels.size() - k << " of " << levels.size() << ", "
            << level.width << " x " << level.height << ", " << holePixels(level)
            << " hole pixels; mean squared difference of the matches " << meanCost(level, field)
            << "\n";
    }
    ImageBuffer result(work);
    const PatchLevel& finest = levels.front().front();
    for (int y = 0; y < finest.height; ++y) {
        for (int x = 0; x < finest.width; ++x) {
            if (finest.hole[finest.index(x, y)]) {
                float* to = result.data + std::ptrdiff_t(y + inside.y0) * result.stride +
                            (x + inside.x0) * result.channels;
                for (int c = 0; c < 3; ++c) {
                    to[c] = finest.at(x, y)[std::min(c, colourChannels - 1)];
                }
            }
        }
    }
    return result;
}

}  // namespace quorblen
