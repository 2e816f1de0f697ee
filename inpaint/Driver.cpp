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

#include "inpaint/DiffusionKernels.h"
#include "inpaint/KernelSupport.h"
#include "inpaint/Measures.h"
#include "inpaint/NearestPixel.h"
#include "tv/Offsets.h"
#include "tv/TvUpscale.h"

namespace quorblen {
namespace {

constexpr int AlphaChannel = 3;

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
    return approxEqual(alphaAt(mask, x, y), 1.0f);
}

/// Whether the nearest fully unknown pixel of (x, y) is the pixel itself or a 4-neighbour.
bool inBand(const ImageBuffer& mask, int x, int y) {
    // Only the pixel and its 4-neighbours lie within distance 1, so when none of them is fully
    // unknown the search cannot put the pixel in the band. Skipping it there gives the same
    // band; the search alone scans up to the whole image per pixel, which made the lists cost
    // minutes on a 512 x 512 photo.
    bool near = fullyUnknown(mask, x, y);
    for (const Offset& n : NeighbourOffsets) {
        near = near || fullyUnknown(mask, x + n.dx, y + n.dy);
    }
    if (!near) {
        return false;
    }
    // Two columns away: a search that reports no coordinates leaves the pixel out.
    int nx = x + 2;
    int ny = y;
    nearestPixelWithValue(mask, AlphaChannel, x, y, nx, ny, 0, 1.0f);
    const std::int64_t dx = std::int64_t(x) - nx;
    const std::int64_t dy = std::int64_t(y) - ny;
    return dx * dx + dy * dy <= 1;
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

DiffusionRun::DiffusionRun(const ImageBuffer& mask, ImageBuffer& work, int method, double lambda,
                           double epsilon, double timeStep, int colourChannels)
    : m_mask(mask),
      m_work(work),
      m_method(method),
      m_lambda(lambda),
      m_epsilon(epsilon),
      m_timeStep(timeStep),
      m_colourChannels(colourChannels),
      m_pixels(unknownPixels(mask)),
      m_band(collectInteriorPixels<PixelCoord>(
          mask, [&](int x, int y) { return inBand(mask, x, y); },
          [](int x, int y) {
              return PixelCoord{x, y};
          })),
      m_scratch(work),
      m_dual(work.width, work.height, 2) {
    assert(mask.channels > AlphaChannel && work.channels > AlphaChannel);
    assert(mask.width == work.width && mask.height == work.height);
    assert(colourChannels >= 1 && colourChannels <= 3);
    // The solver step's planes are cleared, as nothing else writes them.
    std::fill_n(m_dual.data, std::size_t(m_dual.width) * m_dual.height * m_dual.channels, 0.0f);
    if (method == Elastica) {
        m_fields = std::make_unique<detail::ElasticaFields>(work);
    }
}

DiffusionRun::~DiffusionRun() = default;

double DiffusionRun::iterate() {
    double norm = 0.0;
    for (int c = 0; c < m_colourChannels; ++c) {
        double change = 0.0;
        switch (m_method) {
            case DigitalTV:
                change = tvInpaintStep(m_mask, m_work, m_scratch, c, AlphaChannel, m_pixels,
                                       m_lambda, m_epsilon);
                break;
            case DualTV:
                // The step rewrites its estimate in place. Scratch equals the working image at
                // the start of every iteration, so running it on scratch gives the same result
                // and the copy below keeps it. Its return value stays out of the norm.
                tvUpscaleStep(m_mask, m_scratch, m_dual, c, static_cast<float>(m_lambda),
                              static_cast<float>(m_epsilon));
                break;
            case Elastica:
                change = detail::elasticaInpaintStep(m_mask, m_work, m_scratch, c, AlphaChannel,
                                                     m_pixels, m_band, m_lambda, m_epsilon,
                                                     m_timeStep, *m_fields);
                break;
            default:
                break;
        }
        // Written as a comparison so that a NaN change never enters the norm.
        if (change > norm) {
            norm = change;
        }
    }
    if (m_method == DualTV) {
        m_work = m_scratch;
    } else {
        // The list-based steps write listed pixels only; copying those back is the same as
        // copying the whole buffer, at a fraction of the cost when the hole is sparse.
        for (const PixelEntry& p : m_pixels) {
            const std::ptrdiff_t i = detail::sampleIndex(m_work, p.x, p.y, 0);
            std::copy_n(m_scratch.data + i, m_colourChannels, m_work.data + i);
        }
    }
    return norm;
}

void DiffusionRun::restart(const ImageBuffer& start, double timeStep) {
    assert(start.width == m_work.width && start.height == m_work.height &&
           start.channels == m_work.channels);
    m_work = start;
    m_scratch = start;
    m_timeStep = timeStep;
    std::fill_n(m_dual.data, std::size_t(m_dual.width) * m_dual.height * m_dual.channels, 0.0f);
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
