#pragma once
// Networks of utility nodes between a sample-driven source and a probe
// material, shaded two ways: by the engine over a batch and by the host
// graph's scalar pull, one sample at a time.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
#include <vector>

#include "framework/host/attribute_groups.h"
#include "framework/host/depend_graph.h"
#include "framework/host/node_class.h"
#include "framework/render_node.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"
#include "shading/shading_session.h"
#include "support/pass_through_surface.h"
#include "support/test_samples.h"

// outA = pointCamera and outB = normalCamera of the sample; counts the
// samples it computes.
struct TutilityTestSourceVS : TdependNodeVS {
    TvectorAttribute pointCamera{"pointCamera", "p", TiffTag("UTPC")};
    TvectorAttribute normalCamera{"normalCamera", "n", TiffTag("UTNC")};
    TvectorAttribute outA{"outA", "oa", TiffTag("UTOA")};
    TvectorAttribute outB{"outB", "ob", TiffTag("UTOB")};
    TutilityTestSourceVS() {
        outA.setFlag(kAttrWritable, false);
        outB.setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&pointCamera.whole}, {&outA.whole});
        affects(m, {&normalCamera.whole}, {&outB.whole});
        return true;
    }
};
class TutilityTestSource : public TnodeClass<TutilityTestSource, TrenderNode, TutilityTestSourceVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TutilityTestSource", 9201, "kUtilityTestSource", "utilityTestSource", "UTSR",
                                          "utility/test"};
    SN_VECTOR_ATTRIBUTE(PointCamera, pointCamera)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_VECTOR_ATTRIBUTE(OutA, outA)
    SN_VECTOR_ATTRIBUTE(OutB, outB)
    std::atomic<int> samples{0};

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

// What one sample feeds and gets back.
struct TprobeSample {
    T3Float point, normal;
    void* object = nullptr;
};
struct TprobeResult {
    T3Float color, transparency;
};

struct TutilityNetwork {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    TtestPassThroughSurface* probe = make<TtestPassThroughSurface>("testPassThroughSurface");
    std::vector<TutilityTestSource*> sources;

    TutilityNetwork() { connect(probe, TtestPassThroughSurface::saOutColor(), group, TDNshadingEngine::saSurfaceShader()); }
    ~TutilityNetwork() { session.reset(); }
    // The render of one shade() call, or of a test that drives the group itself.
    std::optional<TshadingSession> session;
    template <class T = TdependNode>
    T* make(const char* type) {
        TdependNode* node = graph.createNode(type);
        EXPECT_NE(node, nullptr) << type;
        return static_cast<T*>(node);
    }
    TutilityTestSource* source() {
        sources.push_back(make<TutilityTestSource>("utilityTestSource"));
        return sources.back();
    }
    // Into element `index` of a multi `in`, when one is given.
    void connect(TdependNode* from, const Tattribute& out, TdependNode* to, const Tattribute& in, int index = Tplug::kNoIndex) {
        EXPECT_EQ(graph.connect(Tplug(from, &out), Tplug(to, &in, index)), TconnectStatus::kOk)
            << out.longName().asC() << " -> " << in.longName().asC() << " " << index;
    }
    template <class V>
    void set(TdependNode* node, const Tattribute& a, V value) {
        EXPECT_TRUE(node->setAttributeValue(&a, &value)) << a.longName().asC();
    }
    // Connects a node's output into probe.color (a float into colorR).
    void toColor(TdependNode* node, const Tattribute& out) {
        connect(node, out, probe, out.size() == 4 ? static_cast<const Tattribute&>(TtestPassThroughSurface::saColorR()) : TtestPassThroughSurface::saColor());
    }
    void toTransparency(TdependNode* node, const Tattribute& out) {
        connect(node, out, probe, out.size() == 4 ? static_cast<const Tattribute&>(TtestPassThroughSurface::saTransparencyR()) : TtestPassThroughSurface::saTransparency());
    }

    // The engine's results over one batch of the given samples.
    std::vector<TprobeResult> shade(const std::vector<TprobeSample>& in);
    // The host graph's results, one sample at a time.
    std::vector<TprobeResult> pull(const std::vector<TprobeSample>& in);
};

// Samples laid out for the group's program, holding in[0 .. count).
TtestSamples probeSamples(TDNshadingEngine* group, const TprobeSample* in, size_t count);
// What the probe made of a shaded sample.
TprobeResult probeResult(Tsample& sample);

inline bool sameBits(const T3Float& a, const T3Float& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Samples whose point and normal follow two smooth ramps.
std::vector<TprobeSample> rampSamples(unsigned count);

// Expects the engine's results to have the bits of the host graph's,
// reporting the first few samples that do not.
void expectSameBits(const std::vector<TprobeResult>& engine, const std::vector<TprobeResult>& scalar);
// Shades both ways and expects the two to agree bit for bit; returns the
// engine's results.
std::vector<TprobeResult> shadeBothWays(TutilityNetwork& net, const std::vector<TprobeSample>& in);
