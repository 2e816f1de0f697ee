// The Quorblen node as the host loads and drives it: registration, knobs, validation, requests
// and the cached engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "host/Module.h"
#include "host/OpWrapper.h"
#include "node/Quorblen.h"
#include "tests/support/TestImages.h"

namespace quorblen {
namespace {

using host::Box;
using host::Chan_Alpha;
using host::Chan_Blue;
using host::Chan_Green;
using host::Chan_Red;
using host::ChannelSet;
using test::at;
using test::makeImage;

// Input 0 of the node: serves `image` under a format and box of its own, counts the pulls of
// the whole image (as requests for row 0) and can abort the tree when a row is asked for.
class SourceIop : public host::Iop {
public:
    explicit SourceIop(const ImageBuffer& pixels)
        : Iop(nullptr),
          image(pixels),
          imageFormat(pixels.width, pixels.height),
          dataBox{0, 0, pixels.width, pixels.height} {}

    ImageBuffer image;
    host::Format imageFormat;
    Box dataBox;
    std::atomic<int> pulls{0};
    int abortAtRow = -1;

    const char* Class() const override { return "SourceIop"; }
    const char* node_help() const override { return ""; }
    void engine(int y, int x, int r, const ChannelSet& channels, host::Row& row) override {
        if (y == 0) {
            ++pulls;
        }
        if (y == abortAtRow) {
            abort();
        }
        image.engine(y, x, r, channels, row);
    }

protected:
    void _validate(bool /*for_real*/) override {
        info_().format(imageFormat);
        info_().full_size_format(imageFormat);
        info_().set(dataBox);
        info_().channels(host::Mask_RGBA);
        set_out_channels(host::Mask_All);
    }
};

// Records the progress of a computation; can change the node's iterations at the first
// update and abort the tree at a given update.
class Progress : public host::ProgressSink {
public:
    explicit Progress(Quorblen& node) : m_node(node) {}
    void update(double fraction) override {
        fractions.push_back(fraction);
        if (fractions.size() == 1 && iterationsAfterFirst) {
            m_node.iterations = *iterationsAfterFirst;
        }
        if (fractions.size() == abortAfter) {
            m_node.abort();
        }
    }
    std::vector<double> fractions;
    std::optional<int> iterationsAfterFirst;
    std::size_t abortAfter = 0;

private:
    Quorblen& m_node;
};

// An image whose samples vary over a short range in every direction, so the solver has
// something to smooth.
ImageBuffer texture(int w, int h, int c) {
    return makeImage(
        w, h, c, [](int x, int y, int k) { return float((x * 7 + y * 13 + k * 5) % 11) / 10.0f; });
}

// Channel k of the image is constant k + 1.
ImageBuffer flatPlanes(int w, int h) {
    return makeImage(w, h, 4, [](int, int, int k) { return float(k + 1); });
}

class QuorblenNode : public ::testing::Test {
protected:
    QuorblenNode()
        : op(build(&hostNode)),
          wrapper(dynamic_cast<host::OpWrapper&>(*op)),
          node(dynamic_cast<Quorblen&>(wrapper.wrapped())),
          progress(node) {
        node.set_progress_sink(&progress);
    }

    // Wires a source serving `image` as input 0; `setup` may change it before validation.
    SourceIop& connect(const ImageBuffer& image,
                       const std::function<void(SourceIop&)>& setup = nullptr) {
        source = std::make_unique<SourceIop>(image);
        if (setup) {
            setup(*source);
        }
        wrapper.set_input(0, source.get());
        wrapper.validate();
        return *source;
    }

    void revalidate() {
        wrapper.invalidate();
        wrapper.validate();
    }

    // Row y, columns x .. r-1, of `channels` as the host pulls it, one vector per channel over
    // columns 0 .. r-1; columns the node does not write keep -1.
    std::vector<std::vector<float>> pull(int y, int x, int r, ChannelSet channels) {
        host::Row row(0, r);
        for (host::Channel z : channels) {
            std::fill(row.writable(z), row.writable(z) + r, -1.0f);
        }
        row.get(wrapper, y, x, r, channels);
        std::vector<std::vector<float>> planes;
        for (host::Channel z : channels) {
            planes.emplace_back(row[z], row[z] + r);
        }
        return planes;
    }

    // Plane k of the cached row y over columns 0 .. r-1.
    std::vector<float> cached(int y, int k, int r) const {
        std::vector<float> values;
        for (int X = 0; X < r; ++X) {
            values.push_back(at(node.outputBuffer, X, y, k));
        }
        return values;
    }

    host::Node hostNode{"Quorblen1"};
    std::unique_ptr<host::Op> op;
    host::OpWrapper& wrapper;
    Quorblen& node;
    Progress progress;
    std::unique_ptr<SourceIop> source;
};

TEST_F(QuorblenNode, StartsWithItsDefaultsKnobsAndHelp) {
    EXPECT_STREQ(wrapper.Class(), "Quorblen");
    EXPECT_EQ(node.node(), &hostNode);
    EXPECT_EQ(node.iterations, 5);
    EXPECT_EQ(node.lambda, 5.0);
    EXPECT_EQ(node.regularization, 0.0001);
    EXPECT_TRUE(node.dirty);
    for (const ImageBuffer* buffer : {&node.inputBuffer, &node.outputBuffer, &node.workBuffer}) {
        EXPECT_EQ(buffer->data, nullptr);
        EXPECT_EQ(buffer->width, 0);
    }
    EXPECT_EQ(static_cast<const Box&>(node.outputFormat), (Box{0, 0, 1, 1}));

    const std::vector<host::Knob>& knobs = wrapper.knob_list();
    ASSERT_EQ(knobs.size(), 3u);
    EXPECT_EQ(knobs[0].name(), "Iterations");
    EXPECT_EQ(knobs[0].kind(), host::KnobKind::Int);
    EXPECT_EQ(knobs[0].tooltip(),
              "This filter is an iterative filter - the longer it runs, the closer it gets to "
              "the \"best\" solution. In this case the noisy smooth areas will converge to a "
              "non-noisy smooth area.");
    EXPECT_EQ(knobs[1].name(), "Lambda");
    EXPECT_EQ(knobs[1].kind(), host::KnobKind::Float);
    EXPECT_EQ(knobs[1].field_size(), sizeof(double));
    EXPECT_EQ(knobs[1].tooltip(),
              "This controls the filtered values are allowed to stray from the original input. ");
    EXPECT_EQ(knobs[2].name(), "A");
    EXPECT_EQ(knobs[2].field_size(), sizeof(double));
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
    EXPECT_TRUE(wrapper.set_knob("Iterations", "7"));
    EXPECT_TRUE(wrapper.set_knob("Lambda", "0.5"));
    EXPECT_TRUE(wrapper.set_knob("A", "0"));
    EXPECT_EQ(node.iterations, 7);
    EXPECT_EQ(node.lambda, 0.5);
    EXPECT_EQ(node.regularization, 0.0);
}

TEST_F(QuorblenNode, DoublesTheInputFormatAndAsksForTheWholeInput) {
    struct Case {
        int w, h;
        double aspect;
    };
    for (const Case& c : {Case{640, 480, 2.0}, Case{5, 3, 0.5}}) {
        SourceIop& input = connect(ImageBuffer(1, 1, 1), [&c](SourceIop& s) {
            s.imageFormat = host::Format(c.w, c.h, c.aspect);
            s.dataBox = Box{0, 0, c.w, c.h};
        });
        const host::Format& format = wrapper.format();
        EXPECT_EQ(static_cast<const Box&>(format), (Box{0, 0, 2 * c.w, 2 * c.h}));
        EXPECT_EQ(format.width, 2 * c.w);
        EXPECT_EQ(format.height, 2 * c.h);
        EXPECT_EQ(format.pixel_aspect, c.aspect);
        EXPECT_EQ(format.name, "");
        EXPECT_EQ(&node.full_size_format(), &node.format());
        EXPECT_EQ(wrapper.info().box(), (Box{0, 0, 2 * c.w, 2 * c.h}));
        EXPECT_EQ(node.out_channels(), host::Mask_All);

        wrapper.request(3, 4, 9, 6, host::Mask_RGB, 2);
        EXPECT_EQ(input.requested_box(), (Box{0, 0, c.w, c.h}));
        wrapper.request(0, 0, 1, 1, ChannelSet(Chan_Red), 1);
        EXPECT_EQ(input.requested_box(), (Box{0, 0, c.w, c.h}));
    }
}

TEST_F(QuorblenNode, EveryValidationWithIterationsMarksTheCacheDirty) {
    connect(flatPlanes(5, 3), [](SourceIop& s) { s.dataBox = Box{1, 1, 4, 2}; });
    pull(0, 0, 10, host::Mask_RGB);
    EXPECT_FALSE(node.dirty);

    // Below one iteration the node changes nothing: no channels, the input's box, cache kept.
    for (const char* none : {"0", "-3"}) {
        ASSERT_TRUE(wrapper.set_knob("Iterations", none));
        wrapper.validate();
        EXPECT_EQ(wrapper.format().width, 10);
        EXPECT_EQ(wrapper.format().height, 6);
        EXPECT_TRUE(node.out_channels().empty());
        EXPECT_EQ(wrapper.info().box(), (Box{1, 1, 4, 2}));
        EXPECT_FALSE(node.dirty);
    }

    ASSERT_TRUE(wrapper.set_knob("Iterations", "5"));
    wrapper.validate();
    EXPECT_TRUE(node.dirty);
    EXPECT_EQ(wrapper.info().box(), (Box{0, 0, 10, 6}));

    // Nothing changed, yet the next row recomputes.
    pull(0, 0, 10, host::Mask_RGB);
    ASSERT_FALSE(node.dirty);
    ASSERT_TRUE(wrapper.set_knob("Lambda", "5"));
    wrapper.validate();
    EXPECT_TRUE(node.dirty);
}

TEST_F(QuorblenNode, SolvesPlaneByPlaneReportingEveryIteration) {
    const ImageBuffer image = texture(8, 6, 3);
    connect(image);
    pull(0, 0, 16, host::Mask_RGB);
    ASSERT_EQ(progress.fractions.size(), 15u);
    EXPECT_TRUE(std::is_sorted(progress.fractions.begin(), progress.fractions.end()));
    EXPECT_EQ(progress.fractions.back(), 1.0);

    // Aborted after the fifth step: plane 0 is solved, planes 1 and 2 still hold the
    // nearest-neighbour start.
    revalidate();
    progress.fractions.clear();
    progress.abortAfter = 5;
    const std::vector<std::vector<float>> row = pull(0, 0, 16, host::Mask_RGB);
    EXPECT_EQ(progress.fractions.size(), 5u);
    EXPECT_TRUE(node.dirty);
    EXPECT_EQ(row[0], std::vector<float>(16, -1.0f));  // nothing served on an abort
    int changed[3] = {0, 0, 0};
    for (int Y = 0; Y < 12; ++Y) {
        for (int X = 0; X < 16; ++X) {
            for (int c = 0; c < 3; ++c) {
                changed[c] += at(node.outputBuffer, X, Y, c) != at(image, X / 2, Y / 2, c);
            }
        }
    }
    EXPECT_GT(changed[0], 0);
    EXPECT_EQ(changed[1], 0);
    EXPECT_EQ(changed[2], 0);
}

TEST_F(QuorblenNode, ReadsIterationsBeforeEveryIteration) {
    connect(texture(4, 4, 3));
    progress.iterationsAfterFirst = 2;
    pull(0, 0, 8, host::Mask_RGB);
    // Two steps per plane: a count read once per computation or per plane gives more.
    EXPECT_EQ(progress.fractions.size(), 6u);
}

TEST_F(QuorblenNode, ConcurrentRowsShareOneComputation) {
    SourceIop& input = connect(texture(16, 12, 3));
    // Two threads ask for different rows at once; both must get rows of one computation.
    const auto pullTogether = [&](int round, ChannelSet channels) {
        const int before = input.pulls;
        const int rows[2] = {round, 23 - round};
        std::vector<std::vector<float>> served[2];
        std::latch start(2);
        std::vector<std::jthread> threads;
        for (int t = 0; t < 2; ++t) {
            threads.emplace_back([&, t] {
                start.arrive_and_wait();
                served[t] = pull(rows[t], 0, 32, channels);
            });
        }
        threads.clear();
        EXPECT_EQ(input.pulls, before + 1) << "round " << round;
        for (int t = 0; t < 2; ++t) {
            for (int k = 0; k < channels.size(); ++k) {
                EXPECT_EQ(served[t][k], cached(rows[t], k, 32)) << "round " << round;
            }
        }
    };
    for (int round = 0; round < 8; ++round) {
        revalidate();
        pullTogether(round, ChannelSet(Chan_Green));
        // Without a new validation: the cache grows while the same rows are asked for.
        pullTogether(round, host::Mask_RGB);
    }
}

TEST_F(QuorblenNode, AnAbortLeavesTheCacheDirtyAndTheNextRequestRecomputes) {
    SourceIop& input = connect(flatPlanes(6, 4), [](SourceIop& s) { s.abortAtRow = 2; });
    EXPECT_EQ(pull(1, 0, 12, host::Mask_RGB)[0], std::vector<float>(12, -1.0f));
    EXPECT_TRUE(node.aborted());
    EXPECT_TRUE(node.dirty);
    EXPECT_EQ(input.pulls, 1);

    node.clear_abort();
    input.abortAtRow = -1;
    const std::vector<std::vector<float>> row = pull(1, 0, 12, host::Mask_RGB);
    EXPECT_EQ(input.pulls, 2);
    EXPECT_FALSE(node.dirty);
    for (int k = 0; k < 3; ++k) {
        for (float value : row[k]) {
            EXPECT_FLOAT_EQ(value, float(k + 1));  // a flat plane stays flat
        }
    }

    // An abort while the cache grows for more channels leaves no half-built planes to serve.
    revalidate();
    pull(1, 0, 12, ChannelSet(Chan_Blue));
    progress.fractions.clear();
    progress.abortAfter = 1;
    pull(1, 0, 12, host::Mask_RGB);
    node.clear_abort();
    EXPECT_TRUE(node.dirty);
    const int before = input.pulls;
    EXPECT_FLOAT_EQ(pull(1, 0, 12, ChannelSet(Chan_Blue))[0][5], 3.0f);
    EXPECT_EQ(input.pulls, before + 1);
}

TEST_F(QuorblenNode, CachesTheRequestedChannelsAsPlanesInOrder) {
    const ImageBuffer image = texture(5, 3, 4);
    SourceIop& input = connect(image);
    ChannelSet redAlpha(Chan_Red);
    redAlpha += Chan_Alpha;

    // An odd span, 3 .. 9, ending on the last column.
    const std::vector<std::vector<float>> row = pull(1, 3, 10, redAlpha);
    ASSERT_EQ(node.inputBuffer.channels, 2);
    ASSERT_EQ(node.outputBuffer.channels, 2);
    for (int k = 0; k < 2; ++k) {
        std::vector<float> expected = cached(1, k, 10);
        std::fill(expected.begin(), expected.begin() + 3, -1.0f);
        EXPECT_EQ(row[k], expected) << "plane " << k;
    }
    // Plane 0 holds red and plane 1 alpha; every 2x2 block keeps its input pixel's mean.
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 5; ++x) {
            for (int k = 0; k < 2; ++k) {
                const float expected = at(image, x, y, k == 0 ? 0 : 3);
                EXPECT_EQ(at(node.inputBuffer, x, y, k), expected);
                const float mean = (at(node.outputBuffer, 2 * x, 2 * y, k) +
                                    at(node.outputBuffer, 2 * x + 1, 2 * y, k) +
                                    at(node.outputBuffer, 2 * x, 2 * y + 1, k) +
                                    at(node.outputBuffer, 2 * x + 1, 2 * y + 1, k)) /
                                   4.0f;
                EXPECT_NEAR(mean, expected, 1e-5f) << x << "," << y << " plane " << k;
            }
        }
    }
    pull(4, 0, 10, redAlpha);
    EXPECT_EQ(input.pulls, 1);

    // More channels than the cache holds: computed again with the new set.
    const std::vector<std::vector<float>> rgb = pull(4, 0, 10, host::Mask_RGB);
    EXPECT_EQ(input.pulls, 2);
    ASSERT_EQ(node.inputBuffer.channels, 3);
    EXPECT_EQ(at(node.inputBuffer, 2, 1, 1), at(image, 2, 1, 1));
    EXPECT_EQ(rgb[2], cached(4, 2, 10));
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
