// The lane kernels of the patch distance, written once over an instruction set's eight-lane
// operations; included by one translation unit per instruction set.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>

#include "inpaint/PatchLanes.h"

namespace quorblen::detail {

/// A block's lanes as arrays of vectors of one instruction set, whose single-vector
/// operations V gives: Floats of V::FloatLanes floats, Doubles of V::DoubleLanes doubles
/// (two per Floats), and masks as Doubles with every bit of a lane set or clear.
template <class V>
struct BlockLanes {
    static constexpr int FloatVectors = LaneBlock / V::FloatLanes;
    static constexpr int DoubleVectors = LaneBlock / V::DoubleLanes;
    struct Floats {
        typename V::F v[FloatVectors];
    };
    struct Doubles {
        typename V::D v[DoubleVectors];
    };
    using Mask = Doubles;

    template <class R, class Op, class... A>
    static R each(Op op, const A&... a) {
        R r;
        for (std::size_t i = 0; i < std::size(r.v); ++i) {
            r.v[i] = op(a.v[i]...);
        }
        return r;
    }
    template <class R, class Op>
    static R fill(Op op) {
        R r;
        for (std::size_t i = 0; i < std::size(r.v); ++i) {
            r.v[i] = op(i);
        }
        return r;
    }

    static Floats load(const float* p) {
        return fill<Floats>([p](std::size_t i) { return V::load(p + V::FloatLanes * i); });
    }
    static Floats set(float value) {
        return fill<Floats>([value](std::size_t) { return V::set(value); });
    }
    static Floats sub(Floats a, Floats b) { return each<Floats>(V::subF, a, b); }
    static Floats mul(Floats a, Floats b) { return each<Floats>(V::mulF, a, b); }
    static Doubles widen(Floats f) {
        return fill<Doubles>([&f](std::size_t i) {
            return i % 2 == 0 ? V::widenLow(f.v[i / 2]) : V::widenHigh(f.v[i / 2]);
        });
    }

    static Doubles set(double value) {
        return fill<Doubles>([value](std::size_t) { return V::set(value); });
    }
    static Doubles add(Doubles a, Doubles b) { return each<Doubles>(V::add, a, b); }
    static Doubles mul(Doubles a, Doubles b) { return each<Doubles>(V::mul, a, b); }
    static Doubles div(Doubles a, Doubles b) { return each<Doubles>(V::div, a, b); }
    static Doubles abs(Doubles a) { return each<Doubles>(V::andNot, set(-0.0), a); }
    static void store(double* p, Doubles d) {
        for (int i = 0; i < DoubleVectors; ++i) {
            V::store(p + V::DoubleLanes * i, d.v[i]);
        }
    }
    static unsigned bits(Mask m) {
        unsigned b = 0;
        for (int i = 0; i < DoubleVectors; ++i) {
            b |= V::signs(m.v[i]) << (V::DoubleLanes * i);
        }
        return b;
    }
    static unsigned greater(Doubles a, Doubles b) { return bits(each<Mask>(V::greater, a, b)); }
    static unsigned atMost(Doubles a, Doubles b) { return bits(each<Mask>(V::atMost, a, b)); }

    static Mask loadMask(const std::int32_t* p) {
        return fill<Mask>([p](std::size_t i) { return V::loadMask(p + V::DoubleLanes * i); });
    }
    static Doubles masked(Doubles v, Mask m) { return each<Doubles>(V::both, v, m); }
};

/// Each lane repeats patchDistance's operations on its candidate in their order: the float
/// difference and square, widened, times the pair's weight, added to the lane's sum; a pair
/// the candidate does not know adds +0.0 instead, which leaves a sum unchanged (a sum
/// starting at +0.0 is never -0.0, since x + (-x) is +0.0 when rounding to nearest).
///
/// Dropping a lane early is exact. With every weight positive each term is >= +0.0 or NaN,
/// and rounding to nearest is monotone, so a partial sum never exceeds the final one; the
/// weight sum of a lane is known before its sum (the same additions in the same order, from
/// the alpha tests alone), and division by it and multiplication by patchWeight >= 0 are
/// monotone too. So once fl(fl(partial / wsum) * patchWeight) > bound, the lane's
/// distance * patchWeight is above bound, and so is its score when the rest of the score is
/// >= 0: it can neither win nor tie with the candidate that scored `bound`. A lane whose
/// weight sum is at most TinyWeightSum scores 0.0 whatever its sum, and is never dropped.
/// Every lane of a block.
inline constexpr unsigned AllLanes = (1u << LaneBlock) - 1;

template <class V>
void scoreBlockWith(const PatchTarget& t, const PatchPlanes& planes, std::ptrdiff_t centre,
                    unsigned live, double bound, double patchWeight, double* scores) {
    using L = BlockLanes<V>;
    using D = typename L::Doubles;
    const float* colour[3] = {planes.colour(0) + centre, planes.colour(1) + centre,
                              planes.colour(2) + centre};
    const std::int32_t* known = planes.known() + centre;
    const std::size_t pairs = t.offset.size();

    // The target's own weight sum serves every lane that knows every pixel it compares.
    unsigned complete = 0;
    for (int k = 0; k < LaneBlock; ++k) {
        complete |= unsigned(planes.complete()[centre + k]) << k;
    }
    D wsum = L::set(t.fullWeightSum);
    if ((complete & live) != live) {
        wsum = L::set(0.0);
        for (std::size_t p = 0; p < pairs; ++p) {
            const D w = L::masked(L::set(t.weight[p]), L::loadMask(known + t.offset[p]));
            wsum = L::add(L::add(L::add(wsum, w), w), w);
        }
    }
    // Like patchDistance's test, a NaN weight sum counts.
    const unsigned counted = ~L::atMost(L::abs(wsum), L::set(TinyWeightSum)) & AllLanes;

    D sum = L::set(0.0);
    unsigned alive = live;
    const bool prune = t.growing && !(bound == std::numeric_limits<double>::infinity());
    const D limit = L::set(bound);
    const D scale = L::set(patchWeight);
    std::size_t p = 0;
    for (const int end : t.columnEnd) {
        for (; p < static_cast<std::size_t>(end); ++p) {
            const std::ptrdiff_t o = t.offset[p];
            const typename L::Mask k = L::loadMask(known + o);
            const D w = L::set(t.weight[p]);
            for (int c = 0; c < 3; ++c) {
                const typename L::Floats delta = L::sub(
                    L::set(t.colour[c][static_cast<std::size_t>(p)]), L::load(colour[c] + o));
                const D term = L::mul(L::widen(L::mul(delta, delta)), w);
                sum = L::add(sum, L::masked(term, k));
            }
        }
        if (prune) {
            const D reached = L::mul(L::div(sum, wsum), scale);
            alive &= ~(L::greater(reached, limit) & counted);
            if (alive == 0) {
                break;
            }
        }
    }
    L::store(scores, L::div(sum, wsum));
    for (int k = 0; k < LaneBlock; ++k) {
        if (!(alive >> k & 1u)) {
            scores[k] = std::numeric_limits<double>::quiet_NaN();
        } else if (!(counted >> k & 1u)) {
            scores[k] = 0.0;
        }
    }
}

}  // namespace quorblen::detail
