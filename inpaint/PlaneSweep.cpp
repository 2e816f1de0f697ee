// Iterations of the list-based diffusion steps over planes of the pixels they read, on a team
// of threads with vector kernels.
#include "inpaint/PlaneSweep.h"

#include <algorithm>
#include <cassert>
#include <new>
#include <utility>

#include "inpaint/KernelSupport.h"

namespace quorblen::detail {
PlaneSweep::PlaneSweep(const SweepKernels& kernels, const PixelList& pixels, const BandList& band,
                       ImageBuffer& work, int method, double lambda, double epsilon,
                       int colourChannels, int threads)
    : m_kernels(kernels),
      m_work(work),
      m_method(method),
      m_lambda(lambda),
      m_epsilon(epsilon),
      m_colourChannels(colourChannels),
      m_groups(laneGroups(pixels, work.width)),
      m_band(method == Elastica ? laneGroups(band, work.width) : std::vector<LaneGroup>()),
      m_team(threads),
      m_largest(std::size_t(m_team.size())) {
    assert(method == DigitalTV || method == Elastica);
    assert(work.channels > 3 && work.stride == work.width * work.channels);
    for (std::vector<Plane>& values : m_values) {
        for (int c = 0; c < colourChannels; ++c) {
            values.push_back(clearedPlane());
        }
    }
    if (method == Elastica) {
        // Written at band pixels only, so they stay 0 wherever else the sweep reads them.
        for (int k = 0; k < 3 * colourChannels; ++k) {
            m_fields.push_back(clearedPlane());
        }
    }
    load();
}

PlaneSweep::Plane PlaneSweep::clearedPlane() const {
    Plane plane(static_cast<float*>(
        std::calloc(std::size_t(m_work.width) * std::size_t(m_work.height), sizeof(float))));
    if (!plane) {
        throw std::bad_alloc();
    }
    return plane;
}

void PlaneSweep::load() {
    const std::ptrdiff_t width = m_work.width;
    const int channels = m_work.channels;
    // The steps read the 3x3 block around every listed and band pixel; copy those blocks, for
    // each row of every group from its left to its right neighbour.
    for (const std::vector<LaneGroup>* groups : {&m_groups, &m_band}) {
        for (const LaneGroup& group : *groups) {
            assert(group.pixel[0] % width >= 1 && group.pixel[GroupLanes - 1] % width < width - 1);
            for (const std::ptrdiff_t row : {-width, std::ptrdiff_t(0), width}) {
                for (std::ptrdiff_t i = group.pixel[0] - 1 + row;
                     i <= group.pixel[GroupLanes - 1] + 1 + row; ++i) {
                    for (int c = 0; c < m_colourChannels; ++c) {
                        const float value = m_work.data[i * channels + c];
                        m_values[0][c][i] = value;
                        m_values[1][c][i] = value;
                    }
                }
            }
        }
    }
    m_current = 0;
    if (m_method == DigitalTV) {
        // Alpha never changes: each lane's weight of its own value is made once, rounded to
        // float as the step rounds it.
        m_selfWeights.resize(m_groups.size() * GroupLanes);
        for (std::size_t g = 0; g < m_groups.size(); ++g) {
            for (int j = 0; j < GroupLanes; ++j) {
                const float alpha = m_work.data[m_groups[g].pixel[j] * channels + 3];
                m_selfWeights[g * GroupLanes + j] =
                    static_cast<float>((1.0 - static_cast<double>(alpha)) * m_lambda);
            }
        }
    }
}

std::pair<std::size_t, std::size_t> PlaneSweep::slice(const std::vector<LaneGroup>& groups,
                                                      int part) const {
    const std::size_t parts = std::size_t(m_team.size());
    return {groups.size() * std::size_t(part) / parts,
            groups.size() * std::size_t(part + 1) / parts};
}

double PlaneSweep::iterate(double timeStep) {
    const double eps2 = squaredInFloat(m_epsilon);
    const std::vector<Plane>& u = m_values[m_current];
    const std::vector<Plane>& v = m_values[1 - m_current];
    const auto plane = [&](int c) {
        return SweepPlane{u[c].get(), v[c].get(), m_work.data + c, m_work.channels, m_work.width};
    };
    const auto fields = [&](int c) {
        return FieldPlanes{m_fields[3 * c].get(), m_fields[3 * c + 1].get(),
                           m_fields[3 * c + 2].get()};
    };
    // Every part reads only the last iteration's planes and writes its own pixels; the largest
    // change is a maximum, the same in any order.
    m_team.run([&](int part) {
        const auto [first, last] = slice(m_groups, part);
        double largest = 0.0;
        if (m_method == DigitalTV) {
            for (int c = 0; c < m_colourChannels; ++c) {
                largest =
                    std::max(largest, m_kernels.tvSweep(m_groups.data() + first, last - first,
                                                        m_selfWeights.data() + first * GroupLanes,
                                                        plane(c), eps2));
            }
        } else {
            const auto [bandFirst, bandLast] = slice(m_band, part);
            // A channel's sweep follows its fields while they are still in cache; the next
            // channel's fields go to planes of their own, so only the sweep waits for them.
            for (int c = 0; c < m_colourChannels; ++c) {
                m_kernels.elasticaFields(m_band.data() + bandFirst, bandLast - bandFirst, plane(c),
                                         eps2, fields(c));
                m_team.sync();
                largest = std::max(
                    largest, m_kernels.elasticaSweep(m_groups.data() + first, last - first,
                                                     plane(c), fields(c), m_epsilon, timeStep));
            }
        }
        m_largest[std::size_t(part)] = largest;
    });
    m_current = 1 - m_current;
    return *std::max_element(m_largest.begin(), m_largest.end());
}

}  // namespace quorblen::detail
