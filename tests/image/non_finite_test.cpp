// Non-finite samples: counted, and repaired by each mode on tiny images.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "image/NonFinite.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

TEST(NonFinite, EachModeRepairsFromTheSamplesAsTheyWere) {
    const struct {
        const char* what;
        int width, height, channels;
        std::vector<float> samples, black, box3;
    } cases[] = {
        {"a centre amid its eight neighbours",
         3,
         3,
         1,
         {1, 2, 3, 4, nan, 5, 6, 7, 8},
         {1, 2, 3, 4, 0, 5, 6, 7, 8},
         {1, 2, 3, 4, 4.5f, 5, 6, 7, 8}},
        {"a corner, from its own channel only",
         2,
         2,
         2,
         {-inf, 10, 1, 20, 2, 30, 6, 40},
         {0, 10, 1, 20, 2, 30, 6, 40},
         {3, 10, 1, 20, 2, 30, 6, 40}},
        {"neighbours repaired before them count as they were, in the row and above",
         3,
         2,
         1,
         {nan, nan, 3, nan, 1, 5},
         {0, 0, 3, 0, 1, 5},
         {1, 3, 3, 1, 1, 5}},
        {"no finite neighbour gives 0", 2, 1, 1, {inf, nan}, {0, 0}, {0, 0}},
        {"finite samples keep every bit",
         2,
         1,
         2,
         {-0.0f, 1e-45f, std::numeric_limits<float>::max(), -1e-38f},
         {-0.0f, 1e-45f, std::numeric_limits<float>::max(), -1e-38f},
         {-0.0f, 1e-45f, std::numeric_limits<float>::max(), -1e-38f}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ImageBuffer image = test::makeImage(
            c.width, c.height, c.channels,
            [&](int x, int y, int k) { return c.samples[(y * c.width + x) * c.channels + k]; });
        const auto nonFinite = std::count_if(c.samples.begin(), c.samples.end(),
                                             [](float v) { return !std::isfinite(v); });
        EXPECT_EQ(countNonFinite(image), std::size_t(nonFinite));
        const std::pair<NonFiniteMode, const std::vector<float>*> repairs[] = {
            {NonFiniteMode::Black, &c.black},
            {NonFiniteMode::Box3, &c.box3},
            {NonFiniteMode::None, &c.samples},
            {NonFiniteMode::Error, &c.samples}};
        for (const auto& [mode, expected] : repairs) {
            ImageBuffer repaired(image);
            repairNonFinite(repaired, mode);
            const std::vector<float> samples(repaired.data, repaired.data + expected->size());
            for (std::size_t i = 0; i < samples.size(); ++i) {
                EXPECT_TRUE(std::memcmp(&samples[i], &(*expected)[i], sizeof(float)) == 0 ||
                            (std::isnan(samples[i]) && std::isnan((*expected)[i])))
                    << "mode " << nonFiniteModes()[int(mode)].name << ", sample " << i << ": "
                    << samples[i];
            }
        }
    }
}

}  // namespace
}  // namespace quorblen
