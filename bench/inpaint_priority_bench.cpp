// Benchmark of the fill-order selection over the pixel list of a round hole.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "inpaint/Inpaint.h"

namespace quorblen {
namespace {

constexpr int Size = 512;

/// A 512 x 512 x 4 image whose alpha marks the `count` pixels nearest to the centre (a
/// round hole, half of it already filled to alpha 0.5 so priorities vary), and their list
/// in the inpainting driver's order: rows and columns from the far edge down.
struct HoleImage {
    ImageBuffer image{Size, Size, 4};
    PixelList list;

    explicit HoleImage(int count) {
        std::fill_n(image.data, std::size_t(Size) * Size * 4, 0.0f);
        std::vector<std::pair<int, int>> byDistance;
        for (int y = 1; y < Size - 1; ++y) {
            for (int x = 1; x < Size - 1; ++x) {
                byDistance.emplace_back(
                    (x - Size / 2) * (x - Size / 2) + (y - Size / 2) * (y - Size / 2),
                    y * Size + x);
            }
        }
        std::partial_sort(byDistance.begin(), byDistance.begin() + count, byDistance.end());
        for (int i = 0; i < count; ++i) {
            const int index = byDistance[std::size_t(i)].second;
            image.data[index * 4 + 3] = index % Size < Size / 2 ? 1.0f : 0.5f;
        }
        for (int y = Size - 2; y >= 1; --y) {
            for (int x = Size - 2; x >= 1; --x) {
                if (image.data[(y * Size + x) * 4 + 3] > 0.0f) {
                    list.push_back({std::uint32_t(x), std::uint32_t(y), -1});
                }
            }
        }
    }
};

/// One selection over the whole list per iteration, alternating the scan direction as the
/// elastica pass does. Argument: the list length.
void BM_HighestPriorityPixel(benchmark::State& state) {
    const HoleImage hole(int(state.range(0)));
    const auto last = std::int32_t(hole.list.size()) - 1;
    bool forward = true;
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(highestPriorityPixel(hole.image, hole.list, last, forward, x, y));
        forward = !forward;
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(hole.list.size()));
}
BENCHMARK(BM_HighestPriorityPixel)->Arg(1000)->Arg(10000);

}  // namespace
}  // namespace quorblen
