// Helpers the inpainting kernels and the driver share; not part of the library's interface.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"
#include "tv/Offsets.h"

namespace quorblen::detail {

/// The pixel and its four neighbours, in the order the stencil sums are taken in.
inline constexpr std::array<Offset, 5> FivePointStencil{
    {{0, 0}, NeighbourOffsets[0], NeighbourOffsets[1], NeighbourOffsets[2], NeighbourOffsets[3]}};

/// Six times the smallest normal double: a patch comparison's weight sum this small means no
/// pair counted.
inline constexpr double TinyWeightSum = 0x1.8p-1020;

/// Index of sample c of pixel (x, y) in image.data.
inline std::ptrdiff_t sampleIndex(const ImageBuffer& image, std::ptrdiff_t x, std::ptrdiff_t y,
                                  int c) {
    return y * image.stride + x * image.channels + c;
}

/// Whether two images share width, height and channel count.
inline bool sameLayout(const ImageBuffer& a, const ImageBuffer& b) {
    return a.width == b.width && a.height == b.height && a.channels == b.channels;
}

/// Whether (x, y) keeps at least `margin` pixels from every edge of the image.
inline bool keepsMargin(const ImageBuffer& image, long long x, long long y, int margin) {
    return x >= margin && y >= margin && x < image.width - margin && y < image.height - margin;
}

/// sqrt(1/2) rounded to float, widened: the gradient magnitude's scale.
inline constexpr double RootHalf = static_cast<double>(0.70710677f);

/// One channel plane of an image seen from one pixel: u(dx, dy) is the sample at that
/// offset, read without bounds checks.
struct PlaneAt {
    const float* p;
    std::ptrdiff_t xstep;
    std::ptrdiff_t ystep;

    PlaneAt(const ImageBuffer& image, std::ptrdiff_t x, std::ptrdiff_t y, int c)
        : p(image.data + sampleIndex(image, x, y, c)), xstep(image.channels), ystep(image.stride) {}

    float operator()(Offset o) const { return p[o.dx * xstep + o.dy * ystep]; }
    float operator()(int dx, int dy) const { return p[dx * xstep + dy * ystep]; }
};

/// The difference to neighbour k and the gradient magnitude at the midpoint of that edge.
struct EdgeTerms {
    float d;
    float g;
};

/// The transverse sum across the edge to neighbour k, in single precision.
inline float transverseSum(const PlaneAt& u, int k) {
    const auto& t = TransverseOffsets[k];
    return ((u(t[0]) + u(t[1])) - u(t[2])) - u(t[3]);
}

/// (t/4)^2 in double of a transverse sum t.
inline double quarterSquared(float across) {
    const double quarter = 0.25 * static_cast<double>(across);
    return quarter * quarter;
}

/// The difference to neighbour k, u(p + n_k) - u(p), in single precision.
inline float edgeDifference(const PlaneAt& u, int k) {
    return u(NeighbourOffsets[k]) - u(0, 0);
}

/// d and the transverse sum are single precision; the magnitude sqrt(d*d + (t/4)^2) is taken
/// in double (d*d still a float product) and stored as float.
inline EdgeTerms edgeTerms(const PlaneAt& u, int k) {
    const float d = edgeDifference(u, k);
    return {d, static_cast<float>(
                   std::sqrt(static_cast<double>(d * d) + quarterSquared(transverseSum(u, k))))};
}

/// One term of the curvature: the edge difference over its regularised edge magnitude.
inline double curvatureTerm(EdgeTerms e, double eps2) {
    const double g = e.g;
    return static_cast<double>(e.d) / std::sqrt(g * g + eps2);
}

/// Curvature of the level lines at the pixel: the four curvature terms summed in double from
/// 0.0 in the order k = 0..3. `eps2` is the regulariser already squared.
inline double curvatureAt(const PlaneAt& u, double eps2) {
    double sum = 0.0;
    for (int k = 0; k < 4; ++k) {
        sum += curvatureTerm(edgeTerms(u, k), eps2);
    }
    return sum;
}

/// The samples of the four one-sided differences of the gradient magnitude (right, left, down,
/// up), minuend first.
inline constexpr Offset GradientDifferences[4][2] = {
    {{+1, 0}, {0, 0}}, {{0, 0}, {-1, 0}}, {{0, +1}, {0, 0}}, {{0, 0}, {0, -1}}};

/// One-sided difference i of the gradient magnitude, in single precision.
inline float oneSidedDifference(const PlaneAt& u, int i) {
    return u(GradientDifferences[i][0]) - u(GradientDifferences[i][1]);
}

/// Gradient magnitude from the four one-sided differences at the pixel (right, left, down, up):
/// squares summed in single precision in that order, the root taken in double and scaled by
/// sqrt(1/2) rounded to float, stored as float.
inline float stencilGradientMagnitude(const PlaneAt& u) {
    float d[4];
    for (int i = 0; i < 4; ++i) {
        d[i] = oneSidedDifference(u, i);
    }
    const float sum = ((d[0] * d[0] + d[1] * d[1]) + d[2] * d[2]) + d[3] * d[3];
    return static_cast<float>(std::sqrt(static_cast<double>(sum)) * RootHalf);
}

/// Channel u's share of the elastica energy density at its pixel: (1 + weight * kappa^2) * G
/// in double, kappa the curvature (squared first) and G the stencil gradient magnitude.
inline double elasticaChannelDensity(const PlaneAt& u, double eps2, double weight) {
    const double kappa = curvatureAt(u, eps2);
    return (1.0 + weight * (kappa * kappa)) * static_cast<double>(stencilGradientMagnitude(u));
}

/// The square of epsilon taken in single precision, then widened.
inline double squaredInFloat(double epsilon) {
    const float e = static_cast<float>(epsilon);
    return static_cast<double>(e * e);
}

/// Stores `unew` rounded to float into `out` and returns the running maximum of |u - unew|,
/// taken before rounding; a NaN difference never replaces the maximum.
inline double storeAndTrack(float& out, float u, double unew, double maxChange) {
    out = static_cast<float>(unew);
    return std::max(maxChange, std::fabs(static_cast<double>(u) - unew));
}

}  // namespace quorblen::detail
