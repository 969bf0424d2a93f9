// The host graph: attribute lists, connections, array elements and scalar
// evaluation through a real node class.
#include <gtest/gtest.h>

#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "framework/test_nodes.h"

namespace {
template <typename T>
T valueOf(TdependNode* node, const Tattribute& a, unsigned index = 0) {
    T v{};
    EXPECT_TRUE(node->getAttributeValue(&a, &v, index));
    return v;
}
template <typename T>
bool set(TdependNode* node, const Tattribute& a, T v, unsigned index = 0) {
    return node->setAttributeValue(&a, &v, index);
}
}  // namespace

TEST(AttributeIndexing, InheritedFirstThenOwnThenDynamic) {
    TdependGraph graph;
    auto* derived = graph.createNode("testDerived");
    ASSERT_NE(derived, nullptr);
    auto* adder = graph.createNode("testAdder");
    // The derived class repeats the base's list at the same indices.
    unsigned baseCount = adder->attributeCount();
    for (unsigned i = 0; i < baseCount; ++i) EXPECT_EQ(derived->attribute(i), adder->attribute(i)) << i;
    EXPECT_EQ(derived->attribute(baseCount), &TtestDerived::saExtra());
    EXPECT_EQ(TtestDerived::saExtra().index(), baseCount);
    // Index 0 is the message attribute every node has.
    EXPECT_EQ(adder->attribute(0u)->longName(), "message");
    // Children come right after their parent.
    EXPECT_EQ(TtestAdder::saColorR().index(), TtestAdder::saColor().index() + 1);
    EXPECT_EQ(TtestAdder::saColorB().offsetInParent(), 8u);
    EXPECT_EQ(TtestAdder::saColor().size(), 12u);

    auto dynamic = std::make_unique<TattributeFloat>("dynamicValue", "dyv", TiffTag("DYNV"));
    const Tattribute* raw = dynamic.get();
    ASSERT_TRUE(derived->addDynamicAttribute(std::move(dynamic)));
    unsigned staticCount = derived->staticAttributeCount();
    EXPECT_EQ(staticCount, baseCount + 2);  // extra and label
    EXPECT_EQ(derived->attributeCount(), staticCount + 1);
    EXPECT_EQ(derived->attribute(staticCount), raw);
    EXPECT_EQ(derived->attribute("dyv"), raw);
    EXPECT_EQ(adder->attribute("dynamicValue"), nullptr);  // only on that node
    // Names must stay unique per node, long or short.
    EXPECT_FALSE(derived->addDynamicAttribute(std::make_unique<TattributeFloat>("gain", "zz", TiffTag("ZZZZ"))));
    EXPECT_FALSE(derived->addDynamicAttribute(std::make_unique<TattributeFloat>("zz", "g", TiffTag("ZZZZ"))));
}

TEST(AttributeIndexing, LookupByLongAndShortNameAndComputedChildren) {
    TdependGraph graph;
    auto* n = graph.createNode("testAdder");
    EXPECT_EQ(n->attribute("gain"), &TtestAdder::saGain());
    EXPECT_EQ(n->attribute("g"), &TtestAdder::saGain());
    EXPECT_EQ(n->attribute("nope"), nullptr);
    EXPECT_TRUE(TtestAdder::saOutColorG().isComputed());  // children of outputs too
    EXPECT_FALSE(TtestAdder::saGain().isComputed());
}

TEST(AttributeList, AFailedAddDoesNotStopTheOthers) {
    TattributeFloat a("alpha", "al", TiffTag("ALPH"));
    TattributeFloat clash("alpha", "x", TiffTag("ALP2"));
    TattributeFloat b("beta", "be", TiffTag("BETA"));
    TattributeList list;
    EXPECT_TRUE(list.addAttribute(&a));
    EXPECT_FALSE(list.addAttribute(&clash));
    EXPECT_TRUE(list.addAttribute(&b));
    EXPECT_EQ(list.length(), 2u);
    EXPECT_EQ(b.index(), 1u);
}

TEST(Connections, LegalityByReadWriteTypeAndSingleSource) {
    TdependGraph graph;
    auto* src = graph.createNode("testAdder");
    auto* dst = graph.createNode("testAdder");
    auto* other = graph.createNode("testOther");
    struct Case {
        Tplug from, to;
        TconnectStatus expected;
    };
    const Case cases[] = {
        {Tplug(src, &TtestAdder::saSum()), Tplug(dst, &TtestAdder::saA()), TconnectStatus::kOk},
        {Tplug(src, &TtestAdder::saSum()), Tplug(dst, &TtestAdder::saSum()), TconnectStatus::kNotWritable},
        {Tplug(src, &TtestAdder::saOutColor()), Tplug(dst, &TtestAdder::saColor()), TconnectStatus::kOk},
        {Tplug(src, &TtestAdder::saOutColor()), Tplug(dst, &TtestAdder::saGain()), TconnectStatus::kIncompatible},
        {Tplug(src, &TtestAdder::saOutColorR()), Tplug(dst, &TtestAdder::saGain()), TconnectStatus::kOk},
        {Tplug(other, &TtestOther::saCount()), Tplug(dst, &TtestAdder::saB()), TconnectStatus::kOk},  // int to float
        {Tplug(src, &TdependNode::saMessage()), Tplug(dst, &TtestAdder::saB()), TconnectStatus::kIncompatible},
        {Tplug(src, &TtestAdder::saValues()), Tplug(dst, &TtestAdder::saB()), TconnectStatus::kNeedsIndex},
    };
    for (const Case& c : cases) EXPECT_EQ(graph.connect(c.from, c.to), c.expected) << connectStatusText(c.expected);
    // One source per destination, also through the parent compound.
    EXPECT_EQ(graph.connect(Tplug(other, &TtestOther::saValue()), Tplug(dst, &TtestAdder::saA())),
              TconnectStatus::kAlreadyConnected);
    EXPECT_EQ(graph.connect(Tplug(other, &TtestOther::saValue()), Tplug(dst, &TtestAdder::saColorR())),
              TconnectStatus::kAlreadyConnected);
    EXPECT_TRUE(Tplug(dst, &TtestAdder::saColor()).isDestination());
    EXPECT_TRUE(Tplug(src, &TtestAdder::saOutColor()).isChildSource());
    std::unique_ptr<Tplug> back(Tplug(dst, &TtestAdder::saA()).connectedTo(true, false));
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, Tplug(src, &TtestAdder::saSum()));
}

TEST(Connections, ArrayDestinationsTakeTheNextFreeElement) {
    TdependGraph graph;
    auto* src = graph.createNode("testOther");
    auto* dst = graph.createNode("testAdder");
    float v = 4;
    dst->setAttributeValue(&TtestAdder::saValues(), &v, 3);
    ASSERT_EQ(graph.connect(Tplug(src, &TtestOther::saValue()), Tplug(dst, &TtestAdder::saValues(), true)), TconnectStatus::kOk);
    ASSERT_EQ(graph.connect(Tplug(src, &TtestOther::saCount()), Tplug(dst, &TtestAdder::saValues(), 7)), TconnectStatus::kOk);
    TuInt32Array indices;
    EXPECT_EQ(dst->getExistingMultiAttributeIndices(Tplug(dst, &TtestAdder::saValues()), indices), 3u);
    EXPECT_EQ(indices[0], 3u);
    EXPECT_EQ(indices[1], 4u);  // past the highest existing element
    EXPECT_EQ(indices[2], 7u);
    char name[128];
    EXPECT_STREQ(Tplug(dst, &TtestAdder::saValues(), 7).name(name, sizeof name), "testAdder1.values[7]");
}

TEST(Evaluation, PullsComputeOnceAndDirtyPropagatesDownstream) {
    TdependGraph graph;
    auto* up = graph.createNode("testAdder");
    auto* down = graph.createNode("testAdder");
    set(up, TtestAdder::saA(), 1.5f);
    set(up, TtestAdder::saB(), 2.0f);
    ASSERT_EQ(graph.connect(Tplug(up, &TtestAdder::saSum()), Tplug(down, &TtestAdder::saA())), TconnectStatus::kOk);
    set(down, TtestAdder::saB(), 10.0f);
    auto* adderDown = static_cast<TtestAdder*>(down);
    auto* adderUp = static_cast<TtestAdder*>(up);

    EXPECT_FLOAT_EQ(valueOf<float>(down, TtestAdder::saSum()), 13.5f);
    int upComputes = adderUp->computeCount;
    EXPECT_FLOAT_EQ(valueOf<float>(down, TtestAdder::saSum()), 13.5f);
    EXPECT_EQ(adderUp->computeCount, upComputes);  // clean: no second compute

    // An edit upstream reaches the downstream output.
    set(up, TtestAdder::saB(), 4.0f);
    EXPECT_TRUE(down->isDirty(&TtestAdder::saSum()));
    EXPECT_FLOAT_EQ(valueOf<float>(down, TtestAdder::saSum()), 15.5f);
    // An edit that affects another output leaves this one clean.
    int downComputes = adderDown->computeCount;
    set(down, TtestAdder::saGain(), 3.0f);
    EXPECT_FALSE(down->isDirty(&TtestAdder::saSum()));
    EXPECT_FLOAT_EQ(valueOf<float>(down, TtestAdder::saSum()), 15.5f);
    EXPECT_EQ(adderDown->computeCount, downComputes);
    // A connected destination cannot be set.
    EXPECT_FALSE(set(down, TtestAdder::saA(), 0.0f));
    // An enum input changes the arithmetic.
    set(down, TtestAdder::saMode(), int16_t(1));
    EXPECT_FLOAT_EQ(valueOf<float>(down, TtestAdder::saSum()), -4.5f);
}

TEST(Evaluation, CompoundAndChildConnectionsAndDisconnectOptions) {
    TdependGraph graph;
    auto* src = graph.createNode("testAdder");
    auto* dst = graph.createNode("testAdder");
    auto* num = graph.createNode("testOther");
    // src.outColor = (0.5, 0.25, 1) * 2
    ASSERT_EQ(graph.connect(Tplug(src, &TtestAdder::saOutColor()), Tplug(dst, &TtestAdder::saColor())), TconnectStatus::kOk);
    ASSERT_EQ(graph.connect(Tplug(src, &TtestAdder::saOutColorG()), Tplug(dst, &TtestAdder::saGain())), TconnectStatus::kOk);
    T3Float out = valueOf<T3Float>(dst, TtestAdder::saOutColor());
    EXPECT_FLOAT_EQ(out.x, 1.0f * 0.5f);
    EXPECT_FLOAT_EQ(out.y, 0.5f * 0.5f);
    EXPECT_FLOAT_EQ(out.z, 2.0f * 0.5f);
    // A child of a connected compound reads through the parent.
    EXPECT_FLOAT_EQ(valueOf<float>(dst, TtestAdder::saColorB()), 2.0f);

    // gain keeps its last value on disconnect; colour returns to its default.
    ASSERT_EQ(graph.disconnect(Tplug(src, &TtestAdder::saOutColorG()), Tplug(dst, &TtestAdder::saGain())), TconnectStatus::kOk);
    EXPECT_FLOAT_EQ(valueOf<float>(dst, TtestAdder::saGain()), 0.5f);
    ASSERT_EQ(graph.disconnect(Tplug(src, &TtestAdder::saOutColor()), Tplug(dst, &TtestAdder::saColor())), TconnectStatus::kOk);
    EXPECT_FLOAT_EQ(valueOf<T3Float>(dst, TtestAdder::saColor()).x, 0.5f);
    EXPECT_EQ(graph.disconnect(Tplug(src, &TtestAdder::saOutColor()), Tplug(dst, &TtestAdder::saColor())),
              TconnectStatus::kNotConnected);

    // Array elements from connections and stored values sum up.
    float three = 3;
    dst->setAttributeValue(&TtestAdder::saValues(), &three, 0);
    int32_t count = 5;
    num->setAttributeValue(&TtestOther::saCount(), &count);
    ASSERT_EQ(graph.connect(Tplug(num, &TtestOther::saCount()), Tplug(dst, &TtestAdder::saValues(), 2)), TconnectStatus::kOk);
    EXPECT_FLOAT_EQ(valueOf<float>(dst, TtestAdder::saTotal()), 8.0f);
    count = 6;
    num->setAttributeValue(&TtestOther::saCount(), &count);
    EXPECT_FLOAT_EQ(valueOf<float>(dst, TtestAdder::saTotal()), 9.0f);
}

TEST(Graph, NamesStayUniqueAndDeletionBreaksConnections) {
    TdependGraph graph;
    auto* a = graph.createNode("testAdder", "adder");
    auto* b = graph.createNode("testAdder", "adder");
    auto* c = graph.createNode("testAdder", "adder7");
    auto* d = graph.createNode("testAdder", "adder7");
    EXPECT_EQ(a->name(), "adder");
    EXPECT_EQ(b->name(), "adder1");
    EXPECT_EQ(c->name(), "adder7");
    EXPECT_EQ(d->name(), "adder8");
    EXPECT_EQ(graph.createNode("noSuchType"), nullptr);
    EXPECT_FALSE(graph.renameNode(a, "adder1"));
    ASSERT_EQ(graph.connect(Tplug(a, &TtestAdder::saSum()), Tplug(b, &TtestAdder::saA())), TconnectStatus::kOk);
    set(a, TtestAdder::saA(), 7.0f);
    EXPECT_FLOAT_EQ(valueOf<float>(b, TtestAdder::saA()), 7.0f);
    EXPECT_TRUE(graph.deleteNode(a));
    EXPECT_FALSE(Tplug(b, &TtestAdder::saA()).isDestination());
    EXPECT_FLOAT_EQ(valueOf<float>(b, TtestAdder::saA()), 0.0f);
    EXPECT_EQ(graph.findNode("adder"), nullptr);
}

TEST(Graph, PlugTextParsing) {
    TdependGraph graph;
    graph.createNode("testAdder", "n");
    graph.createNode("shadingEngine", "sg");
    Tplug p;
    std::string error;
    ASSERT_TRUE(graph.findPlug("n.c.cr", p, &error)) << error;
    EXPECT_EQ(p.attribute(), &TtestAdder::saColorR());
    ASSERT_TRUE(graph.findPlug("sg.defaultShadows[3].dShadowDirection.dsx", p, &error)) << error;
    EXPECT_EQ(p.index(), 3);
    EXPECT_EQ(p.attribute()->shortName(), "dsx");
    const char* bad[] = {"n", "x.gain", "n.nope", "n.gain[2]", "n.values[", "n.values[-1]", "n.gain.c",
                         "sg.dShadowDirection"};
    for (const char* text : bad) EXPECT_FALSE(graph.findPlug(text, p, &error)) << text;
}

TEST(Dag, InclusiveMatrixAndInstances) {
    TdependGraph graph;
    auto* group = static_cast<TdagNode*>(graph.createNode("transform", "group"));
    auto* ball = static_cast<TdagNode*>(graph.createNode("transform", "ball"));
    auto* other = static_cast<TdagNode*>(graph.createNode("transform", "other"));
    auto* shape = static_cast<TdagNode*>(graph.createNode("transform", "shape"));
    ASSERT_TRUE(group->addChild(ball));
    ASSERT_TRUE(ball->addChild(shape));
    ASSERT_TRUE(other->addChild(shape));  // instanced
    EXPECT_FALSE(shape->addChild(group));  // would be a cycle
    T3Float t{1, 0, 0}, s{2, 2, 2}, r{0, 0, 90};
    group->setAttributeValue(&Ttransform::saTranslate(), &t);
    ball->setAttributeValue(&Ttransform::saScale(), &s);
    other->setAttributeValue(&Ttransform::saRotate(), &r);
    auto paths = shape->allPaths();
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_EQ(paths[0].fullPathName(), "|group|ball|shape");
    EXPECT_EQ(paths[1].instanceNumber(), 1u);
    T3Float p = paths[0].inclusiveMatrix().transformPoint({1, 1, 1});
    EXPECT_FLOAT_EQ(p.x, 3);  // scaled by the ball, then moved by the group
    EXPECT_FLOAT_EQ(p.y, 2);
    T3Float q = paths[1].inclusiveMatrix().transformPoint({1, 0, 0});
    EXPECT_NEAR(q.x, 0, 1e-6);  // 90 degrees about Z
    EXPECT_NEAR(q.y, 1, 1e-6);
    T3Float back = paths[0].inclusiveMatrixInverse().transformPoint(p);
    EXPECT_NEAR(back.x, 1, 1e-6);
}
