// The bodies of the candidate scorers over the lane type of the including file, and where the
// scored pixel enters each sample expression of the measures. Each instruction set's file
// includes this once and instantiates the scorers in an anonymous namespace of its own, so
// that no code built for a wider instruction set is shared with another file; the standard
// library serves only types and constant expressions here for the same reason.
#pragma once

#include <cstddef>
#include <utility>

#include "inpaint/CandidateEnergy.h"
#include "inpaint/KernelSupport.h"

namespace quorblen::detail {
namespace {

/// Which sample of each expression of the measures at stencil point s is the scored pixel:
/// its index, or -1 when it reads none. The geometry alone decides it.
struct CentreRoles {
    int edgeDifference[StencilPoints][4];  // d_k = u(q + n_k) - u(q): 0 or 1
    int transverse[StencilPoints][4];      // the four samples of transverse sum k: 0 .. 3
    int gradient[StencilPoints][4];        // one-sided difference i of the gradient: 0 or 1
    int firstEdge[StencilPoints];          // the first edge k whose d or t reads it
    int firstGradient[StencilPoints];      // the first one-sided difference that reads it
};

constexpr int centreIndex(Offset q, const Offset* samples, int count) {
    for (int i = 0; i < count; ++i) {
        if (q.dx + samples[i].dx == 0 && q.dy + samples[i].dy == 0) {
            return i;
        }
    }
    return -1;
}

constexpr CentreRoles centreRoles() {
    CentreRoles roles{};
    for (int s = 0; s < StencilPoints; ++s) {
        const Offset q = FivePointStencil[s];
        for (int k = 0; k < 4; ++k) {
            const Offset d[2] = {NeighbourOffsets[k], {0, 0}};
            roles.edgeDifference[s][k] = centreIndex(q, d, 2);
            roles.transverse[s][k] = centreIndex(q, TransverseOffsets[k].data(), 4);
            roles.gradient[s][k] = centreIndex(q, GradientDifferences[k], 2);
        }
        roles.firstEdge[s] = 4;
        roles.firstGradient[s] = 4;
        for (int k = 3; k >= 0; --k) {
            if (roles.edgeDifference[s][k] >= 0 || roles.transverse[s][k] >= 0) {
                roles.firstEdge[s] = k;
            }
            if (roles.gradient[s][k] >= 0) {
                roles.firstGradient[s] = k;
            }
        }
    }
    return roles;
}

inline constexpr CentreRoles Roles = centreRoles();

/// Calls body(std::integral_constant<int, I>) for I = 0 .. Count-1 in order.
template <int Count, class Body>
void unrolled(Body body) {
    [&]<int... I>(std::integer_sequence<int, I...>) {
        (body(std::integral_constant<int, I>{}), ...);
    }
    (std::make_integer_sequence<int, Count>{});
}

// Every expression that reads the scored pixel is computed here with the operations, order and
// precision of the measure; every other arrives precomputed by the measure's own helpers
// (CandidateEnergy.cpp). So each lane gives the measure's bits, whatever the instruction set.
//
// `Lanes` supplies Floats and Doubles (one candidate per lane, `count` lanes used) and the
// operations set, add, sub, mul (both types), div and sqrt (Doubles), widen (Floats to
// Doubles), narrow (back, rounded to float), colour(colours, c) (channel c of `count`
// consecutive colours) and store(out, Doubles).
template <class Lanes>
struct CandidateScorer {
    using Floats = typename Lanes::Floats;
    using Doubles = typename Lanes::Doubles;

    /// A difference of which the scored pixel, v, is sample `Role` (0: v - other, 1: other - v).
    template <int Role>
    static Floats differenceWith(Floats v, float other) {
        static_assert(Role == 0 || Role == 1);
        if constexpr (Role == 0) {
            return Lanes::sub(v, Lanes::set(other));
        } else {
            return Lanes::sub(Lanes::set(other), v);
        }
    }

    /// stencilGradientMagnitude of one channel at stencil point S, v its scored sample.
    template <int S>
    static Floats gradient(const GradientConstants& g, Floats v) {
        constexpr int first = Roles.firstGradient[S];
        static_assert(first < 4, "every gradient magnitude of the stencil reads the pixel");
        const auto square = [&](auto index) {
            constexpr int i = decltype(index)::value;
            if constexpr (Roles.gradient[S][i] < 0) {
                return Lanes::set(g.square[i]);
            } else {
                const Floats d = differenceWith<Roles.gradient[S][i]>(v, g.other[i]);
                return Lanes::mul(d, d);
            }
        };
        Floats sum = square(std::integral_constant<int, first>{});
        if constexpr (first > 0) {
            sum = Lanes::add(Lanes::set(g.head), sum);
        }
        unrolled<4>([&](auto index) {
            if constexpr (decltype(index)::value > first) {
                sum = Lanes::add(sum, square(index));
            }
        });
        return Lanes::narrow(Lanes::mul(Lanes::sqrt(Lanes::widen(sum)), Lanes::set(RootHalf)));
    }

    /// sqrt(g * g + eps2), g the root of `squared` stored as float.
    static Doubles regularisedMagnitude(Doubles squared, Doubles eps2) {
        const Doubles g = Lanes::widen(Lanes::narrow(Lanes::sqrt(squared)));
        return Lanes::sqrt(Lanes::add(Lanes::mul(g, g), eps2));
    }

    /// curvatureTerm of edge K at stencil point S.
    template <int S, int K>
    static Doubles curvatureTerm(const EdgeConstants& e, Floats v, Doubles eps2) {
        constexpr int dRole = Roles.edgeDifference[S][K];
        constexpr int tRole = Roles.transverse[S][K];
        static_assert(dRole < 0 || tRole < 0, "no edge reads the scored pixel twice");
        if constexpr (dRole >= 0) {
            const Floats d = differenceWith<dRole>(v, e.other);
            const Doubles squared =
                Lanes::add(Lanes::widen(Lanes::mul(d, d)), Lanes::set(e.quarterSquared));
            return Lanes::div(Lanes::widen(d), regularisedMagnitude(squared, eps2));
        } else if constexpr (tRole >= 0) {
            // Around a neighbour the scored pixel is the second or the last sample of t.
            static_assert(tRole == 1 || tRole == 3);
            Floats t;
            if constexpr (tRole == 1) {
                t = Lanes::sub(Lanes::sub(Lanes::add(Lanes::set(e.transverse[0]), v),
                                          Lanes::set(e.transverse[1])),
                               Lanes::set(e.transverse[2]));
            } else {
                t = Lanes::sub(Lanes::set(e.transverse[0]), v);
            }
            const Doubles quarter = Lanes::mul(Lanes::set(0.25), Lanes::widen(t));
            const Doubles squared =
                Lanes::add(Lanes::set(e.differenceSquared), Lanes::mul(quarter, quarter));
            return Lanes::div(Lanes::set(e.difference), regularisedMagnitude(squared, eps2));
        } else {
            return Lanes::set(e.term);
        }
    }

    /// curvatureAt of one channel at stencil point S.
    template <int S>
    static Doubles curvature(const CurvatureConstants& k, Floats v, Doubles eps2) {
        constexpr int first = Roles.firstEdge[S];
        Doubles sum = Lanes::set(k.head);
        unrolled<4>([&](auto index) {
            constexpr int edge = decltype(index)::value;
            if constexpr (edge >= first) {
                sum = Lanes::add(sum, curvatureTerm<S, edge>(k.edge[edge], v, eps2));
            }
        });
        return sum;
    }

    /// Scores `count` candidates from colours[0 .. 3 count - 1] into out[0 .. count - 1].
    static void energy(const ElasticaConstants& constants, const float* colours, double* out) {
        const Floats v[3] = {Lanes::colour(colours, 0), Lanes::colour(colours, 1),
                             Lanes::colour(colours, 2)};
        const Doubles eps2 = Lanes::set(constants.epsilonSquared);
        const Doubles weight = Lanes::set(constants.weight);
        Doubles energy = Lanes::set(0.0);
        unrolled<StencilPoints>([&](auto point) {
            constexpr int s = decltype(point)::value;
            Doubles density = Lanes::set(0.0);
            for (int c = 0; c < 3; ++c) {
                const Doubles kappa = curvature<s>(constants.curvatures[s][c], v[c], eps2);
                const Doubles g = Lanes::widen(gradient<s>(constants.gradients.at[s][c], v[c]));
                // (1 + b * (kappa * kappa)) * G, all in double.
                const Doubles factor =
                    Lanes::add(Lanes::set(1.0), Lanes::mul(weight, Lanes::mul(kappa, kappa)));
                density = Lanes::add(density, Lanes::mul(factor, g));
            }
            energy = Lanes::add(energy, density);
        });
        Lanes::store(out, energy);
    }

    static void totalVariation(const StencilGradients& gradients, const float* colours,
                               double* out) {
        const Floats v[3] = {Lanes::colour(colours, 0), Lanes::colour(colours, 1),
                             Lanes::colour(colours, 2)};
        Doubles total = Lanes::set(0.0);
        unrolled<StencilPoints>([&](auto point) {
            constexpr int s = decltype(point)::value;
            for (int c = 0; c < 3; ++c) {
                total = Lanes::add(total, Lanes::widen(gradient<s>(gradients.at[s][c], v[c])));
            }
        });
        Lanes::store(out, total);
    }
};

/// Runs `score` on every `Lanes::count` colours; a last, partial group is scored padded
/// with copies of the last colour.
template <class Lanes, auto Score, class Constants>
void scoreAll(const Constants& constants, const float* colours, std::size_t n, double* out) {
    std::size_t i = 0;
    for (; i + Lanes::count <= n; i += Lanes::count) {
        Score(constants, colours + 3 * i, out + i);
    }
    if constexpr (Lanes::count > 1) {
        if (i < n) {
            float padded[3 * Lanes::count];
            double scores[Lanes::count];
            for (std::size_t j = 0; j < Lanes::count; ++j) {
                const std::size_t from = i + j < n ? i + j : n - 1;
                for (int c = 0; c < 3; ++c) {
                    padded[3 * j + c] = colours[3 * from + c];
                }
            }
            Score(constants, padded, scores);
            for (std::size_t j = 0; i + j < n; ++j) {
                out[i + j] = scores[j];
            }
        }
    }
}

template <class Lanes>
constexpr CandidateKernels candidateKernelsFor() {
    using Scorer = CandidateScorer<Lanes>;
    return {&scoreAll<Lanes, &Scorer::energy, ElasticaConstants>,
            &scoreAll<Lanes, &Scorer::totalVariation, StencilGradients>};
}

}  // namespace
}  // namespace quorblen::detail
