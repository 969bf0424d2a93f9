// A render's life cycle of the nodes behind a group: initialising the group
// takes a reference on every node upstream of it and of its lights (the
// first runs shadingNodeInit), the first batch runs shadingNodeOnDemand,
// and the reset lets go (endOfRender), so the next render sees new values.
#include <gtest/gtest.h>

#include "framework/host/depend_graph.h"
#include "framework/shading_node.h"
#include "materials/lambert.h"
#include "shading/engine_fixture.h"
#include "shading/shading_session.h"

namespace {
struct TlitLambert {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    TdnLambert* lambert = static_cast<TdnLambert*>(graph.createNode("lambert"));
    TdependNode* checker = graph.createNode("checker");
    TdependNode* placement = graph.createNode("place2dTexture");
    TdependNode* light = graph.createNode("pointLight");
    TdependNode* stranger = graph.createNode("checker");  // in the graph, not in the network

    TlitLambert() {
        auto link = [&](TdependNode* a, const char* out, TdependNode* b, const char* in) {
            EXPECT_EQ(graph.connect(Tplug(a, a->attribute(Tstring(out))), Tplug(b, b->attribute(Tstring(in)))), TconnectStatus::kOk)
                << out << " -> " << in;
        };
        link(placement, "outUV", checker, "uvCoord");
        link(checker, "outColor", lambert, "color");
        link(lambert, "outColor", group, "surfaceShader");
        auto* xform = static_cast<Ttransform*>(graph.createNode("transform"));
        xform->addChild(static_cast<TdagNode*>(light));
        group->setLightTables({light}, {}, {light}, {});
    }
    void setDepth(float depth) { lambert->setAttributeValue(&TdnLambert::saTranslucenceDepth(), &depth); }
    std::vector<TdependNode*> network() const { return {lambert, checker, placement, light}; }
};

int references(TdependNode* node) { return TshadingNode::fromNode(node)->referenceCount(); }
int onDemandState(TdependNode* node) { return TshadingNode::fromNode(node)->onDemandState().load(); }
}  // namespace

TEST(NodeLifeCycle, EachRenderPreparesEveryNodeOfTheNetworkAndLetsGoAtTheEnd) {
    TlitLambert net;
    for (float depth : {0.2f, 0.05f}) {
        SCOPED_TRACE(testing::Message() << "translucenceDepth " << depth);
        net.setDepth(depth);
        {
            // The lights' tables go at a render's end; a renderer hands them over each time.
            net.group->setLightTables({net.light}, {}, {net.light}, {});
            TshadingSession session(net.group);
            for (TdependNode* node : net.network()) EXPECT_EQ(references(node), 1) << node->typeName().asC();
            EXPECT_EQ(references(net.stranger), 0);
            EXPECT_FLOAT_EQ(net.lambert->translucenceThreshold(), depth * -11.5f);
            TshadingOpus* opus = session.program();
            ASSERT_NE(opus, nullptr);
            TtestSamples batch(net.group, 3);
            batch.shade(opus);
            EXPECT_EQ(onDemandState(net.light), kOnDemandDone);
        }
        for (TdependNode* node : net.network()) {
            EXPECT_EQ(references(node), 0) << node->typeName().asC();
            EXPECT_EQ(onDemandState(node), kOnDemandNotStarted) << node->typeName().asC();
        }
    }
}

// Two groups that share a material: the first reference prepares it, the
// last one lets it go.
TEST(NodeLifeCycle, ANodeSharedByTwoGroupsIsPreparedOnceAndReleasedByTheLast) {
    TlitLambert net;
    auto* second = static_cast<TDNshadingEngine*>(net.graph.createNode("shadingEngine"));
    ASSERT_EQ(net.graph.connect(Tplug(net.lambert, &TdnLambert::saOutColor()), Tplug(second, &TDNshadingEngine::saSurfaceShader())),
              TconnectStatus::kOk);
    net.setDepth(0.1f);
    auto first = std::make_unique<TshadingSession>(net.group);
    net.setDepth(0.3f);  // too late for this render: prepared once
    auto other = std::make_unique<TshadingSession>(second);
    EXPECT_EQ(references(net.lambert), 2);
    EXPECT_FLOAT_EQ(net.lambert->translucenceThreshold(), 0.1f * -11.5f);
    first.reset();
    EXPECT_EQ(references(net.lambert), 1);
    other.reset();
    EXPECT_EQ(references(net.lambert), 0);
}
