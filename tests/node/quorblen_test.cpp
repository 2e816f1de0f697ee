// The Quorblen node as the host loads and drives it: registration, knobs, validation, requests
// and the cached engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <latch>
#include <memory>
#include <thread>

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
    int abortAtRow = -1;        // the host aborts when the node pulls this row
    std::atomic<int> pulls{0};  // how often the node pulled row 0

    void engine(int y, int x, int r, const ChannelSet& channels, host::Row& row) override {
        pulls += y == 0;
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

TEST_F(QuorblenNode, ServesTheStepByStepResultOnEveryThreadCount) {
    struct Case {
        int width, height, channels;
        const char *iterations, *lambda, *a;  // the knobs' text
    };
    // The knobs' defaults first (not set); one- and two-pixel sides, widths that fill no whole
    // vector, more iterations than the solver takes in one sweep.
    const Case cases[] = {{7, 5, 3, "5", "5", "0.0001"},
                          {1, 1, 3, "5", "5", "0.0001"},
                          {2, 1, 4, "1", "5", "0.0001"},
                          {1, 2, 3, "17", "0", "0.0001"},
                          {13, 11, 4, "3", "0.5", "0.01"}};
    for (const Case& k : cases) {
        const ImageBuffer image = texture(k.width, k.height, k.channels);
        const ImageBuffer expected = test::upscaledStepByStep(image, std::stoi(k.iterations),
                                                              std::stof(k.lambda), std::stof(k.a));
        connect(image);
        if (&k != cases) {
            ASSERT_TRUE(wrapper.set_knob("Iterations", k.iterations) &&
                        wrapper.set_knob("Lambda", k.lambda) && wrapper.set_knob("A", k.a));
        }
        const int w = expected.width;
        for (int threads : {1, 2, 3}) {
            SCOPED_TRACE(testing::Message()
                         << k.width << "x" << k.height << " on " << threads << " threads");
            node.set_render_threads(threads);
            revalidate();
            for (int y = 0; y < expected.height; ++y) {
                const ChannelSet channels = k.channels == 4 ? host::Mask_RGBA : Mask_RGB;
                ASSERT_EQ(pull(y, 0, w, channels), test::rowOf(expected, y, k.channels))
                    << "row " << y;
            }
            EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
            EXPECT_EQ(fractions.back(), 1.0);
        }
        if (k.channels == 4) {
            // Red, alpha and a channel the input lacks over an odd span: each from its own
            // plane, zeros for the missing one, the columns before the span untouched.
            const Planes row = test::rowOf(expected, 0, 4);
            Planes span{row[0], row[3], std::vector<float>(std::size_t(w), 0.0f)};
            for (std::vector<float>& plane : span) {
                plane[0] = -1.0f;
            }
            EXPECT_EQ(
                pull(0, 1, w, ChannelSet(host::Chan_Red) + host::Chan_Alpha + host::Channel(5)),
                span);
        }
    }
}

TEST_F(QuorblenNode, ThreadsMixingChannelSetsShareOneComputationAndGetTheirRows) {
    const ImageBuffer image = texture(40, 30, 4);
    const ImageBuffer expected = test::upscaledStepByStep(image, 5, 5.0f, 0.0001f);
    connect(image);
    // Eight threads at once on a dirty node, half asking for RGB and half for RGBA, each
    // going over every row from a row of its own.
    for (int round = 0; round < 4; ++round) {
        revalidate();
        source->pulls = 0;
        std::latch start(8);
        std::atomic<int> wrongRows{0};
        std::vector<std::jthread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&, t] {
                const ChannelSet channels = t % 2 == 0 ? Mask_RGB : host::Mask_RGBA;
                start.arrive_and_wait();
                for (int i = 0; i < 60; ++i) {
                    const int y = (i + 7 * t + round) % 60;
                    wrongRows +=
                        pull(y, 0, 80, channels) != test::rowOf(expected, y, channels.size());
                }
            });
        }
        threads.clear();
        EXPECT_EQ(wrongRows, 0) << "round " << round;
        EXPECT_EQ(source->pulls, 1) << "round " << round;
    }
}

TEST_F(QuorblenNode, AnAbortLeavesTheCacheDirtyAndTheNextRequestRecomputes) {
    SourceIop& input = connect(test::makeImage(6, 4, 4, [](int, int, int k) { return k + 1.0f; }));
    // Aborted while the input is pulled: the solver never starts and nothing is served.
    input.abortAtRow = 2;
    EXPECT_EQ(pull(1, 0, 12, ChannelSet(host::Chan_Blue))[0], std::vector<float>(12, -1.0f));
    EXPECT_TRUE(node.dirty);
    EXPECT_TRUE(fractions.empty());
    node.clear_abort();
    input.abortAtRow = -1;
    // Aborted at the solver's first report, on one thread so that the report comes before
    // the last rows are solved (an abort after them leaves a complete, clean cache).
    node.set_render_threads(1);
    onUpdate = [this](std::size_t) { node.abort(); };
    EXPECT_EQ(pull(1, 0, 12, Mask_RGB)[0], std::vector<float>(12, -1.0f));
    EXPECT_TRUE(node.dirty);
    node.clear_abort();
    onUpdate = [](std::size_t) {};
    fractions.clear();
    EXPECT_FLOAT_EQ(pull(1, 0, 12, ChannelSet(host::Chan_Blue))[0][5], 3.0f);
    EXPECT_EQ(fractions.back(), 1.0);
    EXPECT_FALSE(node.dirty);
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
    const std::unique_ptr<host::Op> op(host::Op::create("Quorblen", nullptr));
    EXPECT_STREQ(op->Class(), "Quorblen");
}

}  // namespace
}  // namespace quorblen
