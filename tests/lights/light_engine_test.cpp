// Lights shaded through the engine: records read by a material through its
// light array, shared illumination, object masks, odd batches, no heap.
#include <gtest/gtest.h>

#include <cmath>

#include "lights/light_fixture.h"
#include "shading/render_pass_control.h"
#include "support/expect_near.h"

namespace {

std::vector<TsurfaceSample> fanOfSamples(unsigned count) {
    std::vector<TsurfaceSample> out(count);
    for (unsigned i = 0; i < count; ++i) {
        float t = float(i) / float(count);
        out[i].point = {2.0f * t - 1.0f, 0.5f * t, -0.25f * t};
        out[i].normal = normalize(T3Float(0.3f * t, 1.0f - t, 0.4f + t));
    }
    return out;
}

struct ThreeLights : TlitNetwork {
    T3Float pointPos{0.5f, 3, 2}, pointColor{1, 0.5f, 0.25f}, dirColor{0.2f, 0.4f, 0.6f}, ambientPos{-4, 1, 0};
    float pointIntensity = 6, ambientShade = 0.7f;
    ThreeLights() {
        auto* point = addLight<TpointLightShape>("pointLight", pointPos);
        setValue(point, TlightShape::saColor(), pointColor);
        setValue(point, TlightShape::saIntensity(), pointIntensity);
        point->setRateOfDecay(TnonAmbientLightShape::kQuadratic);
        auto* dir = addLight("directionalLight", T3Float(9, 9, 9));
        setValue(dir, TlightShape::saColor(), dirColor);
        auto* ambient = addLight("ambientLight", ambientPos);
        setValue(ambient, TambientLightShape::saAmbientShade(), ambientShade);
        useLights();
    }
    // The closed form of the test surface under them: the point light decays
    // quadratically, the directional one shines down -Z.
    T3Float expected(const TsurfaceSample& s) const {
        T3Float d = pointPos - s.point;
        float dist = length(d);
        T3Float l = d * (1.0f / dist);
        float decay = dist > 1 ? 1.0f / (dist * dist) : 1.0f;
        T3Float c = pointColor * (pointIntensity * decay * std::max(dot(s.normal, l), 0.0f));
        c = c + dirColor * std::max(dot(s.normal, T3Float(0, 0, 1)), 0.0f);
        T3Float a = normalize(ambientPos - s.point);
        float w = std::max(1 + ambientShade * (dot(a, s.normal) - 1), 0.0f);
        return c + T3Float(1, 1, 1) * w;
    }
};

TEST(LightEngine, ThreeLightsMatchTheClosedFormForEveryBatchSize) {
    for (unsigned count : {1u, 7u, 64u}) {
        ThreeLights net;
        std::vector<TsurfaceSample> in = fanOfSamples(count);
        auto out = net.shade(in);
        ASSERT_EQ(out.size(), count);
        for (unsigned i = 0; i < count; ++i) {
            expectNear(out[i].color, net.expected(in[i]), "colour", 1e-4f);
            EXPECT_EQ(out[i].info.x, 3.0f) << "every sample sees the three lights";
        }
        EXPECT_EQ(net.allocationsWhenShadedAgain(in), 0u) << "shading with lights touches no heap";
    }
}

TEST(LightEngine, SamplesSharingAnIlluminationIndexRunTheLightsOnce) {
    TlitNetwork net;
    net.addLight("countingPointLight", T3Float(0, 4, 0));
    net.useLights();
    // Runs: {0,1,2} share sample 0, {3} its own, {4,5} share 4, {6} its own (odd count).
    std::vector<TsurfaceSample> in = fanOfSamples(7);
    const int16_t index[7] = {0, 0, 0, -1, 4, 4, -1};
    for (unsigned i = 0; i < 7; ++i) in[i].illuminationIndex = index[i];
    TcountingPointLight::fsSamples = 0;
    auto out = net.shade(in);
    ASSERT_EQ(out.size(), 7u);
    EXPECT_EQ(TcountingPointLight::fsSamples.load(), 4);
    // A sample that borrows lighting sees the lender's direction, not its own.
    for (unsigned i : {1u, 2u}) {
        T3Float l = normalize(T3Float(0, 4, 0) - in[0].point);
        float decayFree = std::max(dot(in[i].normal, l), 0.0f);
        EXPECT_NEAR(out[i].color.x, decayFree * 1.0f, 1e-4f) << i;
    }
}

TEST(LightEngine, ALightMaskedOutForTheObjectOrAbsentLeavesNoElement) {
    TlitNetwork net;
    auto* red = net.addLight("pointLight", T3Float(0, 0, 1));
    setValue(red, TlightShape::saColor(), T3Float(1, 0, 0));
    auto* green = net.addLight("pointLight", T3Float(0, 0, 1));
    setValue(green, TlightShape::saColor(), T3Float(0, 1, 0));
    TbitFieldFixedN onlyGreen(2), both(2);
    onlyGreen.set(1);
    both.setAll();
    net.useLights({onlyGreen, both});
    std::vector<TsurfaceSample> in(3, TsurfaceSample{{0, 0, 0}, {0, 0, 1}});
    auto masked = net.shade(in, 0);
    for (const auto& r : masked) {
        EXPECT_EQ(r.info.x, 1.0f);
        expectNear(r.color, {0, 1, 0}, "green only", 1e-5f);
    }
    auto lit = net.shade(in, 1);
    for (const auto& r : lit) {
        EXPECT_EQ(r.info.x, 2.0f);
        expectNear(r.color, {1, 1, 0}, "both", 1e-5f);
    }
    // No lights at all: an empty array, and dark.
    TlitNetwork none;
    none.useLights();
    for (const auto& r : none.shade(fanOfSamples(5))) {
        EXPECT_EQ(r.info.x, 0.0f);
        expectNear(r.color, {0, 0, 0}, "dark", 0);
    }
}

// objectType is one byte in a four-byte slot; a light's program that did not
// ask for it would read 0 and treat every object as a surface when deciding
// shadows.
TEST(LightEngine, EachLightsProgramIsSharedByGroupsReadsTheObjectTypeAndIsReleasedWithThem) {
    auto net = std::make_unique<TlitNetwork>();
    for (const char* type : {"pointLight", "spotLight", "ambientLight"}) net->addLight(type, T3Float(0, 1, 0));
    net->useLights();
    ASSERT_NE(net->analyse(), nullptr);
    for (unsigned k = 0; k < net->lights.size(); ++k) {
        TdependNode* light = net->lights[k];
        SCOPED_TRACE(light->typeName().asC());
        TshadingOpus* program = TshadingCatalog::find(light, kSingleLight);
        ASSERT_NE(program, nullptr);
        EXPECT_EQ(net->group->option(kSurfaceColorTransparency).opus->illuminatingLight(k), program);
        EXPECT_EQ(program->node(), light);
        EXPECT_TRUE(program->needs().test(kItemObjectType));
        EXPECT_TRUE(program->releaseOpus()) << "a light's program releases nothing";
        EXPECT_NE(TshadingCatalog::find(light, kSingleLight), nullptr);
    }
    TshadingCatalog::deleteOpus(net->group, kSurfaceColorTransparency, true);
    for (TdependNode* light : net->lights)
        EXPECT_EQ(TshadingCatalog::find(light, kSingleLight), nullptr) << "the group's release drops the light's program";
}

// Hard shadows trace one ray a sample; a light of radius 2 with 32 jittered
// rays behind a wall over half its disc lets part of it through.
TEST(LightEngine, RayTracedShadowsFollowPassControlReceiveShadowsAndTheLightsRadius) {
    struct Case {
        const char* name;
        int pass;
        bool receive;
        float x0;  // the wall in the plane z = 1 covers x >= x0
        float radius;
        short rays;
        float litFraction, tolerance;  // of the unshadowed colour
        int traced;
    };
    const Case cases[] = {
        {"occluded", 0, true, -1e9f, 0, 1, 0.0f, 1e-5f, 3},
        {"unoccluded", 0, true, 5, 0, 1, 1.0f, 1e-5f, 3},
        {"pass 1", 1, true, -1e9f, 0, 1, 1.0f, 1e-5f, 0},
        {"pass 2", 2, true, -1e9f, 0, 1, 1.0f, 1e-5f, 0},
        {"pass 3", 3, true, -1e9f, 0, 1, 1.0f, 1e-5f, 0},
        {"pass 4", 4, true, -1e9f, 0, 1, 1.0f, 1e-5f, 0},
        {"shadow pass keeps shadows", 5, true, -1e9f, 0, 1, 0.0f, 1e-5f, 3},
        {"receiveShadows off", 0, false, -1e9f, 0, 1, 1.0f, 1e-5f, 0},
        {"soft, half the disc hidden", 0, true, 0, 2, 32, 0.5f, 0.3f, 3 * 32},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TlitNetwork net;
        auto* light = net.addLight<TpointLightShape>("pointLight", T3Float(0, 0, 3));
        setValue(light, TlightShape::saUseRayTraceShadows(), true);
        setValue(light, TnonExtendedLightShape::saLightRadius(), c.radius);
        setValue(light, TnonExtendedLightShape::saShadowRays(), c.rays);
        net.useLights();
        ToccluderTracer tracer;
        tracer.x0 = c.x0;
        TrenderLightShape::setThreadRaySampler(&tracer);
        currentRenderPassControl = c.pass;
        // The object's flag, which every sample carries, drives the light's input.
        std::vector<TsurfaceSample> in(3, TsurfaceSample{{0, 0, 0}, {0, 0, 1}, -1, c.receive});
        auto out = net.shade(in);
        currentRenderPassControl = 0;
        TrenderLightShape::setThreadRaySampler(nullptr);
        // No decay: colour 1, intensity 1, normal facing the light.
        for (const auto& r : out) {
            EXPECT_NEAR(r.color.x, c.litFraction, c.tolerance);
            EXPECT_NEAR(r.info.y, 1.0f - c.litFraction, c.tolerance) << "shadow fraction";
        }
        EXPECT_EQ(tracer.rays, c.traced);
    }
}

}  // namespace
