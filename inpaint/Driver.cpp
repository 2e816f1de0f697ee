// The diffusion inpainting driver: list building, iterations of one step, progress and dumps.
#include "inpaint/Driver.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include <boost/format.hpp>
#include <boost/timer/progress_display.hpp>

#include "inpaint/Measures.h"
#include "inpaint/PlaneSweep.h"
#include "inpaint/WorkerPool.h"
#include "tv/Offsets.h"
#include "tv/TvUpscale.h"

namespace quorblen {
namespace {

constexpr int AlphaChannel = 3;

/// Pixels a thread takes at least: fewer are not worth waking it for.
constexpr std::size_t PixelsPerThread = 256;

/// Calls visit(x, y) for every interior pixel, rows from the bottom up and columns from the
/// right to the left: the order of both lists.
template <class Visit>
void forEachInteriorPixel(const ImageBuffer& mask, Visit visit) {
    for (int y = mask.height - 2; y >= 1; --y) {
        for (int x = mask.width - 2; x >= 1; --x) {
            visit(x, y);
        }
    }
}

float alphaAt(const ImageBuffer& mask, int x, int y) {
    return mask.data[y * mask.stride + x * mask.channels + AlphaChannel];
}

bool fullyUnknown(const ImageBuffer& mask, int x, int y) {
    // Alpha 0, the usual known pixel, is never approximately 1.
    const float alpha = alphaAt(mask, x, y);
    return alpha != 0.0f && approxEqual(alpha, 1.0f);
}

/// Whether the nearest fully unknown pixel of (x, y), as nearestPixelWithValue finds it from
/// there, lies at a distance of at most 1.
bool inBand(const ImageBuffer& mask, int x, int y) {
    // Only the pixel and its 4-neighbours lie within distance 1, and when one of them is fully
    // unknown the search reports a match at that distance: a match on the pixel itself ends
    // every scan at once; a matching 4-neighbour ends one of the four scans on it, or an
    // earlier scan ended nearer still, so it lies in the window, where no match lies nearer
    // than the pixel's own, and a squared distance of 1 is below width + height. Looking at
    // the five pixels therefore gives the search's answer without the search, which scans up
    // to the whole image per pixel.
    bool near = fullyUnknown(mask, x, y);
    for (const Offset& n : NeighbourOffsets) {
        near = near || fullyUnknown(mask, x + n.dx, y + n.dy);
    }
    return near;
}

/// The interior pixels for which belongs(x, y) holds, made by make(x, y), in list order.
/// A counting pass reserves the exact size, so filling never reallocates.
template <class Entry, class Belongs, class Make>
std::vector<Entry> collectInteriorPixels(const ImageBuffer& mask, Belongs belongs, Make make) {
    std::size_t count = 0;
    forEachInteriorPixel(mask, [&](int x, int y) {
        if (belongs(x, y)) {
            ++count;
        }
    });
    std::vector<Entry> list;
    list.reserve(count);
    forEachInteriorPixel(mask, [&](int x, int y) {
        if (belongs(x, y)) {
            list.push_back(make(x, y));
        }
    });
    return list;
}

/// `pattern` fed the iteration number; Boost.Format raises its error on a bad pattern.
std::string dumpName(const std::string& pattern, int iteration) {
    return (boost::format(pattern) % iteration).str();
}

}  // namespace

PixelList unknownPixels(const ImageBuffer& mask) {
    assert(mask.channels > AlphaChannel);
    return collectInteriorPixels<PixelEntry>(
        mask, [&](int x, int y) { return alphaAt(mask, x, y) > 0.0f; },
        [](int x, int y) {
            return PixelEntry{std::uint32_t(x), std::uint32_t(y), -1};
        });
}

BandList bandPixels(const ImageBuffer& mask) {
    assert(mask.channels > AlphaChannel);
    return collectInteriorPixels<PixelCoord>(
        mask, [&](int x, int y) { return inBand(mask, x, y); },
        [](int x, int y) {
            return PixelCoord{x, y};
        });
}

DiffusionRun::DiffusionRun(const ImageBuffer& mask, ImageBuffer& work, int method, double lambda,
                           double epsilon, double timeStep, int colourChannels, int threads)
    : m_mask(mask),
      m_work(work),
      m_method(method),
      m_lambda(lambda),
      m_epsilon(epsilon),
      m_timeStep(timeStep),
      m_colourChannels(colourChannels),
      m_pixels(unknownPixels(mask)) {
    assert(mask.channels > AlphaChannel && work.channels > AlphaChannel);
    assert(mask.width == work.width && mask.height == work.height);
    assert(colourChannels >= 1 && colourChannels <= 3);
    if (method == Elastica) {
        m_band = bandPixels(mask);
    }
    if (method == DigitalTV || method == Elastica) {
        m_sweep = std::make_unique<detail::PlaneSweep>(
            detail::fastestSweepKernels(), m_pixels, m_band, work, method, lambda, epsilon,
            colourChannels, detail::threadsFor(threads, m_pixels.size(), PixelsPerThread));
    } else if (method == DualTV) {
        m_scratch = work;
        // The solver step's planes are cleared, as nothing else writes them.
        m_dual = ImageBuffer(work.width, work.height, 2);
        std::fill_n(m_dual.data, std::size_t(m_dual.width) * m_dual.height * m_dual.channels, 0.0f);
    }
}

DiffusionRun::~DiffusionRun() = default;

double DiffusionRun::iterate(bool writeWork) {
    if (m_sweep) {
        return m_sweep->iterate(m_timeStep, writeWork);
    }
    if (m_method == DualTV) {
        // The step rewrites its estimate in place. Scratch equals the working image at the
        // start of every iteration, so running it on scratch gives the same result and the
        // copy keeps it. Its return value stays out of the norm.
        for (int c = 0; c < m_colourChannels; ++c) {
            tvUpscaleStep(m_mask, m_scratch, m_dual, c, static_cast<float>(m_lambda),
                          static_cast<float>(m_epsilon));
        }
        m_work = m_scratch;
    }
    return 0.0;
}

void DiffusionRun::writeWork() {
    if (m_sweep) {
        m_sweep->writeWork();
    }
}

void DiffusionRun::restart(const ImageBuffer& start, double timeStep) {
    assert(start.width == m_work.width && start.height == m_work.height &&
           start.channels == m_work.channels);
    m_work = start;
    m_timeStep = timeStep;
    if (m_sweep) {
        m_sweep->load();
    } else if (m_method == DualTV) {
        m_scratch = start;
        std::fill_n(m_dual.data, std::size_t(m_dual.width) * m_dual.height * m_dual.channels, 0.0f);
    }
}

void inpaint(const ImageBuffer& mask, ImageBuffer& work, int iterations, bool dumpEveryIteration,
             int method, const std::string& fileName, double lambda, double epsilon,
             double timeStep) {
    const bool dumping = dumpEveryIteration && !fileName.empty();
    if (dumping) {
        const std::string name = dumpName(fileName, 0);
        work.writeImage(name.c_str());
        std::cout << "inpaint: Initial image. Wrote: " << name << '\n';
    }

    DiffusionRun run(mask, work, method, lambda, epsilon, timeStep);
    boost::timer::progress_display progress(static_cast<unsigned long>(std::max(iterations, 0)),
                                            std::cout, "\n", "", "");
    for (int it = 1; it <= iterations; ++it) {
        const double norm = run.iterate();
        if (dumping) {
            const std::string name = dumpName(fileName, it);
            work.writeImage(name.c_str());
            std::cout << "inpaint: Wrote: " << name << " Inf norm: " << norm << '\n';
        } else {
            ++progress;
        }
    }

    if (!dumpEveryIteration && !fileName.empty()) {
        work.writeImage(fileName.c_str());
        std::cout << "inpaint: Wrote: " << fileName << '\n';
    }
}

}  // namespace quorblen
