// The elastica energy of candidate colours at the pixel being filled, from remembered
// per-channel terms.
#include "inpaint/EnergyTrials.h"

#include <algorithm>
#include <bit>
#include <cassert>

#include "inpaint/KernelSupport.h"

namespace quorblen::detail {
namespace {

/// The reach of the energies around their pixel.
constexpr int Reach = 2;
constexpr int Side = 2 * Reach + 1;

/// Terms remembered per channel: a table of 2^TableBits entries; values that collide are
/// computed again.
constexpr int TableBits = 9;
constexpr std::size_t TableSize = std::size_t(1) << TableBits;

std::size_t slotOf(std::uint32_t bits) {
    return (bits * 0x9E3779B1u) >> (32 - TableBits);
}

}  // namespace

EnergyTrials::EnergyTrials(int workers, double epsilon, double curvatureWeight)
    : m_eps2(squaredInFloat(static_cast<float>(epsilon))),
      m_weight(static_cast<float>(curvatureWeight)) {
    m_workers.resize(std::size_t(workers));
    for (Worker& worker : m_workers) {
        worker.local.resize(Side, Side, 3);
        worker.terms.assign(3 * TableSize, Term{0, 0, {}});
    }
}

void EnergyTrials::load(const ImageBuffer& image, int x, int y) {
    assert(image.channels >= 3 && keepsMargin(image, x, y, Reach));
    if (++m_pixel == 0) {
        // The loads' count wrapped: no remembered term may pass for one of this pixel.
        for (Worker& worker : m_workers) {
            std::fill(worker.terms.begin(), worker.terms.end(), Term{0, 0, {}});
        }
        m_pixel = 1;
    }
    for (Worker& worker : m_workers) {
        std::fill(std::begin(worker.last), std::end(worker.last), nullptr);
        for (int j = 0; j < Side; ++j) {
            for (int i = 0; i < Side; ++i) {
                std::copy_n(image.data + sampleIndex(image, x - Reach + i, y - Reach + j, 0), 3,
                            worker.local.data + sampleIndex(worker.local, i, j, 0));
            }
        }
    }
}

const double* EnergyTrials::shares(Worker& worker, int c, float value) const {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    Term& term = worker.terms[std::size_t(c) * TableSize + slotOf(bits)];
    if (term.pixel == m_pixel && term.value == bits) {
        return term.share;
    }
    worker.local.data[sampleIndex(worker.local, Reach, Reach, c)] = value;
    for (int k = 0; k < Points; ++k) {
        const Offset q = FivePointStencil[std::size_t(k)];
        const PlaneAt u(worker.local, Reach + q.dx, Reach + q.dy, c);
        term.share[k] = elasticaChannelDensity(u, m_eps2, m_weight);
    }
    term.value = bits;
    term.pixel = m_pixel;
    return term.share;
}

}  // namespace quorblen::detail
