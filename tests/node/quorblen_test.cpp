// The Quorblen node as the host loads and drives it: registration, knobs, validation, requests
// and the cached engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <latch>
#include <memory>
#include <thread>
#include <tuple>

#include "host/Module.h"
#include "host/OpWrapper.h"
#include "node/Quorblen.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

using host::Box;
using host::ChannelSet;
using host::Mask_RGB;
using test::at;
using test::Planes;

// Input 0 of the node: serves `image` under a format of its own pixel aspect and data box.
class SourceIop : public ImageBuffer {
public:
    SourceIop(const ImageBuffer& pixels, double aspect, Box box)
        : ImageBuffer(pixels), shape(pixels.width, pixels.height, aspect), dataBox(box) {
        invalidate();  // the copy validated as a plain buffer
    }
    host::Format shape;
    Box dataBox;
    int abortAtRow = -1;  // the host aborts when the node pulls this row

    void engine(int y, int x, int r, const ChannelSet& channels, host::Row& row) override {
        if (y == abortAtRow) {
            abort();
        }
        ImageBuffer::engine(y, x, r, channels, row);
    }

protected:
    void _validate(bool for_real) override {
        ImageBuffer::_validate(for_real);
        info_().format(shape);
        info_().full_size_format(shape);
        info_().set(dataBox);
    }
};

// Samples that vary over a short range in every direction, so the solver has work to do.
ImageBuffer texture(int w, int h, int c) {
    return test::makeImage(
        w, h, c, [](int x, int y, int k) { return float((x * 7 + y * 13 + k * 5) % 11) / 10.0f; });
}

// Drives a node built as the host builds it, recording its progress: one update per solver
// step, each handing the count of updates so far to `onUpdate`.
class QuorblenNode : public ::testing::Test, public host::ProgressSink {
protected:
    QuorblenNode() { node.set_progress_sink(this); }
    void update(double fraction) override {
        fractions.push_back(fraction);
        onUpdate(fractions.size());
    }

    // Wires a source serving `image` (under a data box of `box` unless that is empty) as
    // input 0 and validates.
    SourceIop& connect(const ImageBuffer& image, double aspect = 1.0, Box box = {}) {
        source = std::make_unique<SourceIop>(
            image, aspect, box.r > 0 ? box : Box{0, 0, image.width, image.height});
        wrapper.set_input(0, source.get());
        wrapper.validate();
        return *source;
    }
    void revalidate() {
        wrapper.invalidate();
        wrapper.validate();
        fractions.clear();
    }
    Planes pull(int y, int x, int r, ChannelSet channels) {
        return test::pullRow(wrapper, y, x, r, channels);
    }
    host::Node hostNode{"Quorblen1"};
    std::unique_ptr<host::Op> op{build(&hostNode)};
    host::OpWrapper& wrapper = dynamic_cast<host::OpWrapper&>(*op);
    Quorblen& node = dynamic_cast<Quorblen&>(wrapper.wrapped());
    std::vector<double> fractions;
    std::function<void(std::size_t)> onUpdate = [](std::size_t) {};
    std::unique_ptr<SourceIop> source;
};

TEST_F(QuorblenNode, HasItsDefaultsKnobsAndHelp) {
    EXPECT_STREQ(wrapper.Class(), "Quorblen");
    EXPECT_EQ(std::tuple(node.iterations, node.lambda, node.regularization),
              std::tuple(5, 5.0, 0.0001));
    const std::vector<host::Knob>& knobs = wrapper.knob_list();
    ASSERT_EQ(knobs.size(), 3u);
    EXPECT_EQ(knobs[0].tooltip(),
              "This filter is an iterative filter - the longer it runs, the closer it gets to "
              "the \"best\" solution. In this case the noisy smooth areas will converge to a "
              "non-noisy smooth area.");
    EXPECT_EQ(knobs[1].tooltip(),
              "This controls the filtered values are allowed to stray from the original input. ");
    EXPECT_EQ(knobs[2].tooltip(),
              "A regularization parameter that should always be at least a teensy bit above "
              "zero. This prevents Divides-By-Zero in the algorithm.");
    EXPECT_STREQ(wrapper.node_help(),
                 "This node scales an image by a factor of two. (No, you can't change that right "
                 "now.) It uses a Total Variational Inpainting technique that is supposed to "
                 "minimize noise while still preserving the edges. \n The lambda parameter is "
                 "the main control here, the larger it is, the less smoothing is allowed and the "
                 "more noise present in the small image will make it to the larger image.");
    // The knobs are bound to the node's own fields.
    EXPECT_TRUE(wrapper.set_knob("Iterations", "7") && wrapper.set_knob("Lambda", "0.5") &&
                wrapper.set_knob("A", "0"));
    EXPECT_EQ(std::tuple(node.iterations, node.lambda, node.regularization),
              std::tuple(7, 0.5, 0.0));
}

TEST_F(QuorblenNode, DoublesTheFormatAndBoxAsksForTheWholeBoxAndDirtiesTheCache) {
    const ImageBuffer image = texture(5, 3, 4);
    SourceIop& input = connect(image, 0.5, Box{1, 1, 4, 2});
    EXPECT_EQ(static_cast<const Box&>(wrapper.format()), (Box{0, 0, 10, 6}));
    EXPECT_EQ(wrapper.format().pixel_aspect, 0.5);
    EXPECT_EQ(node.full_size_format().width, 10);
    EXPECT_EQ(wrapper.info().box(), (Box{2, 2, 8, 4}));
    EXPECT_EQ(node.out_channels(), host::Mask_All);
    wrapper.request(3, 4, 9, 6, Mask_RGB, 2);
    EXPECT_EQ(input.requested_box(), (Box{1, 1, 4, 2}));

    // The box doubles in place: output pixels 2 .. 7 of rows 2 and 3 are the blocks of input
    // pixels 1 .. 3 of row 1, and keep their means.
    const Planes top = pull(2, 2, 8, Mask_RGB);
    const Planes bottom = pull(3, 2, 8, Mask_RGB);
    for (int X = 1; X < 4; ++X) {
        const float sum =
            top[0][2 * X] + top[0][2 * X + 1] + bottom[0][2 * X] + bottom[0][2 * X + 1];
        EXPECT_NEAR(sum / 4.0f, at(image, X, 1, 0), 1e-5f) << X;
    }
    EXPECT_FALSE(node.dirty);
    // Below one iteration the node changes nothing: no channels, the input's box, cache kept.
    for (const char* none : {"0", "-3"}) {
        ASSERT_TRUE(wrapper.set_knob("Iterations", none));
        wrapper.validate();
        EXPECT_EQ(wrapper.format().width, 10);
        EXPECT_TRUE(node.out_channels().empty());
        EXPECT_EQ(wrapper.info().box(), (Box{1, 1, 4, 2}));
        EXPECT_FALSE(node.dirty);
    }
    ASSERT_TRUE(wrapper.set_knob("Iterations", "5"));
    wrapper.validate();
    EXPECT_TRUE(node.dirty);
    // Nothing changed, yet the next row recomputes.
    pull(2, 2, 8, Mask_RGB);
    ASSERT_FALSE(node.dirty);
    revalidate();
    EXPECT_TRUE(node.dirty);
}

TEST_F(QuorblenNode, SolvesPlaneByPlaneReportingEveryIteration) {
    const ImageBuffer image = texture(8, 6, 3);
    connect(image);
    pull(0, 0, 16, Mask_RGB);
    ASSERT_EQ(fractions.size(), 15u);
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.back(), 1.0);

    // Iterations is read before every iteration: cut to 2 at the first, two steps per plane.
    revalidate();
    onUpdate = [this](std::size_t) { node.iterations = 2; };
    pull(0, 0, 16, Mask_RGB);
    EXPECT_EQ(fractions.size(), 6u);

    // Aborted after the fifth step of five: plane 0 is solved, planes 1 and 2 still hold the
    // nearest-neighbour start, and nothing is served.
    node.iterations = 5;
    revalidate();
    onUpdate = [this](std::size_t n) { n == 5 ? node.abort() : void(); };
    EXPECT_EQ(pull(0, 0, 16, Mask_RGB)[0], std::vector<float>(16, -1.0f));
    EXPECT_EQ(fractions.size(), 5u);
    EXPECT_TRUE(node.dirty);
    int changed[3] = {0, 0, 0};
    for (int i = 0; i < 16 * 12 * 3; ++i) {
        changed[i % 3] += node.outputBuffer.data[i] != at(image, i / 3 % 16 / 2, i / 96, i % 3);
    }
    EXPECT_GT(changed[0], 0);
    EXPECT_EQ(changed[1] + changed[2], 0);
}

TEST_F(QuorblenNode, ConcurrentRowsShareOneComputation) {
    connect(texture(16, 12, 3));
    // Two threads ask for different rows at once; both must get rows of one computation,
    // which reports five steps per plane.
    const auto pullTogether = [&](int round, ChannelSet channels) {
        fractions.clear();
        const int rows[2] = {round, 23 - round};
        Planes served[2];
        std::latch start(2);
        std::vector<std::jthread> threads;
        for (int t = 0; t < 2; ++t) {
            threads.emplace_back([&, t] {
                start.arrive_and_wait();
                served[t] = pull(rows[t], 0, 32, channels);
            });
        }
        threads.clear();
        EXPECT_EQ(fractions.size(), 5u * channels.size()) << "round " << round;
        for (int t = 0; t < 2; ++t) {
            EXPECT_EQ(served[t], pull(rows[t], 0, 32, channels)) << "round " << round;
        }
    };
    for (int round = 0; round < 8; ++round) {
        revalidate();
        pullTogether(round, ChannelSet(host::Chan_Green));
        // Without a new validation: the cache grows while the same rows are asked for.
        pullTogether(round, Mask_RGB);
    }
}

TEST_F(QuorblenNode, AnAbortLeavesTheCacheDirtyAndTheNextRequestRecomputes) {
    SourceIop& input = connect(test::makeImage(6, 4, 4, [](int, int, int k) { return k + 1.0f; }));
    // Aborted while the input is pulled: no solver step runs and nothing is served.
    input.abortAtRow = 2;
    EXPECT_EQ(pull(1, 0, 12, ChannelSet(host::Chan_Blue))[0], std::vector<float>(12, -1.0f));
    EXPECT_TRUE(node.dirty);
    EXPECT_TRUE(fractions.empty());
    node.clear_abort();
    input.abortAtRow = -1;
    pull(1, 0, 12, ChannelSet(host::Chan_Blue));
    EXPECT_EQ(fractions.size(), 5u);
    // Aborted while the cache grows for more channels: nothing is served, and no half-built
    // planes are left to serve.
    onUpdate = [this](std::size_t) { node.abort(); };
    EXPECT_EQ(pull(1, 0, 12, Mask_RGB)[0], std::vector<float>(12, -1.0f));
    EXPECT_TRUE(node.dirty);
    node.clear_abort();
    onUpdate = [](std::size_t) {};
    fractions.clear();
    EXPECT_FLOAT_EQ(pull(1, 0, 12, ChannelSet(host::Chan_Blue))[0][5], 3.0f);
    EXPECT_EQ(fractions.size(), 5u);
    EXPECT_FALSE(node.dirty);
}

TEST_F(QuorblenNode, ServesTheRequestedChannelsFromPlanesInOrder) {
    const ImageBuffer image = texture(5, 3, 4);
    connect(image);
    const ChannelSet redAlpha = ChannelSet(host::Chan_Red) + host::Chan_Alpha;
    const Planes top = pull(2, 0, 10, redAlpha);
    const Planes bottom = pull(3, 0, 10, redAlpha);
    // An odd span, 3 .. 9, ending on the last column.
    const Planes span = pull(3, 3, 10, redAlpha);
    for (int k = 0; k < 2; ++k) {
        std::vector<float> expected = bottom[k];
        std::fill(expected.begin(), expected.begin() + 3, -1.0f);
        EXPECT_EQ(span[k], expected) << "plane " << k;
        // Red, then alpha: every 2x2 block keeps its input pixel's mean.
        for (int x = 0; x < 5; ++x) {
            const float sum =
                top[k][2 * x] + top[k][2 * x + 1] + bottom[k][2 * x] + bottom[k][2 * x + 1];
            EXPECT_NEAR(sum / 4.0f, at(image, x, 1, 3 * k), 1e-5f) << x << " plane " << k;
        }
    }
    EXPECT_EQ(fractions.size(), 10u);  // one computation of two planes
    // More channels than the cache holds: computed again with the new set.
    pull(4, 0, 10, Mask_RGB);
    EXPECT_EQ(fractions.size(), 25u);
}

TEST(QuorblenModule, LoadsIntoAProgramLinkingTheNodeAndRegistersItOnce) {
    const std::string path = (test::binaryDir() / "Quorblen.so").string();
    ASSERT_NO_THROW(host::loadModule(path));
    EXPECT_NO_THROW(host::loadModule(path));
    const auto all = host::Op::Description::all();
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [](const auto* d) { return std::strcmp(d->name, "Quorblen") == 0; }),
              1);
    // This program's own description came first and stays.
    ASSERT_EQ(host::Op::Description::find("Quorblen"), &Quorblen::description);
    EXPECT_STREQ(Quorblen::description.build_stamp, "Jul 17 2011 for 6.3v1");
    host::Node node("Quorblen2");
    const std::unique_ptr<host::Op> op(host::Op::create("Quorblen", &node));
    ASSERT_NE(op, nullptr);
    EXPECT_STREQ(op->Class(), "Quorblen");
    EXPECT_EQ(op->node(), &node);
}

}  // namespace
}  // namespace quorblen
