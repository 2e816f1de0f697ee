// The nearest-neighbour field of the patch-match fill: randomized search with propagation.
#include "inpaint/PatchSearch.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "inpaint/PatchCost.h"
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

/// Compares target patches of a level with donor patches of its images.
class Scorer {
public:
    explicit Scorer(PatchImages images) : m_level(images.front()), m_cost(fastestPatchCost()) {
        for (const PatchLevel& image : images) {
            m_colours.push_back(image.colour.data());
            m_donors.push_back(image.donor.data());
        }
    }

    /// The cost of matching the target centred on (x, y) with the donor `donor`, or a value
    /// above `bound` once the cost is known to exceed it.
    float operator()(int x, int y, const PatchMatchEntry& donor, float bound) const {
        const int r = m_level.radius;
        // The target patch's part inside the level, as offsets from its centre.
        const int x0 = std::max(x - r, 0) - x;
        const int x1 = std::min(x + r, m_level.width - 1) - x;
        const int y0 = std::max(y - r, 0) - y;
        const int y1 = std::min(y + r, m_level.height - 1) - y;
        return m_cost(m_level.at(x + x0, y + y0),
                      m_colours[std::size_t(donor.source)] +
                          m_level.index(donor.x + x0, donor.y + y0) * m_level.channels,
                      std::ptrdiff_t(m_level.width) * m_level.channels, y1 - y0 + 1,
                      (x1 - x0 + 1) * m_level.channels, bound);
    }

    /// Replaces `best`, the match of the target centred on (x, y), by `donor` when that is
    /// another donor patch and closer.
    void tryDonor(int x, int y, PatchMatchEntry donor, PatchMatchEntry& best) const {
        if (donor.x < 0 || donor.y < 0 || donor.x >= m_level.width || donor.y >= m_level.height ||
            !m_donors[std::size_t(donor.source)][m_level.index(donor.x, donor.y)] ||
            (donor.source == best.source && donor.x == best.x && donor.y == best.y)) {
            return;
        }
        donor.cost = (*this)(x, y, donor, best.cost);
        if (donor.cost < best.cost) {
            best = donor;
        }
    }

private:
    const PatchLevel& m_level;
    // The colours and donor flags of each image, m_level's first.
    std::vector<const float*> m_colours;
    std::vector<const std::uint8_t*> m_donors;
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
            score.tryDonor(x, y, {e.source, e.x + (x - nx[n]), e.y + (y - ny[n])}, best);
        }
        // Random search in squares halving from the whole level around the best so far.
        const int r = level.radius;
        Draws draws(seed, x, y);
        for (int radius = std::max(level.width, level.height); radius >= 1; radius /= 2) {
            const int sx =
                std::clamp(best.x + draws.between(-radius, radius), r, level.width - 1 - r);
            const int sy =
                std::clamp(best.y + draws.between(-radius, radius), r, level.height - 1 - r);
            score.tryDonor(x, y, {best.source, sx, sy}, best);
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

std::size_t donorCount(PatchImages images) {
    std::size_t count = 0;
    for (const PatchLevel& image : images) {
        count += image.donors.size();
    }
    return count;
}

int patchSamples(const PatchLevel& level, int x, int y) {
    const int r = level.radius;
    const int columns = std::min(x + r, level.width - 1) - std::max(x - r, 0) + 1;
    const int rows = std::min(y + r, level.height - 1) - std::max(y - r, 0) + 1;
    return columns * rows * level.channels;
}

MatchField initialField(PatchImages images, const PatchLevel* coarser, const MatchField& coarse,
                        std::uint64_t seed) {
    const PatchLevel& level = images.front();
    const std::size_t donors = donorCount(images);
    assert(donors > 0);
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
                const PatchLevel& image = images[std::size_t(parent.source)];
                const int sx = 2 * parent.x + (x - 2 * px);
                const int sy = 2 * parent.y + (y - 2 * py);
                if (parent.x >= 0 && sx < level.width && sy < level.height &&
                    image.donor[image.index(sx, sy)]) {
                    e = {parent.source, sx, sy, 0.0f};
                    continue;
                }
            }
            // The donors of all images in turn, as one list.
            Draws draws(seed, x, y);
            std::size_t d = std::size_t(draws.between(0, int(donors) - 1));
            int source = 0;
            for (; d >= images[std::size_t(source)].donors.size(); ++source) {
                d -= images[std::size_t(source)].donors.size();
            }
            const int at = images[std::size_t(source)].donors[d];
            e = {source, at % level.width, at / level.width, 0.0f};
        }
    }
    return field;
}

void improveField(PatchImages images, MatchField& field, int sweeps, std::uint64_t seed,
                  WorkerPool& pool) {
    const PatchLevel& level = images.front();
    const Scorer score(images);
    pool.run(level.height, [&](int y) {
        for (int x = 0; x < level.width; ++x) {
            PatchMatchEntry& e = field[level.index(x, y)];
            if (level.target[level.index(x, y)]) {
                e.cost = score(x, y, e, HUGE_VALF);
                for (int source = 1; source < int(images.size()); ++source) {
                    score.tryDonor(x, y, {source, x, y}, e);
                }
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
        pool.run(tilesX * tilesY,
                 [&](int t) { tile(t % tilesX * TileSize, t / tilesX * TileSize); });
    }
}

}  // namespace quorblen::detail
