#pragma once
// A shading group whose material reads the light array the way materials
// do, lights placed under transforms, and batches of samples shaded through
// the engine.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <optional>
#include <vector>

#include "framework/host/depend_graph.h"
#include "lights/light_at_point.h"
#include "lights/point_light.h"
#include "shading/ray_sampler.h"
#include "shading/render_bases.h"
#include "shading/sample.h"
#include "shading/sample_manager.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"
#include "shading/shading_session.h"
#include "support/set_value.h"
#include "support/test_samples.h"

// outColor = sum of the ambient records plus the diffuse ones times
// max(N.L, 0); outTransparency = (lights seen, shadow fraction sum, luminance
// of the first light's pre-shadow intensity).
struct TtestLitSurfaceVS : TdependNodeVS {
    TvectorAttribute normalCamera{"normalCamera", "n", TiffTag("TLNC")};
    TattributeLightData lightDataArray{"lightDataArray", "ltd", TiffTag("TLLD")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("TLOC")};
    TcolorAttribute outTransparency{"outTransparency", "ot", TiffTag("TLOT")};
    TtestLitSurfaceVS() {
        normalCamera.whole.makeImplicitInput();
        lightDataArray.setMulti(true);
        lightDataArray.makeImplicitInput();
        outColor.setFlag(kAttrWritable, false);
        outTransparency.setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&normalCamera.whole, &lightDataArray}, {&outColor.whole, &outTransparency.whole});
        return true;
    }
};
class TtestLitSurface : public TnodeClass<TtestLitSurface, TrenderNode, TtestLitSurfaceVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TtestLitSurface", 9911, "kTestLitSurface", "testLitSurface", "TLIT", "shader/surface"};
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_ATTRIBUTE(LightDataArray, lightDataArray)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, outTransparency)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

// A point light that counts the samples it computes.
class TcountingPointLight : public TnodeClass<TcountingPointLight, TpointLightShape, TdependNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TcountingPointLight", 9912, "kCountingPointLight", "countingPointLight", "TCPL", "light"};
    static inline std::atomic<int> fsSamples{0};

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override {
        if (plug.attribute() == &TlightShape::saLightData()) fsSamples += int(count);
        return TpointLightShape::vectorComputePlug(plug, block, first, count);
    }
};

// A light of `type` in `graph` under a transform at `position`, rotated by
// `rotate` (degrees) and scaled by `scale`.
template <class T = TrenderLightShape>
T* placeLight(TdependGraph& graph, const char* type, const T3Float& position, const T3Float& rotate = {0, 0, 0},
              const T3Float& scale = {1, 1, 1}) {
    auto* xform = static_cast<Ttransform*>(graph.createNode("transform"));
    xform->setAttributeValue(&Ttransform::saTranslate(), &position);
    xform->setAttributeValue(&Ttransform::saRotate(), &rotate);
    xform->setAttributeValue(&Ttransform::saScale(), &scale);
    auto* light = static_cast<T*>(graph.createNode(type));
    EXPECT_NE(light, nullptr) << type;
    xform->addChild(light);
    return light;
}

// One object of the renderer.
struct TtestRenderGroup : TrenderGroupBase {
    unsigned object = 0;
    unsigned objectNumber() const override { return object; }
    const TgeoManagerBase* geometryManager() const override { return nullptr; }
    bool receiveShadows() const override { return true; }
};

struct TsurfaceSample {
    T3Float point, normal;
    int16_t illuminationIndex = -1;
    bool receiveShadows = true;
};

struct TlitNetwork {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    TtestLitSurface* surface = static_cast<TtestLitSurface*>(graph.createNode("testLitSurface"));
    std::vector<TdependNode*> lights;
    TtestRenderGroup renderGroup;
    TsampleBatch batch{};

    TlitNetwork();
    ~TlitNetwork();
    template <class T = TrenderLightShape>
    T* addLight(const char* type, const T3Float& position, const T3Float& rotate = {0, 0, 0}) {
        T* light = placeLight<T>(graph, type, position, rotate);
        lights.push_back(light);
        return light;
    }
    // Hands the lights to the group; `rows` per object, empty for none.
    void useLights(std::vector<TbitFieldFixedN> rows = {});
    // The program, through the render's life cycle: the first call starts a
    // render (lights handed over again, since a render's end clears them),
    // and shade() ends it, so that later edits are seen.
    TshadingOpus* analyse();
    std::vector<TbitFieldFixedN> rows;
    bool lightsGiven = false;
    std::optional<TshadingSession> session;
    struct Result {
        T3Float color, info;
    };
    // Shades one batch; with `object` the samples belong to that render object.
    std::vector<Result> shade(const std::vector<TsurfaceSample>& in, int object = -1);
    // Heap allocations made by shading `in` a second time in one render: the
    // first batch of a render does the lights' first-use work.
    size_t allocationsWhenShadedAgain(const std::vector<TsurfaceSample>& in);

private:
    TtestSamples makeSamples(const std::vector<TsurfaceSample>& in, int object);
};

// Lights under transforms in a graph of their own, asked for their record at
// a point on the scalar road.
struct TlightScene {
    TdependGraph graph;
    template <class T>
    T* light(const char* type, const T3Float& position, const T3Float& rotate = {0, 0, 0}) {
        return placeLight<T>(graph, type, position, rotate);
    }
    static TlightData at(TrenderLightShape* light, const T3Float& point) {
        TDNarray lights;
        lights.append(light);
        TlightAtPoint query(lights);
        _lightAtPointInformation info;
        EXPECT_EQ(query.lightAtPoint(point, &info), 1u);
        EXPECT_EQ(info.light, light);
        return info.data;
    }
};

// A tracer of shadow rays past an occluder: rays that cross the plane where
// coordinate `axis` is `height`, at an x from x0 to x1, are blocked; the rest
// pass. It counts the rays and draws its random numbers from a fixed
// congruential sequence. Its rays carry 24 bytes of its own after the generic
// part (enough to pass the next 16-byte boundary), which it fills once it has
// read a ray: a light that spaced its rays by the generic part alone would
// find the next ray overwritten.
struct ToccluderTracer : TraySampler {
    int axis = 2;
    float height = 1, x0 = -1e9f, x1 = 1e9f;
    int rays = 0;
    unsigned seed = 1;
    unsigned raySize() const override { return sizeof(TgenericRay) + 24; }
    void traceShadowRays(TdependNode*, int n, TgenericRay** list, Treflectance* out) override {
        for (int i = 0; i < n; ++i, ++rays) {
            const TgenericRay& r = *list[i];
            const float t = r.direction[axis] == 0 ? -1.0f : (height - r.origin[axis]) / r.direction[axis];
            const float x = r.origin.x + t * r.direction.x;
            out[i] = t > 0 && t < r.distance && x >= x0 && x <= x1 ? Treflectance(kBlackSpectrum) : Treflectance();
            std::memset(reinterpret_cast<unsigned char*>(list[i]) + sizeof(TgenericRay), 0xFF, 24);
        }
    }
    float random() override {
        seed = seed * 1664525u + 1013904223u;
        return float(seed >> 8) / 16777216.0f;
    }
    void traceRays(TdependNode*, int, TgenericRay**, Tspectrum*, Tspectrum*) override {}
    int maxRayDepth() const override { return 1; }
    void background(Tspectrum& out) override { out = kBlackSpectrum; }
};

inline float luminanceOf(const T3Float& c) { return 0.3f * c.x + 0.59f * c.y + 0.11f * c.z; }
