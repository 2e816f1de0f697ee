// Candidate colours tried at the pixel being filled, in each thread's own copy of its
// neighbourhood; not part of the library's interface.
#pragma once

#include <vector>

#include "image/ImageBuffer.h"

namespace quorblen::detail {

/// Per worker, the colours (channels 0-2) of the 5 x 5 pixels around the pixel being filled:
/// all that elasticaEnergy and localTotalVariation read there. A colour tried at the centre of
/// a copy gives the energy the image would give with that colour at the pixel, without
/// writing the image, so threads try colours side by side.
class EnergyTrials {
public:
    /// Copies for `workers` threads; `epsilon` and `curvatureWeight` as EnergyProbe keeps them.
    EnergyTrials(int workers, double epsilon, double curvatureWeight);

    /// Every worker's copy of the neighbourhood of (x, y) in `image`, which must lie at least
    /// 2 pixels inside it.
    void load(const ImageBuffer& image, int x, int y);

    /// elasticaEnergy with `colour` (3 samples) at the centre of worker `worker`'s copy.
    double elastica(int worker, const float* colour);

    /// localTotalVariation with `colour` at the centre of worker `worker`'s copy.
    double totalVariation(int worker, const float* colour);

private:
    void place(int worker, const float* colour);

    std::vector<ImageBuffer> m_local;
    float m_epsilon;
    float m_curvatureWeight;
};

}  // namespace quorblen::detail
