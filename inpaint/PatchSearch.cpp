// The nearest-neighbour field of the patch-match fill: randomized search with propagation.
#include "inpaint/PatchSearch.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "inpaint/PatchCost.h"
#include "inpaint/Tasks.h"
#include "tv/Offsets.h"

namespace quorblen::detail {
namespace {

/// Side of the square tiles a sweep hands to threads: fixed, so that which matches a tile sees
/// from before the sweep never depends on the thread count.
constexpr int TileSize = 32;

/// splitmix64's finaliser: a well-mixed 64-bit value of `key`.
std::uint64_t mix(std::uint64_t key) {
    key = (key ^ (key >> 30)) * 0xBF58476D1CE4E5B9ull;
    key = (key ^ (key >> 27)) * 0x94D049BB133111EBull;
    return key ^ (key >> 31);
}

/// A pixel's own stream of random numbers, fixed by the seed and the pixel.
class Draws {
public:
    Draws(std::uint64_t seed, int x, int y)
        : m_state(mix(seed ^ (std::uint64_t(std::uint32_t(y)) << 32 | std::uint32_t(x)))) {}

    /// A number in lo .. hi.
    int between(int lo, int hi) {
        m_state += 0x9E3779B97F4A7C15ull;
        return lo + int(mix(m_state) % std::uint64_t(hi - lo + 1));
    }

private:
    std::uint64_t m_state;
};

/// Compares target patches of a level with donor patches.
class Scorer {
public:
    explicit Scorer(const PatchLevel& level) : m_level(level), m_cost(fastestPatchCost()) {}

    /// The cost of matching the target centred on (x, y) with the donor centred on (sx, sy),
    /// or a value above `bound` once the cost is known to exceed it.
    float operator()(int x, int y, int sx, int sy, float bound) const {
        const int r = m_level.radius;
        // The target patch's part inside the level, as offsets from its centre.
        const int x0 = std::max(x - r, 0) - x;
        const int x1 = std::min(x + r, m_level.width - 1) - x;
        const int y0 = std::max(y - r, 0) - y;
        const int y1 = std::min(y + r, m_level.height - 1) - y;
        return m_cost(m_level.at(x + x0, y + y0), m_level.at(sx + x0, sy + y0),
                      std::ptrdiff_t(m_level.width) * m_level.channels, y1 - y0 + 1,
                      (x1 - x0 + 1) * m_level.channels, bound);
    }

private:
    const PatchLevel& m_level;
    PatchCostFunction m_cost;
};

/// Improves the matches of the targets in one tile by one sweep.
struct TileSweep {
    const PatchLevel& level;
    const Scorer& score;
    MatchField& field;
    const MatchField& before;  // the field as the sweep found it
    std::uint64_t seed;
    bool forward;

    void operator()(int tx0, int ty0) const {
        const int tx1 = std::min(tx0 + TileSize, level.width);
        const int ty1 = std::min(ty0 + TileSize, level.height);
        const int step = forward ? 1 : -1;
        for (int k = 0; k < ty1 - ty0; ++k) {
            const int y = forward ? ty0 + k : ty1 - 1 - k;
            for (int j = 0; j < tx1 - tx0; ++j) {
                const int x = forward ? tx0 + j : tx1 - 1 - j;
                if (level.target[level.index(x, y)]) {
                    improve(x, y, step, tx0, ty0, tx1, ty1);
                }
            }
        }
    }

    void improve(int x, int y, int step, int tx0, int ty0, int tx1, int ty1) const {
        PatchMatchEntry best = field[level.index(x, y)];
        const auto tryDonor = [&](int sx, int sy) {
            if (sx < 0 || sy < 0 || sx >= level.width || sy >= level.height ||
                !level.donor[level.index(sx, sy)] || (sx == best.x && sy == best.y)) {
                return;
            }
            const float cost = score(x, y, sx, sy, best.cost);
            if (cost < best.cost) {
                best = {sx, sy, cost};
            }
        };
        // Propagation: the neighbour already visited on each axis, shifted back by one step.
        const int nx[2] = {x - step, x};
        const int ny[2] = {y, y - step};
        for (int n = 0; n < 2; ++n) {
            if (nx[n] < 0 || ny[n] < 0 || nx[n] >= level.width || ny[n] >= level.height ||
                !level.target[level.index(nx[n], ny[n])]) {
                continue;
            }
            const bool inTile = nx[n] >= tx0 && nx[n] < tx1 && ny[n] >= ty0 && ny[n] < ty1;
            const PatchMatchEntry& e = (inTile ? field : before)[level.index(nx[n], ny[n])];
            tryDonor(e.x + (x - nx[n]), e.y + (y - ny[n]));
        }
        // Random search in squares halving from the whole level around the best so far.
        const int r = level.radius;
        Draws draws(seed, x, y);
        for (int radius = std::max(level.width, level.height); radius >= 1; radius /= 2) {
            const int sx =
                std::clamp(best.x + draws.between(-radius, radius), r, level.width - 1 - r);
            const int sy =
                std::clamp(best.y + draws.between(-radius, radius), r, level.height - 1 - r);
            tryDonor(sx, sy);
        }
        field[level.index(x, y)] = best;
    }
};

}  // namespace

PatchLevel makePatchLevel(int width, int height, int channels, int radius) {
    PatchLevel level;
    level.width = width;
    level.height = height;
    level.channels = channels;
    level.radius = radius;
    const std::size_t pixels = std::size_t(width) * height;
    level.colour.assign(pixels * channels + PatchRowSlack, 0.0f);
    level.hole.assign(pixels, 0);
    return level;
}

void classifyPatches(PatchLevel& level) {
    const int w = level.width;
    const int h = level.height;
    const int r = level.radius;
    // Hole pixels counted over every rectangle from the origin: any box's count in four reads.
    std::vector<int> sums(std::size_t(w + 1) * (h + 1), 0);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            sums[std::size_t(y + 1) * (w + 1) + x + 1] =
                level.hole[level.index(x, y)] + sums[std::size_t(y) * (w + 1) + x + 1] +
                sums[std::size_t(y + 1) * (w + 1) + x] - sums[std::size_t(y) * (w + 1) + x];
        }
    }
    const auto holesAround = [&](int x, int y) {
        const int x0 = std::max(x - r, 0);
        const int y0 = std::max(y - r, 0);
        const int x1 = std::min(x + r + 1, w);
        const int y1 = std::min(y + r + 1, h);
        return sums[std::size_t(y1) * (w + 1) + x1] - sums[std::size_t(y0) * (w + 1) + x1] -
               sums[std::size_t(y1) * (w + 1) + x0] + sums[std::size_t(y0) * (w + 1) + x0];
    };
    level.target.assign(level.hole.size(), 0);
    level.donor.assign(level.hole.size(), 0);
    level.donors.clear();
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const bool clear = holesAround(x, y) == 0;
            level.target[level.index(x, y)] = !clear;
            if (clear && x >= r && y >= r && x < w - r && y < h - r) {
                level.donor[level.index(x, y)] = 1;
                level.donors.push_back(int(level.index(x, y)));
            }
        }
    }
    // Breadth-first from every known pixel at once.
    level.distance.assign(level.hole.size(), -1);
    std::vector<int> queue;
    queue.reserve(level.hole.size());
    for (std::size_t i = 0; i < level.hole.size(); ++i) {
        if (!level.hole[i]) {
            level.distance[i] = 0;
            queue.push_back(int(i));
        }
    }
    for (std::size_t head = 0; head < queue.size(); ++head) {
        const int x = queue[head] % w;
        const int y = queue[head] / w;
        for (const Offset& n : NeighbourOffsets) {
            const int i = (y + n.dy) * w + x + n.dx;
            if (x + n.dx >= 0 && x + n.dx < w && y + n.dy >= 0 && y + n.dy < h &&
                level.distance[i] < 0) {
                level.distance[i] = level.distance[queue[head]] + 1;
                queue.push_back(i);
            }
        }
    }
}

int patchSamples(const PatchLevel& level, int x, int y) {
    const int r = level.radius;
    const int columns = std::min(x + r, level.width - 1) - std::max(x - r, 0) + 1;
    const int rows = std::min(y + r, level.height - 1) - std::max(y - r, 0) + 1;
    return columns * rows * level.channels;
}

MatchField initialField(const PatchLevel& level, const PatchLevel* coarser,
                        const MatchField& coarse, std::uint64_t seed) {
    assert(!level.donors.empty());
    MatchField field(level.hole.size());
    for (int y = 0; y < level.height; ++y) {
        for (int x = 0; x < level.width; ++x) {
            if (!level.target[level.index(x, y)]) {
                continue;
            }
            PatchMatchEntry& e = field[level.index(x, y)];
            if (coarser != nullptr) {
                const int px = std::min(x / 2, coarser->width - 1);
                const int py = std::min(y / 2, coarser->height - 1);
                const PatchMatchEntry& parent = coarse[coarser->index(px, py)];
                const int sx = 2 * parent.x + (x - 2 * px);
                const int sy = 2 * parent.y + (y - 2 * py);
                if (parent.x >= 0 && sx < level.width && sy < level.height &&
                    level.donor[level.index(sx, sy)]) {
                    e = {sx, sy, 0.0f};
                    continue;
                }
            }
            Draws draws(seed, x, y);
            const int d = level.donors[std::size_t(draws.between(0, int(level.donors.size()) - 1))];
            e = {d % level.width, d / level.width, 0.0f};
        }
    }
    return field;
}

void improveField(const PatchLevel& level, MatchField& field, int sweeps, std::uint64_t seed,
                  int threads) {
    const Scorer score(level);
    runTasks(level.height, threads, [&](int y) {
        for (int x = 0; x < level.width; ++x) {
            PatchMatchEntry& e = field[level.index(x, y)];
            if (level.target[level.index(x, y)]) {
                e.cost = score(x, y, e.x, e.y, HUGE_VALF);
            }
        }
    });
    const int tilesX = (level.width + TileSize - 1) / TileSize;
    const int tilesY = (level.height + TileSize - 1) / TileSize;
    MatchField before;
    for (int sweep = 0; sweep < sweeps; ++sweep) {
        before = field;
        const TileSweep tile{
            level, score, field, before, mix(seed + std::uint64_t(sweep) + 1), sweep % 2 == 0};
        runTasks(tilesX * tilesY, threads,
                 [&](int t) { tile(t % tilesX * TileSize, t / tilesX * TileSize); });
    }
}

}  // namespace quorblen::detail
