// Candidate colours scored per second at one pixel: the elastica energy and the local total
// variation by each scorer, against writing each colour into the image and measuring there.
#include <benchmark/benchmark.h>

#include <vector>

#include "PhotoWithHole.h"
#include "inpaint/CandidateEnergy.h"
#include "inpaint/DiffusionKernels.h"
#include "inpaint/ElasticaEnergy.h"
#include "tv/RowKernels.h"

namespace quorblen {
namespace {

constexpr float Epsilon = 0.01f;
constexpr float CurvatureWeight = 1.0f;
constexpr int Pixels = 16;  // the pixels scored, along a row of the photo

enum Path { Written, Scalar, Sse, Avx2 };
const char* const PathNames[] = {"written", "scalar", "SSE", "AVX2"};

/// The whole photo and the colours of its first `count` pixels from the top left, 3 floats
/// each.
struct Candidates {
    explicit Candidates(int count) : photo(bench::photoWithHole(0)) {
        for (int i = 0; i < count; ++i) {
            for (int c = 0; c < 3; ++c) {
                colours.push_back(photo.data[i * photo.channels + c]);
            }
        }
    }
    ImageBuffer photo;
    std::vector<float> colours;
};

const detail::CandidateKernels& kernelsOf(int path) {
    return path == Scalar ? detail::scalarCandidateKernels
           : path == Sse  ? detail::sseCandidateKernels
                          : detail::avx2CandidateKernels;
}

/// Arguments: the path, the candidates per pixel. Each pixel makes its scorer, then scores
/// every candidate; `Measure` is the scorer type, `measure` the same measure on the image.
template <class Measure, class Reference>
void scoreCandidates(benchmark::State& state, Reference measure, auto... parameters) {
    const int path = int(state.range(0));
    if (path == Avx2 && !detail::avx2Available()) {
        state.SkipWithError("this processor has no AVX2");
        return;
    }
    Candidates candidates(int(state.range(1)));
    ImageBuffer& photo = candidates.photo;
    const std::size_t n = candidates.colours.size() / 3;
    std::vector<double> scores(n);
    const int y = photo.height / 2;
    for (auto _ : state) {
        for (int x = 100; x < 100 + Pixels; ++x) {
            if (path == Written) {
                float* pixel = photo.data + y * photo.stride + x * photo.channels;
                for (std::size_t i = 0; i < n; ++i) {
                    for (int c = 0; c < 3; ++c) {
                        pixel[c] = candidates.colours[3 * i + c];
                    }
                    scores[i] = measure(photo, x, y, parameters...);
                }
            } else {
                const Measure scorer(photo, x, y, parameters...);
                scorer.score(kernelsOf(path), candidates.colours.data(), n, scores.data());
            }
            benchmark::DoNotOptimize(scores.data());
        }
    }
    state.SetLabel(PathNames[path]);
    state.SetItemsProcessed(state.iterations() * Pixels * std::int64_t(n));
}

void BM_CandidateEnergy(benchmark::State& state) {
    scoreCandidates<detail::CandidateEnergy>(
        state,
        [](const ImageBuffer& image, int x, int y, float epsilon, float weight) {
            return elasticaEnergy(image, x, y, epsilon, weight);
        },
        Epsilon, CurvatureWeight);
}

void BM_CandidateTotalVariation(benchmark::State& state) {
    scoreCandidates<detail::CandidateTotalVariation>(
        state,
        [](const ImageBuffer& image, int x, int y) { return localTotalVariation(image, x, y); });
}

void pathsAndCounts(benchmark::internal::Benchmark* b) {
    b->ArgNames({"path", "candidates"});
    for (int path = Written; path <= Avx2; ++path) {
        for (int count : {16, 256, 4096}) {
            b->Args({path, count});
        }
    }
}
BENCHMARK(BM_CandidateEnergy)->Apply(pathsAndCounts);
BENCHMARK(BM_CandidateTotalVariation)->Apply(pathsAndCounts);

}  // namespace
}  // namespace quorblen
