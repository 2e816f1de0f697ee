// Digital TV filter steps, anisotropic diffusion and the local variation measures.
#include "inpaint/DiffusionKernels.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "inpaint/KernelSupport.h"

namespace quorblen {
namespace {

/// The weighted mean of the TV filter: (selfWeight * self + sum of w_k * u(p + n_k)) / S with
/// S = w_0 + w_1 + w_2 + w_3 + selfWeight, every term divided by S first and added in order.
double tvWeightedMean(const detail::PlaneAt& u, const double (&w)[4], double selfWeight,
                      double self) {
    const double s = (((w[0] + w[1]) + w[2]) + w[3]) + selfWeight;
    double mean = (selfWeight / s) * self;
    for (int k = 0; k < 4; ++k) {
        mean += (w[k] / s) * static_cast<double>(u(NeighbourOffsets[k]));
    }
    return mean;
}

}  // namespace

double tvInpaintStep(const ImageBuffer& /*mask*/, const ImageBuffer& current, ImageBuffer& next,
                     int c, int alphaChannel, const PixelList& pix_list, double lambda,
                     double epsilon) {
    assert(detail::sameLayout(current, next));
    assert(c >= 0 && c < current.channels && alphaChannel >= 0 && alphaChannel < current.channels);
    const double eps2 = detail::squaredInFloat(epsilon);
    double maxChange = 0.0;
    for (const PixelEntry& entry : pix_list) {
        assert(detail::keepsMargin(current, entry.x, entry.y, 1));
        const detail::PlaneAt u(current, entry.x, entry.y, c);
        const float u0 = u(0, 0);
        const float alpha =
            current.data[detail::sampleIndex(current, entry.x, entry.y, alphaChannel)];
        // The fidelity weight is rounded to float before it enters the double sums.
        const float lambdaE = static_cast<float>((1.0 - static_cast<double>(alpha)) * lambda);
        double w[4];
        for (int k = 0; k < 4; ++k) {
            const double g = detail::edgeTerms(u, k).g;
            w[k] = 1.0 / std::sqrt(g * g + eps2);
        }
        const double unew = tvWeightedMean(u, w, lambdaE, u0);
        maxChange = detail::storeAndTrack(next.data[detail::sampleIndex(next, entry.x, entry.y, c)],
                                          u0, unew, maxChange);
    }
    return maxChange;
}

double localGradientMagnitude(const ImageBuffer& image, int x, int y, int c, double epsilon) {
    assert(detail::keepsMargin(image, x, y, 0));
    assert(c >= 0 && c < image.channels);
    const double u = image.data[detail::sampleIndex(image, x, y, c)];
    double sum = 0.0;
    for (const Offset& n : NeighbourOffsets) {
        const int qx = std::clamp(x + n.dx, 0, image.width - 1);
        const int qy = std::clamp(y + n.dy, 0, image.height - 1);
        const double d = static_cast<double>(image.data[detail::sampleIndex(image, qx, qy, c)]) - u;
        sum += d * d;
    }
    // epsilon^2 comes last, after the four squared differences.
    return std::sqrt(sum + epsilon * epsilon);
}

double tvDenoiseStep(const ImageBuffer& observed, const ImageBuffer& current, ImageBuffer& next,
                     ImageBuffer& gradient, int c, double lambda, double epsilon) {
    assert(detail::sameLayout(observed, current) && detail::sameLayout(current, next));
    assert(gradient.width == current.width && gradient.height == current.height);
    assert(gradient.channels > 0 && c >= 0 && c < current.channels);
    for (int y = 0; y < current.height; ++y) {
        for (int x = 0; x < current.width; ++x) {
            gradient.data[detail::sampleIndex(gradient, x, y, 0)] =
                static_cast<float>(localGradientMagnitude(current, x, y, c, epsilon));
        }
    }
    double maxChange = 0.0;
    for (int y = 1; y < current.height - 1; ++y) {
        for (int x = 1; x < current.width - 1; ++x) {
            const detail::PlaneAt g(gradient, x, y, 0);
            const detail::PlaneAt u(current, x, y, c);
            const double inverseHere = 1.0 / static_cast<double>(g(0, 0));
            double w[4];
            for (int k = 0; k < 4; ++k) {
                w[k] = inverseHere + 1.0 / static_cast<double>(g(NeighbourOffsets[k]));
            }
            const double f = observed.data[detail::sampleIndex(observed, x, y, c)];
            const double unew = tvWeightedMean(u, w, lambda, f);
            maxChange = detail::storeAndTrack(next.data[detail::sampleIndex(next, x, y, c)],
                                              u(0, 0), unew, maxChange);
        }
    }
    return maxChange;
}

double peronaMalikStep(const ImageBuffer& current, ImageBuffer& next, int c, double timeStep,
                       double K) {
    assert(detail::sameLayout(current, next));
    assert(c >= 0 && c < current.channels);
    if (K <= 0.0) {
        K = 0.01;
    }
    for (int y = 1; y < current.height - 1; ++y) {
        for (int x = 1; x < current.width - 1; ++x) {
            const detail::PlaneAt u(current, x, y, c);
            const double here = u(0, 0);
            double flux = 0.0;
            for (const Offset& n : NeighbourOffsets) {
                const double d = static_cast<double>(u(n)) - here;
                const double ratio = std::fabs(d) / K;
                flux += std::exp(-(ratio * ratio)) * d;
            }
            next.data[detail::sampleIndex(next, x, y, c)] =
                static_cast<float>(flux * timeStep + here);
        }
    }
    return 0.0;
}

double localTotalVariation(const ImageBuffer& image, int x, int y) {
    assert(image.channels >= 3);
    assert(detail::keepsMargin(image, x, y, 2));
    double total = 0.0;
    for (const Offset& q : detail::FivePointStencil) {
        for (int c = 0; c < 3; ++c) {
            total +=
                detail::stencilGradientMagnitude(detail::PlaneAt(image, x + q.dx, y + q.dy, c));
        }
    }
    return total;
}

}  // namespace quorblen
