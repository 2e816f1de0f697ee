// The elastica energy density and its five-point sum.
#include "inpaint/ElasticaEnergy.h"

#include <cassert>

#include "inpaint/KernelSupport.h"

namespace quorblen {
namespace {

/// The density with epsilon already squared (in single precision) and the weight widened.
double densityAt(const ImageBuffer& img, std::ptrdiff_t x, std::ptrdiff_t y, double eps2,
                 double weight) {
    double density = 0.0;
    for (int c = 0; c < 3; ++c) {
        density += detail::elasticaChannelDensity(detail::PlaneAt(img, x, y, c), eps2, weight);
    }
    return density;
}

}  // namespace

double elasticaDensity(const ImageBuffer& img, std::uint32_t x, std::uint32_t y, float epsilon,
                       float curvatureWeight) {
    assert(img.channels >= 3 && detail::keepsMargin(img, x, y, 1));
    return densityAt(img, x, y, detail::squaredInFloat(epsilon), curvatureWeight);
}

double elasticaEnergy(const ImageBuffer& img, std::uint32_t x, std::uint32_t y, float epsilon,
                      float curvatureWeight) {
    assert(img.channels >= 3 && detail::keepsMargin(img, x, y, 2));
    const double eps2 = detail::squaredInFloat(epsilon);
    double energy = 0.0;
    for (const Offset& q : detail::FivePointStencil) {
        energy += densityAt(img, std::ptrdiff_t(x) + q.dx, std::ptrdiff_t(y) + q.dy, eps2,
                            curvatureWeight);
    }
    return energy;
}

}  // namespace quorblen
