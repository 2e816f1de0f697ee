// The elastica energy of candidate colours tried at the pixel being filled, without writing
// the image; not part of the library's interface.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "image/ImageBuffer.h"

namespace quorblen::detail {

/// elasticaEnergy at the pixel being filled with a candidate colour in place, as the image
/// would give it, for several threads at once: each worker has its own copy of the pixel's
/// 5 x 5 neighbourhood (all the energy reads there) and its own memory of terms.
///
/// The energy adds, in a fixed order, terms that each read one colour channel: for each of
/// the five stencil pixels q and each channel c, the channel's share of q's density, which
/// depends on the tried colour through its channel c alone. A term computed once for a
/// channel value is the same double the next time that value is tried at the same pixel, so
/// the energy is assembled from remembered terms in the same order: photos of 8-bit samples
/// offer a few hundred values per channel to thousands of candidates. (Scoring every colour
/// in full, CandidateEnergy, takes about twice as long on such photos.)
class EnergyTrials {
public:
    /// Trials for `workers` threads; `epsilon` and `curvatureWeight` as EnergyProbe keeps them
    /// (single precision).
    EnergyTrials(int workers, double epsilon, double curvatureWeight);

    /// Every worker's copy of the neighbourhood of (x, y) in `image`, which must lie at least
    /// 2 pixels inside it; forgets the terms of the previous pixel.
    void load(const ImageBuffer& image, int x, int y);

    /// The energy with `colour` (3 samples) at the pixel, in worker `worker`'s copy.
    double energy(int worker, const float* colour) {
        Worker& w = m_workers[std::size_t(worker)];
        const double* share[3];
        for (int c = 0; c < 3; ++c) {
            // Neighbouring candidates often share a channel's value: the last one is at hand.
            const auto bits = std::bit_cast<std::uint32_t>(colour[c]);
            if (w.last[c] == nullptr || w.lastValue[c] != bits) {
                w.last[c] = shares(w, c, colour[c]);
                w.lastValue[c] = bits;
            }
            share[c] = w.last[c];
        }
        // Each stencil pixel's density summed from 0.0, then added.
        double total = 0.0;
        for (int k = 0; k < Points; ++k) {
            double density = 0.0;
            for (int c = 0; c < 3; ++c) {
                density += share[c][k];
            }
            total += density;
        }
        return total;
    }

    /// scores[i] = energy(worker, colours + 3 i) for i < n.
    void energies(int worker, const float* colours, std::size_t n, double* scores) {
        for (std::size_t i = 0; i < n; ++i) {
            scores[i] = energy(worker, colours + 3 * i);
        }
    }

private:
    static constexpr int Points = 5;  // the stencil pixels
    struct Term {
        std::uint32_t value;  // the channel value's bits
        std::uint32_t pixel;  // the load it belongs to
        double share[Points];
    };
    // Aligned to cache lines: each thread writes its own.
    struct alignas(64) Worker {
        ImageBuffer local;
        std::vector<Term> terms;  // per channel, a table indexed by the value's hash
        const double* last[3] = {nullptr, nullptr, nullptr};  // this pixel's last shares
        std::uint32_t lastValue[3] = {0, 0, 0};
    };

    /// The shares at the five stencil pixels of channel c at `value`.
    const double* shares(Worker& worker, int c, float value) const;

    std::vector<Worker> m_workers;
    double m_eps2;
    double m_weight;
    std::uint32_t m_pixel = 0;
};

}  // namespace quorblen::detail
