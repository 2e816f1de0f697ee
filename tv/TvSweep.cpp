// One plane of a TV step swept down the image two rows at a time.
#include "tv/TvSweep.h"

#include <algorithm>
#include <cassert>

namespace quorblen::detail {

TvSweep::TvSweep(int capacity)
    : m_pitch(RowLeftPad + capacity + RowRightPad),
      // Padding lanes never reach an image; starting them at 1.0 keeps their arithmetic finite.
      m_samples(static_cast<std::size_t>(m_pitch) * Slots, 1.0f) {}

void TvSweep::gradientOf(const RowKernels& kernels, int y, double epsilonSquared) {
    // The neighbour outside the image is the pixel itself.
    float* centre = input(y);
    centre[-1] = centre[0];
    centre[m_width] = centre[m_width - 1];
    kernels.gradientRow(input(std::max(y - 1, 0)), centre, input(std::min(y + 1, m_height - 1)),
                        m_width, epsilonSquared, row(GradientSlots + (y & 3)));
}

void TvSweep::sweep(const RowKernels& kernels, int b, const float* reference, int referenceStep,
                    float lambda, double epsilonSquared, float* out0, float* out1) {
    assert(m_width >= 1 && 2 * b < m_height);
    const int top = 2 * b;
    if (b == 0) {
        gradientOf(kernels, 0, epsilonSquared);
    }
    for (int y = top + 1; y <= top + 2 && y < m_height; ++y) {
        gradientOf(kernels, y, epsilonSquared);
    }
    const bool wholeBlockRow = top + 1 < m_height;
    float* target = row(TargetSlot);
    if (wholeBlockRow) {
        kernels.blockTargetRow(reference, referenceStep, input(top), input(top + 1), m_width / 2,
                               target);
    }
    for (int y = top; y <= top + 1 && y < m_height; ++y) {
        float* v = row(SmoothedSlots + (y & 1));
        if (y == 0 || y == m_height - 1 || m_width < 3) {
            // The border frame is not smoothed, only block-corrected.
            std::copy_n(input(y), m_width, v);
        } else {
            kernels.smoothRow(gradient(y - 1), gradient(y), gradient(y + 1), input(y - 1), input(y),
                              input(y + 1), target, m_width, lambda, v);
        }
    }
    if (wholeBlockRow) {
        kernels.projectBlockRow(smoothed(top), smoothed(top + 1), reference, referenceStep,
                                m_width / 2, out0, out1);
    }
}

}  // namespace quorblen::detail
