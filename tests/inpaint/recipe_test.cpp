// Tests of the inpainting recipes: guarantees on a real photo, bad input, back-off.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "inpaint/Inpaint.h"
#include "support/TestImages.h"

namespace quorblen {
namespace {

using test::at;

/// A 48 x 40 crop of the astronaut photo as grey, RGB or RGBA (alpha a ramp, to see it kept).
ImageBuffer photoCrop(int channels, int x0 = 200) {
    static const ImageBuffer photo =
        test::readFileImage(test::sourcePath("data/astronaut.png")).pixels;
    return test::makeImage(48, 40, channels, [=](int x, int y, int c) {
        return c == 3 ? float(x) / 48.0f : at(photo, x0 + x, 180 + y, channels == 1 ? 1 : c);
    });
}

/// A 12 x 10 hole cut by the crop's right edge, and one pixel in the top-left corner.
ImageBuffer holeMask() {
    return test::makeImage(48, 40, 1, [](int x, int y, int) {
        return float((x >= 36 && y >= 14 && y < 24) || (x == 0 && y == 0));
    });
}

/// The fractions a fill reports.
struct ProgressRecord : RecipeProgress {
    std::vector<double> fractions;
    void update(std::string_view, double fraction) override { fractions.push_back(fraction); }

    /// Whether they start at 0 or more, never decrease and end at 1.
    bool wellFormed() const {
        return !fractions.empty() && fractions.front() >= 0.0 &&
               std::is_sorted(fractions.begin(), fractions.end()) && fractions.back() == 1.0;
    }
};

TEST(InpaintRecipe, FillsTheHoleAndKeepsEveryOtherSample) {
    const ImageBuffer mask = holeMask();
    for (const RecipeInfo& info : inpaintRecipes()) {
        for (int channels : {1, 4}) {
            SCOPED_TRACE(testing::Message() << info.name << ", " << channels << " channels");
            const ImageBuffer image = photoCrop(channels);
            const ImageBuffer source = photoCrop(channels, 100);
            RecipeOptions options = recipeDefaults(info.recipe);
            options.searchRadius = 6;  // reaches every hole pixel, quickly
            options.source2 = &source;
            ProgressRecord progress;
            options.progress = &progress;
            std::ostringstream log;
            const ImageBuffer out = fillHole(image, channels == 4 ? 3 : -1, mask, options, log);
            EXPECT_TRUE(progress.wellFormed());
            ASSERT_EQ(out.channels, channels);
            // Exemplar recipes write only colours that known pixels of their sources hold.
            const bool exemplar =
                info.recipe != InpaintRecipe::TV && info.recipe != InpaintRecipe::Elastica;
            using Colour = std::vector<float>;
            const auto colour = [&](const ImageBuffer& from, int p) {
                return Colour(from.data + p * channels,
                              from.data + p * channels + std::min(channels, 3));
            };
            std::set<Colour> known;
            for (int p = 0; p < 48 * 40; ++p) {
                if (mask.data[p] == 0.0f) {
                    known.insert({colour(image, p), colour(source, p)});
                }
            }
            for (int p = 0; p < 48 * 40; ++p) {
                EXPECT_TRUE(mask.data[p] == 0.0f || !exemplar || known.count(colour(out, p)))
                    << "pixel " << p;
            }
            int changed = 0;
            for (int i = 0; i < 48 * 40 * channels; ++i) {
                const bool hole = mask.data[i / channels] != 0.0f && i % channels != 3;
                if (!hole) {
                    ASSERT_EQ(out.data[i], image.data[i]) << "sample " << i;
                } else {
                    ASSERT_TRUE(std::isfinite(out.data[i])) << "sample " << i;
                    changed += out.data[i] != image.data[i];
                }
            }
            // A copied 8-bit grey level often equals the photo's own.
            EXPECT_GT(changed, 12 * 10 / 3);
            EXPECT_NE(log.str().find(info.name), std::string::npos) << log.str();
        }
    }
}

TEST(InpaintRecipe, RefusesBadInput) {
    const ImageBuffer image = photoCrop(3);
    const ImageBuffer other = photoCrop(1);
    ImageBuffer notANumber = photoCrop(3);
    at(notANumber, 20, 20, 1) = NAN;
    const ImageBuffer shortMask = test::filledImage(48, 30, 1, 0.0f);
    const ImageBuffer fullMask = test::filledImage(48, 40, 1, 1.0f);
    const auto with = [](auto change) {
        RecipeOptions options = recipeDefaults(InpaintRecipe::TV);
        change(options);
        return options;
    };
    const struct {
        const ImageBuffer& image;
        const ImageBuffer& mask;
        RecipeOptions options;
        const char* message;
    } cases[] = {
        {test::filledImage(48, 40, 5, 0.0f), holeMask(), with([](RecipeOptions&) {}),
         "5 colour channels"},
        {notANumber, holeMask(), with([](RecipeOptions&) {}), "not finite numbers"},
        {image, holeMask(), with([](RecipeOptions& o) { o.searchRadius = 0; }),
         "search-radius must be at least 1 and at most 100, not 0"},
        {image, holeMask(), with([](RecipeOptions& o) { o.patchRadius = 21; }), "patch-radius"},
        {image, holeMask(), with([](RecipeOptions& o) { o.epsilon = 0.0; }),
         "epsilon must be above 0"},
        {image, holeMask(), with([](RecipeOptions& o) { o.levels = 17; }),
         "levels must be at least 0 and at most 16, not 17"},
        {image, holeMask(), with([](RecipeOptions& o) { o.rounds = 0; }), "rounds"},
        {image, holeMask(), with([](RecipeOptions& o) { o.window = 0.0; }),
         "window must be above 0"},
        {image, holeMask(), with([&](RecipeOptions& o) { o.source2 = &other; }),
         "source2 is 48 x 40 x 1 but the image is 48 x 40 x 3"},
        {image, holeMask(), with([&](RecipeOptions& o) {
             o.recipe = InpaintRecipe::MultiSource;
             o.source3 = &notANumber;
         }),
         "source3 holds samples that are not finite numbers"},
        {image, holeMask(), with([&](RecipeOptions& o) {
             o.source2 = &image;
             o.source2Mask = &shortMask;
         }),
         "the mask of source2 is 48 x 30 but the image is 48 x 40"},
        {image, holeMask(), with([&](RecipeOptions& o) { o.source3Mask = &fullMask; }),
         "the mask of source3 is given without source3"},
        {image, holeMask(), with([&](RecipeOptions& o) {
             o.source2 = &image;
             o.source2Mask = &fullMask;
         }),
         "the mask of source2 marks every pixel"},
    };
    for (const auto& c : cases) {
        std::ostringstream log;
        try {
            fillHole(c.image, -1, c.mask, c.options, log);
            ADD_FAILURE() << "no error for " << c.message;
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
    }

    // The in-place fill takes a flag per pixel, and a refused image stays as it was.
    ImageBuffer inPlace = photoCrop(3);
    std::ostringstream log;
    EXPECT_THROW(
        fillHoleInPlace(inPlace, -1, HoleFlags(48 * 30, 1), recipeDefaults(InpaintRecipe::TV), log),
        std::invalid_argument);
    EXPECT_EQ(0, std::memcmp(inPlace.data, image.data, sizeof(float) * 48 * 40 * 3));
}

TEST(InpaintRecipe, ASourceWithItsOwnMaskDonatesItsPixelsBehindTheHole) {
    // A clean plate of the photo whose pixels behind the hole hold colours no known pixel has:
    // they donate only when the plate's own mask says they are known, and then fill the hole
    // exactly (each hole pixel's best match is the plate's pixel at its place).
    const ImageBuffer image = photoCrop(3);
    const ImageBuffer mask = test::makeImage(
        48, 40, 1, [](int x, int y, int) { return float(x >= 20 && x < 28 && y >= 16 && y < 24); });
    const ImageBuffer plate = test::makeImage(48, 40, 3, [&](int x, int y, int c) {
        return at(mask, x, y, 0) != 0.0f ? 2.0f + float(x * 3 + y + c) / 64.0f : at(image, x, y, c);
    });
    const ImageBuffer clear = test::filledImage(48, 40, 1, 0.0f);
    for (const ImageBuffer* plateMask : {static_cast<const ImageBuffer*>(nullptr), &clear}) {
        RecipeOptions options = recipeDefaults(InpaintRecipe::MultiSource);
        options.searchRadius = 6;
        options.source2 = &plate;
        options.source2Mask = plateMask;
        std::ostringstream log;
        const ImageBuffer out = fillHole(image, -1, mask, options, log);
        for (int i = 0; i < 48 * 40 * 3; ++i) {
            if (mask.data[i / 3] != 0.0f) {
                EXPECT_TRUE(plateMask != nullptr ? out.data[i] == plate.data[i]
                                                 : out.data[i] <= 1.0f)
                    << "sample " << i << " with" << (plateMask ? "" : "out") << " a plate mask";
            }
        }
    }
}

TEST(InpaintRecipe, TheHolesOwnColoursNeverReachTheFill) {
    // The hole meets the edges, where the padding repeats the pixels inside, first guesses
    // included: colours painted under the hole change no recipe's result.
    const ImageBuffer image = photoCrop(3);
    const ImageBuffer mask = holeMask();
    ImageBuffer painted(image);
    for (int i = 0; i < 48 * 40 * 3; ++i) {
        painted.data[i] = mask.data[i / 3] != 0.0f ? 1000.0f : painted.data[i];
    }
    for (const RecipeInfo& info : inpaintRecipes()) {
        RecipeOptions options = recipeDefaults(info.recipe);
        options.searchRadius = 6;
        options.iterations = 50;
        std::ostringstream log;
        const ImageBuffer out = fillHole(image, -1, mask, options, log);
        const ImageBuffer fromPainted = fillHole(painted, -1, mask, options, log);
        EXPECT_EQ(0, std::memcmp(out.data, fromPainted.data, sizeof(float) * 48 * 40 * 3))
            << info.name;
    }
}

TEST(InpaintRecipe, FillsAOnePixelWideImage) {
    // The hole lies on both edges at once; the padding around it is known but donates nothing.
    // Every recipe leaves a value between the neighbours: diffused, or copied from one.
    const ImageBuffer column = test::makeImage(1, 6, 1, [](int, int y, int) { return float(y); });
    const ImageBuffer hole =
        test::makeImage(1, 6, 1, [](int, int y, int) { return float(y == 2); });
    for (const RecipeInfo& info : inpaintRecipes()) {
        std::ostringstream log;
        const float filled =
            at(fillHole(column, -1, hole, recipeDefaults(info.recipe), log), 0, 2, 0);
        EXPECT_TRUE(filled >= 1.0f && filled <= 3.0f) << info.name << ": " << filled;
    }
}

TEST(InpaintRecipe, SendsThePassLinesToTheStreamItIsGiven) {
    RecipeOptions options = recipeDefaults(InpaintRecipe::TextureElastica);
    options.searchRadius = 6;
    std::ostringstream log;
    std::ostringstream lines;
    testing::internal::CaptureStdout();
    fillHole(photoCrop(3), -1, holeMask(), options, log, &lines);
    passLog() << "after\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "after\n");
    EXPECT_EQ(lines.str().rfind("ratio : 1\ninpaintTextureElastica: Changed ", 0), 0u)
        << lines.str();
}

TEST(InpaintRecipe, ElasticaBacksOffWhenItDiverges) {
    RecipeOptions options = recipeDefaults(InpaintRecipe::Elastica);
    options.timeStep = 1.0;
    options.iterations = 200;
    ProgressRecord progress;
    options.progress = &progress;
    std::ostringstream log;
    const ImageBuffer out = fillHole(photoCrop(3), -1, holeMask(), options, log);
    EXPECT_NE(log.str().find("unstable after"), std::string::npos) << log.str();
    EXPECT_TRUE(progress.wellFormed());
    EXPECT_TRUE(std::isfinite(at(out, 40, 20, 0)));

    // Each start begins from the first guess: the last one's result is that of a run given its
    // time step and iterations from the outset.
    int backOffs = 0;
    for (auto at = log.str().find("unstable after"); at != std::string::npos;
         at = log.str().find("unstable after", at + 1)) {
        ++backOffs;
    }
    options.timeStep = std::ldexp(1.0, -backOffs);
    options.iterations = 200 << backOffs;
    options.progress = nullptr;
    std::ostringstream directLog;
    const ImageBuffer direct = fillHole(photoCrop(3), -1, holeMask(), options, directLog);
    EXPECT_EQ(directLog.str().find("unstable after"), std::string::npos) << directLog.str();
    EXPECT_EQ(0, std::memcmp(out.data, direct.data, sizeof(float) * 48 * 40 * 3));
}

}  // namespace
}  // namespace quorblen
