// Benchmarks of the diffusion inpainting driver on a photo with a square hole.
#include <benchmark/benchmark.h>

#include <iostream>

#include "PhotoWithHole.h"
#include "inpaint/Inpaint.h"

namespace quorblen {
namespace {

constexpr int HoleSize = 64;

/// The photo with a 64 x 64 hole, read once.
const ImageBuffer& photoWithHole() {
    static const ImageBuffer image = bench::photoWithHole(HoleSize);
    return image;
}

/// Arguments: method, iterations. Iterations 0 measures the setup alone (copies and the lists),
/// which is the same for every method.
void BM_InpaintDriver(benchmark::State& state) {
    const ImageBuffer& mask = photoWithHole();
    const int method = int(state.range(0));
    const int iterations = int(state.range(1));
    // The progress bar is not part of what is measured: silence std::cout for the run.
    std::streambuf* console = std::cout.rdbuf(nullptr);
    for (auto _ : state) {
        state.PauseTiming();
        ImageBuffer work(mask);
        state.ResumeTiming();
        inpaint(mask, work, iterations, false, method, "", 5.0, 0.01, 0.1);
        benchmark::DoNotOptimize(work.data);
    }
    std::cout.rdbuf(console);
    std::cout.clear();
    state.SetLabel(iterations == 0       ? "setup"
                   : method == DigitalTV ? "DigitalTV"
                   : method == DualTV    ? "DualTV"
                                         : "Elastica");
}
BENCHMARK(BM_InpaintDriver)
    ->ArgNames({"method", "iterations"})
    ->Args({DigitalTV, 0})
    ->Args({DigitalTV, 10})
    ->Args({DualTV, 10})
    ->Args({Elastica, 10})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quorblen
