// Light shapes on the scalar road of the host graph: records at a point,
// decay, ambient shade, light position, fog weights, colour-map
// coordinates, the shadow-mode exclusion and the analysis mask.
#include <gtest/gtest.h>

#include <cmath>

#include "lights/light_at_point.h"
#include "lights/light_fixture.h"
#include "settings/render_quality.h"
#include "utilities/surface_luminance.h"

namespace {

TEST(PointLight, DecayIsFlatWithinUnitDistanceAndEmitFlagsReachTheRecord) {
    struct Case {
        short decay;
        float distance;
        float factor;
        bool specular = true;
    };
    const Case cases[] = {
        {2, 0.5f, 1.0f}, {2, 2.0f, 0.25f}, {0, 3.0f, 1.0f},   {1, 0.25f, 1.0f},
        {1, 4.0f, 0.25f}, {3, 2.0f, 0.125f}, {3, 0.9f, 1.0f}, {2, 1.0f, 1.0f, false},
    };
    for (const Case& c : cases) {
        TlightScene scene;
        auto* light = scene.light<TpointLightShape>("pointLight", T3Float(1, 2, 3));
        const float intensity = 3.0f;
        const T3Float color(0.5f, 1.0f, 0.2f);
        setValue(light, TlightShape::saIntensity(), intensity);
        setValue(light, TlightShape::saColor(), color);
        light->setRateOfDecay(c.decay);
        setValue(light, TnonAmbientLightShape::saEmitSpecular(), c.specular);
        T3Float point = T3Float(1, 2, 3) + normalize(T3Float(1, -2, 0.5f)) * c.distance;
        TlightData d = TlightScene::at(light, point);
        float i = intensity * c.factor;
        EXPECT_NEAR(d.lightIntensity.x, 0.5f * i, 1e-5f) << c.decay << " at " << c.distance;
        EXPECT_NEAR(d.lightIntensity.y, 1.0f * i, 1e-5f);
        EXPECT_NEAR(d.preShadowIntensity, luminanceOf(color) * i, 1e-5f);
        T3Float l = d.lightDirection;
        EXPECT_NEAR(dot(l, normalize(T3Float(1, 2, 3) - point)), 1.0f, 1e-5f);
        EXPECT_FALSE(d.lightAmbient);
        EXPECT_TRUE(d.lightDiffuse);
        EXPECT_EQ(d.lightSpecular, c.specular);
        EXPECT_EQ(d.lightShadowFraction, 0.0f);
        EXPECT_EQ(d.lightBlindData, static_cast<void*>(static_cast<TlightCallbacks*>(light)));
    }
}

TEST(AmbientLight, ShadeWeightsTheCosineAndNeverGoesNegative) {
    struct Case {
        float shade;
        T3Float normal;
        float weight;
    };
    // The light is straight above the point.
    const Case cases[] = {
        {1.0f, {0, -1, 0}, 0.0f},  // facing away, pure cosine: 0, not -1
        {0.0f, {0, -1, 0}, 1.0f},  // no shade: the same from everywhere
        {1.0f, {0, 1, 0}, 1.0f},
        {0.45f, {1, 0, 0}, 0.55f},
        {0.5f, {0, -1, 0}, 0.0f},
        {0.25f, {0, -1, 0}, 0.5f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "shade " << c.shade);
        TlightScene scene;
        auto* light = scene.light<TambientLightShape>("ambientLight", T3Float(0, 5, 0));
        setValue(light, TambientLightShape::saAmbientShade(), c.shade);
        setValue(light, TambientLightShape::saNormalCamera(), c.normal);
        setValue(light, TlightShape::saIntensity(), 2.0f);
        TlightData d = TlightScene::at(light, T3Float(0, 0, 0));
        EXPECT_NEAR(d.lightIntensity.z, 2 * c.weight, 2e-6f);
        EXPECT_NEAR(d.preShadowIntensity, 2 * c.weight, 1e-5f);
        EXPECT_TRUE(d.lightAmbient);
        EXPECT_FALSE(d.lightDiffuse);
        EXPECT_FALSE(d.lightSpecular);
        EXPECT_EQ(d.lightBlindData, nullptr);
    }
}

TEST(DirectionalLight, OneDirectionAndTheLightPlane) {
    TlightScene scene;
    auto* light = scene.light<TdirectionalLightShape>("directionalLight", T3Float(0, 0, 4));
    TlightData far = TlightScene::at(light, T3Float(3, -2, -100));
    EXPECT_NEAR(far.lightDirection.z, 1.0f, 1e-6f);
    EXPECT_NEAR(far.lightIntensity.x, 1.0f, 1e-6f) << "no decay at any distance";
    setValue(light, TdirectionalLightShape::saUseLightPosition(), true);
    EXPECT_NEAR(TlightScene::at(light, T3Float(0, 0, 3)).lightIntensity.x, 1.0f, 1e-6f) << "in front of the plane";
    TlightData behind = TlightScene::at(light, T3Float(0, 0, 5));
    EXPECT_EQ(behind.lightIntensity.x, 0.0f);
    EXPECT_EQ(behind.lightIntensity.y, 0.0f);
}

// A segment of length l in fog of radius R: w = l / (2 (R + R^2 - l^2 / 4)),
// then the fog type's curve, worked out by hand. The light's own fog samples
// take it times the fog intensity in place of decay.
TEST(PointLight, OwnFogSamplesTakeTheFogWeightInsteadOfDecay) {
    struct Case {
        float len, radius;
        short type, decay;
        float weight;
    };
    const Case cases[] = {
        {3, 1, 0, 0, 1},                  // longer than the fog's diameter
        {0.5f, 1, 0, 0, 4.0f / 31},       // normal: w = 0.5 / 3.875
        {0.5f, 1, 0, 2, 16.0f / 961},     // w^2, not the 1/25 of decay
        {0.5f, 1, 0, 3, 64.0f / 29791},   // w^3
        {1, 2, 1, 0, 4.0f / 529},         // linear: (2 / 23)^2
        {1, 2, 1, 2, 0.001977306f},       // (1 - sqrt(1 - 2 / 23))^2
        {1, 2, 2, 1, 0.02986877f},        // exponential: 1 - (21 / 23)^(1 / 3)
        {1.5f, 1, 2, 0, 0.3084359f},      // 1 - (11 / 23)^(1 / 2)
        {2.5f, 1, 1, 3, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.len << " " << c.type << " " << c.decay);
        EXPECT_NEAR(TpointLightShape::fogWeight({0, 0, 0}, T3Float(0, c.len, 0), c.radius, c.type, c.decay), c.weight, 1e-6f);
        TlightScene scene;
        auto* light = scene.light<TpointLightShape>("pointLight", T3Float(0, 0, 0));
        int fogObject = 0;
        light->setFogObject(&fogObject, Tmatrix());
        light->setRateOfDecay(c.decay);
        setValue(light, TpointLightShape::saFogRadius(), c.radius);
        setValue(light, TpointLightShape::saFogType(), c.type);
        setValue(light, TpointLightShape::saObjectId(), static_cast<void*>(&fogObject));
        setValue(light, TpointLightShape::saPointWorld(), T3Float(0, 0, 0));
        setValue(light, TpointLightShape::saFarPointWorld(), T3Float(0, c.len, 0));
        setValue(light, TpointLightShape::saFogIntensity(), 2.0f);
        EXPECT_NEAR(TlightScene::at(light, T3Float(0, 0, -5)).lightIntensity.x, c.weight * 2, 1e-6f);
    }
}

TEST(PointLight, ColorMapCoordinates) {
    struct Case {
        T3Float p;
        float u, v;
    };
    const float pi = 3.14159265f;
    const Case cases[] = {
        {{0, 0, 1}, 0.5f, 0.5f}, {{0, 0, 5}, 0.5f, 0.5f}, {{1, 0, 0}, 0.75f, 0.5f}, {{-1, 0, 0}, 0.25f, 0.5f},
        {{0, 1, 0}, 0.5f, 0.5f},  // r is 0
        {{0, 1, 1}, 0.5f, 0.75f}, {{1, 0, 1}, 0.5f * (pi / 4) / pi + 0.5f, 0.5f},
    };
    for (const Case& c : cases) {
        T2Float uv = TpointLightShape::colorMapCoordinates(c.p);
        EXPECT_NEAR(uv.x, c.u, 1e-5f) << c.p.x << " " << c.p.y << " " << c.p.z;
        EXPECT_NEAR(uv.y, c.v, 1e-5f) << c.p.x << " " << c.p.y << " " << c.p.z;
    }
}

TEST(LightShadows, DepthMapAndRayTracedShadowsExcludeEachOther) {
    TlightScene scene;
    auto* light = scene.light<TpointLightShape>("pointLight", T3Float(0, 0, 0));
    bool value = false;
    setValue(light, TlightShape::saUseRayTraceShadows(), true);
    setValue(light, TnonExtendedLightShape::saUseDepthMapShadows(), true);
    light->getAttributeValue(&TlightShape::saUseRayTraceShadows(), &value);
    EXPECT_FALSE(value);
    setValue(light, TlightShape::saUseRayTraceShadows(), true);
    light->getAttributeValue(&TnonExtendedLightShape::saUseDepthMapShadows(), &value);
    EXPECT_FALSE(value);
    light->getAttributeValue(&TlightShape::saUseRayTraceShadows(), &value);
    EXPECT_TRUE(value);
    setValue(light, TpointLightShape::saMiShadowMap(), true);
    light->getAttributeValue(&TlightShape::saUseRayTraceShadows(), &value);
    EXPECT_FALSE(value) << "the external renderer's shadow map excludes them too";
}

// A depth map whose left half holds a caster at depth 0.1, placed so that
// the default one-texel filter around the sample covers a quarter of it.
TEST(LightShadows, DepthMapSeamMixesTheShadowColour) {
    TlightScene scene;
    auto* light = scene.light<TpointLightShape>("pointLight", T3Float(0, 0, 0));
    setValue(light, TnonExtendedLightShape::saUseDepthMapShadows(), true);
    setValue(light, TlightShape::saShadowColor(), T3Float(0, 0, 1));
    const int res = 32;
    std::vector<float> depth(res * res);
    for (int i = 0; i < res * res; ++i) depth[size_t(i)] = i % res < res / 2 ? 0.1f : TuseShadowMap::kNoSurface;
    TuseShadowMap map(false, {0, 0, 0});
    map.initMap(TshadowMapView::sOrthographic({-0.25f, 0, 0}, {0, 0, -1}, {0, 1, 0}, 16, res, 0, 10), depth.data());
    light->setShadowMap(&map);
    TlightData d = TlightScene::at(light, T3Float(0, 0.5f, -0.5f));
    EXPECT_NEAR(d.lightShadowFraction, 0.25f, 1e-6f);
    EXPECT_NEAR(d.lightIntensity.x, 0.75f, 1e-6f);
    EXPECT_NEAR(d.lightIntensity.z, 0.25f + 0.75f, 1e-6f);
    EXPECT_NEAR(d.preShadowIntensity, 1.0f, 1e-6f) << "luminance before the shadow";
    light->deleteShadowMap();
}

TEST(LightAnalysis, RayTracedItemsAreDroppedWithoutRaytracing) {
    for (bool raytracing : {true, false}) {
        TlightScene scene;
        auto* quality = scene.graph.createNode("renderQuality", "defaultRenderQuality");
        ASSERT_NE(quality, nullptr);
        setValue(quality, TdnRenderQuality::saEnableRaytracing(), raytracing);
        auto* light = scene.light<TpointLightShape>("pointLight", T3Float(0, 0, 0));
        TbitField64 mask(~uint64_t(0));
        light->analyse(nullptr, nullptr, nullptr, mask);
        for (unsigned item : {kItemRayDepth, kItemRayInstance, kItemPrimitiveId}) EXPECT_EQ(mask.test(item), raytracing) << item;
        EXPECT_FALSE(mask.test(kItemFarPointWorld)) << "no fog geometry";
        EXPECT_FALSE(mask.test(kItemObjectType));
        EXPECT_TRUE(mask.test(kItemPointCamera));
    }
}

TEST(LightInit, NonMessageConnectionsAskForANetwork) {
    TlightScene scene;
    auto* light = scene.light<TpointLightShape>("pointLight", T3Float(0, 0, 0));
    light->shadingNodeInit(nullptr);
    EXPECT_FALSE(light->needsNetwork());
    auto* other = scene.light<TpointLightShape>("pointLight", T3Float(1, 0, 0));
    ASSERT_EQ(scene.graph.connect(Tplug(other, &TlightShape::saIntensity()), Tplug(light, &TlightShape::saIntensity())),
              TconnectStatus::kOk);
    light->shadingNodeInit(nullptr);
    EXPECT_TRUE(light->needsNetwork());
}

TEST(SurfaceLuminance, ScalarRoadReadsTheElementsSetOnTheNode) {
    TdependGraph graph;
    auto* node = static_cast<TdnSurfaceLuminance*>(graph.createNode("surfaceLuminance"));
    ASSERT_NE(node, nullptr);
    setValue(node, TdnSurfaceLuminance::saNormalCamera(), T3Float(0, 0, 1));
    TlightData diffuse;
    diffuse.lightDirection = normalize(T3Float(0, 1, 1));
    diffuse.lightIntensity = {1, 2, 3};
    diffuse.lightAmbient = false;
    TlightData ambient;
    ambient.lightIntensity = {0.5f, 0.5f, 0.5f};
    ambient.lightDiffuse = false;
    node->setAttributeValue(&TdnSurfaceLuminance::saLightDataArray(), &diffuse, 0);
    node->setAttributeValue(&TdnSurfaceLuminance::saLightDataArray(), &ambient, 3);
    float value = -1;
    ASSERT_TRUE(node->getAttributeValue(&TdnSurfaceLuminance::saOutValue(), &value));
    float want = luminanceOf(diffuse.lightIntensity) * std::sqrt(0.5f) + 0.5f;
    EXPECT_NEAR(value, want, 1e-5f);
}

}  // namespace
