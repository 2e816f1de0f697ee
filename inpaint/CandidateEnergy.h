// The local measures by which the fill passes judge a colour for one pixel (elastica energy,
// local total variation), for many candidate colours at once; not part of the library's
// interface.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/ImageBuffer.h"

namespace quorblen::detail {

/// The pixel and its four neighbours, in the order the measures sum them.
inline constexpr int StencilPoints = 5;

/// What one channel's stencilGradientMagnitude at one stencil point keeps from candidate to
/// candidate. Of its one-sided differences (right, left, down, up), those that read the pixel
/// being scored are taken per candidate against `other`; the rest are squared once, and the
/// squares summed up to the first difference that reads it.
struct GradientConstants {
    float other[4];   // a difference reading the scored pixel: the sample it takes with it
    float square[4];  // a difference that does not: its square, in single precision
    float head;       // the squares before the first difference reading the scored pixel
};

/// What one term of curvatureAt (one channel, one stencil point, edge k) keeps from candidate
/// to candidate: the whole term when it does not read the scored pixel; otherwise the parts
/// of the edge difference d and of the transverse sum t that do not.
struct EdgeConstants {
    double term;               // no sample is the scored pixel: the term itself
    double difference;         // t reads it: double(d)
    double differenceSquared;  // and double(d * d)
    double quarterSquared;     // d reads it: (t/4)^2
    float other;               // and the other sample of d
    float transverse[3];       // t reads it: what of t comes before and after it
};

/// One channel's curvatureAt at one stencil point: its terms and their sum up to the first
/// term that reads the scored pixel.
struct CurvatureConstants {
    EdgeConstants edge[4];
    double head;
};

/// The gradient magnitudes of the five stencil points, channels 0-2.
struct StencilGradients {
    GradientConstants at[StencilPoints][3];
};

/// Everything of elasticaEnergy at one pixel that does not depend on the pixel's own colour.
struct ElasticaConstants {
    StencilGradients gradients;
    CurvatureConstants curvatures[StencilPoints][3];
    double epsilonSquared;  // epsilon squared in single precision, widened
    double weight;          // the curvature weight, widened
};

/// Candidate scorers of one instruction set. Each takes n colours (3 floats each, channels
/// 0-2, one after another) and writes n scores; every instruction set gives the same bits.
struct CandidateKernels {
    void (*energy)(const ElasticaConstants& constants, const float* colours, std::size_t n,
                   double* energies);
    void (*totalVariation)(const StencilGradients& gradients, const float* colours, std::size_t n,
                           double* variations);
};

/// One candidate at a time in plain C++, the operations of the vector kernels one lane wide:
/// the fallback.
extern const CandidateKernels scalarCandidateKernels;
/// Two candidates at a time in SSE2 lanes, for every x86-64 processor.
extern const CandidateKernels sseCandidateKernels;
/// Four candidates at a time in AVX2 lanes; run them only where `avx2Available()`
/// (tv/RowKernels.h).
extern const CandidateKernels avx2CandidateKernels;
/// The widest kernels this processor runs.
const CandidateKernels& fastestCandidateKernels();

/// Scores of candidate colours for one pixel by one measure, from the constant parts the
/// measure keeps at that pixel; `Kernel` is the scorer of the measure in a CandidateKernels.
template <class Constants, auto Kernel>
class CandidateScores {
public:
    /// scores[i] = the measure with colour colours[3i .. 3i+2] (channels 0-2) at the pixel,
    /// for i < n.
    void score(const float* colours, std::size_t n, double* scores) const {
        score(fastestCandidateKernels(), colours, n, scores);
    }
    /// The same with the given kernels.
    void score(const CandidateKernels& kernels, const float* colours, std::size_t n,
               double* scores) const {
        (kernels.*Kernel)(m_constants, colours, n, scores);
    }

protected:
    Constants m_constants;
};

/// elasticaEnergy(image, x, y, epsilon, curvatureWeight) for candidate colours of pixel
/// (x, y). Made once per pixel from the image, after which the image may change anywhere, the
/// pixel itself included (its colour is never read): scores are those of the image as it
/// stood, with each candidate written at (x, y), to the bit.
/// Precondition: at least 3 channels and (x, y) at least two pixels inside every edge.
class CandidateEnergy : public CandidateScores<ElasticaConstants, &CandidateKernels::energy> {
public:
    CandidateEnergy(const ImageBuffer& image, std::uint32_t x, std::uint32_t y, float epsilon,
                    float curvatureWeight);
};

/// localTotalVariation(image, x, y) for candidate colours of pixel (x, y), made once per pixel
/// as CandidateEnergy is.
/// Precondition: at least 3 channels and (x, y) at least two pixels inside every edge.
class CandidateTotalVariation
    : public CandidateScores<StencilGradients, &CandidateKernels::totalVariation> {
public:
    CandidateTotalVariation(const ImageBuffer& image, int x, int y);

    /// The gradient magnitudes, stencil point by stencil point, that channel c of a candidate
    /// adds to its score when its value is v: they depend on nothing else.
    void channelGradients(int c, float v, float gradients[StencilPoints]) const;

    /// The score of a candidate from the gradients of its channels 0-2 (channelGradients), to
    /// the bit: added in the kernels' order.
    static double fromGradients(const float* const gradients[3]) {
        double total = 0.0;
        for (int s = 0; s < StencilPoints; ++s) {
            for (int c = 0; c < 3; ++c) {
                total += static_cast<double>(gradients[c][s]);
            }
        }
        return total;
    }
};

}  // namespace quorblen::detail
