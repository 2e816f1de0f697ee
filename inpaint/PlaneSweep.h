// Iterations of the list-based diffusion steps over planes of the pixels they read, on a team
// of threads with vector kernels; not part of the library's interface.
#pragma once

#include <cstdlib>
#include <memory>
#include <vector>

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"
#include "inpaint/SweepKernels.h"
#include "inpaint/ThreadTeam.h"

namespace quorblen::detail {

/// Jacobi iterations of tvInpaintStep (DigitalTV) or elasticaInpaintStep (Elastica) on colour
/// channels 0 .. colourChannels-1 of `work`, with the bits of the steps on every thread count
/// and instruction set. Each channel is copied once into planes (one float per pixel, touched
/// only around the listed and band pixels), which the iterations read and write in turn; an
/// iteration may also write its new values into `work`, which it never reads. Holds references
/// to the lists and `work`, which must outlive it.
class PlaneSweep {
public:
    /// Preconditions: those of the steps (every listed and band pixel interior, epsilon > 0),
    /// `work` with at least 4 channels and rows of width * channels samples, method DigitalTV
    /// or Elastica, threads >= 1.
    PlaneSweep(const SweepKernels& kernels, const PixelList& pixels, const BandList& band,
               ImageBuffer& work, int method, double lambda, double epsilon, int colourChannels,
               int threads);

    /// Takes the state from `work` again: its colour around the listed pixels and its alpha.
    void load();

    /// One iteration; returns its largest change, into which a NaN change never enters. With
    /// `writeWork`, the new values also go to `work`.
    double iterate(double timeStep, bool writeWork);

    /// Writes the last iteration's values into `work`.
    void writeWork();

private:
    struct FreeFloats {
        void operator()(float* p) const { std::free(p); }
    };
    using Plane = std::unique_ptr<float[], FreeFloats>;
    /// A plane of the image's size cleared to 0, whose pages the system provides on first use.
    Plane clearedPlane() const;

    /// The groups and band groups of one row, as ranges of m_groups and m_band.
    struct RowSpan {
        std::ptrdiff_t y;
        std::size_t groups, groupsEnd;
        std::size_t band, bandEnd;
    };
    /// The rows holding listed or band pixels, in list order (bottom up).
    std::vector<RowSpan> rowSpans() const;
    /// The rows of each part: parts[t] .. parts[t + 1] - 1, with about as many groups each.
    std::vector<std::size_t> partRows(int parts) const;
    /// Part `part`'s elastica step on one channel: the fields of its rows and the rows next to
    /// them, each row a row ahead of the sweep that reads it, into the part's own planes.
    double elasticaPart(int part, double timeStep, const SweepPlane& plane);

    const SweepKernels& m_kernels;
    ImageBuffer& m_work;
    int m_method;
    double m_lambda;
    double m_epsilon;
    int m_colourChannels;
    const PixelList& m_pixels;
    std::vector<LaneGroup> m_groups;
    std::vector<LaneGroup> m_band;  // Elastica only
    std::vector<RowSpan> m_rows;
    std::vector<float> m_selfWeights;  // DigitalTV: lambda * (1 - alpha) per lane, as float
    std::vector<Plane> m_values[2];    // per channel: the last iteration's, and the next one's
    int m_current = 0;                 // which of m_values holds the last iteration's
    ThreadTeam m_team;
    std::vector<std::size_t> m_parts;  // the rows of each part of the team
    std::vector<Plane> m_fields;       // Elastica: G, K and KG of each part
    std::vector<double> m_largest;     // per part
};

}  // namespace quorblen::detail
