// The Lambert surface: closed-form lighting, the ambient-only case, hide
// source, black hole, translucence, the shadow pass, every render pass,
// refraction through a recording ray sampler, analysis hooks, and a node
// rendered again with new values.
#include <cfloat>
#include <algorithm>
#include <cmath>

#include "materials/material_fixture.h"
#include "materials/material_support.h"
#include "shading/light_callbacks.h"

namespace {
T3Float mul3(const T3Float& a, const T3Float& b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
}  // namespace

TEST(LambertLighting, NoLightsGivesAmbientAttenuatedPlusIncandescence) {
    const T3Float color(0.8f, 0.4f, 0.2f), ambient(0.5f, 0.25f, 1.0f), transparency(0.25f, 0.5f, 0.75f), incandescence(0.1f, 0.2f, 0.3f);
    TmaterialNetwork net;
    net.set(TdnLambert::saColor(), color);
    net.set(TdnLambert::saAmbientColor(), ambient);
    net.set(TdnLambert::saTransparency(), transparency);
    net.set(TdnLambert::saIncandescence(), incandescence);
    net.set(TdnLambert::saGlowIntensity(), 2.0f);
    TmaterialResult r = net.shadeOne();
    T3Float lit = mul3(mul3(color, ambient), T3Float(0.75f, 0.5f, 0.25f)) + incandescence;
    expectNear3(r.color, lit, 1e-6f, "outColor");
    expectNear3(r.glow, lit * 2.0f, 1e-6f, "outGlowColor is the colour times glowIntensity");
    expectNear3(r.transparency, transparency, 0, "outTransparency");
    expectNear3(r.matte, T3Float(0.75f, 0.5f, 0.25f), 1e-6f, "opacity gain matte");
}

TEST(LambertSurface, HideSourceBlackHoleAndMatteModes) {
    TlightData front = pointLightRecord(T3Float(0, 0, 0), T3Float(1, 1, 1), 1, 0, T3Float(0, 0, -5));
    {
        TmaterialNetwork net;
        net.setLight(0, front);
        net.set(TdnLambert::saHideSource(), true);
        net.set(TdnLambert::saGlowIntensity(), 0.5f);
        net.set(TdnLambert::saTransparency(), T3Float(0.2f, 0.2f, 0.2f));
        TmaterialResult r = net.shadeOne();
        expectNear3(r.color, T3Float(), 0, "hidden colour");
        expectNear3(r.transparency, T3Float(1, 1, 1), 0, "hidden transparency");
        expectNear3(r.glow, T3Float(0.5f, 0.5f, 0.5f) * 0.8f * 0.5f * 0.8f, 1e-6f, "glow of the lit, attenuated colour");
    }
    struct {
        short mode;
        T3Float matte;
        bool black;
    } modes[] = {{TdnLambert::kBlackHole, T3Float(-1000000, -1000000, -1000000), true},
                 {TdnLambert::kSolidMatte, T3Float(0.4f, 0.4f, 0.4f), false},
                 {TdnLambert::kOpacityGain, T3Float(0.3f, 0.2f, 0.1f), false}};
    for (auto& m : modes) {
        SCOPED_TRACE(m.mode);
        TmaterialNetwork net;
        net.setLight(0, front);
        net.set(TdnLambert::saIncandescence(), T3Float(0.3f, 0.3f, 0.3f));
        net.set(TdnLambert::saGlowIntensity(), 1.0f);
        net.set(TdnLambert::saMatteOpacityMode(), m.mode);
        net.set(TdnLambert::saMatteOpacityGain(), 0.4f);
        net.set(TdnLambert::saTransparency(), T3Float(0.25f, 0.5f, 0.75f));
        TmaterialResult r = net.shadeOne();
        expectNear3(r.matte, m.matte, 1e-6f, "matte");
        EXPECT_EQ(r.color == T3Float(), m.black);
        EXPECT_EQ(r.glow == T3Float(), m.black);
    }
}

// The fade below the threshold is checked over a batch by the mixed-lights
// test and in a render; here the threshold itself and the focus.
TEST(LambertTranslucence, DepthSetsThresholdAndFocusOneStaysFinite) {
    struct {
        float depth, focus, cosine;
        T3Float lightDirection;
        float expected;  // translucence weight, colour white, diffuse 0
    } cases[] = {
        {0.0f, 0, -0.6f, T3Float(0, 0.8f, -0.6f), 0.0f},  // threshold 0: the far side gets nothing
        // Focus 1: exponent 1/0.00001; the light straight along the view
        // ray (towards -z) gives x = 1 and the full weight.
        {0.5f, 1.0f, -1.0f, T3Float(0, 0, -1), 0.5f},
        // ... and 0.8 off it, x = 0.9, almost nothing.
        {0.5f, 1.0f, -0.6f, T3Float(0, 0.8f, -0.6f), 0.5f * float(std::pow(0.8, 1.0 / (1.00001f - 1.0f)))},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "depth " << c.depth << " focus " << c.focus << " cosine " << c.cosine);
        TmaterialNetwork net;
        net.set(TdnLambert::saColor(), T3Float(1, 1, 1));
        net.set(TdnLambert::saDiffuseCoeff(), 0.0f);
        net.set(TdnLambert::saTranslucenceCoeff(), 0.5f);
        net.set(TdnLambert::saTranslucenceDepth(), c.depth);
        net.set(TdnLambert::saTranslucenceFocus(), c.focus);
        net.init();
        EXPECT_FLOAT_EQ(net.material->translucenceThreshold(), c.depth * -11.5f);
        net.setLight(0, distantLight(c.lightDirection, 1));
        TmaterialResult r = net.shadeOne();
        EXPECT_NEAR(r.color.x, c.expected, 1e-5f);
    }
}

TEST(LambertShadowPass, MatteCarriesTheShadowedFraction) {
    TpassScope pass(kPassShadow);
    auto light = [](T3Float direction, float preShadow, float fraction, bool diffuse) {
        TlightData d = distantLight(direction, preShadow, fraction);
        d.lightDiffuse = diffuse;
        return d;
    };
    struct {
        const char* what;
        std::vector<TlightData> lights;
        float expected;
    } cases[] = {
        {"no lights", {}, 0.0f},
        {"one half-shadowed light", {light({0, 0, 1}, 2, 0.5f, true)}, 0.5f},
        {"weighted by intensity", {light({0, 0, 1}, 3, 1, true), light({0, 0.6f, 0.8f}, 1, 0, true)}, 0.75f},
        {"a light facing away counts only in the total", {light({0, 0, 1}, 1, 1, true), light({0, 0, -1}, 1, 1, true)}, 0.5f},
        {"diffuse clear counts in neither", {light({0, 0, 1}, 1, 0.25f, true), light({0, 0, 1}, 5, 1, false)}, 0.25f},
        {"a tiny total is not divided", {light({0, 0, 1}, 0.000005f, 0.5f, true)}, 0.0000025f},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        TmaterialNetwork net;
        net.set(TdnLambert::saIncandescence(), T3Float(1, 1, 1));
        for (unsigned k = 0; k < c.lights.size(); ++k) net.setLight(k, c.lights[k]);
        TmaterialResult r = net.shadeOne();
        expectNear3(r.matte, T3Float(c.expected, c.expected, c.expected), 1e-6f, "shadow matte");
        expectNear3(r.color, T3Float(), 0, "colour");
        expectNear3(r.glow, T3Float(), 0, "glow");
    }
}

TEST(LambertPasses, EachPassAddsItsTerms) {
    // Light 1, ambient 0.01, incandescence 100: each term readable on its own.
    const float lightTerm = 0.8f, ambientTerm = 0.01f, incandescenceTerm = 100.0f;
    struct {
        int pass;
        bool light, ambient, incandescence;
    } cases[] = {{kPassFull, true, true, true},          {kPassNoShadows, true, true, true},
                 {kPassAmbientOnly, false, true, false}, {kPassNoSpecular, true, true, true},
                 {kPassSpecularOnly, false, false, false}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.pass);
        TpassScope pass(c.pass);
        TmaterialNetwork net;
        net.set(TdnLambert::saColor(), T3Float(1, 1, 1));
        net.set(TdnLambert::saAmbientColor(), T3Float(ambientTerm, ambientTerm, ambientTerm));
        net.set(TdnLambert::saIncandescence(), T3Float(incandescenceTerm, incandescenceTerm, incandescenceTerm));
        net.setLight(0, distantLight({0, 0, 1}, 1));
        TmaterialResult r = net.shadeOne();
        float expected = (c.light ? lightTerm : 0) + (c.ambient ? ambientTerm : 0) + (c.incandescence ? incandescenceTerm : 0);
        EXPECT_NEAR(r.color.y, expected, 1e-4f);
        EXPECT_NEAR(r.matte.y, 1.0f, 1e-6f) << "opacity gain of an opaque surface";
    }
}

TEST(LambertRefraction, RaysFormedPerSampleAndTheirDirections) {
    const float s = std::sqrt(0.5f);
    struct {
        const char* what;
        float index, thickness, medium;
        T3Float direction;
        bool chromatic;
        unsigned rays;
        T3Float firstDirection;
        float firstMedium;
    } cases[] = {
        {"index 1 with thickness leaves unbent", 1.0f, 0.5f, 1.0f, T3Float(0, -s, -s), false, 1, T3Float(0, -s, -s), 1.0f},
        {"medium equal to the index leaves into index 1", 1.5f, 0, 1.5f, T3Float(0, -0.6f, -0.8f), false, 1,
         T3Float(0, -0.9f, -std::sqrt(0.19f)), 1.0f},
        {"glass bends towards the normal", 1.5f, 0, 1.0f, T3Float(0, -s, -s), false, 1,
         T3Float(0, -s / 1.5f, -std::sqrt(1 - 0.5f / 2.25f)), 1.5f},
        {"total internal reflection", 1.2f, 0, 2.0f, T3Float(0, -0.8f, -0.6f), false, 1, T3Float(0, -0.8f, 0.6f), 1.2f},
        {"chromatic: three rays", 1.5f, 0, 1.0f, T3Float(0, -s, -s), true, 3, T3Float(0, -s / 1.5f, -std::sqrt(1 - 0.5f / 2.25f)), 1.5f},
        // Thickness 1 at grazing raises the index far above 3: the limit of 3
        // comes before the chromatic step, which adds 0.06 and 0.12 to it.
        {"thickness limit, then chromatic", 2.5f, 1.0f, 1.0f, T3Float(0, -0.99f, -std::sqrt(1 - 0.99f * 0.99f)), true, 3,
         T3Float(0, -0.33f, -std::sqrt(1 - 0.33f * 0.33f)), 3.0f},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        TtestRaySampler sampler;
        TmaterialNetwork net;
        net.setRaySampler(&sampler);
        net.set(TdnLambert::saTransparency(), T3Float(0.5f, 0.5f, 0.5f));
        net.set(TdnLambert::saRtRefractedColor(), true);
        net.set(TdnLambert::saRefractiveIndex(), c.index);
        net.set(TdnLambert::saSurfaceThickness(), c.thickness);
        net.set(TdnLambert::saChromaticAberration(), c.chromatic);
        TmaterialSample sample;
        sample.direction = c.direction;
        sample.medium = c.medium;
        sample.rayDepth = 2;
        net.pull({sample});
        // The host graph computes the colour once and the transparency once.
        ASSERT_EQ(sampler.traced, 2 * c.rays);
        EXPECT_EQ(sampler.calls, 2);
        const TgenericRay& ray = sampler.kept[0];
        expectNear3(ray.direction, c.firstDirection, 1e-5f, "direction");
        EXPECT_FLOAT_EQ(ray.mediumRefractiveIndex, c.firstMedium);
        EXPECT_EQ(ray.rayDepth, 3);
        expectNear3(ray.origin, sample.point, 0, "origin");
        EXPECT_EQ(ray.distance, FLT_MAX);
        if (c.chromatic) {
            EXPECT_FLOAT_EQ(sampler.kept[1].mediumRefractiveIndex, c.firstMedium + 0.06f);
            EXPECT_FLOAT_EQ(sampler.kept[2].mediumRefractiveIndex, c.firstMedium + 0.12f);
        }
    }
}

TEST(LambertRefraction, TransmittanceAndRadianceReachTheOutputs) {
    struct {
        const char* what;
        bool chromatic;
        float absorbance, depth, thickness;
        T3Float colorAdded;  // radiance * attenuation summed over slots
        T3Float transparency;
    } cases[] = {
        // Radiance (0.25, 0.5, 1), transmittance 0.5, ray distance 10.
        {"plain", false, 0, 0, 0, T3Float(0.25f, 0.5f, 1.0f), T3Float(0.25f, 0.25f, 0.25f)},
        {"absorbance", false, 5, 0, 0, T3Float(0.25f, 0.5f, 1.0f) * float(1.0 / std::exp(0.5)), T3Float(0.25f, 0.25f, 0.25f)},
        {"depth", false, 0, 40, 0, T3Float(0.25f, 0.5f, 1.0f) * (0.75f * 0.75f), T3Float(0.25f, 0.25f, 0.25f)},
        {"thickness caps the distance", false, 5, 0, 2, T3Float(0.25f, 0.5f, 1.0f) * float(1.0 / std::exp(0.1)),
         T3Float(0.25f, 0.25f, 0.25f)},
        {"beyond the depth nothing passes", false, 0, 5, 0, T3Float(), T3Float(0.25f, 0.25f, 0.25f)},
        {"chromatic: each slot its channel", true, 0, 0, 0, T3Float(0.25f, 0.5f, 1.0f), T3Float(0.25f, 0.25f, 0.25f)},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        TtestRaySampler sampler;
        TmaterialNetwork net;
        net.setRaySampler(&sampler);
        net.set(TdnLambert::saColor(), T3Float(0, 0, 0));
        net.set(TdnLambert::saTransparency(), T3Float(0.5f, 0.5f, 0.5f));
        net.set(TdnLambert::saRtRefractedColor(), true);
        net.set(TdnLambert::saRefractiveIndex(), 1.3f);
        net.set(TdnLambert::saChromaticAberration(), c.chromatic);
        net.set(TdnLambert::saLightAbsorbance(), c.absorbance);
        net.set(TdnLambert::saTransparencyDepth(), c.depth);
        net.set(TdnLambert::saSurfaceThickness(), c.thickness);
        net.set(TdnLambert::saGlowIntensity(), 1.0f);
        TmaterialResult r = net.shadeOne();
        expectNear3(r.color, c.colorAdded * 0.5f, 1e-5f, "outColor: refraction times transparency");
        expectNear3(r.glow, T3Float(), 0, "the glow holds no refraction");
        expectNear3(r.transparency, c.transparency, 1e-6f, "transparency times transmittance");
    }
}

TEST(LambertRefraction, BackgroundForSamplesWithoutRaysAndNoSamplerMeansPlainTransparency) {
    {
        TtestRaySampler sampler;
        sampler.backgroundColor = Tspectrum(0.1f, 0.2f, 0.4f);
        TmaterialNetwork net;
        net.setRaySampler(&sampler);
        net.set(TdnLambert::saColor(), T3Float(0, 0, 0));
        net.set(TdnLambert::saTransparency(), T3Float(0.5f, 0.5f, 0.5f));
        net.set(TdnLambert::saRtRefractedColor(), true);
        net.set(TdnLambert::saChromaticAberration(), true);
        net.set(TdnLambert::saRefractedRayDepthLimit(), short(1));
        TmaterialSample deep;
        deep.rayDepth = 1;  // at the limit: no ray
        TmaterialResult r = net.shadeOne(deep);
        EXPECT_EQ(sampler.traced, 0u);
        // Three slots, each the whole background: deliberate.
        expectNear3(r.color, T3Float(0.1f, 0.2f, 0.4f) * 1.5f, 1e-6f, "background three times");
    }
    {
        TmaterialNetwork net;
        net.set(TdnLambert::saTransparency(), T3Float(0.5f, 0.25f, 0.125f));
        net.set(TdnLambert::saRtRefractedColor(), true);
        TmaterialResult r = net.shadeOne();
        expectNear3(r.transparency, T3Float(0.5f, 0.25f, 0.125f), 0, "no sampler");
    }
}

TEST(LambertAnalysis, ModifyAffectsPrunesTheRayContext) {
    TdependGraph graph;
    auto* node = static_cast<TdnLambert*>(graph.createNode("lambert"));
    auto affectors = [&] {
        TbitFieldFixedN bits(node->attributeCount());
        node->dependencies().allAffectors(TdnLambert::saOutTransparency().index(), bits);
        node->modifyAffects(&TdnLambert::saOutTransparency(), bits, nullptr, nullptr);
        return bits;
    };
    EXPECT_TRUE(affectors().isEmpty()) << "an opaque surface computes nothing";
    T3Float half(0.5f, 0.5f, 0.5f);
    node->setAttributeValue(&TdnLambert::saTransparency(), &half);
    TbitFieldFixedN bits = affectors();
    for (const Tattribute* gone : std::initializer_list<const Tattribute*>{&TdnLambert::saObjectId(), &TdnLambert::saRaySampler(), &TdnLambert::saRayDepth(),
                                   &TdnLambert::saRefractiveIndex(), &TdnLambert::saRtRefractedColor(), &TdnLambert::saRayDirectionZ(),
                                   &TdnLambert::saPointCameraX(), &TdnLambert::saNormalCamera()})
        EXPECT_FALSE(bits.test(gone->index())) << gone->longName().asC();
    // Settled behaviour: X cleared twice, Z kept.
    for (const Tattribute* kept : std::initializer_list<const Tattribute*>{&TdnLambert::saPointCameraZ(), &TdnLambert::saNormalCameraZ(), &TdnLambert::saTransparency(),
                                   &TdnLambert::saHideSource()})
        EXPECT_TRUE(bits.test(kept->index())) << kept->longName().asC();
    bool on = true;
    node->setAttributeValue(&TdnLambert::saRtRefractedColor(), &on);
    bits = affectors();
    EXPECT_TRUE(bits.test(TdnLambert::saRayDirectionX().index()));
    EXPECT_TRUE(bits.test(TdnLambert::saRaySampler().index()));
}

TEST(LambertAnalysis, GroupedOutputsFollowThePass) {
    TdependGraph graph;
    auto* node = static_cast<TdnLambert*>(graph.createNode("lambert"));
    auto grouped = [&](const Tattribute& a) {
        TattributeArray group;
        node->groupedAttrs(&a, group);
        std::vector<const Tattribute*> v;
        for (unsigned i = 0; i < group.length(); ++i) v.push_back(group[i]);
        return v;
    };
    auto has = [](const std::vector<const Tattribute*>& v, const Tattribute& a) { return std::find(v.begin(), v.end(), &a) != v.end(); };
    for (int pass : {kPassFull, kPassShadow}) {
        SCOPED_TRACE(pass);
        TpassScope scope(pass);
        bool shadow = pass == kPassShadow;
        auto color = grouped(TdnLambert::saOutColorR());
        EXPECT_TRUE(has(color, TdnLambert::saOutGlowColor()) && has(color, TdnLambert::saOutGlowColorB()));
        EXPECT_EQ(has(color, TdnLambert::saOutMatteOpacity()), shadow);
        EXPECT_EQ(color.size(), shadow ? 8u : 4u);
        auto transparency = grouped(TdnLambert::saOutTransparency());
        EXPECT_EQ(transparency.size(), 4u);
        EXPECT_TRUE(has(transparency, TdnLambert::saOutMatteOpacityG()));
        auto matte = grouped(TdnLambert::saOutMatteOpacity());
        EXPECT_EQ(matte.size(), shadow ? 12u : 4u);
        EXPECT_EQ(has(matte, TdnLambert::saOutColor()), shadow);
    }
}

TEST(LambertAnalysis, GlowQueryAndRayRequirements) {
    TdependGraph graph;
    auto* node = static_cast<TdnLambert*>(graph.createNode("lambert"));
    auto* driver = static_cast<TdnLambert*>(graph.createNode("lambert"));
    float glow = -1;
    node->getGlowIntensity(glow);
    EXPECT_EQ(glow, 0.0f);
    ASSERT_EQ(graph.connect(Tplug(driver, &TdnLambert::saDiffuseCoeff()), Tplug(node, &TdnLambert::saGlowIntensity())),
              TconnectStatus::kOk);
    float zero = 0;
    driver->setAttributeValue(&TdnLambert::saDiffuseCoeff(), &zero);
    node->getGlowIntensity(glow);
    EXPECT_EQ(glow, TdnLambert::kDrivenGlow) << "driven at 0 still reports possible glow";

    TbitField64 mask(~0ull);
    node->analyse(nullptr, nullptr, nullptr, mask);
    EXPECT_EQ(mask.bits(), ~0ull) << "no render quality node: nothing pruned";
    TdependNode* quality = graph.createNode("renderQuality", "defaultRenderQuality");
    ASSERT_NE(quality, nullptr);
    bool off = false;
    quality->setAttributeValue(quality->attribute(Tstring("enableRaytracing")), &off);
    node->analyse(nullptr, nullptr, nullptr, mask);
    EXPECT_EQ(mask.bits(), ~((1ull << 36) | (1ull << 37) | (1ull << 45) | (1ull << 46)));

    // No sampler outlives its render.
    TtestRaySampler sampler;
    void* p = &sampler;
    node->setAttributeValue(&TdnLambert::saRaySampler(), &p);
    node->endOfRender(nullptr);
    void* after = &sampler;
    node->getAttributeValue(&TdnLambert::saRaySampler(), &after);
    EXPECT_EQ(after, nullptr);
}

// A light that integrates itself: twice the plain cosine.
class TdoublingLight : public TlightCallbacks {
public:
    float integrateLambertianReflectance(const T4dFltVector& l, const T4dFltPoint& p, const T4dFltVector& n, bool s) override {
        return 2.0f * TlightCallbacks::integrateLambertianReflectance(l, p, n, s);
    }
};

TEST(LambertLighting, MixedLightsSumInOrderOverABatch) {
    // Plain lights shared by the batch take a short loop, a light with
    // callbacks the general one; with translucence on, every light takes the
    // general loop. Either way each sample's sum is every light's term, in
    // order: compared with that sum written per sample. The records sit at
    // sparse indices of the light array, and the ambient flag adds the
    // intensity without a cosine, with or without the diffuse flag. A shallow
    // translucence depth puts some cosines below the threshold and some in
    // the fade above it.
    TdoublingLight doubling;
    auto record = [](const T3Float& toLight, const T3Float& intensity, bool ambient, bool diffuse) {
        TlightData d;
        d.lightDirection = normalize(toLight);
        d.lightIntensity = intensity;
        d.lightAmbient = ambient;
        d.lightDiffuse = diffuse;
        return d;
    };
    TlightData self = record({-0.5f, 0.1f, 0.8f}, {0.2f, 0.5f, 0.7f}, false, true);
    self.lightBlindData = static_cast<TlightCallbacks*>(&doubling);
    const TlightData lights[] = {record({0.3f, 0.4f, 0.85f}, {0.9f, 0.6f, 0.3f}, false, true), self,
                                 record({0.1f, -0.9f, 0.4f}, {0.3f, 0.3f, 0.1f}, true, true),
                                 record({0.2f, 0.3f, 0.9f}, {0.1f, 0.2f, 0.3f}, true, false)};
    const unsigned at[] = {0, 2, 3, 7};
    const T3Float color(0.8f, 0.6f, 0.4f);
    const float diffuse = 0.7f;
    std::vector<TmaterialSample> in(24);
    for (unsigned i = 0; i < in.size(); ++i) in[i].normal = normalize(T3Float(float(i % 5) - 2.0f, float(i % 7) * 0.3f - 1.0f, 1.0f));
    for (float translucence : {0.0f, 0.25f}) {
        SCOPED_TRACE(translucence);
        TmaterialNetwork net;
        net.set(TdnLambert::saColor(), color);
        net.set(TdnLambert::saDiffuseCoeff(), diffuse);
        net.set(TdnLambert::saTranslucenceCoeff(), translucence);
        net.set(TdnLambert::saTranslucenceFocus(), 0.0f);
        net.set(TdnLambert::saTranslucenceDepth(), 0.02f);
        for (unsigned k = 0; k < 4; ++k) net.setLight(at[k], lights[k]);
        net.init();  // the threshold is prepared per render, for the host graph's pull too
        auto out = net.shadeBoth(in);
        ASSERT_EQ(out.size(), in.size());
        const float threshold = net.material->translucenceThreshold(), range = std::min(0.15f - threshold, 1.0f);
        int below = 0, fading = 0;
        for (unsigned i = 0; i < in.size(); ++i) {
            T3Float want;
            for (const TlightData& d : lights) {
                float cosine = dot(d.lightDirection, in[i].normal) * (d.lightBlindData ? 2.0f : 1.0f);
                float w = d.lightAmbient ? 1.0f : 0.0f;
                if (d.lightDiffuse) w += std::max(cosine, 0.0f) * diffuse;
                if (d.lightDiffuse && translucence != 0 && cosine > threshold)
                    w += translucence * (cosine < threshold + range ? (cosine - threshold) / range : 1.0f);
                below += cosine <= threshold, fading += cosine > threshold && cosine < threshold + range;
                want = want + mul3(color, d.lightIntensity) * w;
            }
            expectNear3(out[i].color, want, 2e-6f, "outColor");
        }
        EXPECT_TRUE(below > 0 && fading > 0) << below << " terms below the threshold, " << fading << " in the fade";
    }
}

TEST(LambertRenders, AReRenderedNodeShadesAsAFreshOneWithItsNewValues) {
    // Inputs nothing drives are read once per render: the same node shaded
    // again after its values change must give, to the bit, what a node that
    // only ever had the new values gives, and the old values must matter.
    struct Values {
        T3Float color, transparency, ambient, incandescence;
        float diffuse, translucence, glow, matte;
        bool hide;
        short matteMode;
    };
    const Values before{{0.2f, 0.9f, 0.4f}, {0.5f, 0.5f, 0.5f}, {0.3f, 0, 0}, {0, 0.2f, 0}, 0.4f, 0.6f, 0.5f, 0.3f, true,
                        TdnLambert::kBlackHole};
    const Values after{{0.9f, 0.5f, 0.25f}, {0, 0, 0}, {0.05f, 0.1f, 0}, {0.1f, 0, 0.05f}, 0.8f, 0, 0.25f, 0.7f, false,
                       TdnLambert::kOpacityGain};
    auto apply = [](TmaterialNetwork& net, const Values& v) {
        net.set(TdnLambert::saColor(), v.color);
        net.set(TdnLambert::saTransparency(), v.transparency);
        net.set(TdnLambert::saAmbientColor(), v.ambient);
        net.set(TdnLambert::saIncandescence(), v.incandescence);
        net.set(TdnLambert::saDiffuseCoeff(), v.diffuse);
        net.set("translucence", v.translucence);
        net.set("glowIntensity", v.glow);
        net.set("matteOpacity", v.matte);
        net.set("hideSource", v.hide);
        net.set("matteOpacityMode", v.matteMode);
        net.setLight(0, pointLightRecord({1, 2, 0.5f}, {1, 0.8f, 0.6f}, 1.5f, 2, {0, 0, -2}));
    };
    std::vector<TmaterialSample> samples(6);
    for (unsigned i = 0; i < samples.size(); ++i) {
        samples[i].point = T3Float(0.1f * float(i), -0.2f, -2);
        samples[i].normal = normalize(T3Float(0.2f * float(i) - 0.5f, 0.3f, 1));
    }
    TmaterialNetwork reused, fresh;
    apply(reused, before);
    const std::vector<TmaterialResult> first = reused.shade(samples);
    apply(reused, after);
    const std::vector<TmaterialResult> again = reused.shade(samples);
    apply(fresh, after);
    const std::vector<TmaterialResult> want = fresh.shade(samples);
    ASSERT_EQ(again.size(), want.size());
    auto same = [](const T3Float& a, const T3Float& b) { return std::memcmp(&a, &b, sizeof a) == 0; };
    for (unsigned i = 0; i < want.size(); ++i) {
        EXPECT_TRUE(same(again[i].color, want[i].color)) << "colour " << i;
        EXPECT_TRUE(same(again[i].transparency, want[i].transparency)) << "transparency " << i;
        EXPECT_TRUE(same(again[i].glow, want[i].glow)) << "glow " << i;
        EXPECT_TRUE(same(again[i].matte, want[i].matte)) << "matte " << i;
        EXPECT_FALSE(same(first[i].color, want[i].color) && same(first[i].matte, want[i].matte)) << "the first values show " << i;
    }
}
