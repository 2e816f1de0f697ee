// The exemplar and elastica fill passes and the elastica energy.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "inpaint/FillOrder.h"
#include "inpaint/Inpaint.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

using test::at;

/// w x h x 4, every colour sample distinct; alpha `alpha` at the listed pixels, else 0.
ImageBuffer scene(int w, int h, const PixelList& hole, float alpha) {
    ImageBuffer image = test::makeImage(w, h, 4, [](int x, int y, int c) {
        return c < 3 ? float(x + 64 * y + 4096 * c) / 65536.0f : 0.0f;
    });
    for (const PixelEntry& p : hole) {
        at(image, p.x, p.y, 3) = alpha;
    }
    return image;
}

std::array<float, 3> colourAt(const ImageBuffer& image, int x, int y) {
    return {at(image, x, y, 0), at(image, x, y, 1), at(image, x, y, 2)};
}

// The passes, in the order of the tables below.
enum Pass { TV, Synthesis, Multi, ElasticaSynthesis, Weighted, TextureElastica, Fallback, Count };

/// Runs `pass` on `s` with `w` as the image it fills (`out`, `img` or `new_img`): extra
/// sources `s` itself, maskChannel 3, epsilon 0.01, weights 1, scanning forward first.
double runPass(int pass, const ImageBuffer& s, ImageBuffer& w, PixelList l, int R, double d,
               int r = 3) {
    ImageBuffer src(s);
    switch (pass) {
        case TV:
            return inpaintTextureTV(nullptr, s, w, 3, l, R);
        case Synthesis:
            return inpaintTextureSynthesis(s, w, 3, l, R, d, r, true);
        case Multi:
            return inpaintMultiSourceSynthesis(nullptr, s, s, s, w, 3, l, R, r, true, 0, d);
        case ElasticaSynthesis:
            return inpaintElasticaTextureSynthesis(s, w, 3, l, R, 0.01, 1, 1, r, true);
        case Weighted:
            return inpaintWeightedElasticaSynthesis(nullptr, s, s, s, w, 3, l, R, r, true, 0.01, 1,
                                                    0, 1);
        case TextureElastica:
            return inpaintTextureElastica(nullptr, src, w, 3, l, R, true, 0.01, 1, d);
        default:
            return inpaintSynthesisElasticaFallback(nullptr, s, s, s, w, 3, l, R, r, true, 0.01, 1,
                                                    d);
    }
}

/// What each pass prints before ": Changed ", and the alpha it leaves at a filled pixel in
/// iterations 0 and 1 (TextureTV and Weighted do not write it).
const char* const Lines[Count] = {"inpaintTextureTV",
                                  "inpaintTextureSynthesis",
                                  nullptr,
                                  "inpaintElasticaTextureSynthesis",
                                  nullptr,
                                  "ratio : 1\ninpaintTextureElastica",
                                  nullptr};
const float AlphaAfter[Count][2] = {{1.0f, 0.7f}, {0.7f, 0.49f}, {0.7f, 0.49f}, {1.0f, 1.0f},
                                    {1.0f, 0.7f}, {0.7f, 0.49f}, {0.7f, 0.49f}};

std::string changedLine(int pass, int changed, std::size_t n) {
    return Lines[pass] ? std::string(Lines[pass]) + ": Changed " + std::to_string(changed) +
                             " pixels out of " + std::to_string(n) + " this iteration.\n"
                       : "";
}

TEST(FillPasses, EmptyListsAndPixelsWithoutCandidates) {
    // Search radius 0 leaves only the pixel itself, which is not known: every pass keeps the
    // source's colour, counts no change, and moves the alpha to its next level.
    const PixelList pair{{5, 4, -1}, {4, 4, -1}};
    for (int pass = 0; pass < Count; ++pass) {
        for (int d : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "pass " << pass << " iteration " << d);
            const ImageBuffer src = scene(10, 9, pair, d == 0 ? 1.0f : 0.7f);
            ImageBuffer written(src);
            testing::internal::CaptureStdout();
            EXPECT_EQ(runPass(pass, src, written, {}, 5, d), 0.0);
            EXPECT_EQ(runPass(pass, src, written, pair, 0, d), 0.0);
            EXPECT_EQ(testing::internal::GetCapturedStdout(),
                      changedLine(pass, 0, 0) + changedLine(pass, 0, 2));
            for (const PixelEntry& p : pair) {
                EXPECT_EQ(colourAt(written, p.x, p.y), colourAt(src, p.x, p.y));
                EXPECT_EQ(at(written, p.x, p.y, 3), AlphaAfter[pass][d]);
            }
        }
    }
}

TEST(FillPasses, ImageWithoutAlphaChannel) {
    const ImageBuffer rgb = test::filledImage(8, 8, 3, 0.5f);
    ImageBuffer written(rgb);
    testing::internal::CaptureStdout();
    EXPECT_EQ(runPass(Synthesis, rgb, written, {{4, 4, -1}}, 2, 0, 1), -1.0);
    EXPECT_EQ(runPass(TextureElastica, rgb, written, {{4, 4, -1}}, 2, 0), -1.0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Error: new_img doesn't have an alpha channel!\n"
              "Error: new_img doesn't have an alpha channel!\n");
    EXPECT_TRUE(test::sameImage(written, rgb));
}

TEST(FillPasses, EqualScoresKeepTheFirstCandidate) {
    // Patch radius 0 scores every candidate 0.0 against an unknown centre. With (1, 2) unknown
    // too, the first centre with a known 3x3 block is (2, 4), columns being the outer loop.
    const PixelList hole{{5, 5, -1}};
    ImageBuffer src = scene(11, 11, hole, 1.0f);
    at(src, 1, 2, 3) = 1.0f;
    testing::internal::CaptureStdout();
    for (int pass : {Synthesis, Multi, Fallback}) {
        ImageBuffer out(src);
        runPass(pass, src, out, hole, 3, 0, 0);
        EXPECT_EQ(colourAt(out, 5, 5), colourAt(src, 2, 4)) << pass;
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), changedLine(Synthesis, 1, 1));
}

TEST(FillPasses, MultiSourceCarriesTheLastWinnersSourceOver) {
    // Only extraSrc2 is known in columns 0-3, only extraSrc1 in columns 7-10. The scan turning
    // back after the first step, A = (2, 5) is filled from extraSrc2, then D = (8, 5) from
    // extraSrc1; C = (5, 5) has no candidate and takes its own colour from extraSrc1 too.
    const auto source = [](float offset, int x0, int x1) {
        return test::makeImage(11, 11, 4, [=](int x, int y, int c) {
            return c < 3 ? offset + float(x + 16 * y) / 256.0f : x >= x0 && x <= x1 ? 0.0f : 0.5f;
        });
    };
    const PixelList list{{2, 5, -1}, {5, 5, -1}, {8, 5, -1}};
    ImageBuffer src = source(0.0f, 1, 0);
    for (const PixelEntry& p : list) {
        at(src, p.x, p.y, 3) = 1.0f;
    }
    const ImageBuffer extra1 = source(1.0f, 7, 10), extra2 = source(2.0f, 0, 3);
    ImageBuffer out(src);
    inpaintMultiSourceSynthesis(nullptr, extra1, extra2, src, out, 3, list, 1, 1, true, 0, 0);
    EXPECT_EQ(std::pair(int(at(out, 2, 5, 0)), int(at(out, 8, 5, 0))), std::pair(2, 1));
    EXPECT_EQ(colourAt(out, 5, 5), colourAt(extra1, 5, 5));
    EXPECT_EQ(at(out, 5, 5, 3), 0.7f);
}

TEST(FillPasses, TextureElasticaJudgesInNewImgAndWritesFromSrc) {
    // Donors (channel 4 below P's) at (5, 2) and (5, 8); in new_img the second matches P's flat
    // surroundings, in src the first does.
    const PixelList entries{{5, 5, -1}, {2, 2, -1}};
    ImageBuffer newImg = test::makeImage(11, 11, 5, [](int x, int y, int c) {
        return c < 3    ? 0.5f
               : c == 4 ? float(x != 5 || (y != 2 && y != 8))
                        : float(x == y && (x == 5 || x == 2));
    });
    ImageBuffer src(newImg);
    for (int c = 0; c < 3; ++c) {
        at(newImg, 5, 5, c) = at(src, 5, 5, c) = at(newImg, 2, 2, c) = at(src, 2, 2, c) = 0.0f;
        at(newImg, 5, 2, c) = 0.9f;
        at(src, 5, 8, c) = 0.2f;
    }
    PixelList list = entries;
    testing::internal::CaptureStdout();
    EXPECT_EQ(inpaintTextureElastica(nullptr, src, newImg, 4, list, 3, true, 0.01, 1.5, 0.0),
              double(0.2f));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ratio : 1.5\ninpaintTextureElastica: Changed 1 pixels out of 2 this iteration.\n");
    EXPECT_EQ(colourAt(newImg, 5, 5), (std::array{0.2f, 0.2f, 0.2f}));
    // Two entries make one step: the other keeps its colour, and both get the next level.
    EXPECT_EQ(colourAt(newImg, 2, 2), (std::array{0.0f, 0.0f, 0.0f}));
    for (const PixelEntry& e : entries) {
        EXPECT_EQ(std::pair(at(newImg, e.x, e.y, 3), at(src, e.x, e.y, 3)), std::pair(0.7f, 0.7f));
    }
}

TEST(FillPasses, ConsumedListsEndInReverseFillOrder) {
    // Three lone pixels of equal priority. The elastica synthesis flips its scan every step
    // (first, middle, last entry); texture-elastica keeps it (first, then the last one, which
    // the first swap moved to the front) and fills one pixel fewer.
    const PixelList lone{{2, 2, 0}, {5, 5, 1}, {2, 7, 2}};
    const ImageBuffer src = scene(10, 10, lone, 1.0f);
    PixelList flipped = lone, fixed = lone;
    ImageBuffer img(src), newImg(src), source(src);
    testing::internal::CaptureStdout();
    inpaintElasticaTextureSynthesis(src, img, 3, flipped, 0, 0.01, 1, 1, 2, true);
    inpaintTextureElastica(nullptr, source, newImg, 3, fixed, 0, true, 0.01, 1, 0);
    testing::internal::GetCapturedStdout();
    const auto tags = [](const PixelList& l) { return std::array{l[0].tag, l[1].tag, l[2].tag}; };
    EXPECT_EQ(tags(flipped), (std::array{2, 1, 0}));
    EXPECT_EQ(tags(fixed), (std::array{1, 2, 0}));
}

TEST(FillOrder, SelectsWhatTheScanSelects) {
    // A 12 x 12 hole filled in the consuming order, the direction turning every step: each
    // fill changes the priorities around it, and many priorities tie.
    PixelList list;
    for (std::uint32_t i = 0; i < 144; ++i) {
        list.push_back({2 + i % 12, 2 + i / 12, -1});
    }
    ImageBuffer image = scene(16, 16, list, 1.0f);
    detail::FillOrder order(image, list);
    for (std::int32_t last = 143; last >= 0; --last) {
        std::uint32_t x = 0;
        std::uint32_t y = 0;
        const std::uint32_t index = highestPriorityPixel(image, list, last, last % 2, x, y);
        ASSERT_EQ(order.best(last % 2), index) << last;
        std::swap(list[index], list[std::size_t(last)]);
        order.retire(index, std::uint32_t(last));
        order.setAlpha(image, x, y, 0.5f);
    }
}

TEST(FillPasses, FallbackTakesCloseMatchesAsTheyAre) {
    // Iteration 1 and patch radius 0: the distance compares the centres, P's alpha 0.7
    // counting. The only patch candidate, (5, 2), is 0.25; every other pixel is flat 0.5, which
    // the energy prefers, and the pixels of (5, 2)'s block may donate singly.
    for (const auto& [offset, expected] : {std::pair{0.01732f, 0.25f}, {0.02646f, 0.5f}}) {
        SCOPED_TRACE(offset);  // distances 0.0003 and 0.0007
        ImageBuffer src = test::makeImage(11, 11, 5, [](int x, int y, int c) {
            const bool known = std::abs(x - 5) <= 1 && std::abs(y - 2) <= 1;
            return c < 3 ? (x == 5 && y == 2 ? 0.25f : 0.5f) : c == 4 ? float(!known) : 0.0f;
        });
        for (int c = 0; c < 3; ++c) {
            at(src, 5, 5, c) = 0.25f + offset;
        }
        at(src, 5, 5, 3) = 0.7f;
        ImageBuffer out(src);
        inpaintSynthesisElasticaFallback(nullptr, src, src, src, out, 4, {{5, 5, -1}}, 3, 0, true,
                                         0.01, 1.0, 1.0);
        EXPECT_EQ(at(out, 5, 5, 0), expected);
    }
}

TEST(ElasticaEnergy, CurvatureWeighsTheFivePointGradient) {
    // A lone peak: curvature -4 / sqrt(1.25) at epsilon 0.5, gradient magnitude sqrt(2) there
    // and sqrt(1/2) at each neighbour.
    ImageBuffer peak = test::filledImage(5, 5, 4, 0.0f);
    at(peak, 2, 2, 0) = 1.0f;
    EXPECT_NEAR(elasticaDensity(peak, 2, 2, 0.5f, 2.0f), (1.0 + 2.0 * 16.0 / 1.25) * std::sqrt(2.0),
                1e-6);
    EXPECT_NEAR(elasticaEnergy(peak, 2, 2, 0.5f, 0.0f), 3.0 * std::sqrt(2.0), 1e-6);
    EXPECT_EQ(elasticaEnergy(test::filledImage(5, 5, 4, 0.3f), 2, 2, 0.01f, 5.0f), 0.0);
}

}  // namespace
}  // namespace quorblen
