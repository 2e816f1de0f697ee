// Explicit flow steps of inpainting: Euler's elastica and the TV flow.
#include "inpaint/FlowSteps.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "inpaint/KernelSupport.h"

namespace quorblen {
namespace {

/// A one-sample-per-pixel field of the image's size, cleared to 0: the steps fill it at band
/// pixels only but read it around every listed pixel too.
ImageBuffer clearedField(const ImageBuffer& like) {
    ImageBuffer field(like.width, like.height, 1);
    std::fill_n(field.data, static_cast<std::size_t>(like.width) * like.height, 0.0f);
    return field;
}

/// -1 for negative values, +1 otherwise (zero included).
float sign(float z) {
    return z < 0.0f ? -1.0f : 1.0f;
}

/// Minmod scaled by `half`: 0 when a and b differ in sign, else their smaller magnitude with
/// that sign, times 2 * half. Single precision.
float scaledMinmod(float a, float b, float half) {
    return (sign(a) + sign(b)) * half * std::min(std::fabs(a), std::fabs(b));
}

/// Difference along the axis of edge k: forward f(q) - f(p) for k = 0, 1, f(p) - f(q) for
/// k = 2, 3.
float orientedDifference(const detail::PlaneAt& f, int k) {
    const float here = f(0, 0);
    const float there = f(NeighbourOffsets[k]);
    return k < 2 ? there - here : here - there;
}

/// Transverse derivative across edge k by the halved minmod of the two differences taken
/// along it.
float transverseDerivative(const detail::PlaneAt& f, int k) {
    const auto& t = TransverseOffsets[k];
    return scaledMinmod(f(t[0]) - f(t[2]), f(t[1]) - f(t[3]), 0.25f);
}

}  // namespace

double elasticaInpaintStep(const ImageBuffer& /*mask*/, const ImageBuffer& current,
                           ImageBuffer& next, int c, int /*alphaChannel*/,
                           const PixelList& pix_list, const BandList& band_list, double /*lambda*/,
                           double epsilon, double timeStep) {
    assert(detail::sameLayout(current, next));
    assert(c >= 0 && c < current.channels);
    // The curvature regularises with epsilon squared; the flux norms and the final factor
    // take epsilon itself.
    const double eps2 = detail::squaredInFloat(epsilon);
    ImageBuffer gradientField = clearedField(current);
    ImageBuffer curvatureField = clearedField(current);
    ImageBuffer productField = clearedField(current);

    for (const PixelCoord& p : band_list) {
        assert(detail::keepsMargin(current, p.x, p.y, 1));
        const detail::PlaneAt u(current, p.x, p.y, c);
        const float gx = u(+1, 0) - u(-1, 0);
        const float gy = u(0, +1) - u(0, -1);
        // Sum of squares in single precision, root and halving in double, stored as float.
        const float g = static_cast<float>(0.5 * std::sqrt(static_cast<double>(gx * gx + gy * gy)));
        const float k = static_cast<float>(detail::curvatureAt(u, eps2));
        const std::ptrdiff_t i = detail::sampleIndex(gradientField, p.x, p.y, 0);
        gradientField.data[i] = g;
        curvatureField.data[i] = k;
        productField.data[i] = k * g;
    }

    double maxChange = 0.0;
    for (const PixelEntry& p : pix_list) {
        assert(detail::keepsMargin(current, p.x, p.y, 1));
        const detail::PlaneAt u(current, p.x, p.y, c);
        const detail::PlaneAt curv(curvatureField, p.x, p.y, 0);
        const detail::PlaneAt kg(productField, p.x, p.y, 0);
        double flux[4];
        for (int k = 0; k < 4; ++k) {
            const double un = orientedDifference(u, k);
            const double kn = orientedDifference(kg, k);
            const double ut = transverseDerivative(u, k);
            const double kt = transverseDerivative(kg, k);
            const float edgeKappa = scaledMinmod(curv(NeighbourOffsets[k]), curv(0, 0), 0.5f);
            // kappa is squared in single precision before it enters the double flux.
            const double kappa2 = edgeKappa * edgeKappa;
            const double r = std::sqrt((un * un + ut * ut) + epsilon);
            const double r3 = (r * r) * r;
            flux[k] = (un * (30.0 * kappa2 + 1.0)) / r + ((60.0 / r3) * ut) * (un * kt - ut * kn);
        }
        const double div = ((flux[0] + flux[1]) - flux[2]) - flux[3];
        const double g = gradientField.data[detail::sampleIndex(gradientField, p.x, p.y, 0)];
        const float u0 = u(0, 0);
        const double unew = ((div * timeStep) * (g + epsilon)) + static_cast<double>(u0);
        maxChange = detail::storeAndTrack(next.data[detail::sampleIndex(next, p.x, p.y, c)], u0,
                                          unew, maxChange);
    }
    return maxChange;
}

double tvFlowInpaintStep(const ImageBuffer& /*mask*/, const ImageBuffer& current, ImageBuffer& next,
                         int c, int /*alphaChannel*/, const PixelList& pix_list,
                         const BandList& band_list, double /*lambda*/, double epsilon,
                         double timeStep) {
    assert(detail::sameLayout(current, next));
    assert(c >= 0 && c < current.channels);
    ImageBuffer normalX = clearedField(current);
    ImageBuffer normalY = clearedField(current);

    for (const PixelCoord& p : band_list) {
        assert(p.x >= 0 && p.y >= 0 && p.x <= current.width - 2 && p.y <= current.height - 2);
        const detail::PlaneAt u(current, p.x, p.y, c);
        const float ux = u(+1, 0) - u(0, 0);
        const float uy = u(0, +1) - u(0, 0);
        // Sum of squares in single precision; epsilon enters unsquared.
        const double m = std::sqrt(static_cast<double>(ux * ux + uy * uy) + epsilon);
        const std::ptrdiff_t i = detail::sampleIndex(normalX, p.x, p.y, 0);
        normalX.data[i] = static_cast<float>(ux / m);
        normalY.data[i] = static_cast<float>(uy / m);
    }

    double maxChange = 0.0;
    for (const PixelEntry& p : pix_list) {
        assert(p.x >= 1 && p.y >= 1 && p.x < std::uint32_t(current.width) &&
               p.y < std::uint32_t(current.height));
        const detail::PlaneAt nx(normalX, p.x, p.y, 0);
        const detail::PlaneAt ny(normalY, p.x, p.y, 0);
        const float div = ((nx(0, 0) - nx(-1, 0)) + ny(0, 0)) - ny(0, -1);
        const float u0 = current.data[detail::sampleIndex(current, p.x, p.y, c)];
        const double unew = static_cast<double>(div) * timeStep + static_cast<double>(u0);
        maxChange = detail::storeAndTrack(next.data[detail::sampleIndex(next, p.x, p.y, c)], u0,
                                          unew, maxChange);
    }
    return maxChange;
}

}  // namespace quorblen
