// Iterations of the list-based diffusion steps over planes of the pixels they read, on a team
// of threads with vector kernels.
#include "inpaint/PlaneSweep.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <new>

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
      m_pixels(pixels),
      m_groups(laneGroups(pixels, work.width)),
      m_band(method == Elastica ? laneGroups(band, work.width) : std::vector<LaneGroup>()),
      m_rows(rowSpans()),
      m_team(threads),
      m_parts(partRows(threads)),
      m_largest(std::size_t(threads)) {
    assert(method == DigitalTV || method == Elastica);
    assert(work.channels > 3 && work.stride == work.width * work.channels);
    for (std::vector<Plane>& values : m_values) {
        for (int c = 0; c < colourChannels; ++c) {
            values.push_back(clearedPlane());
        }
    }
    if (method == Elastica) {
        // Written at band pixels only, so they stay 0 wherever else the sweep reads them. Each
        // part has its own, so that no part waits for another's.
        for (int k = 0; k < 3 * threads; ++k) {
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

std::vector<PlaneSweep::RowSpan> PlaneSweep::rowSpans() const {
    const std::ptrdiff_t width = m_work.width;
    const auto rowOf = [&](const std::vector<LaneGroup>& groups, std::size_t i) {
        return i < groups.size() ? groups[i].pixel[0] / width : std::ptrdiff_t(-1);
    };
    // Both lists run from the bottom row up: merge them row by row.
    std::vector<RowSpan> rows;
    std::size_t g = 0;
    std::size_t b = 0;
    while (g < m_groups.size() || b < m_band.size()) {
        RowSpan row{std::max(rowOf(m_groups, g), rowOf(m_band, b)), g, g, b, b};
        while (rowOf(m_groups, row.groupsEnd) == row.y) {
            ++row.groupsEnd;
        }
        while (rowOf(m_band, row.bandEnd) == row.y) {
            ++row.bandEnd;
        }
        g = row.groupsEnd;
        b = row.bandEnd;
        rows.push_back(row);
    }
    return rows;
}

std::vector<std::size_t> PlaneSweep::partRows(int parts) const {
    const auto work = [](const RowSpan& row) {
        return (row.groupsEnd - row.groups) + (row.bandEnd - row.band);
    };
    std::size_t total = 0;
    for (const RowSpan& row : m_rows) {
        total += work(row);
    }
    std::vector<std::size_t> bounds{0};
    std::size_t done = 0;
    for (std::size_t r = 0; r < m_rows.size(); ++r) {
        done += work(m_rows[r]);
        if (int(bounds.size()) < parts && done * std::size_t(parts) >= total * bounds.size()) {
            bounds.push_back(r + 1);
        }
    }
    bounds.resize(std::size_t(parts) + 1, m_rows.size());
    return bounds;
}

double PlaneSweep::elasticaPart(int part, double timeStep, const SweepPlane& plane) {
    const double eps2 = squaredInFloat(m_epsilon);
    const FieldPlanes fields{m_fields[3 * part].get(), m_fields[3 * part + 1].get(),
                             m_fields[3 * part + 2].get()};
    const auto makeFields = [&](std::size_t r) {
        const RowSpan& row = m_rows[r];
        m_kernels.elasticaFields(m_band.data() + row.band, row.bandEnd - row.band, plane, eps2,
                                 fields);
    };
    // The rows next to a row, when any holds band pixels, lie next to it in the list.
    const auto adjacent = [&](std::size_t r, std::size_t s) {
        return s < m_rows.size() && std::abs(m_rows[s].y - m_rows[r].y) == 1;
    };
    const std::size_t first = m_parts[part];
    const std::size_t last = m_parts[part + 1];
    if (first == last) {
        return 0.0;
    }
    if (first > 0 && adjacent(first, first - 1)) {
        makeFields(first - 1);
    }
    double largest = 0.0;
    std::size_t made = first;  // the next row whose fields are to be made
    for (std::size_t r = first; r < last; ++r) {
        // Row r's own fields wait here when the row before it lies apart.
        if (made == r) {
            makeFields(made++);
        }
        if (made == r + 1 && adjacent(r, r + 1)) {
            makeFields(made++);
        }
        const RowSpan& row = m_rows[r];
        largest = std::max(largest, m_kernels.elasticaSweep(m_groups.data() + row.groups,
                                                            row.groupsEnd - row.groups, plane,
                                                            fields, m_epsilon, timeStep));
    }
    return largest;
}

void PlaneSweep::writeWork() {
    for (const PixelEntry& p : m_pixels) {
        const std::ptrdiff_t i = std::ptrdiff_t(p.y) * m_work.width + p.x;
        for (int c = 0; c < m_colourChannels; ++c) {
            m_work.data[i * m_work.channels + c] = m_values[m_current][c][i];
        }
    }
}

double PlaneSweep::iterate(double timeStep, bool writeWork) {
    const double eps2 = squaredInFloat(m_epsilon);
    const std::vector<Plane>& u = m_values[m_current];
    const std::vector<Plane>& v = m_values[1 - m_current];
    const auto plane = [&](int c) {
        return SweepPlane{u[c].get(), v[c].get(), writeWork ? m_work.data + c : nullptr,
                          m_work.channels, m_work.width};
    };
    // Every part reads only the last iteration's planes and its own fields, and writes its own
    // rows' pixels; the largest change is a maximum, the same in any order.
    m_team.run([&](int part) {
        double largest = 0.0;
        for (int c = 0; c < m_colourChannels; ++c) {
            if (m_method == Elastica) {
                largest = std::max(largest, elasticaPart(part, timeStep, plane(c)));
                continue;
            }
            const std::size_t firstRow = m_parts[part];
            const std::size_t lastRow = m_parts[part + 1];
            if (firstRow < lastRow) {
                // The part's rows hold a run of groups.
                const std::size_t first = m_rows[firstRow].groups;
                largest = std::max(
                    largest, m_kernels.tvSweep(
                                 m_groups.data() + first, m_rows[lastRow - 1].groupsEnd - first,
                                 m_selfWeights.data() + first * GroupLanes, plane(c), eps2));
            }
        }
        m_largest[std::size_t(part)] = largest;
    });
    m_current = 1 - m_current;
    return *std::max_element(m_largest.begin(), m_largest.end());
}

}  // namespace quorblen::detail
