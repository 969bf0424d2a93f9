// The rendering data block: where values live per kind, how input reads fill
// them, and a node's vector compute over a block of samples.
#include <gtest/gtest.h>

#include <vector>

#include "framework/data_block_rendering.h"
#include "framework/test_nodes.h"
#include "shading/dispatch_compute.h"

namespace {
struct Dispatcher : TDNdispatchCompute {
    static bool run(TdependNode* n, const Tplug& p, TdataBlock& b, unsigned first, unsigned count) {
        return dispatchCompute(n, p, b, first, count);
    }
};

using Kind = TdataBlockRendering::Kind;

// A block for the test adder: every attribute gets a slot; by default all
// are constant and present.
struct AdderBlock {
    static constexpr unsigned kCount = 8;
    static constexpr unsigned kStride = 64;
    TdependGraph graph;
    TtestAdder* node = static_cast<TtestAdder*>(graph.createNode("testAdder"));
    std::vector<TdataBlockRendering::AttrInfo> info;
    std::vector<unsigned char> constant = std::vector<unsigned char>(512, 0);
    std::vector<unsigned char> variable = std::vector<unsigned char>(kStride * kCount, 0);
    TdataBlockRendering block;

    AdderBlock() {
        for (unsigned i = 0; i < node->attributeCount(); ++i) info.push_back({Kind::kConstPresent, 0, TdataBlockRendering::kNoSegment});
        auto place = [&](const Tattribute& a, uint32_t kind, unsigned at) {
            info[a.index()] = {kind, uint16_t(at), TdataBlockRendering::kNoSegment};
            for (unsigned c = 0; c < a.childCount(); ++c)
                info[a.child(c)->index()] = {kind, uint16_t(at + a.child(c)->offsetInParent()), TdataBlockRendering::kNoSegment};
        };
        // Variable: the two operands and the sum; constant: everything else.
        place(TtestAdder::saA(), Kind::kVarPresent, 0);
        place(TtestAdder::saB(), Kind::kVarPresent, 4);
        place(TtestAdder::saSum(), Kind::kVarPresent, 8);
        place(TtestAdder::saOutColor(), Kind::kVarPresent, 12);
        place(TtestAdder::saColor(), Kind::kConstPresent, 0);
        place(TtestAdder::saGain(), Kind::kConstDefaultValue, 16);
        place(TtestAdder::saMode(), Kind::kConstDefaultValue, 20);
        block.setUp(node, kStride, variable.data(), kCount, constant.data(), info.data(), nullptr, nullptr, nullptr);
        for (unsigned i = 0; i < kCount; ++i) {
            var<float>(TtestAdder::saA(), i) = float(i);
            var<float>(TtestAdder::saB(), i) = 10.0f * float(i);
        }
    }
    template <typename T>
    T& var(const Tattribute& a, unsigned i) {
        return *reinterpret_cast<T*>(variable.data() + size_t(kStride) * i + info[a.index()].offset);
    }
    template <typename T>
    T& con(const Tattribute& a) {
        return *reinterpret_cast<T*>(constant.data() + info[a.index()].offset);
    }
};
}  // namespace

TEST(DataBlockRendering, VectorComputeLoopsOverTheElementsOfARun) {
    AdderBlock b;
    Tplug sum(b.node, &TtestAdder::saSum());
    ASSERT_TRUE(Dispatcher::run(b.node, sum, b.block, 2, 4));
    for (unsigned i = 0; i < AdderBlock::kCount; ++i) {
        float expected = (i >= 2 && i < 6) ? 11.0f * float(i) : 0.0f;
        EXPECT_FLOAT_EQ(b.var<float>(TtestAdder::saSum(), i), expected) << i;
    }
}

TEST(DataBlockRendering, ScalarComputeUsesTheCurrentElementOnly) {
    AdderBlock b;
    b.block.setCurrent(5);
    int before = b.node->computeCount;
    ASSERT_TRUE(b.node->computePlug(Tplug(b.node, &TtestAdder::saSum()), b.block));
    EXPECT_EQ(b.node->computeCount, before + 1);
    for (unsigned i = 0; i < AdderBlock::kCount; ++i)
        EXPECT_FLOAT_EQ(b.var<float>(TtestAdder::saSum(), i), i == 5 ? 55.0f : 0.0f) << i;
    // An attribute the node does not compute goes to the base and fails.
    EXPECT_FALSE(b.node->computePlug(Tplug(b.node, &TtestAdder::saGain()), b.block));
}

TEST(DataBlockRendering, ConstantHandlesHaveStrideZeroAndDefaultsAreSetUpOnce) {
    AdderBlock b;
    TdataHandle a = b.block.inputValue(TtestAdder::saA(), 0, 8);
    EXPECT_TRUE(a.isVariable());
    EXPECT_EQ(a.stride, AdderBlock::kStride);
    EXPECT_FLOAT_EQ(a.asFloat(3), 3.0f);
    EXPECT_EQ(b.info[TtestAdder::saGain().index()].kind, Kind::kConstDefaultValue);
    TdataHandle first = b.block.inputValue(TtestAdder::saGain(), 0, 8);
    EXPECT_FALSE(first.isVariable());
    EXPECT_EQ(first.stride, 0u);
    EXPECT_EQ(first.element(7), first.element(0));
    EXPECT_FLOAT_EQ(first.asFloat(), 2.0f);  // the attribute's default
    EXPECT_EQ(b.info[TtestAdder::saGain().index()].kind, Kind::kConstPresent);
    b.con<float>(TtestAdder::saGain()) = 7.0f;
    EXPECT_FLOAT_EQ(b.block.inputValue(TtestAdder::saGain(), 0, 8).asFloat(), 7.0f);  // not reset

    // A variable default fills just the elements asked for and stays variable.
    b.info[TtestAdder::saB().index()].kind = Kind::kVarDefaultValue;
    b.block.inputValue(TtestAdder::saB(), 1, 2);
    EXPECT_FLOAT_EQ(b.var<float>(TtestAdder::saB(), 0), 0.0f);
    EXPECT_FLOAT_EQ(b.var<float>(TtestAdder::saB(), 1), 0.0f);
    EXPECT_FLOAT_EQ(b.var<float>(TtestAdder::saB(), 3), 30.0f);
    EXPECT_EQ(b.info[TtestAdder::saB().index()].kind, Kind::kVarDefaultValue);
}

TEST(DataBlockRendering, CompoundsAssembleFromTheirChildren) {
    AdderBlock b;
    const Tattribute& color = TtestAdder::saColor();
    b.info[color.index()].kind = Kind::kConstUseChild;
    b.con<float>(TtestAdder::saColorR()) = 0.1f;
    b.con<float>(TtestAdder::saColorG()) = 0.2f;
    b.con<float>(TtestAdder::saColorB()) = 0.3f;
    // The children share the compound's storage here, so write the compound
    // elsewhere to see the copy happen.
    b.info[color.index()].offset = 100;
    T3Float c = b.block.inputValue(color, 0, 8).asFloat3();
    EXPECT_FLOAT_EQ(c.x, 0.1f);
    EXPECT_FLOAT_EQ(c.z, 0.3f);
    EXPECT_EQ(b.info[color.index()].kind, Kind::kConstPresent);
}

TEST(DataBlockRendering, VariableKindsComputeTheirSegmentOnDemand) {
    static std::vector<std::pair<int, unsigned>> calls;
    calls.clear();
    TdataBlockRendering::setComputeValueHook([](void* context, int segment, const Tattribute*, unsigned first, unsigned count) {
        calls.emplace_back(segment, first * 100 + count);
        static_cast<TdataBlockRendering*>(context)->setCurrent(7);  // a segment may move the current element
    });
    AdderBlock b;
    b.block.setUp(b.node, AdderBlock::kStride, b.variable.data(), AdderBlock::kCount, b.constant.data(), b.info.data(), nullptr,
                  nullptr, &b.block);
    b.block.setCurrent(2);
    b.info[TtestAdder::saA().index()].parentOrSegment = 4;
    b.block.inputValue(TtestAdder::saA(), 3, 5);
    b.block.inputValue(TtestAdder::saB(), 0, 8);  // no segment: nothing to compute
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], std::make_pair(4, 305u));
    EXPECT_EQ(b.block.currentIndex(), 2u);  // restored
    TdataBlockRendering::setComputeValueHook(nullptr);
}

TEST(DataBlockRendering, KindsMadeVariableAndTheirNames) {
    struct {
        uint32_t kind, variable;
    } cases[] = {{Kind::kConstDefaultValue, Kind::kVarDefaultValue},
                 {Kind::kConstPresent, Kind::kVarPresent},
                 {Kind::kConstUseChild, Kind::kVarUseChild},
                 {Kind::kConstUseParentAndChild, Kind::kVarUseParentAndChild},
                 {Kind::kConstPreferChild, Kind::kVarPreferChild}};  // 27 becomes 11, not 27
    for (auto& c : cases) EXPECT_EQ(TdataBlockRendering::makeVariable(c.kind), c.variable) << c.kind;
    EXPECT_STREQ(TdataBlockRendering::kindName(35), "kVarPresentOtherDB");
    EXPECT_STREQ(TdataBlockRendering::kindName(6), "*** INVALID VALUE ***");
}

TEST(DataBlockRendering, ValuesInAnotherNodesBlock) {
    AdderBlock producer;
    AdderBlock consumer;
    // consumer.a reads producer.sum through a reference in its variable block.
    auto& e = consumer.info[TtestAdder::saA().index()];
    e = {Kind::kVarPresentOtherDB, 40, TdataBlockRendering::kNoSegment};
    auto* ref = reinterpret_cast<TdataBlockRendering::OtherBlockRef*>(consumer.variable.data() + 40);
    ref->value = producer.variable.data() + producer.info[TtestAdder::saSum().index()].offset;
    ref->block = &producer.block;
    for (unsigned i = 0; i < AdderBlock::kCount; ++i) producer.var<float>(TtestAdder::saSum(), i) = 100.0f + float(i);
    TdataHandle h = consumer.block.inputValue(TtestAdder::saA(), 0, 8);
    EXPECT_EQ(h.block, &producer.block);
    EXPECT_FLOAT_EQ(h.asFloat(6), 106.0f);

    // A linked compound's slot holds the reference; its children read through
    // it at their offsets within the value, by either road.
    const Tattribute& color = TtestAdder::saOutColor();
    consumer.info[color.index()] = {Kind::kVarPresentOtherDB, 48, TdataBlockRendering::kNoSegment};
    for (unsigned c = 0; c < color.childCount(); ++c)
        consumer.info[color.child(c)->index()] = {Kind::kVarUseParentOtherDB, uint16_t(color.child(c)->offsetInParent()),
                                                  TdataBlockRendering::kNoSegment};
    auto* colorRef = reinterpret_cast<TdataBlockRendering::OtherBlockRef*>(consumer.variable.data() + 48);
    colorRef->value = producer.variable.data() + producer.info[color.index()].offset;
    colorRef->block = &producer.block;
    for (unsigned i = 0; i < AdderBlock::kCount; ++i) producer.var<T3Float>(color, i) = T3Float(float(i), 10.0f + float(i), 20.0f + float(i));
    std::vector<uint32_t> table;
    for (unsigned i = 0; i < consumer.node->attributeCount(); ++i)
        table.push_back(TdataBlockRendering::directEntry(consumer.info[i], *consumer.node->attribute(i)));
    for (bool direct : {false, true}) {
        consumer.block.setDirect(direct ? table.data() : nullptr);
        EXPECT_FLOAT_EQ(consumer.block.inputValue(TtestAdder::saOutColorG(), 0, 8).asFloat(3), 13.0f) << direct;
        EXPECT_FLOAT_EQ(consumer.block.inputValue(TtestAdder::saOutColorB(), 0, 8).asFloat(5), 25.0f) << direct;
        EXPECT_FLOAT_EQ(consumer.block.inputValue(color, 0, 8).asFloat3(2).y, 12.0f) << direct;
    }

    // A source that writes into its reader's own output: the reference names
    // the reader's block, and a read still runs the source's segment.
    static int computes;
    TdataBlockRendering::setComputeValueHook([](void*, int, const Tattribute*, unsigned, unsigned) { ++computes; });
    consumer.info[TtestAdder::saA().index()] = {Kind::kVarPresentOtherDB, 40, 2};
    ref->value = consumer.variable.data() + consumer.info[TtestAdder::saSum().index()].offset;
    ref->block = &consumer.block;
    table[TtestAdder::saA().index()] = TdataBlockRendering::directEntry(consumer.info[TtestAdder::saA().index()], TtestAdder::saA());
    for (bool direct : {false, true}) {
        consumer.block.setDirect(direct ? table.data() : nullptr);
        computes = 0;
        EXPECT_EQ(consumer.block.inputValue(TtestAdder::saA(), 0, 8).value, ref->value) << direct;
        EXPECT_EQ(computes, 1) << direct;
    }
    TdataBlockRendering::setComputeValueHook(nullptr);
}

// The inline road a direct table opens must give, for every kind, the handle
// the virtual road gives and leave the same on-demand computes to it: twin
// blocks on the same storage, one with the table, read attribute by attribute.
TEST(DataBlockRendering, DirectTableAnswersAsTheVirtualRoadDoes) {
    static int computes;
    TdataBlockRendering::setComputeValueHook([](void*, int, const Tattribute*, unsigned, unsigned) { ++computes; });
    struct {
        uint32_t kind;
        int16_t segment;
        bool linked;  // for other-block kinds: the reference is made
        bool directRead;
    } cases[] = {
        {Kind::kConstPresent, TdataBlockRendering::kNoSegment, false, true},
        {Kind::kVarPresent, TdataBlockRendering::kNoSegment, false, true},
        {Kind::kVarPresentNoProp, TdataBlockRendering::kNoSegment, false, true},
        {Kind::kVarPresent, 3, false, false},  // computed on demand
        {Kind::kConstDefaultValue, TdataBlockRendering::kNoSegment, false, false},
        {Kind::kVarDefaultValue, TdataBlockRendering::kNoSegment, false, false},
        {Kind::kVarPresentOtherDB, TdataBlockRendering::kNoSegment, true, true},
        {Kind::kVarPresentOtherDB, TdataBlockRendering::kNoSegment, false, true},  // unmade: falls back, null
        {Kind::kVarPresentOtherDB, 2, true, false},
        {Kind::kVarUseParentOtherDB, TdataBlockRendering::kNoSegment, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << TdataBlockRendering::kindName(c.kind) << " segment " << c.segment);
        AdderBlock producer, b;
        const Tattribute& a = TtestAdder::saA();
        b.info[a.index()] = {c.kind, 40, c.segment};
        auto* ref = reinterpret_cast<TdataBlockRendering::OtherBlockRef*>(b.variable.data() + 40);
        ref->value = c.linked ? producer.variable.data() + 8 : nullptr;
        ref->block = c.linked ? &producer.block : nullptr;
        std::vector<uint32_t> table;
        for (unsigned i = 0; i < b.node->attributeCount(); ++i)
            table.push_back(TdataBlockRendering::directEntry(b.info[i], *b.node->attribute(i)));
        EXPECT_EQ((table[a.index()] & TdataBlock::kDirectInput) != 0, c.directRead);
        TdataBlockRendering direct;
        direct.setUp(b.node, AdderBlock::kStride, b.variable.data(), AdderBlock::kCount, b.constant.data(), b.info.data(), nullptr,
                     nullptr, &direct);
        direct.setDirect(table.data());
        for (unsigned i = 0; i < b.node->attributeCount(); ++i) {
            const Tattribute& x = *b.node->attribute(i);
            for (bool input : {true, false}) {
                computes = 0;
                TdataHandle want = input ? b.block.inputValue(x, 1, 6) : b.block.outputValue(x, 1, 6);
                const int wanted = computes;
                computes = 0;
                TdataHandle got = input ? direct.inputValue(x, 1, 6) : direct.outputValue(x, 1, 6);
                EXPECT_EQ(computes, wanted) << x.longName().asC() << (input ? " read" : " write");
                EXPECT_EQ(got.value, want.value) << x.longName().asC() << (input ? " read" : " write");
                EXPECT_EQ(got.stride, want.stride) << x.longName().asC();
                EXPECT_EQ(got.flags, want.flags) << x.longName().asC();
                EXPECT_EQ(got.attribute, want.attribute);
                EXPECT_EQ(got.block == &direct, want.block == &b.block) << x.longName().asC();
                if (want.block != &b.block) {
                    EXPECT_EQ(got.block, want.block);
                }
            }
        }
    }
    TdataBlockRendering::setComputeValueHook(nullptr);
}

TEST(DataBlockRendering, DumpNamesTheNodeAndAnInvalidKind) {
    AdderBlock b;
    b.info[TtestAdder::saMode().index()].kind = 99;
    TdebugOutput out;
    b.block.debug(out, 1);
    EXPECT_EQ(out.text().rfind("DataBlockRendering for Node:testAdder1", 0), 0u);
    for (const char* piece : {"Vector Element 7\n", "*** INVALID VALUE ***", "kVarPresent"})
        EXPECT_NE(out.text().find(piece), std::string::npos) << piece;
    TdataBlockRendering empty;
    TdebugOutput none;
    empty.debug(none, 1);
    EXPECT_EQ(none.text(), "DataBlockRendering for Node:NULL");
}

TEST(DataBlockRendering, CleanMarksAreByTopLevelAttributeAndClearedBySetUp) {
    AdderBlock b;
    EXPECT_FALSE(b.block.isClean(TtestAdder::saSum()));
    EXPECT_FALSE(b.block.isClean(TtestAdder::saOutColor()));
    // A child marks its whole compound; a second mark of it adds nothing.
    b.block.setClean(TtestAdder::saOutColorG());
    b.block.setClean(TtestAdder::saOutColor());
    EXPECT_EQ(b.block.cleanMarkCount(), 1u);
    EXPECT_TRUE(b.block.isClean(TtestAdder::saOutColor()));
    EXPECT_TRUE(b.block.isClean(TtestAdder::saOutColorR()));
    EXPECT_FALSE(b.block.isClean(TtestAdder::saSum()));
    b.block.setClean(TtestAdder::saSum());
    EXPECT_TRUE(b.block.isClean(TtestAdder::saSum()));
    EXPECT_FALSE(b.block.isClean(TtestAdder::saTotal()));
    // A new set-up starts a run with nothing produced.
    b.block.setUp(b.node, AdderBlock::kStride, b.variable.data(), AdderBlock::kCount, b.constant.data(), b.info.data(), nullptr, nullptr,
                  nullptr);
    EXPECT_EQ(b.block.cleanMarkCount(), 0u);
    EXPECT_FALSE(b.block.isClean(TtestAdder::saSum()));
    b.block.setClean(TtestAdder::saTotal());
    b.block.clearCleanMarks();
    EXPECT_FALSE(b.block.isClean(TtestAdder::saTotal()));
}

TEST(DataBlockRendering, CleanMarksBeyondCapacityAreDroppedNotMisreported) {
    AdderBlock b;
    const unsigned n = b.node->attributeCount();
    ASSERT_GT(n, TdataBlockRendering::kMaxCleanMarks + 1);
    // Mark distinct top-level attributes until more than fit.
    std::vector<const Tattribute*> tops;
    for (unsigned i = 0; i < n; ++i)
        if (!b.node->attribute(i)->parent()) tops.push_back(b.node->attribute(i));
    ASSERT_GT(tops.size(), size_t(TdataBlockRendering::kMaxCleanMarks));
    for (const Tattribute* a : tops) b.block.setClean(*a);
    EXPECT_EQ(b.block.cleanMarkCount(), TdataBlockRendering::kMaxCleanMarks);
    for (size_t k = 0; k < tops.size(); ++k)
        EXPECT_EQ(b.block.isClean(*tops[k]), k < TdataBlockRendering::kMaxCleanMarks) << tops[k]->longName().asC();
}
