// Candidate scorers against the measures evaluated with each colour written into the image.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "inpaint/CandidateEnergy.h"
#include "inpaint/DiffusionKernels.h"
#include "inpaint/ElasticaEnergy.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float Inf = std::numeric_limits<float>::infinity();

/// Bit-identical, a NaN equal to any NaN.
bool sameBits(double a, double b) {
    return (std::isnan(a) && std::isnan(b)) ||
           std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

struct KernelSet {
    const char* name;
    const detail::CandidateKernels& kernels;
};

/// Every scorer this processor runs.
std::vector<KernelSet> kernelSets() {
    std::vector<KernelSet> sets{{"scalar", detail::scalarCandidateKernels},
                                {"SSE", detail::sseCandidateKernels}};
    if (detail::avx2Available()) {
        sets.push_back({"AVX2", detail::avx2CandidateKernels});
    }
    return sets;
}

/// An image to score around and the colours to try, drawn from the same values.
struct Neighbourhood {
    const char* name;
    ImageBuffer image;
    std::vector<float> colours;
};

/// An 8 x 8 image of value(x, y, c) and 13 colours of value(-1, i, c), then the colour of one
/// of the pixels scored, which gives differences of zero.
Neighbourhood drawn(const char* name, const std::function<float(int, int, int)>& value) {
    Neighbourhood n{name, test::makeImage(8, 8, 4, value), {}};
    for (int i = 0; i < 13; ++i) {
        for (int c = 0; c < 3; ++c) {
            n.colours.push_back(value(-1, i, c));
        }
    }
    for (int c = 0; c < 3; ++c) {
        n.colours.push_back(test::at(n.image, 3, 3, c));
    }
    return n;
}

std::vector<Neighbourhood> neighbourhoods() {
    std::mt19937 rng(19);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::uniform_int_distribution<int> pick(0, 9);
    const float specials[] = {NaN, Inf, -Inf, -0.0f, 0.0f, 1e-45f, 3e38f, -1.0f, 0.5f, 1.0f};
    // A textured crop of the photo; the colours come from the row below it.
    const ImageBuffer photo = test::readFileImage(test::sourcePath("data/coffee.png")).pixels;
    const auto cropped = [&](int x, int y, int c) {
        return x < 0 ? test::at(photo, 200 + 3 * y, 158, c)
                     : test::at(photo, 200 + x, 150 + y, c % 3);
    };
    std::vector<Neighbourhood> all;
    all.push_back(drawn("uniform", [&](int, int, int) { return unit(rng); }));
    all.push_back(drawn("photo", cropped));
    // Flat areas, where the regulariser alone keeps the curvature finite.
    all.push_back(drawn("flat", [](int, int, int) { return 0.25f; }));
    all.push_back(drawn("steps", [&](int, int, int) { return pick(rng) < 5 ? 0.25f : 0.75f; }));
    all.push_back(drawn("huge", [&](int, int, int) { return (unit(rng) - 0.5f) * 3e38f; }));
    all.push_back(drawn("tiny", [&](int, int, int) { return unit(rng) * 1e-38f; }));
    all.push_back(drawn("specials", [&](int, int, int) {
        return pick(rng) < 7 ? unit(rng) : specials[pick(rng)];
    }));
    return all;
}

/// Scores every colour with each scorer set, and the first n - 1, n - 2, n - 3 (the last
/// vector partly filled); compares each score with `reference` of the image holding that
/// colour at the pixel, and checks nothing is written past the last score.
template <class Scorer, class Reference>
void expectSameAsWritten(const Neighbourhood& n, int x, int y, const Scorer& scorer,
                         const Reference& reference) {
    ImageBuffer written = n.image;
    const std::size_t count = n.colours.size() / 3;
    std::vector<double> expected(count);
    for (std::size_t i = 0; i < count; ++i) {
        for (int c = 0; c < 3; ++c) {
            test::at(written, x, y, c) = n.colours[3 * i + c];
        }
        expected[i] = reference(written);
    }
    for (const KernelSet& set : kernelSets()) {
        for (std::size_t m = count - 3; m <= count; ++m) {
            std::vector<double> scores(m + 1, 12345.0);
            scorer.score(set.kernels, n.colours.data(), m, scores.data());
            for (std::size_t i = 0; i < m; ++i) {
                ASSERT_TRUE(sameBits(scores[i], expected[i]))
                    << set.name << " " << n.name << " pixel " << x << "," << y << " colour " << i
                    << ": " << scores[i] << " vs " << expected[i];
            }
            ASSERT_EQ(scores[m], 12345.0) << set.name << " wrote past " << m;
        }
    }
}

/// Every pixel of every neighbourhood that keeps the margin, scored from an image whose pixel
/// itself is NaN: its colour must not enter the constant parts.
template <class Check>
void forEveryPixel(const Check& check) {
    for (const Neighbourhood& n : neighbourhoods()) {
        for (int y = 2; y < n.image.height - 2; ++y) {
            for (int x = 2; x < n.image.width - 2; ++x) {
                ImageBuffer hidden = n.image;
                for (int c = 0; c < 3; ++c) {
                    test::at(hidden, x, y, c) = NaN;
                }
                check(n, hidden, x, y);
            }
        }
    }
}

TEST(CandidateEnergy, EveryPathMatchesEnergyOfWrittenColour) {
    struct Parameters {
        float epsilon, weight;
    };
    // A zero regulariser gives NaN on flat edges; 1e-20 squares to a subnormal float.
    const Parameters parameters[] = {
        {0.01f, 1.0f}, {0.0f, 1.0f}, {1e-20f, 5.0f}, {2.0f, 0.0f}, {1e-3f, -0.5f}};
    for (const Parameters& p : parameters) {
        SCOPED_TRACE(testing::Message() << "epsilon " << p.epsilon << " weight " << p.weight);
        forEveryPixel([&](const Neighbourhood& n, const ImageBuffer& hidden, int x, int y) {
            const detail::CandidateEnergy scorer(hidden, x, y, p.epsilon, p.weight);
            expectSameAsWritten(n, x, y, scorer, [&](const ImageBuffer& image) {
                return elasticaEnergy(image, x, y, p.epsilon, p.weight);
            });
        });
    }
}

TEST(CandidateTotalVariation, EveryPathMatchesVariationOfWrittenColour) {
    forEveryPixel([](const Neighbourhood& n, const ImageBuffer& hidden, int x, int y) {
        const detail::CandidateTotalVariation scorer(hidden, x, y);
        expectSameAsWritten(n, x, y, scorer, [&](const ImageBuffer& image) {
            return localTotalVariation(image, x, y);
        });
    });
}

}  // namespace
}  // namespace quorblen
