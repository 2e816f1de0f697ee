// Benchmarks of the exemplar passes' candidate search: one pixel's search, plain and in lanes
// over threads, and a whole texture or texture-TV pass, on a photo with a centred square hole. Real
// time and the CPU time of every thread are reported.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "PhotoWithHole.h"
#include "inpaint/FastSearch.h"
#include "inpaint/PassThreads.h"

namespace quorblen {
namespace {

using namespace detail;

constexpr int SearchRadius = 32;
constexpr int PatchRadius = 3;
constexpr int HoleSize = 64;

const ImageBuffer& photo() {
    static const ImageBuffer image = bench::photoWithHole(HoleSize);
    return image;
}

// The search for the hole's top left pixel, whose patch is partly known: Arg 0 is the plain
// search with patchDistance, 1 and 2 the search in lanes on that many threads.
void BM_PixelSearch(benchmark::State& state) {
    const ImageBuffer& image = photo();
    const int x = (image.width - HoleSize) / 2;
    const int y = (image.height - HoleSize) / 2;
    const int threads = int(state.range(0));
    WorkerPool pool(std::max(1, threads));
    const CandidateMap candidates(image, image, 3, PatchRadius);
    const PatchPlanes planes(image, image.width, image.height, PatchRadius);
    const PatchSource sources[] = {{&image, &planes, &candidates}};
    const PatchSearch search{pool, fastestPatchLanes(), image, SearchRadius, sources};
    const Choice noSeed{0, 0, 0, 0.0, false};
    for (auto _ : state) {
        if (threads == 0) {
            benchmark::DoNotOptimize(searchCandidates(
                image, x, y, SearchRadius, 1, 1, 100000.0,
                [&](int cx, int cy, int) {
                    return patchCandidate(image, image, cx, cy, 3, PatchRadius);
                },
                [&](int cx, int cy, int) {
                    return patchScore(image, x, y, image, cx, cy, PatchRadius);
                }));
        } else {
            const PatchTarget target(image, x, y, PatchRadius, image.height);
            benchmark::DoNotOptimize(
                searchPatches(search, x, y, target, 100000.0, 1.0, true, noSeed, NoEnergy{}));
        }
    }
}
BENCHMARK(BM_PixelSearch)
    ->ArgName("threads")
    ->Arg(0)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

// One pass over the hole on 1 and 2 threads: Arg 1 0 the texture pass (patch search),
// 1 the texture-TV pass (search by the candidate's colour alone).
void BM_Pass(benchmark::State& state) {
    const bench::QuietConsole quiet;
    const ImageBuffer& image = photo();
    WorkerPool pool(int(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        ImageBuffer out(image);
        const PixelList list = bench::holeList(image);
        state.ResumeTiming();
        benchmark::DoNotOptimize(
            state.range(1) == 0 ? inpaintTextureSynthesisOn(pool, image, out, 3, list, SearchRadius,
                                                            0.0, PatchRadius, true)
                                : inpaintTextureTVOn(pool, image, out, 3, list, SearchRadius));
    }
}
BENCHMARK(BM_Pass)
    ->ArgNames({"threads", "tv"})
    ->ArgsProduct({{1, 2}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

}  // namespace
}  // namespace quorblen
