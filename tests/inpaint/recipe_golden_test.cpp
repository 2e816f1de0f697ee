// Golden hashes of whole recipe outputs on real photos: any change of a recipe's pixels, however
// small and wherever it comes from (a reordered sum, a vector lane, a thread split), shows here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include "inpaint/Inpaint.h"
#include "support/TestImages.h"

namespace quorblen {
namespace {

using test::at;

/// FNV-1a over the bytes of every sample.
std::uint64_t sampleHash(const ImageBuffer& image) {
    std::uint64_t hash = 0xcbf29ce484222325u;
    const auto* bytes = reinterpret_cast<const unsigned char*>(image.data);
    for (std::size_t i = 0; i < sizeof(float) * image.width * image.height * image.channels; ++i) {
        hash = (hash ^ bytes[i]) * 0x100000001b3u;
    }
    return hash;
}

/// A photo crop, its hole, and another crop of the photo as the second source.
struct Case {
    ImageBuffer image;
    ImageBuffer mask;
    ImageBuffer source2;
};

/// The bundled strokes over the coffee photo, in a 160 x 80 crop that holds three of them.
Case coffeeStrokes() {
    const ImageBuffer photo = test::readFileImage(test::sourcePath("data/coffee.png")).pixels;
    const ImageBuffer strokes =
        test::readFileImage(test::sourcePath("data/coffee-mask.png")).pixels;
    return {test::makeImage(160, 80, 3,
                            [&](int x, int y, int c) { return at(photo, 180 + x, 100 + y, c); }),
            test::makeImage(
                160, 80, 1,
                [&](int x, int y, int) { return float(at(strokes, 180 + x, 100 + y, 0) > 0.0f); }),
            test::makeImage(160, 80, 3,
                            [&](int x, int y, int c) { return at(photo, 150 + x, 230 + y, c); })};
}

/// The cat's fur with a 3-pixel wire across and a 20 x 20 square, in a 120 x 90 crop.
Case furHoles() {
    const ImageBuffer photo = test::readFileImage(test::sourcePath("data/chelsea.png")).pixels;
    return {test::makeImage(120, 90, 3,
                            [&](int x, int y, int c) { return at(photo, 40 + x, 150 + y, c); }),
            test::makeImage(120, 90, 1,
                            [](int x, int y, int) {
                                return float((y >= 30 && y < 33 && x >= 5 && x < 115) ||
                                             (x >= 70 && x < 90 && y >= 50 && y < 70));
                            }),
            test::makeImage(120, 90, 3,
                            [&](int x, int y, int c) { return at(photo, 200 + x, 180 + y, c); })};
}

struct Golden {
    const char* recipe;
    std::uint64_t coffee;
    std::uint64_t fur;
    /// Whether the second crop is given as source2 (recipes without sources ignore it).
    bool source2 = true;
};

/// A recipe's defaults, cut to a search radius and an iteration count that keep the test quick.
RecipeOptions goldenOptions(const Golden& golden, const Case& c) {
    RecipeOptions options = recipeDefaults(findRecipe(golden.recipe)->recipe);
    options.source2 = golden.source2 ? &c.source2 : nullptr;
    options.searchRadius = 10;
    options.iterations = std::min(options.iterations, 800);
    return options;
}

// Every recipe; the third source is the image itself.
constexpr Golden goldens[] = {
    {"tv", 0x26e89edb106dc16cu, 0xb8456fac4fffbcfeu},
    {"elastica", 0x588e669427325c56u, 0xe2b6694a84051804u},
    {"texture", 0xfb2965628d1e4147u, 0x7bdfcd4adb14cae1u},
    {"texture-tv", 0xef3c3a9120bd4c51u, 0xad8d57604dd3645u},
    {"elastica-texture", 0xf0a39369588db311u, 0xeabcc5a2248b87b6u},
    {"texture-elastica", 0x92c67f58d8aa88fdu, 0xafe0899ccf1cbf0au},
    {"weighted-elastica", 0xfacabb4c5bee2f82u, 0xc8d7cfd606cc6ebdu},
    {"multi-source", 0xfb2965628d1e4147u, 0xd423e188aa4baa9u},
    {"fallback", 0xf6b3ebdd7fa2c975u, 0x1e05f23013ae2377u},
    {"patchmatch", 0xb4fc807933d7ec5bu, 0x6d71a4aeacf79197u, false},
    {"patchmatch", 0x1b1c17f502748607u, 0x5134ee6af7b0198bu},
};

// Threads split each candidate search, and the outputs must not depend on how. One test per
// golden, so that a slow build (ThreadSanitizer's) can pick some.
class InpaintRecipeGolden : public testing::TestWithParam<Golden> {};

TEST_P(InpaintRecipeGolden, WholeOutputsKeepTheirBitsOnAnyThreadCount) {
    const Golden& golden = GetParam();
    const Case cases[] = {coffeeStrokes(), furHoles()};
    const RecipeInfo* info = findRecipe(golden.recipe);
    ASSERT_NE(info, nullptr) << golden.recipe;
    const std::uint64_t expected[] = {golden.coffee, golden.fur};
    for (int k = 0; k < 2; ++k) {
        for (const int threads : {1, 2, 3}) {
            SCOPED_TRACE(testing::Message() << "case " << k << ", " << threads << " threads");
            RecipeOptions options = goldenOptions(golden, cases[k]);
            options.threads = threads;
            std::ostringstream log;
            const ImageBuffer out = fillHole(cases[k].image, -1, cases[k].mask, options, log);
            EXPECT_EQ(sampleHash(out), expected[k]) << std::hex << "0x" << sampleHash(out);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Recipes, InpaintRecipeGolden, testing::ValuesIn(goldens),
                         [](const testing::TestParamInfo<Golden>& info) {
                             std::string name = info.param.recipe;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return info.param.source2 ? name : name + "_alone";
                         });

}  // namespace
}  // namespace quorblen
