#pragma once
// Helpers of the texture tests: a pass-through surface that hands a colour to
// the shading group, a colour source driven by the sample's UV that counts the
// samples it computes, and a network that shades one texture over a batch.
#include <gtest/gtest.h>

#include <atomic>
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
#include "support/set_value.h"
#include "support/test_samples.h"

struct TtexTestSourceVS : TdependNodeVS {
    TpairAttribute uvCoord{"uvCoord", "uv", TiffTag("XUVC"), "uCoord", "u", TiffTag("XUCO"), "vCoord", "v", TiffTag("XVCO")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("XOCL")};
    TtexTestSourceVS() { outColor.setFlag(kAttrWritable, false); }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&uvCoord.whole}, {&outColor.whole});
        return true;
    }
};
// outColor = (u, v, 0.25); counts its computes and the samples computed.
class TtexTestSource : public TnodeClass<TtexTestSource, TrenderNode, TtexTestSourceVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TtexTestSource", 9202, "kTexTestSource", "texTestSource", "XSRC", "utility/test"};
    SN_PAIR_ATTRIBUTE(UvCoord, uvCoord, U, V)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    std::atomic<int> computes{0}, samples{0};
    static T3Float sColourAt(T2Float uv) { return T3Float(uv.x, uv.y, 0.25f); }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TtextureBatch;

// One shading group whose surface shows `out` of a texture node.
struct TtextureNetwork {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    TtestPassThroughSurface* surface = static_cast<TtestPassThroughSurface*>(graph.createNode("testPassThroughSurface"));

    TtextureNetwork() { connect(surface, TtestPassThroughSurface::saOutColor(), group, TDNshadingEngine::saSurfaceShader()); }
    ~TtextureNetwork() { session.reset(); }
    template <class T>
    T* make(const char* type) {
        return static_cast<T*>(graph.createNode(type));
    }
    void connect(TdependNode* from, const Tattribute& out, TdependNode* to, const Tattribute& in) {
        ASSERT_EQ(graph.connect(Tplug(from, &out), Tplug(to, &in)), TconnectStatus::kOk)
            << out.longName().asC() << " -> " << in.longName().asC();
    }
    // The texture's colour output becomes the surface colour.
    void show(TdependNode* texture, const Tattribute& out) { connect(texture, out, surface, TtestPassThroughSurface::saColor()); }
    // The program, through the render's life cycle; the render lasts as
    // long as the network.
    TshadingOpus* analyse() {
        if (!session) session.emplace(group);
        return session->program();
    }
    // Samples at `uvs` (with their filter sizes) shaded by the program.
    TtextureBatch shade(const std::vector<T2Float>& uvs, T2Float filterSize = {});
    std::optional<TshadingSession> session;
};

// Samples laid out for the surface program, with their UVs (and filter sizes).
struct TtextureBatch : TtestSamples {
    TtextureBatch(TDNshadingEngine* group, const std::vector<T2Float>& uvs, T2Float filterSize = {}) : TtestSamples(group, uvs.size()) {
        for (size_t i = 0; i < uvs.size(); ++i) {
            Tsample& s = (*this)[i];
            if (s.hasItem(kItemUvCoord)) s.setUvCoord(uvs[i]);
            if (s.hasItem(kItemUvFilterSize)) s.setUvFilterSize(filterSize);
        }
    }
    const T3Float& colour(unsigned i) const { return *samples[i]->outColor(); }
};

inline TtextureBatch TtextureNetwork::shade(const std::vector<T2Float>& uvs, T2Float filterSize) {
    TshadingOpus* opus = analyse();
    EXPECT_NE(opus, nullptr);
    TtextureBatch batch(group, uvs, filterSize);
    if (opus) batch.shade(opus);
    return batch;
}

// 64 UVs spread over a few repeats of the unit square.
std::vector<T2Float> spreadUvs(unsigned count = kBatchSize);

// The scalar pull of a 2D texture's outColor and outAlpha at one UV.
struct TtexResult {
    T3Float colour;
    float alpha;
};
TtexResult pullTexture(TdependNode* texture, T2Float uv, T2Float filterSize = {});
