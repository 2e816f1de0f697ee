// The candidate search of the fill passes spread over threads and vector lanes, with the
// result of the plain search (searchCandidates); not part of the library's interface.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <type_traits>
#include <vector>

#include "image/ImageBuffer.h"
#include "inpaint/CandidateSearch.h"
#include "inpaint/ColumnPlanes.h"
#include "inpaint/PatchLanes.h"
#include "inpaint/WorkerPool.h"

namespace quorblen::detail {

/// The centres searchCandidates visits around (x, y): columns x0 .. x1, rows y0 .. y1.
struct SearchWindow {
    SearchWindow(const ImageBuffer& bounds, std::int64_t x, std::int64_t y, int radius, int margin)
        : x0(int(std::max<std::int64_t>(x - radius, margin))),
          x1(int(std::min<std::int64_t>(x + radius, bounds.width - 1 - margin))),
          y0(int(std::max<std::int64_t>(y - radius, margin))),
          y1(int(std::min<std::int64_t>(y + radius, bounds.height - 1 - margin))) {}

    int x0, x1, y0, y1;

    bool holds(int cx, int cy) const { return cx >= x0 && cx <= x1 && cy >= y0 && cy <= y1; }
    int columns() const { return std::max(0, x1 - x0 + 1); }
};

/// The best candidate of a part of the window by searchCandidates' rule: the lowest score
/// strictly below the start, and of equal scores the first in visiting order (`order`). The
/// rule picks the same candidate whichever way the window is split and whatever order the
/// parts are searched in, so parts searched apart merge into the plain search's choice.
struct RankedChoice {
    Choice choice;
    std::int64_t order = std::numeric_limits<std::int64_t>::max();

    /// Offers candidate (cx, cy) of source s, whose place in the visiting order at() gives.
    template <class Order>
    void offer(double score, int cx, int cy, int s, Order at) {
        if (score < choice.score) {
            choice = {cx, cy, s, score, true};
            order = at();
        } else if (score == choice.score && choice.found) {
            if (const std::int64_t position = at(); position < order) {
                choice = {cx, cy, s, score, true};
                order = position;
            }
        }
    }
    void merge(const RankedChoice& other) {
        if (other.choice.found) {
            offer(other.choice.score, other.choice.x, other.choice.y, other.choice.source,
                  [&] { return other.order; });
        }
    }
};

/// The lowest complete score met so far by any thread, or the start: a candidate whose score
/// is certainly above it cannot be chosen, whatever the other threads find.
class SharedBound {
public:
    explicit SharedBound(double start) : m_value(start) {}
    double get() const { return m_value.load(std::memory_order_relaxed); }
    void lower(double score) {
        double now = get();
        while (score < now && !m_value.compare_exchange_weak(now, score)) {
        }
    }

private:
    std::atomic<double> m_value;
};

/// Runs scan(worker, cx, s, best) on the pool for every column and source of `window`, a few
/// columns handed out at a time, and merges each thread's best.
template <class Scan>
Choice searchColumns(WorkerPool& pool, const SearchWindow& window, int x, int y, int sources,
                     double start, Scan scan) {
    // Few enough grabs that the threads seldom meet at the counter, enough to share the work.
    constexpr int ItemsPerGrab = 4;
    const Choice none{x, y, 0, start, false};
    std::vector<RankedChoice> best(std::size_t(pool.size()), RankedChoice{none});
    const int items = window.columns() * sources;
    std::atomic<int> next{0};
    pool.run([&](int worker) {
        // Kept apart from the other threads' until the end.
        RankedChoice mine{none};
        for (int first = next.fetch_add(ItemsPerGrab); first < items;
             first = next.fetch_add(ItemsPerGrab)) {
            for (int item = first; item < std::min(items, first + ItemsPerGrab); ++item) {
                scan(worker, window.x0 + item / sources, item % sources, mine);
            }
        }
        best[std::size_t(worker)] = mine;
    });
    RankedChoice result{none};
    for (const RankedChoice& part : best) {
        result.merge(part);
    }
    return result.choice;
}

/// Flags per pixel, laid out as PatchPlanes: which centres may serve a patch comparison.
class CandidateMap {
public:
    CandidateMap() = default;
    /// patchCandidate(source, bounds, x, y, maskChannel, r) at every pixel of `bounds` at least
    /// one pixel inside it; false elsewhere.
    CandidateMap(const ImageBuffer& source, const ImageBuffer& bounds, int maskChannel, int r);

    const std::uint8_t* column(int x) const {
        return m_flags.data() + std::ptrdiff_t(x) * m_height;
    }
    /// The flags of rows y .. min(y + LaneBlock - 1, last) of column x as the bits of a lane
    /// mask (bit k for row y + k), for y < height.
    unsigned lanes(int x, int y, int last) const {
        static_assert(LaneBlock == 8, "one flag a byte of a 64-bit word");
        std::uint64_t word;
        std::memcpy(&word, column(x) + y, sizeof word);
        if constexpr (std::endian::native == std::endian::big) {
            word = __builtin_bswap64(word);
        }
        // Flag k (0 or 1, at bit 8k) lands at bit 56 + k; every other product falls on a bit
        // of its own elsewhere, so nothing carries.
        const unsigned bits = unsigned((word * 0x0102040810204080u) >> 56);
        return last - y >= LaneBlock - 1 ? bits : bits & ((1u << (last - y + 1)) - 1);
    }
    bool any() const { return m_any; }

private:
    std::ptrdiff_t m_height = 0;
    std::vector<std::uint8_t> m_flags;
    bool m_any = false;
};

/// A source of the patch search: where colours come from, the planes its patches are compared
/// on (those of the image searchCandidates' score reads) and its candidates.
struct PatchSource {
    const ImageBuffer* colour;
    const PatchPlanes* planes;
    const CandidateMap* candidates;
};

/// The patch search of one pass: its sources, window and kernels.
struct PatchSearch {
    WorkerPool& pool;
    const PatchLaneKernels& kernels;
    const ImageBuffer& bounds;
    int radius;
    std::span<const PatchSource> sources;
};

/// The last pixel filled and its winner. The winner shifted as far as the next pixel lies from
/// the last one often wins again: scored first, it bounds the others.
class SeedTracker {
public:
    Choice seedFor(int x, int y) const {
        Choice seed = m_last;
        seed.x += x - m_x;
        seed.y += y - m_y;
        return seed;
    }
    void record(int x, int y, const Choice& winner) {
        m_x = x;
        m_y = y;
        m_last = winner;
    }

private:
    int m_x = 0;
    int m_y = 0;
    Choice m_last{0, 0, 0, 0.0, false};
};

/// No score besides the patch distance.
struct NoEnergy {};

/// Whether a score distance * patchWeight + elasticaEnergy may be pruned by its distance
/// (searchPatches' `prunable`): the energy is >= 0 (or NaN) when the curvature weight, taken
/// in single precision, is.
inline bool elasticaPrunable(double patchWeight, double curvatureWeight) {
    return patchWeight >= 0.0 && static_cast<float>(curvatureWeight) >= 0.0f;
}

/// Visiting order of candidate (cx, cy) of source s in `window`.
inline std::int64_t visitingOrder(const SearchWindow& window, int cx, int cy, int s, int sources) {
    const std::int64_t rows = window.y1 - window.y0 + 1;
    return ((std::int64_t(cx - window.x0) * rows) + (cy - window.y0)) * sources + s;
}

/// searchCandidates over a patch search's window (margin 1) with each source's candidates,
/// scored by the patch distance of `target` (patchScore) or, with an energy,
/// distance * patchWeight + energy(worker, colour of the candidate); returns its choice.
/// `seed` names a candidate likely to win, scored first with its neighbours in a block to
/// bound the others. The energy must be >= 0 (or NaN) when `prunable`, and patchWeight >= 0;
/// without `prunable` every candidate is scored in full.
template <class Energy>
Choice searchPatches(const PatchSearch& search, int x, int y, const PatchTarget& target,
                     double start, double patchWeight, bool prunable, const Choice& seed,
                     Energy energy) {
    constexpr bool withEnergy = !std::is_same_v<Energy, NoEnergy>;
    const SearchWindow window(search.bounds, x, y, search.radius, 1);
    const int sourceCount = int(search.sources.size());
    constexpr double Unbounded = std::numeric_limits<double>::infinity();
    const auto total = [&](int worker, double distance, int cx, int cy, int s, double bound) {
        if constexpr (withEnergy) {
            // The energy is >= 0: a distance already above the bound decides.
            if (!(distance * patchWeight > bound)) {
                const PatchSource& source = search.sources[std::size_t(s)];
                const float* colour = source.colour->data + sampleIndex(*source.colour, cx, cy, 0);
                return distance * patchWeight + energy(worker, colour);
            }
            return std::numeric_limits<double>::quiet_NaN();
        } else {
            (void)worker, (void)cx, (void)cy, (void)s, (void)bound;
            return distance;
        }
    };
    SharedBound shared(start);
    const auto boundNow = [&] { return prunable ? shared.get() : Unbounded; };
    if (seed.found && window.holds(seed.x, seed.y) && seed.source < sourceCount &&
        search.sources[std::size_t(seed.source)].planes != nullptr) {
        // The seed and its neighbours in a block cost one block.
        const PatchSource& source = search.sources[std::size_t(seed.source)];
        const std::uint8_t* flags = source.candidates->column(seed.x);
        int first = std::max(window.y0, seed.y - LaneBlock / 2);
        while (first <= window.y1 && !flags[first]) {
            ++first;
        }
        const unsigned live =
            first <= window.y1 ? source.candidates->lanes(seed.x, first, window.y1) : 0;
        if (live != 0) {
            double scores[LaneBlock];
            search.kernels.scoreBlock(target, *source.planes, source.planes->at(seed.x, first),
                                      live, Unbounded, scores);
            for (int k = 0; k < LaneBlock; ++k) {
                if (live >> k & 1u) {
                    shared.lower(total(0, scores[k], seed.x, first + k, seed.source, Unbounded));
                }
            }
        }
    }
    // Per worker, the kept sum of its last bound, on cache lines of their own.
    struct alignas(64) Kept {
        KeptSum sum;
    };
    std::vector<Kept> kept(std::size_t(search.pool.size()), Kept{KeptSum(target, patchWeight)});
    return searchColumns(
        search.pool, window, x, y, sourceCount, start,
        [&](int worker, int cx, int s, RankedChoice& best) {
            const PatchSource& source = search.sources[std::size_t(s)];
            if (source.planes == nullptr) {
                return;
            }
            double scores[LaneBlock];
            for (int cy = window.y0; cy <= window.y1;) {
                // Blocks start at a candidate: skip to the next one.
                const unsigned live = source.candidates->lanes(cx, cy, window.y1);
                if (!(live & 1u)) {
                    cy += live == 0 ? LaneBlock : std::countr_zero(live);
                    continue;
                }
                const double bound = boundNow();
                const unsigned scored =
                    search.kernels.scoreBlock(target, *source.planes, source.planes->at(cx, cy),
                                              live, kept[std::size_t(worker)].sum(bound), scores);
                for (unsigned lanes = scored; lanes != 0; lanes &= lanes - 1) {
                    const int k = std::countr_zero(lanes);
                    if (std::isnan(scores[k])) {
                        continue;
                    }
                    const double score = total(worker, scores[k], cx, cy + k, s, bound);
                    if (prunable) {
                        shared.lower(score);
                    }
                    best.offer(score, cx, cy + k, s,
                               [&] { return visitingOrder(window, cx, cy + k, s, sourceCount); });
                }
                cy += LaneBlock;
            }
        });
}

/// searchCandidates scored by an energy of the candidate's colour alone, over the pool. Source s is
/// sources[s]: planes 0-2 its colour, plane 3 the channel whose value must pass
/// eligible(value); a null source offers nothing. energies(worker, colours, n, scores)
/// scores n colours (3 floats each) of a column at once, writing only its worker's own
/// state; it may score NaN a colour whose score is certainly above `start` or above a score
/// it gave before in this search, which could not be chosen.
template <class Eligible, class Energies>
Choice searchByEnergy(WorkerPool& pool, const ImageBuffer& bounds, int x, int y, int radius,
                      int margin, std::span<const ColumnPlanes* const> sources, double start,
                      Eligible eligible, Energies energies) {
    const SearchWindow window(bounds, x, y, radius, margin);
    const int count = int(sources.size());
    const std::size_t rows = std::size_t(std::max(0, window.y1 - window.y0 + 1));
    // Per worker, a column's candidates: their rows, colours and scores, on cache lines of
    // their own.
    struct alignas(64) Column {
        std::vector<int> rows;
        std::vector<float> colours;
        std::vector<double> scores;
    };
    std::vector<Column> columns(std::size_t(pool.size()));
    for (Column& c : columns) {
        c.rows.resize(rows);
        c.colours.resize(3 * rows);
        c.scores.resize(rows);
    }
    return searchColumns(
        pool, window, x, y, count, start, [&](int worker, int cx, int s, RankedChoice& best) {
            if (sources[std::size_t(s)] == nullptr) {
                return;
            }
            const ColumnPlanes& from = *sources[std::size_t(s)];
            const std::ptrdiff_t column = from.at(cx, 0);
            const float* planes[4];
            for (int k = 0; k < 4; ++k) {
                planes[k] = from.plane(k) + column;
            }
            Column& c = columns[std::size_t(worker)];
            int* const kept = c.rows.data();
            float* const colours = c.colours.data();
            std::size_t n = 0;
            // A candidate of the same colour bits as the last one scores the same and comes
            // later: it can neither win nor tie for the choice.
            for (int cy = window.y0; cy <= window.y1; ++cy) {
                if (!eligible(planes[3][cy])) {
                    continue;
                }
                const float colour[3] = {planes[0][cy], planes[1][cy], planes[2][cy]};
                float* const next = colours + 3 * n;
                if (n != 0 && std::memcmp(colour, next - 3, sizeof colour) == 0) {
                    continue;
                }
                std::memcpy(next, colour, sizeof colour);
                kept[n++] = cy;
            }
            energies(worker, colours, n, c.scores.data());
            for (std::size_t i = 0; i < n; ++i) {
                const int cy = kept[i];
                best.offer(c.scores[i], cx, cy, s,
                           [&] { return visitingOrder(window, cx, cy, s, count); });
            }
        });
}

}  // namespace quorblen::detail
