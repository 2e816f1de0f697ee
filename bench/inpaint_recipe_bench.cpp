// Benchmarks of the inpainting recipes: on the bundled strokes over the sample photo, and on a
// square hole in the middle of a photo.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imageio.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "PhotoWithHole.h"
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

/// Arguments: an exemplar recipe. Each iteration is one whole fill of the 128 x 128 hole of
/// the 512 x 512 photo with search radius 10 and patch radius 3, the other options at their
/// defaults (the three-source recipes drawing on the photo alone).
void BM_FillPhotoHole(benchmark::State& state) {
    const auto recipe = static_cast<InpaintRecipe>(state.range(0));
    const ImageBuffer photo = bench::photoWithHole(128);
    ImageBuffer mask(photo.width, photo.height, 1);
    for (int i = 0; i < photo.width * photo.height; ++i) {
        mask.data[i] = photo.data[std::ptrdiff_t(i) * photo.channels + 3];
    }
    RecipeOptions options = recipeDefaults(recipe);
    options.searchRadius = 10;
    options.patchRadius = 3;
    std::ostringstream log;
    const bench::QuietConsole quiet;
    for (auto _ : state) {
        ImageBuffer out = fillHole(photo, 3, mask, options, log);
        benchmark::DoNotOptimize(out.data);
    }
    for (const RecipeInfo& info : inpaintRecipes()) {
        if (info.recipe == recipe) {
            state.SetLabel(info.name);
        }
    }
}
BENCHMARK(BM_FillPhotoHole)
    ->ArgName("recipe")
    ->DenseRange(int(InpaintRecipe::Texture), int(InpaintRecipe::Fallback))
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

}  // namespace
}  // namespace quorblen
