// One row of pixels as the host hands it between operators.
#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <iterator>
#include <ranges>
#include <vector>

#include "host/Channel.h"

namespace host {

class Iop;

/// A row of pixels over columns x .. r-1 with one float span per channel. The span of a
/// channel is indexed by absolute column: `writable(z)[X]` for X in [x, r).
/// A row belongs to one thread at a time.
class Row {
public:
    /// A row spanning columns x .. r-1 (x <= r).
    Row(int x, int r);

    int x() const { return m_x; }
    int r() const { return m_r; }

    /// Fills `channels` of this row with row y, columns x .. r-1, of `input`
    /// (x .. r-1 must lie inside the row's own span).
    void get(Iop& input, int y, int x, int r, const ChannelSet& channels);

    /// The span of channel `z`, writable over the row's columns; zeros until written.
    float* writable(Channel z);

    /// The span of channel `z` for reading.
    const float* operator[](Channel z) { return writable(z); }

    /// Copies columns x .. r-1 of `channels`, in the order they are given, into `line`
    /// interleaved: the k-th channel of column X goes to line[(X - x) * count + k].
    /// x .. r-1 must lie inside the row's own span.
    template <class Channels>
    void interleave(const Channels& channels, int x, int r, float* line) {
        assert(x >= m_x && r <= m_r);
        const std::ptrdiff_t count = std::ranges::distance(channels);
        std::ptrdiff_t k = 0;
        for (Channel z : channels) {
            const float* span = writable(z);
            for (int X = x; X < r; ++X) {
                line[(X - x) * count + k] = span[X];
            }
            ++k;
        }
    }

    /// Sets `channels` to zero over the whole row.
    void erase(const ChannelSet& channels);
    void erase(Channel z) { erase(ChannelSet(z)); }

private:
    int m_x;
    int m_r;
    int m_origin;  // column of element 0 of every span: min(x, 0)
    std::array<std::vector<float>, Chan_Last + 1> m_spans;
};

}  // namespace host
