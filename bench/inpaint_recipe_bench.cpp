// Benchmarks of the inpainting recipes on the bundled strokes over the sample photo.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imageio.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "inpaint/Inpaint.h"

namespace quorblen {
namespace {

/// The first `channels` channels of the bundled file `name`.
ImageBuffer readData(const std::string& name, int channels) {
    const std::string path = std::string(QUORBLEN_SOURCE_DIR) + "/data/" + name;
    auto in = OIIO::ImageInput::open(path);
    if (!in) {
        throw std::runtime_error("cannot open " + path);
    }
    ImageBuffer image(in->spec().width, in->spec().height, channels);
    if (!in->read_image(0, 0, 0, channels, OIIO::TypeDesc::FLOAT, image.data)) {
        throw std::runtime_error("cannot read " + path);
    }
    return image;
}

/// Arguments: recipe, colour channels (1: the photo's red channel as a grey image). Each
/// iteration is one whole fill with the recipe's defaults.
void BM_FillHole(benchmark::State& state) {
    const auto recipe = static_cast<InpaintRecipe>(state.range(0));
    const ImageBuffer photo = readData("coffee.png", int(state.range(1)));
    const ImageBuffer mask = readData("coffee-mask.png", 1);
    std::ostringstream log;
    for (auto _ : state) {
        ImageBuffer out = fillHole(photo, -1, mask, recipeDefaults(recipe), log);
        benchmark::DoNotOptimize(out.data);
    }
    state.SetLabel(log.str().substr(0, log.str().find('\n')));
}
BENCHMARK(BM_FillHole)
    ->ArgNames({"recipe", "channels"})
    ->Args({int(InpaintRecipe::TV), 3})
    ->Args({int(InpaintRecipe::Elastica), 1})
    ->Args({int(InpaintRecipe::Elastica), 3})
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

}  // namespace
}  // namespace quorblen
