// Texture-guided TV inpainting.
#include "inpaint/TextureTV.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cstdint>
#include <limits>
#include <vector>

#include "inpaint/CandidateEnergy.h"
#include "inpaint/DiffusionKernels.h"
#include "inpaint/FastSearch.h"
#include "inpaint/PassState.h"
#include "inpaint/PassThreads.h"

namespace quorblen {

double inpaintTextureTV(const ImageBuffer* /*ignored*/, const ImageBuffer& source,
                        ImageBuffer& output, int maskChannel, const PixelList& pix_list,
                        int searchRadius) {
    detail::WorkerPool pool(1);
    return detail::inpaintTextureTVOn(pool, source, output, maskChannel, pix_list, searchRadius);
}

namespace detail {
namespace {

/// A worker's scores of candidate colours for one pixel (CandidateTotalVariation), from the
/// gradients of the channel values met so far, kept per channel in a direct-mapped cache keyed
/// by the value's bits: a photo's window holds few distinct values per channel, and a
/// candidate's score needs only its channels' gradients.
///
/// A candidate whose score is certainly above the lowest one met (or the start) can be
/// neither chosen nor tie, and gets NaN instead. The test is exact: the score S adds 15
/// widened gradients g >= 0 in order, so S >= R (1 - 2^-53)^14, R their exact sum (sums of
/// such lose at most a factor 1 - 2^-53 each, and none below the normal doubles). A value's
/// `total` adds its 5 gradients, and L adds the three totals, through at most 6 roundings a
/// factor of at most 1 + 2^-53 each: L <= R (1 + 2^-53)^6. So S >= L (1 - 2^-48), and
/// L > fl(bound (1 + 2^-40)) gives S > bound for a normal bound.
class VariationMemo {
public:
    /// Forgets every value, for the pixel of `variation`, with candidates to beat scoring
    /// below `start`.
    void reset(const CandidateTotalVariation& variation, double start) {
        m_variation = &variation;
        if (++m_stamp == 0) {
            for (auto& channel : m_entries) {
                std::fill(channel.begin(), channel.end(), Entry{});
            }
            m_stamp = 1;
        }
        lower(start);
    }

    /// The score of `colour` (channels 0-2), or NaN when it is certainly above the bound.
    double score(const float* colour) {
        const Entry* e[3] = {&entry(0, colour[0]), &entry(1, colour[1]), &entry(2, colour[2])};
        if (e[0]->total + e[1]->total + e[2]->total > m_margin) {
            return std::numeric_limits<double>::quiet_NaN();
        }
        const float* const gradients[3] = {e[0]->gradients, e[1]->gradients, e[2]->gradients};
        const double total = CandidateTotalVariation::fromGradients(gradients);
        if (total < m_bound) {
            lower(total);
        }
        return total;
    }

private:
    static constexpr int SlotBits = 10;
    struct Entry {
        std::uint32_t key = 0;
        std::uint32_t stamp = 0;  // the pixel it was made for; 0 for none
        float gradients[StencilPoints] = {};
        double total = 0.0;
    };

    Entry& entry(int c, float v) {
        const auto key = std::bit_cast<std::uint32_t>(v);
        Entry& e = m_entries[std::size_t(c)][(key * 2654435761u) >> (32 - SlotBits)];
        if (e.stamp != m_stamp || e.key != key) {
            m_variation->channelGradients(c, v, e.gradients);
            e.total = 0.0;
            for (const float g : e.gradients) {
                e.total += static_cast<double>(g);
            }
            e.key = key;
            e.stamp = m_stamp;
        }
        return e;
    }

    void lower(double bound) {
        m_bound = bound;
        // Only a normal bound has the margin the test needs.
        m_margin = bound >= 0x1p-900 && bound < std::numeric_limits<double>::infinity()
                       ? bound * (1.0 + 0x1p-40)
                       : std::numeric_limits<double>::infinity();
    }

    const CandidateTotalVariation* m_variation = nullptr;
    std::array<std::vector<Entry>, 3> m_entries{std::vector<Entry>(1u << SlotBits),
                                                std::vector<Entry>(1u << SlotBits),
                                                std::vector<Entry>(1u << SlotBits)};
    std::uint32_t m_stamp = 0;
    double m_bound = 0.0;
    double m_margin = 0.0;
};

}  // namespace

double inpaintTextureTVOn(WorkerPool& pool, const ImageBuffer& source, ImageBuffer& output,
                          int maskChannel, const PixelList& pix_list, int searchRadius,
                          bool fillInOut) {
    assert(source.channels >= 3 && maskChannel >= 0 && maskChannel < source.channels);
    assert(output.width == source.width && output.height == source.height && output.channels >= 3);
    // Candidates are judged in `trial`, where the chosen colours stay for the later entries.
    ImageBuffer copy = fillInOut ? ImageBuffer() : source;
    ImageBuffer& trial = fillInOut ? output : copy;
    // Candidates are read from `source` column by column: its colour and mask.
    const ColumnPlanes planes(source, source.width, source.height, {0, 1, 2, maskChannel});
    const ColumnPlanes* const sources[] = {&planes};
    PassTally tally;
    // One memo per worker, on cache lines of its own.
    struct alignas(64) WorkerMemo {
        VariationMemo memo;
    };
    std::vector<WorkerMemo> memos(std::size_t(pool.size()));
    for (const PixelEntry& p : pix_list) {
        const int x = static_cast<int>(p.x);
        const int y = static_cast<int>(p.y);
        const CandidateTotalVariation variation(trial, x, y);
        const double start = localTotalVariation(trial, x, y);
        for (WorkerMemo& m : memos) {
            m.memo.reset(variation, start);
        }
        const Choice donor = searchByEnergy(
            pool, source, x, y, searchRadius, 0, sources, start,
            [](float mask) { return mask == 0.0f; },
            [&](int worker, const float* colours, std::size_t n, double* scores) {
                VariationMemo& memo = memos[std::size_t(worker)].memo;
                for (std::size_t i = 0; i < n; ++i) {
                    scores[i] = memo.score(colours + 3 * i);
                }
            });
        copyColour(source, donor.x, donor.y, trial, x, y);
        if (!fillInOut) {
            copyColour(source, donor.x, donor.y, output, x, y);
        }
        tally.record(source, x, y, source, donor);
    }
    tally.report("inpaintTextureTV", pix_list.size());
    return tally.maxChange;
}

}  // namespace detail
}  // namespace quorblen
