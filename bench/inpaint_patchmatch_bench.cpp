// Benchmarks of the patch-match recipe on object-sized holes: a 128 x 128 hole in a 512 x 512
// photo, and a 256 x 256 hole in a 3840 x 2160 plate.
#include <benchmark/benchmark.h>

#include <sstream>

#include "PhotoWithHole.h"
#include "inpaint/Inpaint.h"

namespace quorblen {
namespace {

/// The sample photo (RGB) tiled mirror-wise over width x height, so that the plate keeps the
/// photo's own texture at its own scale.
ImageBuffer plate(int width, int height) {
    const ImageBuffer photo = bench::photoWithHole(0);
    ImageBuffer out(width, height, 3);
    const auto mirrored = [](int k, int size) {
        k %= 2 * size;
        return k < size ? k : 2 * size - 1 - k;
    };
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float* from = photo.data + mirrored(y, photo.height) * photo.stride +
                                mirrored(x, photo.width) * photo.channels;
            std::copy_n(from, 3, out.data + std::ptrdiff_t(y) * out.stride + x * 3);
        }
    }
    return out;
}

/// Arguments: image width and height, the side of the centred square hole, threads. Each
/// iteration is one whole fill with the recipe's defaults.
void BM_PatchMatch(benchmark::State& state) {
    const int width = int(state.range(0));
    const int height = int(state.range(1));
    const int side = int(state.range(2));
    const ImageBuffer image = plate(width, height);
    ImageBuffer mask(width, height, 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool hole = x >= (width - side) / 2 && x < (width + side) / 2 &&
                              y >= (height - side) / 2 && y < (height + side) / 2;
            mask.data[std::ptrdiff_t(y) * width + x] = hole ? 1.0f : 0.0f;
        }
    }
    RecipeOptions options = recipeDefaults(InpaintRecipe::PatchMatch);
    options.threads = int(state.range(3));
    std::ostringstream log;
    for (auto _ : state) {
        ImageBuffer out = fillHole(image, -1, mask, options, log);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_PatchMatch)
    ->ArgNames({"width", "height", "hole", "threads"})
    ->Args({512, 512, 128, 1})
    ->Args({512, 512, 128, 2})
    ->Args({3840, 2160, 256, 1})
    ->Args({3840, 2160, 256, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace quorblen
