#pragma once
// One material connected to a shading group, shaded two ways: by the engine
// over a batch of samples, and by the host graph's scalar pull with the
// sample's values set on the node. Lights are records set on the node's
// light data array; rays go through a ray sampler that counts and records.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <vector>

#include "framework/host/depend_graph.h"
#include "materials/lambert.h"
#include "shading/light_data.h"
#include "shading/ray_sampler.h"
#include "shading/render_pass_control.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"
#include "shading/shading_session.h"
#include "support/test_samples.h"

// Traces nothing: answers every ray with fixed values and keeps a copy of
// the rays it was given (fixed storage, so tracing touches no heap).
class TtestRaySampler : public TraySampler {
public:
    static constexpr unsigned kKept = 256;
    unsigned raySize() const override { return sizeof(TgenericRay) + 24; }  // renderer bytes after the record
    void traceShadowRays(TdependNode*, int, TgenericRay**, Treflectance*) override {}
    float random() override { return 0.5f; }
    void traceRays(TdependNode*, int n, TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance) override {
        ++calls;
        for (int r = 0; r < n; ++r) {
            if (traced < kKept) kept[traced] = *rays[r];
            ++traced;
            rays[r]->distance = distance;
            radiance[r] = this->radiance;
            transmittance[r] = this->transmittance;
        }
    }
    int maxRayDepth() const override { return 10; }
    void background(Tspectrum& out) override { out = backgroundColor; }

    int calls = 0;
    unsigned traced = 0;
    TgenericRay kept[kKept];
    float distance = 10.0f;
    Tspectrum radiance{0.25f, 0.5f, 1.0f};
    Tspectrum transmittance{0.5f, 0.5f, 0.5f};
    Tspectrum backgroundColor{0, 0, 0};
};

struct TmaterialSample {
    T3Float point{0, 0, -5};
    T3Float normal{0, 0, 1};
    T3Float direction{0, 0, -1};  // from the eye into the surface
    int rayDepth = 0;
    float medium = 1.0f;
    T3Float tangentU{1, 0, 0}, tangentV{0, 1, 0};
};
struct TmaterialResult {
    T3Float color, transparency, glow, matte;
};

// The render pass for the length of a scope.
struct TpassScope {
    int saved = currentRenderPassControl;
    explicit TpassScope(int pass) { currentRenderPassControl = pass; }
    ~TpassScope() { currentRenderPassControl = saved; }
};

struct TmaterialNetwork {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    // The material; `material` is the same node when it is a Lambert surface
    // (null for a surface of another family, such as the ramp shader).
    TdependNode* node;
    TdnLambert* material;

    explicit TmaterialNetwork(const char* type = "lambert") {
        node = graph.createNode(type);
        EXPECT_NE(node, nullptr) << type;
        material = dynamic_cast<TdnLambert*>(node);
        EXPECT_EQ(graph.connect(Tplug(node, &attribute("outColor")), Tplug(group, &TDNshadingEngine::saSurfaceShader())),
                  TconnectStatus::kOk);
    }
    ~TmaterialNetwork() { session.reset(); }
    const Tattribute& attribute(const char* name) const {
        const Tattribute* a = node ? node->attribute(Tstring(name)) : nullptr;
        EXPECT_NE(a, nullptr) << name;
        static TattributeFloat missing{"missing", "missing", TiffTag("MISS")};
        return a ? *a : missing;
    }
    template <class V>
    void set(const Tattribute& a, V value, int index = -1) {
        bool ok = index < 0 ? node->setAttributeValue(&a, &value) : node->setAttributeValue(&a, &value, unsigned(index));
        EXPECT_TRUE(ok) << a.longName().asC();
    }
    template <class V>
    void set(const char* name, V value, int index = -1) {
        set(attribute(name), value, index);
    }
    void setLight(unsigned index, const TlightData& record) {
        EXPECT_TRUE(node->setAttributeValue(&attribute("lightDataArray"), &record, index));
    }
    void setRaySampler(TraySampler* sampler) {
        void* p = sampler;
        set("raySampler", p);
    }
    // Starts a render of the group, as a renderer does: the network's
    // per-frame set-up runs now. shade() ends it, so edits made after a
    // shade are seen by the next.
    void init() {
        if (!session) session.emplace(group);
    }
    std::optional<TshadingSession> session;

    TshadingOpus* analyse();
    std::vector<TmaterialResult> shade(const std::vector<TmaterialSample>& in);
    std::vector<TmaterialResult> pull(const std::vector<TmaterialSample>& in);
    // Both roads; expects them to agree within a float's rounding and
    // returns the engine's results.
    std::vector<TmaterialResult> shadeBoth(const std::vector<TmaterialSample>& in);
    TmaterialResult shadeOne(const TmaterialSample& s = {}) { return shadeBoth({s}).at(0); }
    // Samples laid out for the group's program, holding `in`.
    TtestSamples makeBatch(const std::vector<TmaterialSample>& in);
    // Heap allocations made by shading `in` a second time in one render (a
    // first run may set up shared state). The render ends after it.
    size_t allocationsWhenShadedAgain(const std::vector<TmaterialSample>& in);
};

// A point light's record at `point`: intensity flat within unit distance,
// divided by dist^decay beyond it; no ambient, diffuse and specular on.
TlightData pointLightRecord(const T3Float& light, const T3Float& color, float intensity, int decay, const T3Float& point);
// A distant light's record: unit direction towards it, white of `intensity`
// before shadowing and (1 - shadowFraction) of it after; diffuse on, no ambient.
TlightData distantLight(const T3Float& toLight, float intensity, float shadowFraction = 0, bool specular = false);

void expectNear3(const T3Float& actual, const T3Float& expected, float tolerance, const char* what);
