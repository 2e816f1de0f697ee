// The host stand-in's core: channels, rows, knobs, the registry, the wrapper, tree state and
// module loading.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/Iop.h"
#include "host/Module.h"
#include "host/OpWrapper.h"
#include "tests/support/TestImages.h"

namespace host {
namespace {

std::vector<int> numbers(const ChannelSet& set) {
    return {set.begin(), set.end()};
}

TEST(ChannelSet, IteratesInChannelOrderWhateverTheInsertionOrder) {
    ChannelSet set;
    for (Channel z : {Channel(7), Chan_Alpha, Chan_Red, Chan_Black}) {
        set += z;  // Chan_Black is no channel: ignored
    }
    EXPECT_EQ(numbers(set), (std::vector<int>{1, 4, 7}));
    EXPECT_EQ(set.first(), Chan_Red);
    EXPECT_EQ(numbers(set & Mask_RGB), (std::vector<int>{1}));
    EXPECT_EQ(numbers(Mask_RGBA), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(numbers(Mask_RGBA - Mask_RGB), (std::vector<int>{4}));
    EXPECT_EQ(Mask_None.begin(), Mask_None.end());
    EXPECT_EQ(Mask_All.size(), 31);
    EXPECT_EQ(numbers(Mask_All).back(), Chan_Last);
}

TEST(Row, SpansCoverTheirColumnsWhereverTheyStart) {
    Row row(3, 7);
    float* red = row.writable(Chan_Red);
    EXPECT_EQ(std::vector<float>(red + 3, red + 7), std::vector<float>(4, 0.0f));
    std::fill(red + 3, red + 7, 2.0f);
    EXPECT_EQ(row[Chan_Red], red);  // one span per channel, kept between calls

    // A span starting left of column 0 is indexed by absolute column too.
    Row left(-2, 2);
    std::fill(left.writable(Chan_Blue) - 2, left.writable(Chan_Blue) + 2, 5.0f);
    left.erase(Chan_Blue);
    EXPECT_EQ(std::vector<float>(left[Chan_Blue] - 2, left[Chan_Blue] + 2),
              std::vector<float>(4, 0.0f));

    row.erase(Mask_RGB);
    EXPECT_EQ(std::vector<float>(red + 3, red + 7), std::vector<float>(4, 0.0f));
}

// An image operator with one knob of each kind; every row holds 10 * channel + y.
class TestIop : public Iop {
public:
    using Iop::Iop;
    int count = 3;
    double weight = 0.5;
    float gain = 1.0f;
    std::string label = "none";

    const char* Class() const override { return "TestIop"; }
    const char* node_help() const override { return "help of TestIop"; }
    void knobs(Knob_Closure& f) override {
        Int_knob(f, &count, "count");
        Tooltip(f, "How many.");
        Float_knob(f, &weight, "weight");
        Float_knob(f, &gain, "gain");
        Tooltip(f, "How loud.");
        String_knob(f, &label, "label");
    }
    void engine(int y, int x, int r, const ChannelSet& channels, Row& row) override {
        for (Channel z : channels) {
            std::fill(row.writable(z) + x, row.writable(z) + r, float(10 * z + y));
        }
    }

protected:
    void _validate(bool for_real) override {
        Iop::_validate(for_real);
        static const Format format(8, 4, 2.0);
        info_().format(format);
        info_().set(format);
        info_().channels(Mask_RGB);
    }
};

TEST(Knobs, AreListedInOrderAndSetByNameFromValidTextOnly) {
    TestIop op(nullptr);
    const std::vector<Knob>& knobs = op.knob_list();
    ASSERT_EQ(knobs.size(), 4u);
    const KnobKind kinds[] = {KnobKind::Int, KnobKind::Float, KnobKind::Float, KnobKind::String};
    const char* tooltips[] = {"How many.", "", "How loud.", ""};
    for (std::size_t i = 0; i < knobs.size(); ++i) {
        EXPECT_EQ(knobs[i].kind(), kinds[i]) << i;
        EXPECT_EQ(knobs[i].tooltip(), tooltips[i]) << i;
    }
    EXPECT_EQ(knobs[2].name(), "gain");

    op.validate();
    EXPECT_TRUE(op.set_knob("count", "-12"));
    EXPECT_FALSE(op.valid());  // a new value needs a new validation
    EXPECT_TRUE(op.set_knob("weight", "2.5e-3"));
    EXPECT_TRUE(op.set_knob("gain", "4"));
    EXPECT_TRUE(op.set_knob("label", "two words"));
    EXPECT_EQ(op.count, -12);
    EXPECT_EQ(op.weight, 2.5e-3);
    EXPECT_EQ(op.gain, 4.0f);
    EXPECT_EQ(op.label, "two words");
    EXPECT_EQ(op.knob("weight")->text(), "0.0025");

    op.validate();
    for (const char* bad : {"", "1.5", "7x", " 7", "99999999999"}) {
        EXPECT_FALSE(op.set_knob("count", bad)) << bad;
    }
    for (const char* bad : {"", "abc", "1e999", "nan", "inf", "2.5 "}) {
        EXPECT_FALSE(op.set_knob("weight", bad)) << bad;
    }
    EXPECT_FALSE(op.set_knob("missing", "1"));
    EXPECT_EQ(op.count, -12);
    EXPECT_EQ(op.weight, 2.5e-3);
    EXPECT_TRUE(op.valid());  // rejected text changes nothing

    // Raw field writes must match the field's size exactly.
    const double wide = 9.0;
    const int narrow = 9;
    EXPECT_FALSE(op.set_field("count", &wide, sizeof wide));
    EXPECT_FALSE(op.set_field("gain", &wide, sizeof wide));
    EXPECT_FALSE(op.set_field("missing", &narrow, sizeof narrow));
    EXPECT_TRUE(op.set_field("count", &narrow, sizeof narrow));
    EXPECT_TRUE(op.set_field("weight", &wide, sizeof wide));
    EXPECT_EQ(op.count, 9);
    EXPECT_EQ(op.weight, 9.0);
    EXPECT_FALSE(op.valid());
}

Op* makeTestIop(Node* node) {
    return new TestIop(node);
}
Op* makeOtherIop(Node* node) {
    return new TestIop(node);
}

TEST(Registry, FindsDescriptionsAndIgnoresDuplicateNames) {
    EXPECT_EQ(Op::Description::find("HostCoreTestOp"), nullptr);
    EXPECT_EQ(Op::create("HostCoreTestOp", nullptr), nullptr);
    const long constructed = Op::Description::constructed();
    {
        const Op::Description first("HostCoreTestOp", makeTestIop, "today for 6.3v1");
        EXPECT_EQ(Op::Description::find("HostCoreTestOp"), &first);
        {
            // A second description of the name is counted, not registered, and its end
            // must not take the first one's entry with it.
            const Op::Description second("HostCoreTestOp", makeOtherIop, "later");
            EXPECT_EQ(Op::Description::constructed(), constructed + 2);
            EXPECT_EQ(Op::Description::find("HostCoreTestOp"), &first);
        }
        EXPECT_EQ(Op::Description::find("HostCoreTestOp"), &first);
        const auto all = Op::Description::all();
        EXPECT_EQ(std::count(all.begin(), all.end(), &first), 1);
        EXPECT_STREQ(Op::Description::find("HostCoreTestOp")->build_stamp, "today for 6.3v1");

        Node node("made");
        std::unique_ptr<Op> op(Op::create("HostCoreTestOp", &node));
        ASSERT_NE(op, nullptr);
        EXPECT_STREQ(op->Class(), "TestIop");
        EXPECT_EQ(op->node(), &node);
    }
    EXPECT_EQ(Op::Description::find("HostCoreTestOp"), nullptr);
}

TEST(OpWrapper, ForwardsEverythingToTheWrappedOperator) {
    TestIop source(nullptr);
    auto* inner = new TestIop(nullptr);
    OpWrapper wrapper(inner);
    EXPECT_STREQ(wrapper.Class(), "TestIop");
    EXPECT_STREQ(wrapper.node_help(), "help of TestIop");

    EXPECT_TRUE(wrapper.set_knob("count", "8"));
    EXPECT_EQ(inner->count, 8);

    wrapper.set_input(0, &source);
    EXPECT_EQ(inner->input(0), &source);
    EXPECT_EQ(wrapper.input(0), &source);

    wrapper.validate();
    EXPECT_EQ(wrapper.format().width, 8);
    EXPECT_EQ(wrapper.format().pixel_aspect, 2.0);
    EXPECT_EQ(wrapper.info().box(), (Box{0, 0, 8, 4}));

    wrapper.request(1, 2, 3, 4, Mask_RGB, 1);
    EXPECT_EQ(inner->requested_box(), (Box{1, 2, 3, 4}));
    EXPECT_EQ(source.requested_box(), (Box{1, 2, 3, 4}));

    Row row(0, 8);
    row.get(wrapper, 3, 2, 5, ChannelSet(Chan_Green));
    EXPECT_EQ(row[Chan_Green][4], 23.0f);

    // The wrapped operator and the wrapper's inputs share the wrapper's tree.
    inner->abort();
    EXPECT_TRUE(wrapper.aborted());
    EXPECT_TRUE(source.aborted());
}

TEST(OpTree, AbortCancelAndErrorsAreSharedByEveryWiredOperator) {
    TestIop top(nullptr);
    TestIop middle(nullptr);
    TestIop bottom(nullptr);
    TestIop loose(nullptr);
    // Wired bottom-up, so joining the tree has to reach past the direct input.
    middle.set_input(0, &bottom);
    top.set_input(0, &middle);

    bottom.abort();
    EXPECT_TRUE(top.aborted());
    EXPECT_FALSE(top.cancelled());
    EXPECT_FALSE(loose.aborted());
    top.clear_abort();
    EXPECT_FALSE(bottom.aborted());

    middle.cancel();
    EXPECT_TRUE(bottom.cancelled());
    EXPECT_TRUE(top.aborted());
    bottom.clear_abort();
    EXPECT_FALSE(top.cancelled());
    EXPECT_FALSE(top.aborted());

    bottom.error("bottom failed");
    middle.error("middle failed");
    EXPECT_TRUE(top.aborted());
    EXPECT_EQ(top.messageHandler().getFirstError(), "bottom failed");
    EXPECT_FALSE(loose.messageHandler().getFirstError().has_value());
    middle.clear_abort();
    EXPECT_FALSE(bottom.aborted());
    EXPECT_FALSE(bottom.messageHandler().getFirstError().has_value());
}

TEST(Op, PrintsItsNodeNameOrClassThroughTheReplaceableHook) {
    Node node("Upscale1");
    const TestIop named(&node);
    const TestIop anonymous(nullptr);
    const auto printed = [](const Op& op) {
        std::ostringstream out;
        Op::print_name_cb(out, &op);
        return out.str();
    };
    EXPECT_EQ(printed(named), "Upscale1");
    EXPECT_EQ(printed(anonymous), "TestIop");

    const auto original = Op::print_name_cb;
    Op::print_name_cb = [](std::ostream& out, const Op* op) { out << '[' << op->Class() << ']'; };
    EXPECT_EQ(printed(named), "[TestIop]");
    Op::print_name_cb = original;
}

// Loads `path`, expecting a ModuleError whose message names the file and says `why`.
void expectModuleError(const std::string& path, const std::string& why) {
    try {
        loadModule(path);
        ADD_FAILURE() << path << " loaded";
    } catch (const ModuleError& e) {
        const std::string message = e.what();
        EXPECT_NE(message.find(path), std::string::npos) << message;
        EXPECT_NE(message.find(why), std::string::npos) << message;
    }
}

TEST(Module, LoadFailuresAreModuleErrorsNamingTheFile) {
    const quorblen::test::ScratchDir scratch;
    expectModuleError(scratch.file("Missing.so"), "no such file");
    const std::string notElf = scratch.file("NotElf.so");
    std::ofstream(notElf) << "not a shared object\n";
    expectModuleError(notElf, "cannot load module");
    // The host library is a loadable shared object that declares no operator.
    expectModuleError((quorblen::test::binaryDir() / "libquorblen_host.so").string(),
                      "registers no operator");
    // A failed load is not remembered as loaded.
    expectModuleError(scratch.file("Missing.so"), "no such file");
}

}  // namespace
}  // namespace host
