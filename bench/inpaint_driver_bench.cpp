// Benchmarks of the diffusion inpainting driver on a photo with a square hole.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "inpaint/Inpaint.h"

namespace quorblen {
namespace {

constexpr int HoleSize = 64;

/// The astronaut photo (512 x 512) as colour plus an alpha mask of one centred square hole,
/// the hole filled with mid grey as the first guess.
const ImageBuffer& photoWithHole() {
    static const ImageBuffer image = [] {
        const std::string path = std::string(QUORBLEN_SOURCE_DIR) + "/data/astronaut.png";
        auto in = OIIO::ImageInput::open(path);
        if (!in) {
            throw std::runtime_error("cannot open " + path);
        }
        const OIIO::ImageSpec& header = in->spec();
        std::vector<float> rgb(std::size_t(header.width) * header.height * 3);
        if (!in->read_image(0, 0, 0, 3, OIIO::TypeDesc::FLOAT, rgb.data())) {
            throw std::runtime_error("cannot read " + path);
        }
        ImageBuffer buffer(header.width, header.height, 4);
        const int x0 = (header.width - HoleSize) / 2;
        const int y0 = (header.height - HoleSize) / 2;
        for (int y = 0; y < header.height; ++y) {
            for (int x = 0; x < header.width; ++x) {
                const bool hole = x >= x0 && x < x0 + HoleSize && y >= y0 && y < y0 + HoleSize;
                float* pixel = buffer.data + y * buffer.stride + x * 4;
                for (int c = 0; c < 3; ++c) {
                    pixel[c] = hole ? 0.5f : rgb[(std::size_t(y) * header.width + x) * 3 + c];
                }
                pixel[3] = hole ? 1.0f : 0.0f;
            }
        }
        return buffer;
    }();
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
