// The candidate scorers in plain C++ and on two-lane SSE2 vectors, the constant parts they
// share, and the choice of scorers at run time.
#include "inpaint/CandidateEnergy.h"

#include <cassert>
#include <cmath>

#include "image/SseVectors.h"
#include "inpaint/CandidateEnergyBody.h"
#include "tv/RowKernels.h"

namespace quorblen::detail {
namespace {

struct ScalarLanes {
    using Floats = float;
    using Doubles = double;
    static constexpr std::size_t count = 1;

    static Floats set(float value) { return value; }
    static Doubles set(double value) { return value; }
    static Floats add(Floats a, Floats b) { return a + b; }
    static Doubles add(Doubles a, Doubles b) { return a + b; }
    static Floats sub(Floats a, Floats b) { return a - b; }
    static Doubles sub(Doubles a, Doubles b) { return a - b; }
    static Floats mul(Floats a, Floats b) { return a * b; }
    static Doubles mul(Doubles a, Doubles b) { return a * b; }
    static Doubles div(Doubles a, Doubles b) { return a / b; }
    static Doubles sqrt(Doubles v) { return std::sqrt(v); }
    static Doubles widen(Floats v) { return v; }
    static Floats narrow(Doubles v) { return static_cast<float>(v); }
    static Floats colour(const float* colours, int c) { return colours[c]; }
    static void store(double* out, Doubles v) { *out = v; }
};

// Two candidates in the low lanes of the float vectors; the high lanes idle.
struct SseLanes : SseVectors {
    static constexpr std::size_t count = 2;

    static Doubles widen(Floats v) { return widenLow(v); }
    static Floats colour(const float* colours, int c) {
        return _mm_setr_ps(colours[c], colours[3 + c], 0.0f, 0.0f);
    }
};

/// The constant part of stencilGradientMagnitude of channel c at stencil point s around
/// (x, y).
GradientConstants gradientConstants(const ImageBuffer& image, std::ptrdiff_t x, std::ptrdiff_t y,
                                    int s, int c) {
    const Offset q = FivePointStencil[s];
    const PlaneAt u(image, x + q.dx, y + q.dy, c);
    GradientConstants g{};
    for (int i = 0; i < 4; ++i) {
        const int role = Roles.gradient[s][i];
        if (role >= 0) {
            g.other[i] = u(GradientDifferences[i][1 - role]);
        } else {
            const float d = oneSidedDifference(u, i);
            g.square[i] = d * d;
        }
    }
    const int first = Roles.firstGradient[s];
    if (first > 0) {
        g.head = g.square[0];
        for (int i = 1; i < first; ++i) {
            g.head += g.square[i];
        }
    }
    return g;
}

StencilGradients stencilGradients(const ImageBuffer& image, std::ptrdiff_t x, std::ptrdiff_t y) {
    StencilGradients gradients;
    for (int s = 0; s < StencilPoints; ++s) {
        for (int c = 0; c < 3; ++c) {
            gradients.at[s][c] = gradientConstants(image, x, y, s, c);
        }
    }
    return gradients;
}

/// The constant part of curvatureTerm of edge k at stencil point s, u seen from that point.
EdgeConstants edgeConstants(const PlaneAt& u, int s, int k, double eps2) {
    EdgeConstants e{};
    const int dRole = Roles.edgeDifference[s][k];
    const int tRole = Roles.transverse[s][k];
    const auto& t = TransverseOffsets[k];
    if (dRole >= 0) {
        e.other = dRole == 0 ? u(0, 0) : u(NeighbourOffsets[k]);
        e.quarterSquared = quarterSquared(transverseSum(u, k));
    } else if (tRole >= 0) {
        const float d = edgeDifference(u, k);
        e.difference = d;
        e.differenceSquared = static_cast<double>(d * d);
        if (tRole == 1) {
            e.transverse[0] = u(t[0]);
            e.transverse[1] = u(t[2]);
            e.transverse[2] = u(t[3]);
        } else {
            assert(tRole == 3);
            e.transverse[0] = (u(t[0]) + u(t[1])) - u(t[2]);
        }
    } else {
        e.term = curvatureTerm(edgeTerms(u, k), eps2);
    }
    return e;
}

}  // namespace

CandidateEnergy::CandidateEnergy(const ImageBuffer& image, std::uint32_t x, std::uint32_t y,
                                 float epsilon, float curvatureWeight) {
    assert(image.channels >= 3 && keepsMargin(image, x, y, 2));
    m_constants.gradients = stencilGradients(image, x, y);
    m_constants.epsilonSquared = squaredInFloat(epsilon);
    m_constants.weight = curvatureWeight;
    for (int s = 0; s < StencilPoints; ++s) {
        const Offset q = FivePointStencil[s];
        for (int c = 0; c < 3; ++c) {
            const PlaneAt u(image, std::ptrdiff_t(x) + q.dx, std::ptrdiff_t(y) + q.dy, c);
            CurvatureConstants& curvature = m_constants.curvatures[s][c];
            curvature.head = 0.0;
            for (int k = 0; k < 4; ++k) {
                curvature.edge[k] = edgeConstants(u, s, k, m_constants.epsilonSquared);
                if (k < Roles.firstEdge[s]) {
                    curvature.head += curvature.edge[k].term;
                }
            }
        }
    }
}

CandidateTotalVariation::CandidateTotalVariation(const ImageBuffer& image, int x, int y) {
    assert(image.channels >= 3 && keepsMargin(image, x, y, 2));
    m_constants = stencilGradients(image, x, y);
}

void CandidateTotalVariation::channelGradients(int c, float v,
                                               float gradients[StencilPoints]) const {
    assert(c >= 0 && c < 3);
    unrolled<StencilPoints>([&](auto point) {
        constexpr int s = decltype(point)::value;
        gradients[s] = CandidateScorer<ScalarLanes>::gradient<s>(m_constants.at[s][c], v);
    });
}

constinit const CandidateKernels scalarCandidateKernels = candidateKernelsFor<ScalarLanes>();
constinit const CandidateKernels sseCandidateKernels = candidateKernelsFor<SseLanes>();

const CandidateKernels& fastestCandidateKernels() {
    // Decided once: the processor does not change under a running program.
    static const CandidateKernels& fastest =
        avx2Available() ? avx2CandidateKernels : sseCandidateKernels;
    return fastest;
}

}  // namespace quorblen::detail
