// Benchmarks of the exemplar and elastica fill passes on a photo with a centred square hole.
#include <benchmark/benchmark.h>

#include <map>

#include "PhotoWithHole.h"
#include "inpaint/Inpaint.h"

namespace quorblen {
namespace {

constexpr int PatchRadius = 3;
constexpr double Epsilon = 0.01;

enum Pass {
    TextureTV,
    Synthesis,
    MultiSource,
    ElasticaSynthesis,
    Weighted,
    TextureElastica,
    Fallback
};
const char* const PassNames[] = {"TextureTV",
                                 "TextureSynthesis",
                                 "MultiSourceSynthesis",
                                 "ElasticaTextureSynthesis",
                                 "WeightedElasticaSynthesis",
                                 "TextureElastica",
                                 "SynthesisElasticaFallback"};

/// The photo with a hole of each size, read once. The extra sources of the three-source
/// passes are the whole photo, all known.
const ImageBuffer& photo(int holeSize) {
    static std::map<int, ImageBuffer> photos;
    auto found = photos.find(holeSize);
    if (found == photos.end()) {
        found = photos.emplace(holeSize, bench::photoWithHole(holeSize)).first;
    }
    return found->second;
}

/// One pass (d = 0, forward) over the driver's list; `written` is the image the pass fills.
double runPass(int pass, int searchRadius, const ImageBuffer& src, const ImageBuffer& extra,
               ImageBuffer& written, ImageBuffer& source, PixelList& list) {
    switch (pass) {
        case TextureTV:
            return inpaintTextureTV(nullptr, src, written, 3, list, searchRadius);
        case Synthesis:
            return inpaintTextureSynthesis(src, written, 3, list, searchRadius, 0.0, PatchRadius,
                                           true);
        case MultiSource:
            return inpaintMultiSourceSynthesis(nullptr, extra, extra, src, written, 3, list,
                                               searchRadius, PatchRadius, true, 0.0f, 0.0);
        case ElasticaSynthesis:
            return inpaintElasticaTextureSynthesis(src, written, 3, list, searchRadius, Epsilon,
                                                   1.0, 1.0, PatchRadius, true);
        case Weighted:
            return inpaintWeightedElasticaSynthesis(nullptr, extra, extra, src, written, 3, list,
                                                    searchRadius, PatchRadius, true, Epsilon, 1.0,
                                                    0.0, 1.0);
        case TextureElastica:
            return inpaintTextureElastica(nullptr, source, written, 3, list, searchRadius, true,
                                          Epsilon, 1.0, 0.0);
        default:
            return inpaintSynthesisElasticaFallback(nullptr, extra, extra, src, written, 3, list,
                                                    searchRadius, PatchRadius, true, Epsilon, 1.0,
                                                    0.0);
    }
}

/// Arguments: the pass, the hole's side in pixels, the search radius. Radius 0 leaves no
/// candidate to a pixel of the hole but keeps the fill order: it times the selection alone.
void BM_FillPass(benchmark::State& state) {
    const int pass = int(state.range(0));
    const ImageBuffer& src = photo(int(state.range(1)));
    const int searchRadius = int(state.range(2));
    const ImageBuffer& extra = photo(0);
    const PixelList holeList = bench::holeList(src);
    const bench::QuietConsole quiet;
    for (auto _ : state) {
        state.PauseTiming();
        ImageBuffer written(src);
        ImageBuffer source(src);
        PixelList list = holeList;
        state.ResumeTiming();
        benchmark::DoNotOptimize(runPass(pass, searchRadius, src, extra, written, source, list));
    }
    state.SetLabel(PassNames[pass]);
    state.SetItemsProcessed(state.iterations() * std::int64_t(holeList.size()));
}

void passesAndHoles(benchmark::internal::Benchmark* b) {
    b->ArgNames({"pass", "hole", "radius"});
    for (int pass = TextureTV; pass <= Fallback; ++pass) {
        for (int hole : {32, 64, 128}) {
            for (int radius : {10, 0}) {
                b->Args({pass, hole, radius});
            }
        }
    }
}
BENCHMARK(BM_FillPass)->Apply(passesAndHoles)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quorblen
