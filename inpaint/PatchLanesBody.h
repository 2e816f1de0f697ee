// The lane kernels of the patch distance, written once over an instruction set's eight-lane
// operations; included by one translation unit per instruction set.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <type_traits>
#include <utility>

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
        typename V::Floats v[FloatVectors];
    };
    struct Doubles {
        typename V::Doubles v[DoubleVectors];
    };
    using Mask = Doubles;

    /// The vectors a block's lanes R are made of.
    template <class R>
    using VectorOf = std::remove_reference_t<decltype(std::declval<R&>().v[0])>;

    /// op on the vectors of a..., one after the other. op names one of V's overloads: the one
    /// that takes and gives the vectors of the lanes at hand.
    template <class R, class... A>
    static R each(VectorOf<R> (*op)(VectorOf<A>...), const A&... a) {
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
    static Floats add(Floats a, Floats b) { return each<Floats>(V::add, a, b); }
    static Floats sub(Floats a, Floats b) { return each<Floats>(V::sub, a, b); }
    static Floats mul(Floats a, Floats b) { return each<Floats>(V::mul, a, b); }
    /// a where the flags at p (0 or -1 each) are set, +0.0f elsewhere.
    static Floats masked(Floats a, const std::int32_t* p) {
        return each<Floats>(V::both, a, fill<Floats>([p](std::size_t i) {
                                return V::flagsAsFloats(p + V::FloatLanes * i);
                            }));
    }
    static unsigned greater(Floats a, Floats b) {
        const Floats m = each<Floats>(V::greater, a, b);
        unsigned bits = 0;
        for (int i = 0; i < FloatVectors; ++i) {
            bits |= V::signs(m.v[i]) << (V::FloatLanes * i);
        }
        return bits;
    }
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

/// Every lane of a block.
inline constexpr unsigned AllLanes = (1u << LaneBlock) - 1;

/// The lanes of a block whose single-precision lower bound (scoreBlockWith) passes `kept`,
/// kept >= 0.0; looks no further once every lane of `live` has.
template <class V>
unsigned boundBlock(const PatchTarget& t, const float* const* colour, const std::int32_t* known,
                    unsigned live, bool allComplete, double kept) {
    using L = BlockLanes<V>;
    using F = typename L::Floats;
    const HeavyPairs& heavy = t.heavy;
    const std::size_t pairs = heavy.offset.size();
    // Rounded up to a float: the float limit is at least the double one.
    const double margin = (kept + double(pairs) * 0x1p-147) * (1.0 + 0x1p-10);
    float rounded = static_cast<float>(margin);
    if (static_cast<double>(rounded) < margin) {
        rounded = std::nextafter(rounded, std::numeric_limits<float>::infinity());
    }
    const F limit = L::set(rounded);
    F bound = L::set(0.0f);
    unsigned above = 0;
    for (std::size_t p = 0; p < pairs;) {
        const std::size_t end = std::min(pairs, p + std::size_t(HeavyPairs::PerCheck));
        for (; p < end; ++p) {
            const std::ptrdiff_t o = heavy.offset[p];
            F sq[3];
            for (int c = 0; c < 3; ++c) {
                const F delta = L::sub(L::set(heavy.colour[c][p]), L::load(colour[c] + o));
                sq[c] = L::mul(delta, delta);
            }
            F term = L::mul(L::add(L::add(sq[0], sq[1]), sq[2]), L::set(heavy.weight[p]));
            bound = L::add(bound, allComplete ? term : L::masked(term, known + o));
        }
        above = L::greater(bound, limit);
        if ((above & live) == live) {
            break;
        }
    }
    return above;
}

/// Each lane repeats patchDistance's operations on its candidate in their order: the float
/// difference and square, widened, times the pair's weight, added to the lane's sum; a pair
/// the candidate does not know adds +0.0 instead, which leaves a sum unchanged (a sum
/// starting at +0.0 is never -0.0, since x + (-x) is +0.0 when rounding to nearest).
///
/// Dropping a lane early is exact. With every weight positive each term is >= +0.0 or NaN,
/// and rounding to nearest is monotone (x <= y gives fl(x + a) <= fl(y + a)), so:
/// - a partial sum never exceeds the final one;
/// - a lane's weight sum, the weights of the pairs it knows added in order, never exceeds the
///   target's full one W, which adds them all: by induction over the pairs, a pair the lane
///   skips leaves its sum while W only grows, and a pair both add keeps the order;
/// - so distance = fl(sum / wsum) >= fl(partial / W) (a larger numerator, a smaller positive
///   divisor), and fl(distance * patchWeight) >= fl(fl(partial / W) * patchWeight) for
///   patchWeight >= 0.
/// Once fl(fl(partial / W) * patchWeight) > bound, the lane's distance * patchWeight is above
/// bound, and so is its score when the rest of the score is >= 0: it can neither win nor tie
/// with the candidate that scored `bound`. The kernel tests partial > kept instead, the same
/// test by keptSum's contract, without a division. A lane that counts no pair has a sum of +0.0 and
/// a score (0.0, or 0.0 plus the rest) >= 0.0 = fl(0.0 / W): dropped, it was above the bound too.
/// A lane that counts a pair has a weight sum of at least that weight, above TinyWeightSum
/// for a growing target, so it is never scored 0.0 for a tiny weight sum.
/// Only lanes that last to the end need their own weight sum, and only those whose patch has
/// an unknown pixel need it computed.
///
/// Before the sums in double, a lower bound in single precision drops most lanes at a quarter
/// of the cost: F adds fl(fl(sq0 + sq1 + sq2) * wf) pair by pair, heaviest pairs first, where
/// sq_c = fl(delta_c * delta_c) are the very floats the exact sum widens (+0.0f where the lane
/// does not know the pixel) and wf <= w. Each term and partial sum of F passes through at most
/// n + 2 roundings (n pairs, n <= HeavyPairs::MaxPairs = 2^10), each a factor of at most
/// 1 + 2^-24, or for a product below the normal floats a gain of at most 2^-150 (sums of such
/// are exact), so F <= E (1 + 2^-13) + n 2^-149, E the exact sum of sq * w over the pairs F
/// has added. The exact sum S, over every pair in order, is at least E (1 - 2^-40) - 3n 2^-1075
/// (through at most 3n + 1 roundings a factor of at least 1 - 2^-53 each, or a loss of 2^-1075
/// for a product below the normal doubles). So for kept >= 0, F above the float at or above
/// (kept + n 2^-147) (1 + 2^-10) gives S > kept: the lane would be dropped by the exact test at
/// its end if not before. The double roundings of that limit are lost in the slack between
/// 2^-10 and 2^-13. A NaN in F drops nothing.
template <class V>
unsigned scoreBlockWith(const PatchTarget& t, const PatchPlanes& planes, std::ptrdiff_t centre,
                        unsigned live, double kept, double* scores) {
    using L = BlockLanes<V>;
    using D = typename L::Doubles;
    const float* colour[3] = {planes.colour(0) + centre, planes.colour(1) + centre,
                              planes.colour(2) + centre};
    const std::int32_t* known = planes.known() + centre;
    const std::size_t pairs = t.offset.size();

    // Lanes that know every pixel of their patch need no mask; nor do the lanes not live,
    // whose scores are dropped.
    unsigned complete = 0;
    for (int k = 0; k < LaneBlock; ++k) {
        complete |= unsigned(planes.complete()[centre + k]) << k;
    }
    const bool allComplete = (complete & live) == live;

    D sum = L::set(0.0);
    unsigned alive = live;
    const bool prune = !(kept == std::numeric_limits<double>::infinity());
    const D limit = L::set(kept);
    const D full = L::set(t.fullWeightSum);
    const auto addPairs = [&]<bool Masked>(std::size_t from, std::size_t to) {
        for (std::size_t p = from; p < to; ++p) {
            const std::ptrdiff_t o = t.offset[p];
            const D w = L::set(t.weight[p]);
            for (int c = 0; c < 3; ++c) {
                const typename L::Floats delta =
                    L::sub(L::set(t.colour[c][p]), L::load(colour[c] + o));
                const D term = L::mul(L::widen(L::mul(delta, delta)), w);
                sum = L::add(sum, Masked ? L::masked(term, L::loadMask(known + o)) : term);
            }
        }
    };
    if (prune && kept >= 0.0 && !t.heavy.offset.empty()) {
        alive &= ~boundBlock<V>(t, colour, known, live, allComplete, kept);
        if (alive == 0) {
            std::fill(scores, scores + LaneBlock, std::numeric_limits<double>::quiet_NaN());
            return 0;
        }
    }
    std::size_t done = 0;
    for (const int end : t.checkpoints) {
        if (allComplete) {
            addPairs.template operator()<false>(done, std::size_t(end));
        } else {
            addPairs.template operator()<true>(done, std::size_t(end));
        }
        done = std::size_t(end);
        if (prune) {
            alive &= ~L::greater(sum, limit);
            if (alive == 0) {
                break;
            }
        }
    }
    // The target's own weight sum serves every lane that knows every pixel it compares.
    D wsum = full;
    if (alive != 0 && (complete & alive) != alive) {
        wsum = L::set(0.0);
        for (std::size_t q = 0; q < pairs; ++q) {
            const D w = L::masked(L::set(t.weight[q]), L::loadMask(known + t.offset[q]));
            wsum = L::add(L::add(L::add(wsum, w), w), w);
        }
    }
    // Like patchDistance's test, a NaN weight sum counts.
    const unsigned counted = ~L::atMost(L::abs(wsum), L::set(TinyWeightSum)) & AllLanes;
    L::store(scores, L::div(sum, wsum));
    for (int k = 0; k < LaneBlock; ++k) {
        if (!(alive >> k & 1u)) {
            scores[k] = std::numeric_limits<double>::quiet_NaN();
        } else if (!(counted >> k & 1u)) {
            scores[k] = 0.0;
        }
    }
    return alive;
}

}  // namespace quorblen::detail
