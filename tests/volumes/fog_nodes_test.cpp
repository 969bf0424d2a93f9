// The fog nodes as the host's scalar pull computes them, with the sample's
// values and light records set on the node: what a render cannot show
// directly (lights that feed both terms, passes, swatch scaling, mattes).
#include <gtest/gtest.h>

#include <cmath>

#include "framework/host/depend_graph.h"
#include "shading/light_data.h"
#include "shading/render_pass_control.h"
#include "shading/swatch_mode.h"
#include "support/expect_near.h"
#include "volumes/volume_utils.h"

namespace {
struct TfogNode {
    TdependGraph graph;
    TdependNode* node;
    explicit TfogNode(const char* type) : node(graph.createNode(type)) {}

    template <class V>
    void set(const char* name, V value, int index = -1) {
        const Tattribute* a = node->attribute(Tstring(name));
        ASSERT_NE(a, nullptr) << name;
        EXPECT_TRUE(index < 0 ? node->setAttributeValue(a, &value) : node->setAttributeValue(a, &value, unsigned(index))) << name;
    }
    // Sets the value only where the node has such an attribute.
    template <class V>
    void offer(const char* name, V value) {
        if (node->attribute(Tstring(name))) set(name, value);
    }
    T3Float get(const char* name) {
        T3Float v(-7, -7, -7);
        node->getAttributeValue(node->attribute(Tstring(name)), &v);
        return v;
    }
};

TlightData record(const T3Float& intensity, bool ambient, bool diffuse) {
    TlightData r;
    r.lightDirection = {0, 1, 0};
    r.lightIntensity = intensity;
    r.lightAmbient = ambient;
    r.lightDiffuse = diffuse;
    return r;
}

struct TpassScope {
    int saved = currentRenderPassControl;
    explicit TpassScope(int pass) { currentRenderPassControl = pass; }
    ~TpassScope() { currentRenderPassControl = saved; }
};
}  // namespace

// out = sum over lights of intensity * colour * opacity, once per flag: a
// light with both flags counts twice, one with neither not at all. The
// opacity is the density, or with fastDropOff 1 - exp(-density * thickness).
// Passes 4 and 5 carry no fog whatever the lights.
TEST(FogNodes, LightFogCountsEachLightOncePerFlagAndSkipsPassesFourAndFive) {
    struct Case {
        bool ambient, diffuse, fast;
        int pass;
        float times;  // how many times the light counts; -1: no fog
    };
    const Case cases[] = {{false, false, false, 0, 0}, {true, false, false, 0, 1}, {false, true, false, 0, 1},
                          {true, true, false, 0, 2},   {true, true, true, 0, 2},    {true, true, false, 3, 2},
                          {true, true, false, 4, -1},  {true, true, true, 5, -1}};
    const T3Float light(0.5f, 0.4f, 0.2f), color(1, 0.5f, 0.25f), second(0.1f, 0.1f, 0.1f);
    const float density = 0.6f, thickness = 2.5f;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.ambient) + std::to_string(c.diffuse) + std::to_string(c.fast) + " pass " + std::to_string(c.pass));
        TpassScope pass(c.pass);
        TfogNode fog("lightFog");
        fog.set("color", color);
        fog.set("density", density);
        fog.set("fastDropOff", c.fast);
        fog.set("filterSize", T3Float(0.01f, 0.01f, thickness));
        fog.set("lightDataArray", record(light, c.ambient, c.diffuse), 0);
        // A second, diffuse-only light adds once in every case.
        fog.set("lightDataArray", record(second, false, true), 3);
        const T3Float out = fog.get("outColor"), transparency = fog.get("outTransparency");
        if (c.times < 0) {
            expectNear(out, T3Float(0, 0, 0), "colour", 0);
            expectNear(transparency, T3Float(1, 1, 1), "transparency", 0);
            continue;
        }
        const float opacity = c.fast ? 1 - std::exp(-density * thickness) : density;
        T3Float expected;
        for (int k = 0; k < 3; ++k)
            (&expected.x)[k] = ((&light.x)[k] * c.times + (&second.x)[k]) * (&color.x)[k] * opacity;
        expectNear(out, expected, "colour", 1e-6f);
        // Colour-based transparency is on by default.
        expectNear(transparency, T3Float(1 - expected.x, 1 - expected.y, 1 - expected.z), "transparency", 1e-6f);
    }
}

// The matte rule all three fog nodes share: black hole (the sentinel; the
// light fog also clears colour and transparency), solid matte, opacity gain.
TEST(FogNodes, MatteModesOfTheFogNodes) {
    const float gain = 0.7f;
    for (const char* type : {"lightFog", "envFog", "volumeFog"}) {
        for (short mode : {0, 1, 2}) {
            SCOPED_TRACE(std::string(type) + " mode " + std::to_string(mode));
            TfogNode fog(type);
            fog.set("matteOpacityMode", mode);
            fog.set("matteOpacity", gain);
            fog.offer("filterSize", T3Float(0, 0, 3));     // the light and environment fogs' thickness
            fog.offer("farPointWorld", T3Float(0, 0, 3));  // the volume fog's interval
            fog.set("lightDataArray", record(T3Float(1, 1, 1), false, true), 0);
            const T3Float matte = fog.get("outMatteOpacity"), transparency = fog.get("outTransparency");
            const T3Float color = fog.get("outColor");
            if (mode == 0) {
                expectNear(matte, T3Float(TvolumeUtils::kNoMatte, TvolumeUtils::kNoMatte, TvolumeUtils::kNoMatte), "matte", 0);
                if (std::string(type) == "lightFog") {
                    expectNear(color, T3Float(0, 0, 0), "colour", 0);
                    expectNear(transparency, T3Float(0, 0, 0), "transparency", 0);
                } else {
                    EXPECT_LT(transparency.x, 1.0f);  // a black hole elsewhere keeps its fog
                }
            } else if (mode == 1) {
                expectNear(matte, T3Float(gain, gain, gain), "matte", 0);
            } else {
                expectNear(matte, T3Float((1 - transparency.x) * gain, (1 - transparency.y) * gain, (1 - transparency.z) * gain), "matte", 1e-6f);
                EXPECT_GT(matte.x, 0.0f);
            }
        }
    }
}

// A swatch shows a node on a small ball, whose footprint is tiny: the
// environment fog stretches its thickness by 1000 there, so the same
// sample is fogged as if 1000 times deeper, in both branches.
TEST(FogNodes, EnvironmentFogThicknessGrowsAThousandfoldInASwatch) {
    const float thickness = 0.004f, saturation = 5, density = 0.3f, opacity = 0.6f;
    for (bool physical : {false, true}) {
        for (bool swatch : {false, true}) {
            SCOPED_TRACE(std::string(physical ? "physical" : "simple") + (swatch ? " swatch" : ""));
            inSampleSwatchMode = swatch;
            TfogNode fog("envFog");
            fog.set("saturationDistance", saturation);
            fog.set("physicalFog", physical);
            fog.set("fogDensity", density);
            fog.set("fogOpacity", T3Float(opacity, opacity, opacity));
            fog.set("sunIntensity", 0.0f);
            fog.set("filterSize", T3Float(0, 0, thickness));
            fog.set("rayDirection", T3Float(0, 0, -1));
            const T3Float transparency = fog.get("outTransparency");
            inSampleSwatchMode = false;
            const double d = thickness * (swatch ? 1000.0 : 1.0);
            const double expected = physical ? std::exp(std::log(1 - opacity) * density * d) : std::exp(-d / saturation);
            expectNear(transparency, T3Float(float(expected), float(expected), float(expected)), "transparency", 1e-5f);
        }
    }
}
