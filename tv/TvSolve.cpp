// The whole TV upscale: all iterations of every plane as a wavefront over overlapping tiles.
#include <algorithm>
#include <atomic>
#include <cassert>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <vector>

#include "image/ThreadCount.h"
#include "tv/RowKernels.h"
#include "tv/TvSweep.h"
#include "tv/TvUpscale.h"

namespace quorblen {
namespace detail {
namespace {

/// The iterations one pass runs as a wavefront; each keeps its own scratch rows per plane.
constexpr int PassDepth = 16;
/// The widest tile, in blocks (input pixels): the scratch rows of every plane and iteration of
/// a tile this wide stay in one core's own cache.
constexpr int TileBlocks = 256;

/// Columns x0 .. x1-1 and rows y0 .. y1-1 of the grid of 2x2 blocks (input pixels).
struct BlockRect {
    int x0, y0, x1, y1;
    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
};

/// `count` near-equal parts of 0 .. size-1; part i starts at the returned value for i.
int partStart(int size, int count, int i) {
    return static_cast<int>(static_cast<long long>(size) * i / count);
}

/// A w x h grid cut into `bands` bands of rows, each cut into strips at most TileBlocks wide.
std::vector<BlockRect> tilesOf(int w, int h, int bands) {
    const int strips = (w + TileBlocks - 1) / TileBlocks;
    std::vector<BlockRect> tiles;
    for (int band = 0; band < bands; ++band) {
        for (int strip = 0; strip < strips; ++strip) {
            tiles.push_back({partStart(w, strips, strip), partStart(h, bands, band),
                             partStart(w, strips, strip + 1), partStart(h, bands, band + 1)});
        }
    }
    return tiles;
}

/// One pass: `depth` iterations on every plane, starting from the nearest-neighbour
/// enlargement of the reference or, for later passes, from the estimate itself.
struct Pass {
    const RowKernels& kernels;
    const ImageBuffer& reference;
    ImageBuffer& estimate;
    int depth;
    bool fromReference;
    float lambda;
    double epsilonSquared;
};

/// What the threads of a pass share: the next tile to take, the stop request and the count of
/// blocks times iterations solved.
struct PassState {
    std::atomic<std::size_t> nextTile{0};
    std::atomic<bool> stop{false};
    std::atomic<long long> solved{0};
};

/// One thread's scratch for a pass: a sweep per plane and iteration, and the last iteration's
/// rows of every plane, for tiles up to `capacity` pixels wide.
class TileSolver {
public:
    TileSolver(int planes, int depth, int capacity)
        : m_depth(depth),
          m_capacity(capacity),
          m_sweeps(static_cast<std::size_t>(planes) * depth, TvSweep(capacity)),
          m_last(static_cast<std::size_t>(planes) * 2 * capacity) {}

    /// Solves the blocks of `tile` on its extent, the tile grown by `depth` blocks on every
    /// side within the image, taken for a whole image: each iteration's results are wrong
    /// only within one more block of the extent's cut edges, so after `depth` iterations the
    /// tile's own blocks are exact. Calls `poll` after each block row; false when stopped.
    template <class Poll>
    bool solve(const Pass& pass, const BlockRect& tile, PassState& state, Poll&& poll);

private:
    float* last(int plane, int i) {
        return m_last.data() + (static_cast<std::ptrdiff_t>(plane) * 2 + i) * m_capacity;
    }

    int m_depth;
    int m_capacity;
    std::vector<TvSweep> m_sweeps;
    std::vector<float> m_last;
};

template <class Poll>
bool TileSolver::solve(const Pass& pass, const BlockRect& tile, PassState& state, Poll&& poll) {
    const ImageBuffer& reference = pass.reference;
    ImageBuffer& estimate = pass.estimate;
    const int planes = estimate.channels;
    const BlockRect e{std::max(tile.x0 - m_depth, 0), std::max(tile.y0 - m_depth, 0),
                      std::min(tile.x1 + m_depth, reference.width),
                      std::min(tile.y1 + m_depth, reference.height)};
    const int width = 2 * e.width();
    const int height = 2 * e.height();
    assert(width <= m_capacity);
    for (TvSweep& sweep : m_sweeps) {
        sweep.begin(width, height);
    }
    const auto referenceRow = [&](int b, int c) {
        return reference.data + static_cast<std::ptrdiff_t>(e.y0 + b) * reference.stride +
               static_cast<std::ptrdiff_t>(e.x0) * planes + c;
    };
    // Block row b of plane c of the extent as the pass begins: rows 2b and 2b + 1.
    const auto fill = [&](int b, int c, float* dst0, float* dst1) {
        if (pass.fromReference) {
            const float* src = referenceRow(b, c);
            for (int X = 0; X < e.width(); ++X) {
                const float a = src[static_cast<std::ptrdiff_t>(X) * planes];
                dst0[2 * X] = a;
                dst0[2 * X + 1] = a;
            }
            std::copy_n(dst0, width, dst1);
            return;
        }
        for (int i = 0; i < 2; ++i) {
            const float* src = estimate.data +
                               static_cast<std::ptrdiff_t>(2 * (e.y0 + b) + i) * estimate.stride +
                               static_cast<std::ptrdiff_t>(2 * e.x0) * planes + c;
            float* dst = i == 0 ? dst0 : dst1;
            for (int x = 0; x < width; ++x) {
                dst[x] = src[static_cast<std::ptrdiff_t>(x) * planes];
            }
        }
    };
    const auto store = [&](int b) {
        for (int i = 0; i < 2; ++i) {
            float* dst =
                estimate.data + static_cast<std::ptrdiff_t>(2 * (e.y0 + b) + i) * estimate.stride;
            for (int c = 0; c < planes; ++c) {
                const float* src = last(c, i) - 2 * e.x0;
                for (int x = 2 * tile.x0; x < 2 * tile.x1; ++x) {
                    dst[static_cast<std::ptrdiff_t>(x) * planes + c] = src[x];
                }
            }
        }
    };

    // Iteration s sweeps block row t - s at step t: block row b of its input, the output of
    // iteration s - 1, is complete once that iteration has swept block row b + 1.
    for (int t = 0; t < e.height() + m_depth - 1; ++t) {
        for (int c = 0; c < planes; ++c) {
            TvSweep* sweeps = &m_sweeps[static_cast<std::size_t>(c) * m_depth];
            for (int b = t == 0 ? 0 : t + 1; b <= t + 1 && b < e.height(); ++b) {
                fill(b, c, sweeps[0].input(2 * b), sweeps[0].input(2 * b + 1));
            }
            for (int s = 0; s < m_depth; ++s) {
                const int b = t - s;
                if (b < 0 || b >= e.height()) {
                    continue;
                }
                const bool lastIteration = s + 1 == m_depth;
                float* out0 = lastIteration ? last(c, 0) : sweeps[s + 1].input(2 * b);
                float* out1 = lastIteration ? last(c, 1) : sweeps[s + 1].input(2 * b + 1);
                sweeps[s].sweep(pass.kernels, b, referenceRow(b, c), planes, pass.lambda,
                                pass.epsilonSquared, out0, out1);
            }
        }
        const int b = t - (m_depth - 1);
        if (b >= tile.y0 - e.y0 && b < tile.y1 - e.y0) {
            store(b);
            state.solved.fetch_add(static_cast<long long>(tile.width()) * m_depth,
                                   std::memory_order_relaxed);
        }
        poll();
        if (state.stop.load(std::memory_order_relaxed)) {
            return false;
        }
    }
    return true;
}

/// Every plane of `estimate` as the nearest-neighbour enlargement of `reference`.
void enlargeNearest(const ImageBuffer& reference, ImageBuffer& estimate) {
    const int n = estimate.channels;
    for (int Y = 0; Y < estimate.height; ++Y) {
        const float* src = reference.data + static_cast<std::ptrdiff_t>(Y / 2) * reference.stride;
        float* dst = estimate.data + static_cast<std::ptrdiff_t>(Y) * estimate.stride;
        for (int X = 0; X < estimate.width; ++X) {
            for (int c = 0; c < n; ++c) {
                dst[X * n + c] = src[(X / 2) * n + c];
            }
        }
    }
}

/// The monitor's side of the solve, on the calling thread: passes on aborts and reports each
/// new fraction of blocks times iterations solved.
class MonitorPoll {
public:
    MonitorPoll(const TvUpscaleMonitor& monitor, long long total)
        : m_monitor(monitor), m_total(total) {}

    void operator()(PassState& state) {
        if (m_monitor.aborted && m_monitor.aborted()) {
            state.stop.store(true, std::memory_order_relaxed);
        }
        report(m_done + state.solved.load(std::memory_order_relaxed));
    }
    void passDone(const PassState& state) {
        m_done += state.solved.load();
        report(m_done);
    }

private:
    void report(long long solved) {
        if (solved > m_reported && m_monitor.progress) {
            m_monitor.progress(double(solved) / double(m_total));
        }
        m_reported = std::max(m_reported, solved);
    }

    const TvUpscaleMonitor& m_monitor;
    long long m_total;
    long long m_done = 0;
    long long m_reported = 0;
};

/// Runs `pass` over `tiles` on up to `threads` threads, this one among them; false when the
/// monitor stopped it.
bool runPass(const Pass& pass, const std::vector<BlockRect>& tiles, int threads,
             MonitorPoll& poll) {
    threads = std::clamp(threads, 1, static_cast<int>(tiles.size()));
    int capacity = 0;
    for (const BlockRect& tile : tiles) {
        capacity =
            std::max(capacity, std::min(tile.width() + 2 * pass.depth, pass.reference.width));
    }
    // All scratch is allocated here, so that an allocation failure surfaces on this thread.
    std::vector<TileSolver> solvers(threads,
                                    TileSolver(pass.estimate.channels, pass.depth, 2 * capacity));
    PassState state;
    const auto work = [&](TileSolver& solver, std::size_t first, auto&& onRow) {
        for (std::size_t i = first; i < tiles.size(); i = state.nextTile++) {
            if (!solver.solve(pass, tiles[i], state, onRow)) {
                return;
            }
        }
    };
    // This thread takes its first tile before the helpers start, so that it polls the
    // monitor from the start however fast they are.
    const std::size_t own = state.nextTile++;

    std::mutex mutex;
    std::condition_variable finished;
    int running = threads - 1;
    std::vector<std::jthread> helpers;
    for (int i = 1; i < threads; ++i) {
        helpers.emplace_back([&, i] {
            work(solvers[i], state.nextTile++, [] {});
            {
                std::scoped_lock lock(mutex);
                --running;
            }
            finished.notify_one();
        });
    }
    work(solvers[0], own, [&] { poll(state); });
    // Keep polling while the helpers finish their last tiles, so that an abort stays prompt.
    for (;;) {
        {
            std::unique_lock lock(mutex);
            if (finished.wait_for(lock, std::chrono::milliseconds(20),
                                  [&] { return running == 0; })) {
                break;
            }
        }
        poll(state);
    }
    helpers.clear();
    if (state.stop.load()) {
        return false;
    }
    poll.passDone(state);
    return true;
}

}  // namespace

bool tvUpscaleWith(const RowKernels& kernels, const ImageBuffer& reference, ImageBuffer& estimate,
                   const TvUpscaleSettings& settings, const TvUpscaleMonitor& monitor) {
    const int w = reference.width;
    const int h = reference.height;
    assert(estimate.width == 2 * w && estimate.height == 2 * h);
    assert(estimate.channels == reference.channels && &reference != &estimate);
    assert(settings.iterations >= 0);
    if (w < 1 || h < 1 || estimate.channels < 1) {
        return true;
    }
    if (settings.iterations == 0) {
        enlargeNearest(reference, estimate);
        return true;
    }
    const int threads = threadCount(settings.threads);
    MonitorPoll poll(monitor, static_cast<long long>(w) * h * settings.iterations);
    // The first pass starts from the reference, which no tile writes, so tiles may overlap
    // and run in parallel. Later passes read the estimate the first one wrote and rewrite it
    // in place, which only a single sweep over the whole image can do safely.
    int remaining = settings.iterations;
    for (bool first = true; remaining > 0; first = false) {
        const Pass pass{kernels,
                        reference,
                        estimate,
                        std::min(remaining, PassDepth),
                        first,
                        settings.lambda,
                        double(settings.epsilon) * double(settings.epsilon)};
        const std::vector<BlockRect> tiles =
            first ? tilesOf(w, h, std::min(threads, h)) : std::vector<BlockRect>{{0, 0, w, h}};
        if (!runPass(pass, tiles, first ? threads : 1, poll)) {
            return false;
        }
        remaining -= pass.depth;
    }
    return true;
}

}  // namespace detail

bool tvUpscale(const ImageBuffer& reference, ImageBuffer& estimate,
               const TvUpscaleSettings& settings, const TvUpscaleMonitor& monitor) {
    return detail::tvUpscaleWith(detail::fastestRowKernels(), reference, estimate, settings,
                                 monitor);
}

}  // namespace quorblen
