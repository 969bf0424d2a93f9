// The node-class mechanism and the shading mixin: registration, metaclasses,
// reference counting and the once-per-render on-demand state.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "framework/host/depend_graph.h"
#include "framework/node_registry.h"
#include "framework/test_nodes.h"
#include "shading/shading_engine.h"

// A classification matches by whole path components, not by prefix.
TEST(NodeClass, ClassificationMatchesWholeComponents) {
    EXPECT_TRUE(TclassificationMgr::isClassified("testAdder", "utility"));
    EXPECT_FALSE(TclassificationMgr::isClassified("testAdder", "util"));
}

TEST(NodeClass, ConstructRefusesAForeignMetaclass) {
    EXPECT_EQ(TtestAdder::construct(nullptr), nullptr);
    EXPECT_EQ(TtestAdder::construct(TtestOther::sMetaclass()), nullptr);
    std::unique_ptr<TtestAdder> own(TtestAdder::construct(TtestAdder::sMetaclass()));
    ASSERT_TRUE(own);
    // A derived class's metaclass makes the derived class.
    std::unique_ptr<TtestAdder> derived(TtestAdder::construct(TtestDerived::sMetaclass()));
    ASSERT_TRUE(derived);
    EXPECT_EQ(derived->typeName(), "testDerived");
    EXPECT_TRUE(derived->typeof()->istype(TtestAdder::sMetaclass()));
    EXPECT_FALSE(own->typeof()->istype(TtestDerived::sMetaclass()));
}

TEST(NodeClass, ShadingMixinIsReachedThroughTheMetaclass) {
    TdependGraph graph;
    TdependNode* adder = graph.createNode("testAdder");
    TdependNode* other = graph.createNode("testOther");
    TdependNode* derived = graph.createNode("testDerived");
    EXPECT_TRUE(adder->typeof()->istype(TshadingNode::sMetaclass()));
    EXPECT_EQ(TshadingNode::fromNode(adder), static_cast<TshadingNode*>(static_cast<TtestAdder*>(adder)));
    EXPECT_EQ(TshadingNode::fromNode(other), nullptr);
    EXPECT_EQ(TshadingNode::fromNode(derived), static_cast<TshadingNode*>(static_cast<TtestDerived*>(derived)));
    // Only the first class below the mixin names it as its second parent.
    EXPECT_EQ(TtestAdder::sMetaclass()->parent2(), TshadingNode::sMetaclass());
    EXPECT_EQ(TtestDerived::sMetaclass()->parent2(), nullptr);
}

TEST(NodeClass, DescriptionBuiltEarlyAndRebuiltAfterCleanup) {
    // sVsData before the host's initialisation builds and initialises; a
    // later sInitializeClass is harmless.
    auto& vs = TtestOther::sVsData();
    EXPECT_TRUE(vs.initialized());
    unsigned count = vs.attributes().length();
    EXPECT_TRUE(TtestOther::sInitializeClass());
    EXPECT_EQ(TtestOther::sVsData().attributes().length(), count);
    EXPECT_TRUE(TtestOther::sCleanupClass());
    EXPECT_EQ(TtestOther::sVsData().attributes().length(), count);
}

TEST(NodeClass, ClassTableHoldsEveryClassOnceAndTheUnsafeList) {
    auto table = nodeClassTable();
    EXPECT_GT(table.size(), 130u);
    std::set<std::string> names, tags;
    for (const auto& f : table) {
        EXPECT_TRUE(names.insert(f.typeName).second) << f.typeName;
        EXPECT_TRUE(tags.insert(f.iffTag).second) << f.iffTag;
        EXPECT_EQ(std::strlen(f.iffTag), 4u) << f.className;
    }
    // The unsafe list names real classes, and registration reads it.
    unsigned registered = 0;
    for (const char* c : mpUnsafeClasses()) {
        const TnodeClassFacts* facts = findNodeClassFacts(c);
        ASSERT_NE(facts, nullptr) << c;
        if (TdependNodeMetaClass* type = TdependGraph::findNodeType(facts->typeName)) {
            ++registered;
            EXPECT_FALSE(type->fMpSafe()) << c;
        }
    }
    EXPECT_GT(registered, 10u);
    constexpr TnodeClassInfo checker = renderNodeInfo("TdnChecker", 500, "kChecker");
    EXPECT_STREQ(checker.typeName, "checker");
    EXPECT_STREQ(checker.classification, "texture/2d");
}

// Scene files and tools name classes by their API type number too, so no two
// registered classes may share one.
TEST(NodeClass, EveryRegisteredClassHasItsOwnApiTypeNumber) {
    std::map<unsigned, std::string> owners;
    for (TdependNodeMetaClass* type : TdependGraph::nodeTypes()) {
        if (type->fApiType == 0) continue;  // abstract bases have none
        auto [it, fresh] = owners.emplace(type->fApiType, type->fTypeName().str());
        EXPECT_TRUE(fresh) << type->fApiType << " is both " << it->second << " and " << type->fTypeName().str();
    }
    EXPECT_GT(owners.size(), 60u);
}

// An attribute whose long or short name another of its class took is left
// out of the class, and every scene setting it would silently vanish.
TEST(NodeClass, EveryRegisteredClassTakesEveryAttributeItDeclares) {
    unsigned classes = 0;
    for (TdependNodeMetaClass* type : TdependGraph::nodeTypes()) {
        if (!type->fVs || !type->fInitialize) continue;
        ++classes;
        EXPECT_TRUE(type->fInitialize()) << type->fTypeName().str();
        for (const Tattribute* a : type->fVs().clashes())
            ADD_FAILURE() << type->fTypeName().str() << " refused " << a->longName().str() << " (" << a->shortName().str() << ")";
    }
    EXPECT_GT(classes, 60u);
}

TEST(ShadingNode, ReferenceCountRunsInitOnFirstAndEndOnLast) {
    TdependGraph graph;
    auto* node = static_cast<TtestAdder*>(graph.createNode("testAdder"));
    TshadingNode* s = TshadingNode::fromNode(node);
    EXPECT_EQ(s->decrementReferenceCount(nullptr), 0);  // at 0: nothing, no endOfRender
    EXPECT_EQ(node->endCount, 0);
    EXPECT_EQ(s->incrementReferenceCount(nullptr), 1);
    EXPECT_EQ(s->incrementReferenceCount(nullptr), 2);
    EXPECT_EQ(node->initCount, 1);
    EXPECT_EQ(s->decrementReferenceCount(nullptr), 1);
    EXPECT_EQ(node->endCount, 0);
    EXPECT_EQ(s->decrementReferenceCount(nullptr), 0);
    EXPECT_EQ(node->endCount, 1);
}

TEST(ShadingNode, OnDemandRunsOncePerRenderAcrossThreads) {
    TdependGraph graph;
    auto* node = static_cast<TtestAdder*>(graph.createNode("testAdder"));
    TshadingNode* s = TshadingNode::fromNode(node);
    Tplug plug(node, &TtestAdder::saSum());
    TdgDataBlock block(*node);
    for (int render = 1; render <= 3; ++render) {
        std::vector<std::thread> threads;
        std::atomic<int> sawDone{0};
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&] {
                Tplug p = plug;
                for (int i = 0; i < 100; ++i) {
                    s->ensureOnDemand(p, block);
                    if (s->onDemandState().load() == kOnDemandDone) ++sawDone;
                }
            });
        for (auto& t : threads) t.join();
        EXPECT_EQ(node->onDemandCount, render);
        EXPECT_EQ(sawDone, 400);  // nobody went on before the state was 2
        s->incrementReferenceCount(nullptr);
        s->decrementReferenceCount(nullptr);  // endOfRender returns the state to 0
    }
    // An endOfRender that forgets the base keeps stale state: no new run.
    node->clearStateAtEnd = false;
    s->ensureOnDemand(plug, block);
    EXPECT_EQ(node->onDemandCount, 4);
    s->incrementReferenceCount(nullptr);
    s->decrementReferenceCount(nullptr);
    s->ensureOnDemand(plug, block);
    EXPECT_EQ(node->onDemandCount, 4);
}

TEST(ShadingGroup, ResetOnAnIdleGroupChangesNothing) {
    TdependGraph graph;
    auto* sg = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    auto* node = static_cast<TtestAdder*>(graph.createNode("testAdder"));
    sg->addToNodeTable(node, nullptr);  // holds a reference although idle
    sg->resetShadingEngine();
    EXPECT_EQ(sg->nodeTable().size(), 1u);
    EXPECT_EQ(node->endCount, 0);
    EXPECT_FALSE(sg->resetPending());

    sg->initializeConnected(nullptr, nullptr, nullptr);
    sg->addToNodeTable(node, nullptr);
    EXPECT_TRUE(sg->isInitialized());
    sg->resetShadingEngine();
    EXPECT_TRUE(sg->nodeTable().empty());
    EXPECT_EQ(node->endCount, 1);
    EXPECT_FALSE(sg->isInitialized());
    EXPECT_TRUE(sg->resetPending());
}

TEST(ShadingGroup, LitByReadsThePerObjectRows) {
    TdependGraph graph;
    auto* sg = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    TdependNode* l0 = graph.createNode("testOther");
    TdependNode* l1 = graph.createNode("testOther");
    TdependNode* stranger = graph.createNode("testOther");
    std::vector<TbitFieldFixedN> rows(2, TbitFieldFixedN(2));
    rows[0].set(1);
    rows[1].set(0);
    sg->setLightTables({l0, l1}, rows, {l1}, {TbitFieldFixedN(1)});
    EXPECT_FALSE(sg->litBy(0, l0));
    EXPECT_TRUE(sg->litBy(0, l1));
    EXPECT_TRUE(sg->litBy(1, l0));
    EXPECT_FALSE(sg->litBy(2, l0));  // beyond the rows
    EXPECT_FALSE(sg->litBy(0, stranger));
    EXPECT_FALSE(sg->shadowedBy(0, l1));
}
