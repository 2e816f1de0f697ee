// Benchmark of one TV solver step on the 3840x2160 enlargement of a 1920x1080 image.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>

#include "tv/RowKernels.h"

namespace quorblen {
namespace {

constexpr int Width = 1920;
constexpr int Height = 1080;
constexpr int Channels = 3;

/// One step on plane 0 of a three-plane estimate, the node's layout for an RGB input, with the
/// four-lane SSE kernels (argument 0) or the eight-lane AVX2 ones (1). The reference is uniform
/// noise and the estimate starts as its nearest-neighbour enlargement; the step keeps every
/// block mean, so the repeated steps stay on data of that kind.
void BM_TvUpscaleStep(benchmark::State& state) {
    if (state.range(0) == 1 && !detail::avx2Available()) {
        state.SkipWithError("this processor has no AVX2");
        return;
    }
    const detail::RowKernels& kernels =
        state.range(0) == 1 ? detail::avx2RowKernels : detail::sseRowKernels;
    ImageBuffer reference(Width, Height, Channels);
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> noise(0.0f, 1.0f);
    for (int i = 0; i < Width * Height * Channels; ++i) {
        reference.data[i] = noise(rng);
    }
    ImageBuffer estimate(2 * Width, 2 * Height, Channels);
    for (int y = 0; y < estimate.height; ++y) {
        for (int x = 0; x < estimate.width; ++x) {
            for (int c = 0; c < Channels; ++c) {
                estimate.data[y * estimate.stride + x * Channels + c] =
                    reference.data[(y / 2) * reference.stride + (x / 2) * Channels + c];
            }
        }
    }
    ImageBuffer work(estimate.width, estimate.height, 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            detail::tvUpscaleStepWith(kernels, reference, estimate, work, 0, 5.0f, 0.0001f));
    }
    // Items are output pixels of the plane.
    state.SetItemsProcessed(state.iterations() * std::int64_t(estimate.width) * estimate.height);
}
BENCHMARK(BM_TvUpscaleStep)->ArgName("avx2")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quorblen
