// One step of the total-variation solver that refines a 2x enlargement.
#include "tv/TvUpscale.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "tv/RowKernels.h"
#include "tv/TvSweep.h"

namespace quorblen {
namespace detail {
namespace {

/// The index of sample (0, y, channel) in `image.data`; the row's samples of that plane
/// follow every `image.channels` floats.
std::ptrdiff_t rowStart(const ImageBuffer& image, int y, int channel) {
    return static_cast<std::ptrdiff_t>(y) * image.stride + channel;
}

/// Copies row y of plane `channel` of `image` into `dst`.
void loadRow(const ImageBuffer& image, int y, int channel, float* dst) {
    const float* src = image.data + rowStart(image, y, channel);
    const int step = image.channels;
    for (int x = 0; x < image.width; ++x) {
        dst[x] = src[static_cast<std::ptrdiff_t>(x) * step];
    }
}

/// Stores the gradient row `g` into plane 0 and the smoothed row `v` into plane 1 of a work
/// row whose pixels are `step` floats apart.
void storeWorkRow(const float* g, const float* v, int width, float* dst, int step) {
    const auto store = [&](auto pixelStep) {
        for (int x = 0; x < width; ++x) {
            dst[static_cast<std::ptrdiff_t>(x) * pixelStep] = g[x];
            dst[static_cast<std::ptrdiff_t>(x) * pixelStep + 1] = v[x];
        }
    };
    // The usual two-plane work buffer gets a loop with a constant step, which the compiler
    // turns into whole interleaved vectors.
    if (step == 2) {
        store(std::integral_constant<int, 2>{});
    } else {
        store(step);
    }
}

/// Writes the first `count` samples of `row` into row y of plane `channel` of `image` and
/// returns the largest absolute change against `old`; a NaN difference never replaces it.
double storeRow(const float* row, const float* old, int count, ImageBuffer& image, int y,
                int channel) {
    float* dst = image.data + rowStart(image, y, channel);
    double largest = 0.0;
    for (int x = 0; x < count; ++x) {
        dst[static_cast<std::ptrdiff_t>(x) * image.channels] = row[x];
        largest = std::max(largest, std::abs(double(row[x]) - double(old[x])));
    }
    return largest;
}

}  // namespace

double tvUpscaleStepWith(const RowKernels& kernels, const ImageBuffer& reference,
                         ImageBuffer& estimate, ImageBuffer& work, int channel, float lambda,
                         float epsilon) {
    const int W = estimate.width;
    const int H = estimate.height;
    assert(work.width == W && work.height == H && work.channels >= 2);
    assert(channel >= 0 && channel < estimate.channels && channel < reference.channels);
    assert(reference.width >= W / 2 && reference.height >= H / 2);
    assert(&reference != &estimate && &work != &estimate && &work != &reference);
    if (W < 1 || H < 1) {
        return 0.0;
    }
    // The block grid comes from the estimate, so a reference of the estimate's own size is
    // read only in its top-left quarter.
    const int blocks = W / 2;
    const double epsilonSquared = double(epsilon) * double(epsilon);

    // One sweep down the image; each block row is written back once projected, after the
    // sweep has read its rows, so the update is Jacobi.
    TvSweep sweep(W);
    sweep.begin(W, H);
    std::vector<float> projected(2 * static_cast<std::size_t>(W));
    for (int y = 0; y < std::min(H, 2); ++y) {
        loadRow(estimate, y, channel, sweep.input(y));
    }
    double largestChange = 0.0;
    for (int b = 0; 2 * b < H; ++b) {
        const int top = 2 * b;
        for (int y = top + 2; y <= top + 3 && y < H; ++y) {
            loadRow(estimate, y, channel, sweep.input(y));
        }
        const bool wholeBlockRow = top + 1 < H;
        const float* referenceRow =
            wholeBlockRow ? reference.data + rowStart(reference, b, channel) : nullptr;
        sweep.sweep(kernels, b, referenceRow, reference.channels, lambda, epsilonSquared,
                    projected.data(), projected.data() + W);
        for (int y = top; y <= top + 1 && y < H; ++y) {
            storeWorkRow(sweep.gradient(y), sweep.smoothed(y), W, work.data + rowStart(work, y, 0),
                         work.channels);
        }
        // With an odd width the last column lies in no block and keeps its value.
        for (int i = 0; wholeBlockRow && i < 2; ++i) {
            largestChange =
                std::max(largestChange, storeRow(projected.data() + i * W, sweep.input(top + i),
                                                 2 * blocks, estimate, top + i, channel));
        }
    }
    return largestChange;
}

}  // namespace detail

double tvUpscaleStep(const ImageBuffer& reference, ImageBuffer& estimate, ImageBuffer& work,
                     int channel, float lambda, float epsilon) {
    return detail::tvUpscaleStepWith(detail::fastestRowKernels(), reference, estimate, work,
                                     channel, lambda, epsilon);
}

}  // namespace quorblen
