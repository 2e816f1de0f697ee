// Candidate colours tried in each thread's own copy of the neighbourhood.
#include "inpaint/EnergyTrials.h"

#include <algorithm>
#include <cassert>

#include "inpaint/DiffusionKernels.h"
#include "inpaint/ElasticaEnergy.h"
#include "inpaint/KernelSupport.h"

namespace quorblen::detail {
namespace {

/// The reach of the energies around their pixel.
constexpr int Reach = 2;
constexpr int Side = 2 * Reach + 1;

}  // namespace

EnergyTrials::EnergyTrials(int workers, double epsilon, double curvatureWeight)
    : m_epsilon(static_cast<float>(epsilon)),
      m_curvatureWeight(static_cast<float>(curvatureWeight)) {
    m_local.reserve(std::size_t(workers));
    for (int k = 0; k < workers; ++k) {
        m_local.emplace_back(Side, Side, 3);
    }
}

void EnergyTrials::load(const ImageBuffer& image, int x, int y) {
    assert(image.channels >= 3 && keepsMargin(image, x, y, Reach));
    for (ImageBuffer& local : m_local) {
        for (int j = 0; j < Side; ++j) {
            for (int i = 0; i < Side; ++i) {
                std::copy_n(image.data + sampleIndex(image, x - Reach + i, y - Reach + j, 0), 3,
                            local.data + sampleIndex(local, i, j, 0));
            }
        }
    }
}

void EnergyTrials::place(int worker, const float* colour) {
    ImageBuffer& local = m_local[std::size_t(worker)];
    std::copy_n(colour, 3, local.data + sampleIndex(local, Reach, Reach, 0));
}

double EnergyTrials::elastica(int worker, const float* colour) {
    place(worker, colour);
    return elasticaEnergy(m_local[std::size_t(worker)], Reach, Reach, m_epsilon, m_curvatureWeight);
}

double EnergyTrials::totalVariation(int worker, const float* colour) {
    place(worker, colour);
    return localTotalVariation(m_local[std::size_t(worker)], Reach, Reach);
}

}  // namespace quorblen::detail
