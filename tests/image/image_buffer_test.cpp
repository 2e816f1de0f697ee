// ImageBuffer: sizing, copy rules and the rows it serves as a host operator.
#include <gtest/gtest.h>

#include <array>
#include <new>
#include <tuple>
#include <utility>

#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

using host::Box;
using test::Planes;

// Every sample different, so a misplaced copy shows.
ImageBuffer numbered(int w, int h, int c) {
    return test::makeImage(w, h, c,
                           [c, w](int x, int y, int k) { return float((y * w + x) * c + k); });
}

std::vector<float> samples(const ImageBuffer& image) {
    return {image.data, image.data + image.width * image.height * image.channels};
}

void expectEmpty(const ImageBuffer& image) {
    EXPECT_EQ(std::tie(image.width, image.height, image.channels, image.stride),
              std::make_tuple(0, 0, 0, 0));
    EXPECT_EQ(image.data, nullptr);
}

TEST(ImageBuffer, ResizeKeepsTheArrayWhileTheCountStaysAndRevalidates) {
    ImageBuffer image = numbered(4, 3, 1);
    const std::vector<float> before = samples(image);
    const float* array = image.data;
    image.resize(2, 6, 1);
    EXPECT_EQ(image.data, array);
    EXPECT_EQ(samples(image), before);
    EXPECT_EQ(image.stride, 2);
    EXPECT_EQ(image.bbox, (Box{0, 0, 2, 6}));
    // The host side describes the new shape.
    EXPECT_EQ(image.info().format().width, 2);
    EXPECT_EQ(image.info().box(), (Box{0, 0, 2, 6}));

    image.resize(3, 2, 3);
    EXPECT_EQ(image.stride, 9);
    EXPECT_EQ(image.info().box(), (Box{0, 0, 3, 2}));
    EXPECT_EQ(image.info().channels(), host::Mask_RGB);
}

TEST(ImageBuffer, NonPositiveCountsEmptyWithoutValidating) {
    ImageBuffer image = numbered(4, 3, 2);
    image.validate();
    image.resize(0, 5, 3);
    expectEmpty(image);
    EXPECT_EQ(image.bbox, Box{});
    EXPECT_EQ(image.format.width, 4);  // not revalidated: still the last positive size

    for (const auto& [w, h, c] :
         {std::array{-2, 3, 1}, std::array{-2, -3, 1}, std::array{4, 3, -1}}) {
        for (ImageBuffer sized : {numbered(4, 3, 2), ImageBuffer()}) {
            sized.resize(w, h, c);
            expectEmpty(sized);
        }
    }

    // An empty buffer resized, and the sized constructor, keep a zero-count shape as given.
    ImageBuffer empty;
    empty.resize(0, 5, 3);
    const ImageBuffer unallocated(0, 5, 3);
    for (const ImageBuffer* zero : {&std::as_const(empty), &unallocated}) {
        EXPECT_EQ(std::tie(zero->width, zero->height, zero->channels, zero->stride),
                  std::make_tuple(0, 5, 3, 0));
        EXPECT_EQ(zero->bbox, (Box{0, 0, 0, 5}));
        EXPECT_EQ(zero->data, nullptr);
    }
}

TEST(ImageBuffer, CountsBeyondInt32AreAllocationFailures) {
    // 65536^2 wraps to 0 and 65537^2 to 131073 in 32 bits: neither may pass as that count.
    // A row of side x side samples does not fit either, even with no rows.
    for (const int side : {65536, 65537}) {
        for (const auto& [w, h, c] : {std::array{side, side, 1}, std::array{1, side, side},
                                      std::array{side, 1, side}, std::array{side, 0, side}}) {
            EXPECT_THROW(ImageBuffer(w, h, c), std::bad_alloc) << w << "x" << h << "x" << c;
            for (ImageBuffer image : {numbered(4, 3, 2), ImageBuffer()}) {
                EXPECT_THROW(image.resize(w, h, c), std::bad_alloc) << w << "x" << h << "x" << c;
                expectEmpty(image);
            }
        }
    }
}

TEST(ImageBuffer, CopiesAreDeepAndFollowTheCopyRules) {
    ImageBuffer source = numbered(3, 2, 4);
    source.bbox = Box{1, 1, 2, 2};
    source.lut = host::LUT::getLut(host::LUT::INT16);
    source.jpegQuality = 0.25f;
    ImageBuffer target = numbered(5, 5, 1);
    target.jpegQuality = 0.75f;
    target = source;
    const ImageBuffer constructed(source);
    for (const ImageBuffer* copy : {&std::as_const(target), &constructed}) {
        EXPECT_NE(copy->data, source.data);
        EXPECT_EQ(samples(*copy), samples(source));
        EXPECT_EQ(copy->bbox, source.bbox);  // copied after the resize set its own
        EXPECT_EQ(copy->lut, source.lut);
    }
    // The JPEG quality is not copied: a target keeps its own, a new buffer starts at 1.
    EXPECT_EQ(target.jpegQuality, 0.75f);
    EXPECT_EQ(constructed.jpegQuality, 1.0f);

    const float* array = target.data;
    target = *&target;
    EXPECT_EQ(target.data, array);
    EXPECT_EQ(samples(target), samples(source));

    // An empty source empties the target but still hands over its bbox and lut.
    ImageBuffer empty;
    empty.bbox = Box{0, 0, 7, 7};
    empty.lut = host::LUT::getLut(host::LUT::INT8);
    target = empty;
    expectEmpty(target);
    EXPECT_EQ(target.bbox, empty.bbox);
    EXPECT_EQ(target.lut, empty.lut);
}

TEST(ImageBuffer, MovesHandOverTheArrayAndLeaveTheSourceEmpty) {
    ImageBuffer source = numbered(3, 2, 4);
    source.lut = host::LUT::getLut(host::LUT::INT16);
    const float* array = source.data;
    const std::vector<float> before = samples(source);
    ImageBuffer target = numbered(5, 5, 1);
    target.jpegQuality = 0.75f;
    target = std::move(source);
    expectEmpty(source);
    EXPECT_EQ(source.bbox, Box{});
    EXPECT_EQ(target.data, array);
    EXPECT_EQ(samples(target), before);
    EXPECT_EQ(target.stride, 12);
    EXPECT_EQ(target.bbox, (Box{0, 0, 3, 2}));
    EXPECT_EQ(target.lut, host::LUT::getLut(host::LUT::INT16));
    EXPECT_EQ(target.jpegQuality, 0.75f);
    // The host side describes the array taken over, not the target's old shape.
    EXPECT_EQ(target.info().box(), (Box{0, 0, 3, 2}));
    EXPECT_EQ(target.info().channels(), host::Mask_RGBA);

    const ImageBuffer constructed(std::move(target));
    expectEmpty(target);
    EXPECT_EQ(constructed.data, array);
    EXPECT_EQ(constructed.info().box(), (Box{0, 0, 3, 2}));
}

TEST(ImageBuffer, EngineServesPlanesByChannelNumberAndZerosTheRest) {
    ImageBuffer image = numbered(5, 2, 2);
    image.validate();
    // Odd span 1 .. 3 of row 1: columns 0 and 4 stay untouched, blue has no plane.
    EXPECT_EQ(test::pullRow(image, 1, 1, 4, host::Mask_RGB, 5),
              (Planes{{-1, 12, 14, 16, -1}, {-1, 13, 15, 17, -1}, {-1, 0, 0, 0, -1}}));

    ImageBuffer empty;
    empty.validate();
    EXPECT_TRUE(empty.info().channels().empty());
    EXPECT_EQ(test::pullRow(empty, 0, 0, 5, host::Mask_RGB), Planes(3, std::vector<float>(5, 0)));

    // One host channel per plane, up to all 31.
    for (const auto& [channels, mask] :
         {std::pair{4, host::Mask_RGBA}, std::pair{31, host::Mask_All},
          std::pair{40, host::Mask_All}}) {
        ImageBuffer wide(1, 1, channels);
        wide.validate();
        EXPECT_EQ(wide.info().channels(), mask) << channels;
    }
}

}  // namespace
}  // namespace quorblen
