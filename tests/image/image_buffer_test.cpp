// ImageBuffer: sizing, copy rules and the rows it serves as a host operator.
#include <gtest/gtest.h>

#include <array>
#include <new>
#include <utility>
#include <vector>

#include "image/ImageBuffer.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

using host::Box;
using host::Chan_Blue;
using host::Chan_Green;
using host::Chan_Red;
using host::ChannelSet;
using test::at;
using test::makeImage;

// Every sample different, so a misplaced copy shows.
ImageBuffer numbered(int w, int h, int c) {
    return makeImage(w, h, c, [c, w](int x, int y, int k) { return float((y * w + x) * c + k); });
}

std::vector<float> samples(const ImageBuffer& image) {
    const int n = image.width * image.height * image.channels;
    return n > 0 ? std::vector<float>(image.data, image.data + n) : std::vector<float>{};
}

void expectEmpty(const ImageBuffer& image) {
    EXPECT_EQ(image.width, 0);
    EXPECT_EQ(image.height, 0);
    EXPECT_EQ(image.channels, 0);
    EXPECT_EQ(image.stride, 0);
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
    EXPECT_EQ(image.info().format().height, 6);
    EXPECT_EQ(image.info().box(), (Box{0, 0, 2, 6}));
    EXPECT_EQ(image.info().channels(), ChannelSet(Chan_Red));

    image.resize(3, 2, 3);
    EXPECT_EQ(image.stride, 9);
    EXPECT_EQ(image.bbox, (Box{0, 0, 3, 2}));
    EXPECT_EQ(image.info().format().width, 3);
    EXPECT_EQ(image.info().box(), (Box{0, 0, 3, 2}));
    EXPECT_EQ(image.info().channels(), host::Mask_RGB);
}

TEST(ImageBuffer, NonPositiveCountsEmptyWithoutValidating) {
    ImageBuffer image = numbered(4, 3, 2);
    image.validate();
    image.resize(0, 5, 3);
    expectEmpty(image);
    EXPECT_EQ(image.bbox, Box{});
    // Not revalidated: the host side still describes the last positive size.
    EXPECT_EQ(image.format.width, 4);

    const std::array<std::array<int, 3>, 3> negative{{{-2, 3, 1}, {-2, -3, 1}, {4, 3, -1}}};
    for (const auto& [w, h, c] : negative) {
        ImageBuffer sized(4, 3, 2);
        sized.resize(w, h, c);
        expectEmpty(sized);
    }

    // An empty buffer keeps a zero-count shape as given: the count does not change.
    ImageBuffer empty;
    empty.resize(0, 5, 3);
    EXPECT_EQ(empty.width, 0);
    EXPECT_EQ(empty.height, 5);
    EXPECT_EQ(empty.channels, 3);
    EXPECT_EQ(empty.stride, 0);
    EXPECT_EQ(empty.bbox, (Box{0, 0, 0, 5}));
    EXPECT_EQ(empty.data, nullptr);

    // The sized constructor stores a zero-count shape, allocating nothing.
    const ImageBuffer unallocated(0, 5, 3);
    EXPECT_EQ(unallocated.height, 5);
    EXPECT_EQ(unallocated.channels, 3);
    EXPECT_EQ(unallocated.data, nullptr);
}

TEST(ImageBuffer, CountsBeyondInt32AreAllocationFailures) {
    // 65536^2 wraps to 0 and 65537^2 to 131073 in 32 bits: neither may pass as that count.
    // A row of side x side samples does not fit either, even with no rows.
    for (const int side : {65536, 65537}) {
        const std::array<std::array<int, 3>, 4> shapes{
            {{side, side, 1}, {1, side, side}, {side, 1, side}, {side, 0, side}}};
        for (const auto& [w, h, c] : shapes) {
            EXPECT_THROW(ImageBuffer(w, h, c), std::bad_alloc) << w << "x" << h << "x" << c;
            for (ImageBuffer image : {numbered(4, 3, 2), ImageBuffer()}) {
                EXPECT_THROW(image.resize(w, h, c), std::bad_alloc) << w << "x" << h << "x" << c;
                expectEmpty(image);
            }
        }

        // A source claiming such a size (it has no array) fails the assignment the same way.
        ImageBuffer huge;
        huge.width = huge.height = side;
        huge.channels = 1;
        ImageBuffer target = numbered(2, 2, 1);
        EXPECT_THROW(target = huge, std::bad_alloc) << side;
        expectEmpty(target);
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
    EXPECT_EQ(target.width, 3);
    EXPECT_EQ(target.stride, 12);
    EXPECT_NE(target.data, source.data);
    EXPECT_EQ(samples(target), samples(source));
    EXPECT_EQ(target.bbox, source.bbox);  // copied after the resize set its own
    EXPECT_EQ(target.lut, source.lut);
    EXPECT_EQ(target.jpegQuality, 0.75f);
    EXPECT_EQ(target.info().channels(), host::Mask_RGBA);
    at(target, 0, 0, 0) = -1.0f;
    EXPECT_EQ(at(source, 0, 0, 0), 0.0f);

    const ImageBuffer constructed(source);
    EXPECT_NE(constructed.data, source.data);
    EXPECT_EQ(samples(constructed), samples(source));
    EXPECT_EQ(constructed.bbox, source.bbox);
    EXPECT_EQ(constructed.lut, source.lut);
    EXPECT_EQ(constructed.jpegQuality, 1.0f);

    const float* array = target.data;
    const std::vector<float> before = samples(target);
    target = *&target;
    EXPECT_EQ(target.data, array);
    EXPECT_EQ(samples(target), before);

    // An empty source empties the target but still hands over its bbox and lut.
    ImageBuffer empty;
    empty.bbox = Box{0, 0, 7, 7};
    empty.lut = host::LUT::getLut(host::LUT::INT8);
    target = empty;
    expectEmpty(target);
    EXPECT_EQ(target.bbox, empty.bbox);
    EXPECT_EQ(target.lut, empty.lut);
}

// A row over columns 0 .. width-1 with every requested channel preset to -1, so both
// writes and their absence show.
class ServedRow {
public:
    ServedRow(int width, ChannelSet channels) : row(0, width), m_width(width) {
        for (host::Channel z : channels) {
            std::fill(row.writable(z), row.writable(z) + width, -1.0f);
        }
    }
    std::vector<float> operator()(host::Channel z) {
        return {row.writable(z), row.writable(z) + m_width};
    }
    host::Row row;

private:
    int m_width;
};

TEST(ImageBuffer, EngineServesPlanesByChannelNumberAndZerosTheRest) {
    const ChannelSet rgb = host::Mask_RGB;
    ImageBuffer image = numbered(5, 2, 2);
    image.validate();
    EXPECT_EQ(image.info().channels(), ChannelSet(0x3u));

    // Odd span 1 .. 3 of row 1: columns 0 and 4 stay untouched, blue has no plane.
    ServedRow served(5, rgb);
    image.engine(1, 1, 4, rgb, served.row);
    EXPECT_EQ(served(Chan_Red), (std::vector<float>{-1, 12, 14, 16, -1}));
    EXPECT_EQ(served(Chan_Green), (std::vector<float>{-1, 13, 15, 17, -1}));
    EXPECT_EQ(served(Chan_Blue), (std::vector<float>{-1, 0, 0, 0, -1}));

    ImageBuffer empty;
    empty.validate();
    EXPECT_TRUE(empty.info().channels().empty());
    ServedRow zeros(5, rgb);
    empty.engine(0, 0, 5, rgb, zeros.row);
    for (host::Channel z : rgb) {
        EXPECT_EQ(zeros(z), std::vector<float>(5, 0.0f));
    }
}

TEST(ImageBuffer, DeclaresOneHostChannelPerPlaneUpToThirtyOne) {
    const std::pair<int, ChannelSet> declared[] = {
        {3, host::Mask_RGB}, {4, host::Mask_RGBA}, {31, host::Mask_All}, {40, host::Mask_All}};
    for (const auto& [channels, mask] : declared) {
        ImageBuffer image(1, 1, channels);
        image.validate();
        EXPECT_EQ(image.info().channels(), mask) << channels;
    }
}

}  // namespace
}  // namespace quorblen
