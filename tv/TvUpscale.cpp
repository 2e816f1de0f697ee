// One step of the total-variation solver that refines a 2x enlargement.
#include "tv/TvUpscale.h"

#include <xmmintrin.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <type_traits>
#include <vector>

namespace quorblen {
namespace {

// Every scratch row has one sample before column 0 and three after column W - 1: the edge
// replication of the gradient reads columns -1 and W, and a four-lane load that starts at
// the last interior column reaches column W + 2.
constexpr int LeftPad = 1;
constexpr int RightPad = 3;

/// The rows one sweep over the image still needs, as contiguous single-plane rows: the last
/// four rows of the estimate as it was when the step began, three rows of gradient
/// magnitudes, the two smoothed rows of the current block row, and the block targets.
class ScratchRows {
public:
    explicit ScratchRows(int width)
        : m_pitch(LeftPad + width + RightPad),
          // Padding lanes never reach an image; starting them at 1.0 keeps their arithmetic finite.
          m_samples(static_cast<std::size_t>(m_pitch) * (4 + 3 + 2 + 1), 1.0f) {}

    float* original(int y) { return row(y & 3); }
    float* gradient(int y) { return row(4 + y % 3); }
    float* smoothed(int y) { return row(7 + (y & 1)); }
    float* blockTarget() { return row(9); }

private:
    float* row(int slot) {
        return m_samples.data() + static_cast<std::ptrdiff_t>(slot) * m_pitch + LeftPad;
    }

    int m_pitch;
    std::vector<float> m_samples;
};

/// The index of sample (0, y, channel) in `image.data`; the row's samples of that plane
/// follow every `image.channels` floats.
std::ptrdiff_t rowStart(const ImageBuffer& image, int y, int channel) {
    return static_cast<std::ptrdiff_t>(y) * image.stride + channel;
}

/// Copies row y of plane `channel` of `image` into `dst`, replicating the edge samples into
/// dst[-1] and dst[width].
void loadRow(const ImageBuffer& image, int y, int channel, float* dst) {
    const float* src = image.data + rowStart(image, y, channel);
    const int step = image.channels;
    for (int x = 0; x < image.width; ++x) {
        dst[x] = src[static_cast<std::ptrdiff_t>(x) * step];
    }
    dst[-1] = dst[0];
    dst[image.width] = dst[image.width - 1];
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

/// Gradient magnitudes of the middle row against its four neighbours, in double precision
/// and narrowed to float. `row` carries replicated edge samples; the caller passes the row
/// itself as `up` or `down` at the top and bottom edge. No branch in the loop, so that the
/// compiler vectorises it.
void gradientRow(const float* up, const float* row, const float* down, int width,
                 double epsilonSquared, float* g) {
    for (int x = 0; x < width; ++x) {
        const double centre = row[x];
        const double d0 = double(row[x + 1]) - centre;
        const double d1 = double(down[x]) - centre;
        const double d2 = double(row[x - 1]) - centre;
        const double d3 = double(up[x]) - centre;
        // Summed in double, stored as float.
        g[x] = static_cast<float>(
            std::sqrt((((d0 * d0 + d1 * d1) + d2 * d2) + d3 * d3) + epsilonSquared));
    }
}

/// For each column x of the blocks of one block row: four times the block's reference sample
/// less the block's four samples of the old estimate. Adding u(x, y) gives the value that
/// would make the block's sum four times its reference pixel.
void blockTargetRow(const float* reference, int referenceStep, const float* top,
                    const float* bottom, int blocks, float* target) {
    for (int X = 0; X < blocks; ++X) {
        const int x = 2 * X;
        const float a = reference[static_cast<std::ptrdiff_t>(X) * referenceStep];
        const float t = (((4.0f * a - top[x]) - top[x + 1]) - bottom[x]) - bottom[x + 1];
        target[x] = t;
        target[x + 1] = t;
    }
}

/// Smoothed values of one interior row (0 < y < H - 1) for columns 1 .. width - 2, four
/// pixels per vector: each lane computes exactly what a lone pixel would, so the lanes may
/// run across pixels. Columns 0 and width - 1 keep their old value. Needs width >= 3.
void smoothRow(const float* gUp, const float* g, const float* gDown, const float* uUp,
               const float* u, const float* uDown, const float* target, int width, float lambda,
               float* v) {
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 lam = _mm_set1_ps(lambda);
    for (int x = 1; x < width - 1; x += 4) {
        const __m128 r = _mm_div_ps(one, _mm_loadu_ps(g + x));
        // Neighbours n0 = up, n1 = down, n2 = left, n3 = right; the neighbour terms use the
        // approximate reciprocal without a refinement step.
        const __m128 w0 = _mm_add_ps(_mm_rcp_ps(_mm_loadu_ps(gUp + x)), r);
        const __m128 w1 = _mm_add_ps(_mm_rcp_ps(_mm_loadu_ps(gDown + x)), r);
        const __m128 w2 = _mm_add_ps(_mm_rcp_ps(_mm_loadu_ps(g + x - 1)), r);
        const __m128 w3 = _mm_add_ps(_mm_rcp_ps(_mm_loadu_ps(g + x + 1)), r);
        const __m128 d = _mm_add_ps(_mm_add_ps(_mm_add_ps(w0, w2), _mm_add_ps(w1, w3)), lam);
        const __m128 rho = _mm_add_ps(_mm_loadu_ps(target + x), _mm_loadu_ps(u + x));
        const __m128 vertical = _mm_add_ps(_mm_mul_ps(_mm_div_ps(w0, d), _mm_loadu_ps(uUp + x)),
                                           _mm_mul_ps(_mm_div_ps(w2, d), _mm_loadu_ps(u + x - 1)));
        const __m128 horizontal =
            _mm_add_ps(_mm_mul_ps(_mm_div_ps(w1, d), _mm_loadu_ps(uDown + x)),
                       _mm_mul_ps(_mm_div_ps(w3, d), _mm_loadu_ps(u + x + 1)));
        const __m128 fidelity = _mm_mul_ps(_mm_div_ps(lam, d), rho);
        _mm_storeu_ps(v + x, _mm_add_ps(_mm_add_ps(vertical, horizontal), fidelity));
    }
    // The last vector may have run past column width - 2 into the padding.
    v[0] = u[0];
    v[width - 1] = u[width - 1];
}

/// Shifts each 2x2 block of the smoothed rows v0 (top) and v1 (bottom) so that its mean
/// equals its reference sample, writes the blocks into the estimate rows est0 and est1
/// (samples every `estimateStep` floats) and returns the largest absolute change against the
/// old rows old0 and old1.
double projectBlockRow(const float* v0, const float* v1, const float* reference, int referenceStep,
                       int blocks, const float* old0, const float* old1, float* est0, float* est1,
                       int estimateStep) {
    double largest = 0.0;
    // A NaN difference never replaces the running maximum.
    const auto store = [&](float value, float before, float* dst) {
        *dst = value;
        largest = std::max(largest, std::abs(double(value) - double(before)));
    };
    for (int X = 0; X < blocks; ++X) {
        const int x = 2 * X;
        const float q00 = v0[x];
        const float q10 = v0[x + 1];
        const float q01 = v1[x];
        const float q11 = v1[x + 1];
        const float mean = (0.25f * q00 + 0.25f * q01) + (0.25f * q10 + 0.25f * q11);
        const float delta = reference[static_cast<std::ptrdiff_t>(X) * referenceStep] - mean;
        const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(x) * estimateStep;
        store(q00 + delta, old0[x], est0 + at);
        store(q10 + delta, old0[x + 1], est0 + at + estimateStep);
        store(q01 + delta, old1[x], est1 + at);
        store(q11 + delta, old1[x + 1], est1 + at + estimateStep);
    }
    return largest;
}

}  // namespace

double tvUpscaleStep(const ImageBuffer& reference, ImageBuffer& estimate, ImageBuffer& work,
                     int channel, float lambda, float epsilon) {
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

    // One sweep down the image. Row y is smoothed once the magnitudes of row y + 1 exist, and
    // block row Y is projected once rows 2Y and 2Y + 1 are smoothed; every smoothing reads
    // the old estimate from the scratch rows, which are loaded before the projection
    // overwrites them, so the update is Jacobi.
    ScratchRows rows(W);
    const auto gradientOf = [&](int y) {
        gradientRow(rows.original(std::max(y - 1, 0)), rows.original(y),
                    rows.original(std::min(y + 1, H - 1)), W, epsilonSquared, rows.gradient(y));
    };
    loadRow(estimate, 0, channel, rows.original(0));
    if (H > 1) {
        loadRow(estimate, 1, channel, rows.original(1));
    }
    gradientOf(0);

    double largestChange = 0.0;
    for (int y = 0; y < H; ++y) {
        if (y + 2 < H) {
            loadRow(estimate, y + 2, channel, rows.original(y + 2));
        }
        if (y + 1 < H) {
            gradientOf(y + 1);
        }
        if (y % 2 == 0 && y + 1 < H) {
            blockTargetRow(reference.data + rowStart(reference, y / 2, channel), reference.channels,
                           rows.original(y), rows.original(y + 1), blocks, rows.blockTarget());
        }
        float* v = rows.smoothed(y);
        if (y == 0 || y == H - 1 || W < 3) {
            // The border frame is not smoothed, only block-corrected.
            std::copy_n(rows.original(y), W, v);
        } else {
            smoothRow(rows.gradient(y - 1), rows.gradient(y), rows.gradient(y + 1),
                      rows.original(y - 1), rows.original(y), rows.original(y + 1),
                      rows.blockTarget(), W, lambda, v);
        }
        storeWorkRow(rows.gradient(y), v, W, work.data + rowStart(work, y, 0), work.channels);
        if (y % 2 == 1) {
            const double change = projectBlockRow(
                rows.smoothed(y - 1), v, reference.data + rowStart(reference, y / 2, channel),
                reference.channels, blocks, rows.original(y - 1), rows.original(y),
                estimate.data + rowStart(estimate, y - 1, channel),
                estimate.data + rowStart(estimate, y, channel), estimate.channels);
            largestChange = std::max(largestChange, change);
        }
    }
    return largestChange;
}

}  // namespace quorblen
