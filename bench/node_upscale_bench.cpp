// Benchmark of a whole 2x upscale through the Quorblen node with its default knobs.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <ctime>
#include <memory>

#include "NoisyRamps.h"
#include "host/Channel.h"
#include "host/Row.h"
#include "image/ImageBuffer.h"
#include "node/Quorblen.h"

namespace quorblen {
namespace {

/// CPU seconds the calling thread has used.
double threadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

/// Marks `node` dirty again and asks for row 0, which computes the whole result: input pull
/// and 5 solver steps on each of the three planes.
void computeWhole(Quorblen& node, int width, int height, host::Row& row) {
    node.invalidate();
    node.validate(true);
    node.request(0, 0, 2 * width, 2 * height, host::Mask_RGB, 1);
    node.engine(0, 0, 2 * width, host::Mask_RGB, row);
    benchmark::DoNotOptimize(row.writable(host::Chan_Red));
}

/// Arguments: input width and height, and the threads the host gives the node. Each iteration
/// computes the whole result of one node. Times are wall-clock; CPU is the whole process's,
/// helper threads included. On a shared machine `caller_ms`, the calling thread's CPU time
/// (the input pull and its share of the tiles), tells what the wall time would be with a free
/// core per thread, as the tiles are shared out evenly. With `fresh` every iteration builds a
/// new node, as the program does for every frame, so that mapping the memory of its buffers
/// is measured too; otherwise one node keeps its buffers from one computation to the next.
void upscale(benchmark::State& state, bool fresh) {
    const int width = int(state.range(0));
    const int height = int(state.range(1));
    ImageBuffer input = bench::noisyRamps(width, height);
    const auto newNode = [&] {
        auto node = std::make_unique<Quorblen>(nullptr);
        node->set_input(0, &input);
        node->set_render_threads(int(state.range(2)));
        return node;
    };
    host::Row row(0, 2 * width);
    std::unique_ptr<Quorblen> node = newNode();
    if (!fresh) {
        computeWhole(*node, width, height, row);
    }
    const double start = threadSeconds();
    for (auto _ : state) {
        if (fresh) {
            node = newNode();
        }
        computeWhole(*node, width, height, row);
    }
    state.counters["caller_ms"] =
        benchmark::Counter(1e3 * (threadSeconds() - start), benchmark::Counter::kAvgIterations);
    // Items are output pixels (all three planes of each).
    state.SetItemsProcessed(state.iterations() * std::int64_t(4) * width * height);
}

void BM_QuorblenUpscale(benchmark::State& state) {
    upscale(state, false);
}
void BM_QuorblenUpscaleFreshNode(benchmark::State& state) {
    upscale(state, true);
}
BENCHMARK(BM_QuorblenUpscale)
    ->ArgNames({"width", "height", "threads"})
    ->ArgsProduct({{1920}, {1080}, {1, 2}})
    ->ArgsProduct({{3840}, {2160}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_QuorblenUpscaleFreshNode)
    ->ArgNames({"width", "height", "threads"})
    ->ArgsProduct({{3840}, {2160}, {2}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace quorblen
