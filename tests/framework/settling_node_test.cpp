// The settled-input life cycle a node gets by listing its inputs: init
// notes what is driven, the on-demand step takes the values the block holds,
// endOfRender lets go, and the next render reads its own values.
#include <gtest/gtest.h>

#include <vector>

#include "framework/data_block_rendering.h"
#include "framework/settling_node.h"
#include "framework/test_nodes.h"

namespace {
// The adder's attributes, with two inputs settled one by one and two groups.
class TtestSettler : public TnodeClass<TtestSettler, TsettlingNode<TtestSettler, TrenderNode>, TtestAdderVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TtestSettler", 9010, "kTestSettler", "testSettler", "TSET", "utility/test"};
    SN_ATTRIBUTE(A, a)
    SN_ATTRIBUTE(B, b)
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(Gain, gain)
    SN_ATTRIBUTE(Mode, mode)
    SN_ATTRIBUTE(Sum, sum)

    template <class F>
    void forEachSettled(F&& f) {
        f(fGain, attrGain());
        f(fB, attrB());
        f(fQuiet, settledRoots(attrA(), attrMode()));
        f(fWithColor, settledRoots(attrMode(), attrColor()));
    }
    TsettledInput<float> fGain, fB;
    TsettledGroup fQuiet, fWithColor;
};
SN_REGISTER_NODE_CLASS(TtestSettler)

using Kind = TdataBlockRendering::Kind;
}  // namespace

TEST(SettlingNode, SettlesWhatNothingDrivesOncePerRenderAndLetsGo) {
    TdependGraph graph;
    auto* node = static_cast<TtestSettler*>(graph.createNode("testSettler"));
    TdependNode* driver = graph.createNode("testAdder");
    ASSERT_NE(node, nullptr);
    // B is driven whole, the colour through one child only.
    ASSERT_EQ(graph.connect(Tplug(driver, &TtestAdder::saSum()), Tplug(node, &TtestSettler::saB())), TconnectStatus::kOk);
    ASSERT_EQ(graph.connect(Tplug(driver, &TtestAdder::saOutColorG()), Tplug(node, &TtestSettler::saColorG())), TconnectStatus::kOk);

    // Every input a constant in the block, the driven one too: only what
    // init found undriven may be settled from it.
    std::vector<TdataBlockRendering::AttrInfo> info(node->attributeCount(), {Kind::kConstPresent, 0, TdataBlockRendering::kNoSegment});
    const auto at = [&](const Tattribute& a) -> unsigned { return info[a.index()].offset; };
    info[TtestSettler::saB().index()].offset = 4;
    info[TtestSettler::saGain().index()].offset = 8;
    std::vector<unsigned char> constant(64, 0), variable(64 * 4, 0);
    TdataBlockRendering block;
    block.setUp(node, 64, variable.data(), 4, constant.data(), info.data(), nullptr, nullptr, nullptr);
    auto setConstant = [&](const Tattribute& a, float v) { *reinterpret_cast<float*>(constant.data() + at(a)) = v; };
    Tplug sum(node, &TtestSettler::saSum());

    for (float gain : {3.0f, -0.5f}) {
        SCOPED_TRACE(gain);
        setConstant(TtestSettler::saGain(), gain);
        setConstant(TtestSettler::saB(), 7.0f);
        node->incrementReferenceCount(nullptr);
        EXPECT_FALSE(node->fGain.settled) << "settled before the on-demand step";
        node->ensureOnDemand(sum, block);
        EXPECT_TRUE(node->fGain.settled);
        EXPECT_EQ(node->fGain.value, gain);
        EXPECT_FALSE(node->fB.settled) << "a driven input was settled";
        EXPECT_TRUE(node->fQuiet.undriven);
        EXPECT_FALSE(node->fWithColor.undriven) << "a driven child leaves its group undriven";

        node->decrementReferenceCount(nullptr);
        EXPECT_EQ(node->onDemandState().load(), kOnDemandNotStarted);
        EXPECT_FALSE(node->fGain.settled || node->fGain.undriven || node->fQuiet.undriven) << "not let go at the end";
    }
}
