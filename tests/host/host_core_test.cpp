// The host stand-in's core: channels, knobs, the registry, tree state and module loading.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "host/Iop.h"
#include "host/Module.h"
#include "tests/support/TestImages.h"

namespace host {
namespace {

TEST(ChannelSet, IteratesInChannelOrderWhateverTheInsertionOrder) {
    const ChannelSet set = ChannelSet(Channel(7)) + Chan_Alpha + Chan_Red + Chan_Black;
    EXPECT_EQ(std::vector<int>(set.begin(), set.end()), (std::vector<int>{1, 4, 7}));
    EXPECT_EQ(set & Mask_RGB, ChannelSet(Chan_Red));
    EXPECT_EQ(Mask_RGBA - Mask_RGB, ChannelSet(Chan_Alpha));
    EXPECT_EQ(Mask_All.size(), 31);
}

// An operator with one knob of each kind.
class TestIop : public NoIop {
public:
    using NoIop::NoIop;
    int count = 3;
    double weight = 0.5;
    float gain = 1.0f;
    std::string label = "none";

    const char* Class() const override { return "TestIop"; }
    const char* node_help() const override { return ""; }
    void knobs(Knob_Closure& f) override {
        Int_knob(f, &count, "count");
        Float_knob(f, &weight, "weight");
        Float_knob(f, &gain, "gain");
        String_knob(f, &label, "label");
    }
};

TEST(Knobs, AreListedInOrderAndSetByNameFromValidTextOnly) {
    TestIop op(nullptr);
    op.validate();
    EXPECT_TRUE(op.set_knob("count", "-12") && op.set_knob("weight", "2.5e-3") &&
                op.set_knob("gain", "4") && op.set_knob("label", "two words"));
    EXPECT_FALSE(op.valid());  // a new value needs a new validation
    EXPECT_TRUE(op.count == -12 && op.weight == 2.5e-3 && op.gain == 4.0f &&
                op.label == "two words");

    op.validate();
    const std::pair<const char*, const char*> refused[] = {
        {"count", "1.5"},    {"count", " 7"},    {"count", "99999999999"}, {"weight", "nan"},
        {"weight", "1e999"}, {"weight", "2.5 "}, {"missing", "1"}};
    for (const auto& [knob, text] : refused) {
        EXPECT_FALSE(op.set_knob(knob, text)) << knob << " " << text;
    }
    EXPECT_TRUE(op.count == -12 && op.weight == 2.5e-3);
    EXPECT_TRUE(op.valid());  // rejected text changes nothing

    // Raw field writes must match the field's size exactly.
    const double wide = 9.0;
    EXPECT_FALSE(op.set_field("gain", &wide, sizeof wide));
    EXPECT_TRUE(op.set_field("weight", &wide, sizeof wide));
    EXPECT_EQ(op.weight, 9.0);
    EXPECT_FALSE(op.valid());
}

constexpr auto makeTestIop = +[](Node* node) -> Op* { return new TestIop(node); };

TEST(Registry, FindsDescriptionsAndIgnoresDuplicateNames) {
    EXPECT_EQ(Op::create("HostCoreTestOp", nullptr), nullptr);
    {
        const Op::Description first("HostCoreTestOp", makeTestIop, "today");
        {
            // A second description of the name is not registered, and its end must not take
            // the first one's entry with it.
            const Op::Description second("HostCoreTestOp", makeTestIop, "later");
            EXPECT_EQ(Op::Description::find("HostCoreTestOp"), &first);
        }
        EXPECT_EQ(Op::Description::find("HostCoreTestOp"), &first);
        Node node("made");
        const std::unique_ptr<Op> op(Op::create("HostCoreTestOp", &node));
        ASSERT_NE(op, nullptr);
        EXPECT_STREQ(op->Class(), "TestIop");
        EXPECT_EQ(op->node(), &node);
        // Messages name an operator by its node, or by its class when it has none.
        const TestIop anonymous(nullptr);
        std::ostringstream names;
        Op::print_name_cb(names, op.get());
        Op::print_name_cb(names << ",", &anonymous);
        EXPECT_EQ(names.str(), "made,TestIop");
    }
    EXPECT_EQ(Op::Description::find("HostCoreTestOp"), nullptr);
}

TEST(OpTree, AbortCancelAndErrorsAreSharedByEveryWiredOperator) {
    TestIop top(nullptr), middle(nullptr), bottom(nullptr), loose(nullptr);
    // Wired bottom-up, so joining the tree has to reach past the direct input.
    middle.set_input(0, &bottom);
    top.set_input(0, &middle);
    middle.cancel();
    EXPECT_TRUE(bottom.cancelled() && top.aborted());
    EXPECT_FALSE(loose.aborted());
    bottom.clear_abort();
    EXPECT_FALSE(top.cancelled() || top.aborted());

    bottom.error("bottom failed");
    middle.error("middle failed");
    EXPECT_TRUE(top.aborted() && !top.cancelled());
    EXPECT_EQ(top.messageHandler().getFirstError(), "bottom failed");
    EXPECT_FALSE(loose.messageHandler().getFirstError().has_value());
    middle.clear_abort();
    EXPECT_FALSE(bottom.aborted() || bottom.messageHandler().getFirstError().has_value());
}

TEST(Module, LoadFailuresAreModuleErrorsNamingTheFile) {
    const quorblen::test::ScratchDir scratch;
    std::ofstream(scratch.file("NotElf.so")) << "not a shared object\n";
    // The host library is a loadable shared object that declares no operator. A failed load
    // is not remembered as loaded, so the missing file fails twice.
    const std::pair<std::string, std::string> cases[] = {
        {scratch.file("Missing.so"), "no such file"},
        {scratch.file("NotElf.so"), "cannot load module"},
        {(quorblen::test::binaryDir() / "libquorblen_host.so").string(), "registers no operator"},
        {scratch.file("Missing.so"), "no such file"},
    };
    for (const auto& [path, why] : cases) {
        try {
            loadModule(path);
            ADD_FAILURE() << path << " loaded";
        } catch (const ModuleError& e) {
            EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
            EXPECT_NE(std::string(e.what()).find(why), std::string::npos) << e.what();
        }
    }
}

}  // namespace
}  // namespace host
