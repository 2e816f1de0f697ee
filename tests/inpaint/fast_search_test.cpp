// The candidate search over threads and vector lanes against the plain search it replaces.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>
#include <vector>

#include "inpaint/CandidateEnergy.h"
#include "inpaint/DiffusionKernels.h"
#include "inpaint/EnergyTrials.h"
#include "inpaint/FastSearch.h"
#include "inpaint/PassThreads.h"
#include "inpaint/PatchLanes.h"
#include "tests/support/TestImages.h"
#include "tv/RowKernels.h"

namespace quorblen::detail {
namespace {

using test::at;

/// w x h x 5: colours from `levels` values (few levels make many equal scores), alphas
/// mixing known, unknown and partly known pixels, and a donor flag in channel 4.
ImageBuffer randomScene(std::mt19937& rng, int w, int h, int levels) {
    std::uniform_int_distribution<int> level(0, levels - 1);
    std::uniform_int_distribution<int> kind(0, 9);
    return test::makeImage(w, h, 5, [&](int, int, int c) {
        if (c < 3) {
            return float(level(rng)) / float(levels);
        }
        const int k = kind(rng);
        if (c == 4) {
            return k < 8 ? 0.0f : 1.0f;
        }
        return k < 6 ? 0.0f : k < 8 ? 1.0f : k == 8 ? 0.7f : 0.49f;
    });
}

bool sameChoice(const Choice& a, const Choice& b) {
    return a.x == b.x && a.y == b.y && a.source == b.source && a.found == b.found &&
           std::bit_cast<std::uint64_t>(a.score) == std::bit_cast<std::uint64_t>(b.score);
}

/// The kernels of every instruction set this processor runs.
std::vector<const PatchLaneKernels*> laneKernels() {
    std::vector<const PatchLaneKernels*> kernels{&ssePatchLanes};
    if (avx2Available()) {
        kernels.push_back(&avx2PatchLanes);
    }
    return kernels;
}

enum class Score { Patch, PatchAndEnergy, Energy, TotalVariation };

// Every score kind on random scenes, at every pixel far enough inside, with one to three
// sources, patch radii 0 to 3, both instruction sets and one to three threads: the fast search
// must choose what the plain one chooses, score bits included. The seed is a random candidate.
TEST(FastSearch, ChoosesWhatThePlainSearchChooses) {
    std::mt19937 rng(19);
    const int w = 26;
    const int h = 22;
    WorkerPool pools[] = {WorkerPool(1), WorkerPool(2), WorkerPool(3)};
    for (const Score kind :
         {Score::Patch, Score::PatchAndEnergy, Score::Energy, Score::TotalVariation}) {
        for (const int levels : {3, 1000}) {
            const ImageBuffer images[] = {randomScene(rng, w, h, levels),
                                          randomScene(rng, w, h, levels),
                                          randomScene(rng, w, h, levels)};
            const ImageBuffer& target = images[0];
            const int r = int(rng() % 4);
            const int sources = 1 + int(rng() % 3);
            const double patchWeight = kind == Score::PatchAndEnergy ? 30.0 : 1.0;
            std::vector<CandidateMap> maps;
            std::vector<PatchPlanes> planes;
            for (int s = 0; s < sources; ++s) {
                maps.emplace_back(images[s], target, 4, r);
                planes.emplace_back(images[s], w, h, r);
            }
            std::vector<PatchSource> list;
            std::vector<ColumnPlanes> columns;
            for (int s = 0; s < sources; ++s) {
                list.push_back({&images[s], &planes[std::size_t(s)], &maps[std::size_t(s)]});
                columns.emplace_back(images[s], w, h, std::vector<int>{0, 1, 2, 4});
            }
            std::vector<const ColumnPlanes*> colours;
            for (const ColumnPlanes& c : columns) {
                colours.push_back(&c);
            }
            for (int y = std::max(2, r); y < h - std::max(2, r); ++y) {
                for (int x = std::max(2, r); x < w - std::max(2, r); ++x) {
                    SCOPED_TRACE(testing::Message() << "kind " << int(kind) << ", levels " << levels
                                                    << ", pixel " << x << ", " << y);
                    // The plain search tries colours in a copy, as the passes did.
                    ImageBuffer tried(target);
                    EnergyProbe probe(tried, x, y, 0.01, 1.0);
                    const double start = kind == Score::Patch ? 100000.0 : probe.current() + 1.0;
                    const auto plainScore = [&](int cx, int cy, int s) {
                        switch (kind) {
                            case Score::Patch:
                                return patchScore(target, x, y, images[s], cx, cy, r);
                            case Score::PatchAndEnergy:
                                return elasticaPatchScore(probe, images[s], target, images[s], cx,
                                                          cy, r, patchWeight);
                            case Score::Energy:
                                return probe.tryColour(images[s], cx, cy);
                            default:
                                copyColour(images[s], cx, cy, tried, x, y);
                                return localTotalVariation(tried, x, y);
                        }
                    };
                    const bool patches = kind == Score::Patch || kind == Score::PatchAndEnergy;
                    const auto eligible = [&](int cx, int cy, int s) {
                        return patches ? patchCandidate(images[s], target, cx, cy, 4, r)
                                       : sampleAt(images[s], cx, cy, 4) == 0.0f;
                    };
                    const Choice plain =
                        searchCandidates(target, x, y, 6, 1, sources, start, eligible, plainScore);
                    const Choice seed{int(rng() % w), int(rng() % h), int(rng() % 3), 0.0, true};
                    for (const PatchLaneKernels* kernels : laneKernels()) {
                        for (WorkerPool& pool : pools) {
                            EnergyTrials trials(pool.size(), 0.01, 1.0);
                            trials.load(target, x, y);
                            const auto energy = [&](int worker, const float* c) {
                                return trials.energy(worker, c);
                            };
                            const CandidateTotalVariation variation(target, x, y);
                            const auto energies = [&](int worker, const float* c, std::size_t n,
                                                      double* scores) {
                                if (kind == Score::TotalVariation) {
                                    variation.score(c, n, scores);
                                } else {
                                    trials.energies(worker, c, n, scores);
                                }
                            };
                            const PatchSearch search{pool, *kernels, target, 6, list};
                            const PatchTarget patch(target, x, y, r, h);
                            const Choice fast =
                                kind == Score::Patch ? searchPatches(search, x, y, patch, start,
                                                                     1.0, true, seed, NoEnergy{})
                                : kind == Score::PatchAndEnergy
                                    ? searchPatches(search, x, y, patch, start, patchWeight, true,
                                                    seed, energy)
                                    : searchByEnergy(
                                          pool, target, x, y, 6, 1, colours, start,
                                          [](float m) { return m == 0.0f; }, energies);
                            EXPECT_TRUE(sameChoice(fast, plain))
                                << pool.size() << " threads: " << fast.x << "," << fast.y << " s"
                                << fast.source << " " << fast.score << " against " << plain.x << ","
                                << plain.y << " s" << plain.source << " " << plain.score;
                        }
                    }
                }
            }
        }
    }
}

// keptSum stands in for the division test that drops a lane: the same answer for sums at,
// around and far from the kept one, for ordinary, tiny, huge and negative bounds.
TEST(FastSearch, KeptSumMatchesTheDivisionTest) {
    std::mt19937 rng(5);
    const ImageBuffer scene = randomScene(rng, 12, 12, 1000);
    const PatchTarget target(scene, 6, 6, 3, 12);
    ASSERT_TRUE(target.growing);
    for (const double patchWeight : {1.0, 30.0, 1e-3}) {
        for (const double bound : {0.0, 1e-300, 0.37, 0.5, 1e5, 1e300, -1.0}) {
            const double kept = keptSum(target, bound, patchWeight);
            for (const double s :
                 {0.0, kept, std::nextafter(kept, 0.0), std::nextafter(kept, 1e308), kept * 0.999,
                  kept * 1.001, 1.0, 1e-310}) {
                if (!(s >= 0.0)) {
                    continue;
                }
                EXPECT_EQ(s > kept, s / target.fullWeightSum * patchWeight > bound)
                    << "bound " << bound << ", weight " << patchWeight << ", sum " << s;
            }
        }
    }
}

// A block's lanes give patchScore to the bit, or NaN, and are not counted as scored, only
// when the score times the weight is above the bound: bounds at each lane's own product (a tie must
// not drop it) and an ulp either side, on scenes of many and of few colour levels.
TEST(FastSearch, BlockDropsOnlyLanesAboveTheBound) {
    std::mt19937 rng(23);
    for (const int levels : {3, 1000}) {
        const ImageBuffer scene = randomScene(rng, 30, 30, levels);
        for (const int r : {1, 3}) {
            const PatchPlanes planes(scene, 30, 30, r);
            for (int trial = 0; trial < 20; ++trial) {
                const int x = 4 + int(rng() % 22);
                const int y = 4 + int(rng() % 22);
                const int cx = 4 + int(rng() % 22);
                const int cy = 4 + int(rng() % 14);
                const PatchTarget target(scene, x, y, r, 30);
                double exact[LaneBlock];
                for (int k = 0; k < LaneBlock; ++k) {
                    exact[k] = patchScore(scene, x, y, scene, cx, cy + k, r);
                }
                const double patchWeight = trial % 2 == 0 ? 1.0 : 30.0;
                for (const PatchLaneKernels* kernels : laneKernels()) {
                    for (int k = 0; k < LaneBlock; ++k) {
                        const double tie = exact[k] * patchWeight;
                        for (const double bound :
                             {tie, std::nextafter(tie, 0.0), std::nextafter(tie, 1e308)}) {
                            double scores[LaneBlock];
                            const unsigned scored = kernels->scoreBlock(
                                target, planes, planes.at(cx, cy), (1u << LaneBlock) - 1,
                                keptSum(target, bound, patchWeight), scores);
                            for (int j = 0; j < LaneBlock; ++j) {
                                EXPECT_EQ(std::isnan(scores[j]), !(scored >> j & 1u));
                                if (std::isnan(scores[j])) {
                                    EXPECT_GT(exact[j] * patchWeight, bound) << "lane " << j;
                                } else {
                                    EXPECT_EQ(std::bit_cast<std::uint64_t>(scores[j]),
                                              std::bit_cast<std::uint64_t>(exact[j]))
                                        << "lane " << j;
                                }
                            }
                        }
                    }
                }
            }
        }
    }
}

// The texture-TV pass, which scores from gradients kept per channel value and drops
// candidates by a bound, fills as the plain search over localTotalVariation does, on scenes
// of few levels (many shared values and ties) and of many, on one to three threads.
TEST(FastSearch, TextureTVFillsAsThePlainSearch) {
    std::mt19937 rng(31);
    for (const int levels : {2, 5, 1000}) {
        const ImageBuffer source = randomScene(rng, 24, 20, levels);
        PixelList list;
        for (std::uint32_t y = 2; y < 18; ++y) {
            for (std::uint32_t x = 2; x < 22; x += 1 + rng() % 3) {
                list.push_back({x, y, 0});
            }
        }
        ImageBuffer expected(source);
        ImageBuffer trial(source);
        for (const PixelEntry& p : list) {
            const int x = int(p.x);
            const int y = int(p.y);
            const Choice donor = searchCandidates(
                source, x, y, 5, 0, 1, localTotalVariation(trial, x, y),
                [&](int cx, int cy, int) { return sampleAt(source, cx, cy, 4) == 0.0f; },
                [&](int cx, int cy, int) {
                    copyColour(source, cx, cy, trial, x, y);
                    return localTotalVariation(trial, x, y);
                });
            copyColour(source, donor.x, donor.y, trial, x, y);
            copyColour(source, donor.x, donor.y, expected, x, y);
        }
        for (const int threads : {1, 2, 3}) {
            WorkerPool pool(threads);
            // With its working copy of its own and in `out`.
            for (const bool fillInOut : {false, true}) {
                ImageBuffer out(source);
                inpaintTextureTVOn(pool, source, out, 4, list, 5, fillInOut);
                EXPECT_TRUE(test::sameImage(out, expected))
                    << levels << " levels, " << threads << " threads, " << fillInOut;
            }
        }
    }
}

// A pixel the pass writes changes what its neighbours' patches know.
TEST(FastSearch, RefreshedPlanesMatchFreshOnes) {
    std::mt19937 rng(7);
    ImageBuffer image = randomScene(rng, 12, 10, 5);
    PatchPlanes planes(image, 12, 10, 2);
    for (const float alpha : {0.0f, 1.0f, 0.0f}) {
        at(image, 5, 4, 3) = alpha;
        at(image, 5, 4, 0) = alpha + 0.5f;
        planes.refresh(image, 5, 4);
        const PatchPlanes fresh(image, 12, 10, 2);
        for (int x = 0; x < 12; ++x) {
            for (int y = 0; y < 10; ++y) {
                const std::ptrdiff_t i = planes.at(x, y);
                EXPECT_EQ(planes.complete()[i], fresh.complete()[i]) << x << "," << y;
                EXPECT_EQ(planes.known()[i], fresh.known()[i]);
                EXPECT_EQ(planes.colour(0)[i], fresh.colour(0)[i]);
            }
        }
    }
}

}  // namespace
}  // namespace quorblen::detail
