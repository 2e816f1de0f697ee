// The bodies of the diffusion sweep kernels over the double vectors of the including file. Each
// instruction set's file includes this once and instantiates the kernels in an anonymous
// namespace of its own, so that no code built for a wider instruction set is shared with
// another file. No standard-library templates here for the same reason.
#pragma once

#include <emmintrin.h>

#include <cstddef>

#include "inpaint/SweepKernels.h"
#include "tv/Offsets.h"

namespace quorblen::detail {
namespace {

// The four lanes of a group are one SSE vector of floats on every instruction set. `Lanes`
// supplies Doubles (four double lanes) and set, add, sub, mul, div and sqrt on them; abs;
// max(x, m) (per lane x > m ? x : m, so a NaN x keeps m, as std::max(m, x) does); widen (four
// floats to Doubles), narrow (back, rounded to float) and largest (the greatest lane).
using Floats = __m128;

// The helpers run per group; always inlined, so that their samples stay in registers, and the
// loops over the four edges unrolled, so that each edge's offsets and orientation are fixed.

/// The neighbour and transverse offsets, copied at compile time out of the shared tables.
struct OffsetTable {
    Offset neighbour[4];
    Offset transverse[4][4];
};

constexpr OffsetTable offsetTable() {
    OffsetTable table{};
    for (int k = 0; k < 4; ++k) {
        table.neighbour[k] = NeighbourOffsets[k];
        for (int j = 0; j < 4; ++j) {
            table.transverse[k][j] = TransverseOffsets[k][j];
        }
    }
    return table;
}

constexpr OffsetTable offsets = offsetTable();

/// The stencil offsets in a plane `width` pixels wide.
struct Stencil {
    explicit Stencil(std::ptrdiff_t width) {
        for (int k = 0; k < 4; ++k) {
            neighbour[k] = offsets.neighbour[k].dx + offsets.neighbour[k].dy * width;
            for (int j = 0; j < 4; ++j) {
                transverse[k][j] =
                    offsets.transverse[k][j].dx + offsets.transverse[k][j].dy * width;
            }
        }
    }
    std::ptrdiff_t neighbour[4];
    std::ptrdiff_t transverse[4][4];
};

/// A plane seen from the four pixels of a group: at(offset) holds the samples at that offset
/// from each, loaded at once when the group is a row of neighbours (`Row`).
template <bool Row>
struct GroupSamples {
    const float* plane;
    const std::ptrdiff_t* pixel;

    [[gnu::always_inline]] inline Floats at(std::ptrdiff_t offset) const {
        if constexpr (Row) {
            return _mm_loadu_ps(plane + pixel[0] + offset);
        } else {
            return _mm_setr_ps(plane[pixel[0] + offset], plane[pixel[1] + offset],
                               plane[pixel[2] + offset], plane[pixel[3] + offset]);
        }
    }
};

/// Stores the lanes of `value` at the group's pixels of `plane`, each `step` floats apart.
template <bool Row>
[[gnu::always_inline]] inline void storeLanes(float* plane, int step, const std::ptrdiff_t* pixel,
                                              Floats value) {
    if (Row && step == 1) {
        _mm_storeu_ps(plane + pixel[0], value);
        return;
    }
    alignas(16) float lane[GroupLanes];
    _mm_store_ps(lane, value);
    for (int j = 0; j < GroupLanes; ++j) {
        plane[pixel[j] * step] = lane[j];
    }
}

[[gnu::always_inline]] inline Floats absOf(Floats z) {
    return _mm_andnot_ps(_mm_set1_ps(-0.0f), z);
}

/// Minmod scaled by `half`, single precision: (s(a) + s(b)) * half * min(|a|, |b|), with s(z)
/// -1 for z < 0 and +1 otherwise (zero and NaN included), the minimum taken as std::min(|a|,
/// |b|) takes it. The first factor is exactly 2 * half, -2 * half or +0: it is built from the
/// signs instead of added.
[[gnu::always_inline]] inline Floats scaledMinmod(Floats a, Floats b, float half) {
    const Floats negativeA = _mm_cmplt_ps(a, _mm_setzero_ps());
    const Floats negativeB = _mm_cmplt_ps(b, _mm_setzero_ps());
    const Floats twice =
        _mm_or_ps(_mm_set1_ps(2.0f * half), _mm_and_ps(negativeA, _mm_set1_ps(-0.0f)));
    const Floats factor = _mm_andnot_ps(_mm_xor_ps(negativeA, negativeB), twice);
    return _mm_mul_ps(factor, _mm_min_ps(absOf(b), absOf(a)));
}

/// The difference to neighbour k and the gradient magnitude at the midpoint of that edge: d and
/// the transverse sum in single precision, the magnitude in double from d * d (a float product)
/// and stored as float.
template <class Lanes, class Samples>
[[gnu::always_inline]] inline void edgeTerms(const Samples& u, Floats u0, const Stencil& s, int k,
                                             Floats& d, Floats& g) {
    const std::ptrdiff_t* t = s.transverse[k];
    d = _mm_sub_ps(u.at(s.neighbour[k]), u0);
    const Floats across =
        _mm_sub_ps(_mm_sub_ps(_mm_add_ps(u.at(t[0]), u.at(t[1])), u.at(t[2])), u.at(t[3]));
    const auto quarter = Lanes::mul(Lanes::set(0.25), Lanes::widen(across));
    g = Lanes::narrow(
        Lanes::sqrt(Lanes::add(Lanes::widen(_mm_mul_ps(d, d)), Lanes::mul(quarter, quarter))));
}

/// Stores the new values `unew` of a group rounded to float in the plane and the image, and
/// returns the running maximum of |u0 - unew| taken before rounding.
template <class Lanes, bool Row>
[[gnu::always_inline]] inline typename Lanes::Doubles storeAndTrack(
    const SweepPlane& plane, const std::ptrdiff_t* pixel, Floats u0, typename Lanes::Doubles unew,
    typename Lanes::Doubles largest) {
    const Floats rounded = Lanes::narrow(unew);
    storeLanes<Row>(plane.v, 1, pixel, rounded);
    if (plane.out != nullptr) {
        storeLanes<Row>(plane.out, plane.outStep, pixel, rounded);
    }
    return Lanes::max(Lanes::abs(Lanes::sub(Lanes::widen(u0), unew)), largest);
}

template <class Lanes, bool Row>
[[gnu::always_inline]] inline typename Lanes::Doubles tvGroup(const std::ptrdiff_t* pixel,
                                                              const float* selfWeight,
                                                              const SweepPlane& plane,
                                                              const Stencil& s, double eps2,
                                                              typename Lanes::Doubles largest) {
    using Doubles = typename Lanes::Doubles;
    const GroupSamples<Row> u{plane.u, pixel};
    const Floats u0 = u.at(0);
    Doubles w[4];
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
        Floats d, g;
        edgeTerms<Lanes>(u, u0, s, k, d, g);
        const Doubles gd = Lanes::widen(g);
        w[k] = Lanes::div(Lanes::set(1.0),
                          Lanes::sqrt(Lanes::add(Lanes::mul(gd, gd), Lanes::set(eps2))));
    }
    // The weighted mean: every term divided by the sum of the weights first, added in order.
    const Doubles self = Lanes::widen(_mm_loadu_ps(selfWeight));
    const Doubles sum =
        Lanes::add(Lanes::add(Lanes::add(Lanes::add(w[0], w[1]), w[2]), w[3]), self);
    Doubles mean = Lanes::mul(Lanes::div(self, sum), Lanes::widen(u0));
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
        mean =
            Lanes::add(mean, Lanes::mul(Lanes::div(w[k], sum), Lanes::widen(u.at(s.neighbour[k]))));
    }
    return storeAndTrack<Lanes, Row>(plane, pixel, u0, mean, largest);
}

template <class Lanes>
double tvSweep(const LaneGroup* groups, std::size_t count, const float* selfWeights,
               const SweepPlane& plane, double eps2) {
    const Stencil s(plane.width);
    typename Lanes::Doubles largest = Lanes::set(0.0);
    for (std::size_t i = 0; i < count; ++i) {
        const std::ptrdiff_t* pixel = groups[i].pixel;
        const float* self = selfWeights + i * GroupLanes;
        largest = pixel[GroupLanes - 1] - pixel[0] == GroupLanes - 1
                      ? tvGroup<Lanes, true>(pixel, self, plane, s, eps2, largest)
                      : tvGroup<Lanes, false>(pixel, self, plane, s, eps2, largest);
    }
    return Lanes::largest(largest);
}

template <class Lanes, bool Row>
[[gnu::always_inline]] inline void fieldsGroup(const std::ptrdiff_t* pixel, const SweepPlane& plane,
                                               const Stencil& s, double eps2,
                                               const FieldPlanes& fields) {
    using Doubles = typename Lanes::Doubles;
    const GroupSamples<Row> u{plane.u, pixel};
    const Floats u0 = u.at(0);
    // Neighbours 0 to 3 lie right, down, left and up.
    const Floats gx = _mm_sub_ps(u.at(s.neighbour[0]), u.at(s.neighbour[2]));
    const Floats gy = _mm_sub_ps(u.at(s.neighbour[1]), u.at(s.neighbour[3]));
    // Sum of squares in single precision, root and halving in double, stored as float.
    const Floats g = Lanes::narrow(
        Lanes::mul(Lanes::set(0.5),
                   Lanes::sqrt(Lanes::widen(_mm_add_ps(_mm_mul_ps(gx, gx), _mm_mul_ps(gy, gy))))));
    // The curvature sums its four terms in double from 0.0, in the order k = 0..3.
    Doubles sum = Lanes::set(0.0);
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
        Floats d, edge;
        edgeTerms<Lanes>(u, u0, s, k, d, edge);
        const Doubles ed = Lanes::widen(edge);
        sum = Lanes::add(sum,
                         Lanes::div(Lanes::widen(d),
                                    Lanes::sqrt(Lanes::add(Lanes::mul(ed, ed), Lanes::set(eps2)))));
    }
    const Floats curvature = Lanes::narrow(sum);
    storeLanes<Row>(fields.gradient, 1, pixel, g);
    storeLanes<Row>(fields.curvature, 1, pixel, curvature);
    storeLanes<Row>(fields.product, 1, pixel, _mm_mul_ps(curvature, g));
}

template <class Lanes>
void elasticaFields(const LaneGroup* band, std::size_t count, const SweepPlane& plane, double eps2,
                    const FieldPlanes& fields) {
    const Stencil s(plane.width);
    for (std::size_t i = 0; i < count; ++i) {
        const std::ptrdiff_t* pixel = band[i].pixel;
        if (pixel[GroupLanes - 1] - pixel[0] == GroupLanes - 1) {
            fieldsGroup<Lanes, true>(pixel, plane, s, eps2, fields);
        } else {
            fieldsGroup<Lanes, false>(pixel, plane, s, eps2, fields);
        }
    }
}

/// Difference along the axis of edge k: forward f(q) - f(p) for k = 0, 1, f(p) - f(q) for
/// k = 2, 3.
template <class Samples>
[[gnu::always_inline]] inline Floats orientedDifference(const Samples& f, const Stencil& s, int k) {
    const Floats here = f.at(0);
    const Floats there = f.at(s.neighbour[k]);
    return k < 2 ? _mm_sub_ps(there, here) : _mm_sub_ps(here, there);
}

/// Transverse derivative across edge k by the halved minmod of the two differences along it.
template <class Samples>
[[gnu::always_inline]] inline Floats transverseDerivative(const Samples& f, const Stencil& s,
                                                          int k) {
    const std::ptrdiff_t* t = s.transverse[k];
    return scaledMinmod(_mm_sub_ps(f.at(t[0]), f.at(t[2])), _mm_sub_ps(f.at(t[1]), f.at(t[3])),
                        0.25f);
}

template <class Lanes, bool Row>
[[gnu::always_inline]] inline typename Lanes::Doubles elasticaGroup(
    const std::ptrdiff_t* pixel, const SweepPlane& plane, const FieldPlanes& fields,
    const Stencil& s, double epsilon, double timeStep, typename Lanes::Doubles largest) {
    using Doubles = typename Lanes::Doubles;
    const GroupSamples<Row> u{plane.u, pixel};
    const GroupSamples<Row> curv{fields.curvature, pixel};
    const GroupSamples<Row> kg{fields.product, pixel};
    // The four edges' roots, then their divisions, each issued while the others' are in
    // flight: one edge after the other, every division would wait for its root.
    Doubles un[4], ut[4], r[4], bend[4], torsion[4];
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
        un[k] = Lanes::widen(orientedDifference(u, s, k));
        ut[k] = Lanes::widen(transverseDerivative(u, s, k));
        r[k] = Lanes::sqrt(Lanes::add(
            Lanes::add(Lanes::mul(un[k], un[k]), Lanes::mul(ut[k], ut[k])), Lanes::set(epsilon)));
    }
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
        const Doubles kn = Lanes::widen(orientedDifference(kg, s, k));
        const Doubles kt = Lanes::widen(transverseDerivative(kg, s, k));
        const Floats edgeKappa = scaledMinmod(curv.at(s.neighbour[k]), curv.at(0), 0.5f);
        // kappa is squared in single precision before it enters the double flux.
        const Doubles kappa2 = Lanes::widen(_mm_mul_ps(edgeKappa, edgeKappa));
        bend[k] = Lanes::add(Lanes::mul(Lanes::set(30.0), kappa2), Lanes::set(1.0));
        torsion[k] = Lanes::sub(Lanes::mul(un[k], kt), Lanes::mul(ut[k], kn));
    }
    Doubles flux[4];
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
        const Doubles r3 = Lanes::mul(Lanes::mul(r[k], r[k]), r[k]);
        flux[k] =
            Lanes::add(Lanes::div(Lanes::mul(un[k], bend[k]), r[k]),
                       Lanes::mul(Lanes::mul(Lanes::div(Lanes::set(60.0), r3), ut[k]), torsion[k]));
    }
    const Doubles div = Lanes::sub(Lanes::sub(Lanes::add(flux[0], flux[1]), flux[2]), flux[3]);
    const Doubles g = Lanes::widen(GroupSamples<Row>{fields.gradient, pixel}.at(0));
    const Floats u0 = u.at(0);
    const Doubles unew = Lanes::add(
        Lanes::mul(Lanes::mul(div, Lanes::set(timeStep)), Lanes::add(g, Lanes::set(epsilon))),
        Lanes::widen(u0));
    return storeAndTrack<Lanes, Row>(plane, pixel, u0, unew, largest);
}

template <class Lanes>
double elasticaSweep(const LaneGroup* groups, std::size_t count, const SweepPlane& plane,
                     const FieldPlanes& fields, double epsilon, double timeStep) {
    const Stencil s(plane.width);
    typename Lanes::Doubles largest = Lanes::set(0.0);
    for (std::size_t i = 0; i < count; ++i) {
        const std::ptrdiff_t* pixel = groups[i].pixel;
        largest =
            pixel[GroupLanes - 1] - pixel[0] == GroupLanes - 1
                ? elasticaGroup<Lanes, true>(pixel, plane, fields, s, epsilon, timeStep, largest)
                : elasticaGroup<Lanes, false>(pixel, plane, fields, s, epsilon, timeStep, largest);
    }
    return Lanes::largest(largest);
}

template <class Lanes>
constexpr SweepKernels sweepKernelsFor() {
    return {tvSweep<Lanes>, elasticaFields<Lanes>, elasticaSweep<Lanes>};
}

}  // namespace
}  // namespace quorblen::detail
