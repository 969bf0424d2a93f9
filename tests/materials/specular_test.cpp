// The specular family: each lobe peaks at the mirror direction, falls off
// with angle, sharpens with its settings and keeps its floors and bounds;
// the shared skeleton adds reflection and highlight per render pass.
#include <cmath>
#include <functional>

#include "materials/material_fixture.h"
#include "materials/specular.h"
#include "materials/specular_lobes.h"

namespace {
const T3Float kNormal(0, 0, 1);
// Incoming at 30 degrees from the normal, in the y-z plane.
const T3Float kView = normalize(T3Float(0, -0.5f, -0.8660254f));
const T3Float kMirror = normalize(kView + kNormal * (-2.0f * dot(kView, kNormal)));

// `v` turned by `degrees` about `axis` (unit), Rodrigues' formula.
T3Float rotate(const T3Float& v, const T3Float& axis, float degrees) {
    float a = degrees * 3.14159265f / 180.0f, c = std::cos(a), s = std::sin(a);
    return v * c + cross(axis, v) * s + axis * (dot(axis, v) * (1 - c));
}

using Lobe = std::function<float(const T3Float& L)>;

struct TlobeCase {
    const char* name;
    Lobe lobe;
    float upperBound;
    T3Float falloffAxis;  // L turns away from the mirror about this axis
};

std::vector<TlobeCase> lobeCases() {
    TanisotropicFrame frame = anisotropicFrame(T3Float(1, 0, 0), T3Float(0, 1, 0), kNormal, 0);
    T3Float inPlane(1, 0, 0);  // turning about x keeps L in the plane of V and N
    T3Float across = normalize(cross(kMirror, inPlane));
    return {
        {"phong", [](const T3Float& L) { return phongLobe(dot(L, kMirror), 20); }, 1.0f, inPlane},
        {"phongE", [](const T3Float& L) { return phongELobe(dot(L, kMirror), 0.5f, 0.5f); }, 1.0f, inPlane},
        {"blinn", [](const T3Float& L) { return blinnLobe(L, kView, kNormal, 0.3f, 0.7f); }, 1.0f / dot(kNormal, kView * -1.0f), inPlane},
        {"blinn across", [](const T3Float& L) { return blinnLobe(L, kView, kNormal, 0.3f, 0.7f); }, 1.0f / dot(kNormal, kView * -1.0f), across},
        {"anisotropic", [frame](const T3Float& L) { return anisotropicLobe(L, kView, frame, 13, 3, 0.7f, 6); }, 1.0f / fresnel0(6), inPlane},
        {"anisotropic across", [frame](const T3Float& L) { return anisotropicLobe(L, kView, frame, 13, 3, 0.7f, 6); }, 1.0f / fresnel0(6), across},
        // The hair's tangent lies along y, so turning about x moves L off the cone.
        {"hair", [](const T3Float& L) { return hairLobe(L, kView, T3Float(0, 1, 0), kNormal, 20, 5, 5, 0); }, 1.0f, inPlane},
    };
}
}  // namespace

TEST(SpecularLobes, PeakAtTheMirrorAndFallOffWithAngle) {
    for (const TlobeCase& c : lobeCases()) {
        SCOPED_TRACE(c.name);
        float peak = c.lobe(kMirror);
        EXPECT_GT(peak, 0.0f);
        EXPECT_LE(peak, c.upperBound * 1.0001f);
        float previous = peak;
        for (float angle : {2.0f, 5.0f, 10.0f, 20.0f, 35.0f}) {
            for (float sign : {1.0f, -1.0f}) {
                float v = c.lobe(rotate(kMirror, c.falloffAxis, sign * angle));
                EXPECT_LT(v, peak) << angle * sign;
                EXPECT_GE(v, 0.0f);
            }
            float v = c.lobe(rotate(kMirror, c.falloffAxis, angle));
            EXPECT_LE(v, previous) << angle;
            previous = v;
        }
    }
}

TEST(SpecularLobes, SharperSettingsNarrowTheLobe) {
    const T3Float off = rotate(kMirror, T3Float(1, 0, 0), 12);
    TanisotropicFrame frame = anisotropicFrame(T3Float(1, 0, 0), T3Float(0, 1, 0), kNormal, 0);
    const T3Float offAcross = rotate(kMirror, normalize(cross(kMirror, T3Float(1, 0, 0))), 12);
    // Narrowness is the value off the mirror relative to the peak.
    auto ratio = [](const Lobe& lobe, const T3Float& L) { return lobe(L) / lobe(kMirror); };
    auto phong = [](float p) { return Lobe([p](const T3Float& L) { return phongLobe(dot(L, kMirror), p); }); };
    auto phongE = [](float r, float s) { return Lobe([r, s](const T3Float& L) { return phongELobe(dot(L, kMirror), r, s); }); };
    auto blinn = [](float e) { return Lobe([e](const T3Float& L) { return blinnLobe(L, kView, kNormal, e, 0.7f); }); };
    auto aniso = [frame](float sx, float sy, float r) {
        return Lobe([=](const T3Float& L) { return anisotropicLobe(L, kView, frame, sx, sy, r, 6); });
    };
    auto hair = [](float p) { return Lobe([p](const T3Float& L) { return hairLobe(L, kView, T3Float(0, 1, 0), kNormal, p, 5, 5, 0); }); };
    struct {
        const char* what;
        Lobe broad, sharp;
        T3Float off;
    } cases[] = {
        {"phong power", phong(10), phong(60), off},
        {"phongE roughness", phongE(0.8f, 0.5f), phongE(0.2f, 0.5f), off},
        {"phongE size", phongE(0.5f, 0.9f), phongE(0.5f, 0.3f), off},
        {"blinn eccentricity", blinn(0.5f), blinn(0.15f), off},
        {"anisotropic roughness", aniso(13, 3, 0.8f), aniso(13, 3, 0.3f), off},
        {"anisotropic spreadY", aniso(13, 3, 0.7f), aniso(13, 40, 0.7f), off},
        {"anisotropic spreadX", aniso(3, 3, 0.7f), aniso(40, 3, 0.7f), offAcross},
        {"hair power", hair(10), hair(60), off},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_GT(ratio(c.broad, c.off), 0.0f);
        EXPECT_LT(ratio(c.sharp, c.off), ratio(c.broad, c.off));
    }
    // The hair's scatter adds a broader second lobe.
    const T3Float far = rotate(kMirror, T3Float(1, 0, 0), 40);
    EXPECT_GT(hairLobe(far, kView, T3Float(0, 1, 0), kNormal, 20, 5, 5, 0.5f),
              hairLobe(far, kView, T3Float(0, 1, 0), kNormal, 20, 5, 5, 0) + 0.01f);
}

TEST(SpecularLobes, FloorsAndLimits) {
    // Phong: the floor below an exponent of -10, the exact value above it.
    EXPECT_EQ(phongLobe(0.001f, 20), kPhongFloor);
    EXPECT_EQ(phongLobe(0.0f, 20), 0.0f);
    EXPECT_EQ(phongLobe(-0.5f, 20), 0.0f);
    EXPECT_NEAR(phongLobe(0.7f, 20), std::exp(20 * std::log(double(0.7f))), 1e-6 * 0.0008);
    EXPECT_FLOAT_EQ(phongLobe(1.0f, 80), 1.0f);
    // PhongE: size and sharpness are limited, so extreme settings stay finite
    // and equal to the limited ones; tiny values round to 0.
    EXPECT_EQ(phongELobe(0.99f, 0.5f, 0.0f), phongELobe(0.99f, 0.5f, 0.001f));
    EXPECT_EQ(phongELobe(0.99f, 0.5f, 7.0f), phongELobe(0.99f, 0.5f, 1.0f));
    EXPECT_EQ(phongELobe(0.99f, 0.0f, 0.5f), phongELobe(0.99f, 0.1f, 0.5f));
    EXPECT_EQ(roundNearZero(0.000009f), 0.0f);
    EXPECT_EQ(roundNearZero(0.00002f), 0.00002f);
    EXPECT_EQ(phongELobe(0.5f, 0.1f, 0.01f), 0.0f);
    T3Float tint = phongETint(1.0f, T3Float(1, 0.5f, 0));
    expectNear3(tint, T3Float(1, 0.75f, 0.5f), 1e-6f, "core halfway to the whiteness");
    // Blinn: the distribution is 1 at the mirror whatever the eccentricity.
    for (float e : {0.1f, 0.3f, 0.9f}) {
        float ne = dot(kNormal, kView * -1.0f);
        float x = 1 - ne, F = x * x * x + (1 - x * x * x) * 0.7f;
        EXPECT_NEAR(blinnLobe(kMirror, kView, kNormal, e, 0.7f), F / ne, 1e-4f) << e;
    }
    EXPECT_EQ(blinnLobe(T3Float(0, 0, -1), kView, kNormal, 0.3f, 0.7f), 0.0f) << "light below the surface";
    // Fresnel: normal incidence gives the closed form, grazing gives 1.
    for (float n : {1.5f, 6.0f, 20.0f}) {
        EXPECT_NEAR(fresnel(0, n), fresnel0(n), 1e-6f) << n;
        EXPECT_NEAR(fresnel(1.5707963f, n), 1.0f, 1e-4f) << n;
    }
    // The Fresnel ratio at an index of 1 is its limit, not 0 / 0.
    for (float ne : {0.3f, 0.9f}) {
        const T3Float V(0, -std::sqrt(1 - ne * ne), -ne);
        const float atOne = anisotropicReflectionWeight(V, kNormal, 0.5f, 1.0f);
        EXPECT_TRUE(std::isfinite(atOne)) << ne;
        EXPECT_NEAR(atOne, anisotropicReflectionWeight(V, kNormal, 0.5f, 1.00005f), 3e-3f * atOne) << ne;
    }
    EXPECT_EQ(smoothShadowing(0.5f, 1.0f), 1.0f);
    EXPECT_EQ(smoothShadowing(0.5f, 0.0f), 0.0f);
    EXPECT_LT(smoothShadowing(0.9f, 0.3f), smoothShadowing(0.1f, 0.3f)) << "rough surfaces shadow more";
    // Hair: the smoothstep is 1 on the cone and 0 at the far end.
    EXPECT_DOUBLE_EQ(hairSpecular(20, T3Float(0, 1, 0), T3Float(0, 1, 0), T3Float(0, 1, 0)), 1.0);
    EXPECT_DOUBLE_EQ(hairSpecular(20, T3Float(0, 1, 0), T3Float(0, -1, 0), T3Float(0, 1, 0)), 0.0);
    EXPECT_NEAR(hairSpecular(1, T3Float(0, 1, 0), T3Float(1, 0, 0), T3Float(0, 1, 0)), 0.5, 1e-12);
    // Anisotropic frame: orthonormal, turned by the angle.
    TanisotropicFrame f = anisotropicFrame(T3Float(1, 0, 0.3f), T3Float(0, 1, 0), kNormal, 90);
    EXPECT_NEAR(dot(f.u, f.v), 0, 1e-6f);
    EXPECT_NEAR(dot(f.u, f.n), 0, 1e-6f);
    expectNear3(f.u, T3Float(0, 1, 0), 1e-6f, "u turned by 90 degrees");
}

namespace {
// A Phong-like surface with a black body, so that outColor is S alone.
struct TspecularRig {
    TtestRaySampler sampler;
    TmaterialNetwork net;
    explicit TspecularRig(const char* type, bool withSampler = true) : net(type) {
        if (withSampler) net.setRaySampler(&sampler);
        net.set(TdnLambert::saColor(), T3Float(0, 0, 0));
        net.set(TdnReflect::saSpecularColor(), T3Float(1, 0.5f, 0.25f));
        net.set(TdnReflect::saReflectivity(), 0.5f);
        net.set(TdnReflect::saReflectionLimit(), short(5));
        net.set(TdnLambert::saGlowIntensity(), 1.0f);
    }
    void mirrorLight(bool specular = true) { net.setLight(0, distantLight(kMirror, 2, 0, specular)); }
};
// At the mirror: Phong's lobe is 1, so the highlight is intensity * specularColor.
const T3Float kHighlight(2, 1, 0.5f);
// Radiance (0.25, 0.5, 1) * reflectivity 0.5 * specularColor.
const T3Float kReflection(0.125f, 0.125f, 0.125f);
TmaterialSample mirrorSample(int depth = 0) {
    TmaterialSample s;
    s.direction = kView;
    s.rayDepth = depth;
    return s;
}
}  // namespace

TEST(SpecularSurface, EachPassAddsItsTerms) {
    struct {
        int pass;
        bool highlight, reflection;
    } cases[] = {{kPassFull, true, true},          {kPassNoShadows, true, true}, {kPassAmbientOnly, false, false},
                 {kPassNoSpecular, false, true},   {kPassSpecularOnly, true, true}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.pass);
        TpassScope pass(c.pass);
        TspecularRig rig("phong");
        rig.mirrorLight();
        // A diffuse body term that pass 4 must drop.
        rig.net.set(TdnLambert::saIncandescence(), T3Float(10, 10, 10));
        TmaterialResult r = rig.net.shadeOne(mirrorSample());
        T3Float expected = (c.highlight ? kHighlight : T3Float()) + (c.reflection ? kReflection : T3Float());
        bool incandescent = c.pass == kPassFull || c.pass == kPassNoShadows || c.pass == kPassNoSpecular;
        if (incandescent) expected = expected + T3Float(10, 10, 10);
        expectNear3(r.color, expected, 1e-5f, "outColor");
    }
}

TEST(SpecularSurface, LightFlagsHideSourceAndSecondaryRays) {
    {
        TspecularRig rig("phong", false);
        rig.mirrorLight();
        rig.net.set(TdnLambert::saHideSource(), true);
        TmaterialResult r = rig.net.shadeOne(mirrorSample());
        expectNear3(r.color, T3Float(), 0, "hidden colour");
        expectNear3(r.glow, kHighlight, 1e-5f, "the glow keeps the highlight");
    }
    // A light with its specular flag clear adds no highlight.
    struct {
        float specularity;
        int depth;
        bool lightSpecular;
        T3Float highlight;
    } cases[] = {{0.0f, 0, true, kHighlight}, {0.0f, 1, true, T3Float()}, {0.5f, 1, true, kHighlight * 0.5f}, {0.0f, 0, false, T3Float()}};
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "specularity " << c.specularity << " depth " << c.depth << " specular " << c.lightSpecular);
        TspecularRig rig("phong");
        rig.mirrorLight(c.lightSpecular);
        rig.net.set(TdnReflect::saReflectionSpecularity(), c.specularity);
        TmaterialResult r = rig.net.shadeOne(mirrorSample(c.depth));
        expectNear3(r.color, c.highlight + kReflection, 1e-5f, "outColor");
    }
}

TEST(SpecularSurface, ReflectionRaysAndTheirFallbacks) {
    TspecularRig rig("phong");
    rig.net.set(TdnReflect::saReflectedColor(), T3Float(0.4f, 0.4f, 0.4f));
    // Depth 4 is below the limit of 5 and traces; depth 5 does not.
    std::vector<TmaterialResult> r = rig.net.pull({mirrorSample(4), mirrorSample(5)});
    ASSERT_EQ(rig.sampler.traced, 1u);
    expectNear3(rig.sampler.kept[0].direction, kMirror, 1e-6f, "mirror direction");
    EXPECT_EQ(rig.sampler.kept[0].rayDepth, 5);
    expectNear3(r[0].color, kReflection, 1e-6f, "traced");
    expectNear3(r[1].color, T3Float(0.2f, 0.1f, 0.05f), 1e-6f, "reflectedColor where no ray");
    TspecularRig plain("phong", false);
    plain.net.set(TdnReflect::saReflectedColor(), T3Float(0.4f, 0.4f, 0.4f));
    TmaterialResult none = plain.net.shadeOne(mirrorSample());
    expectNear3(none.color, T3Float(0.4f * 0.5f, 0.4f * 0.25f, 0.4f * 0.125f), 1e-6f, "no sampler: reflectedColor");
}

TEST(SpecularSurface, BlinnRollOffScalesTheReflection) {
    float expectedScale = blinnViewRollOff(kView, kNormal, 0.7f);
    ASSERT_LT(expectedScale, 0.99f);
    T3Float reflections[2];
    for (bool rolloff : {false, true}) {
        TspecularRig rig("blinn");
        rig.net.set(TdnBlinn::saReflectionRolloff(), rolloff);
        reflections[rolloff] = rig.net.shadeOne(mirrorSample()).color;
    }
    expectNear3(reflections[0], kReflection, 1e-6f, "without roll-off");
    expectNear3(reflections[1], kReflection * expectedScale, 1e-6f, "with roll-off");
}

TEST(SpecularSurface, EveryLobeClassShadesItsHighlightBothWays) {
    // At the mirror with each class's defaults, then 12 degrees off it with
    // every lobe setting moved from its default: a setting the render
    // ignored would leave the second highlight at the default lobe's value.
    const T3Float off = rotate(kMirror, T3Float(1, 0, 0), 12);
    const TanisotropicFrame frame = anisotropicFrame(T3Float(1, 0, 0), T3Float(0, 1, 0), kNormal, 0);
    using Settings = std::function<void(TmaterialNetwork&)>;
    struct {
        const char* type;
        float expectedAtMirror;  // the lobe with the classes' defaults
        Settings settings;
        float expectedOff;  // the lobe off the mirror with those settings
    } cases[] = {
        {"phong", phongLobe(1.0f, 20), [](TmaterialNetwork& n) { n.set("cosinePower", 7.0f); }, phongLobe(dot(off, kMirror), 7)},
        {"phongE", phongETint(phongELobe(1.0f, 0.5f, 0.5f), T3Float(0.5f, 0.5f, 0.5f)).x,
         [](TmaterialNetwork& n) {
             n.set("roughness", 0.3f);
             n.set("highlightSize", 0.8f);
             n.set("whiteness", T3Float(0.9f, 0.9f, 0.9f));
         },
         phongETint(phongELobe(dot(off, kMirror), 0.3f, 0.8f), T3Float(0.9f, 0.9f, 0.9f)).x},
        {"blinn", blinnLobe(kMirror, kView, kNormal, 0.3f, 0.7f),
         [](TmaterialNetwork& n) {
             n.set("eccentricity", 0.5f);
             n.set("specularRollOff", 0.4f);
         },
         blinnLobe(off, kView, kNormal, 0.5f, 0.4f)},
        {"anisotropic", anisotropicLobe(kMirror, kView, frame, 13, 3, 0.7f, 6),
         [](TmaterialNetwork& n) {
             n.set("spreadX", 5.0f);
             n.set("spreadY", 9.0f);
             n.set("roughness", 0.5f);
             n.set("fresnelRefractiveIndex", 3.0f);
         },
         anisotropicLobe(off, kView, frame, 5, 9, 0.5f, 3)},
        {"hairTubeShader", hairLobe(kMirror, kView, T3Float(1, 0, 0), kNormal, 20, 5, 5, 0.2f),
         [](TmaterialNetwork& n) { n.set("specularPower", 9.0f); },
         hairLobe(off, kView, T3Float(1, 0, 0), kNormal, 9, 5, 5, 0.2f)},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.type);
        TspecularRig rig(c.type, false);
        rig.net.set(TdnReflect::saReflectivity(), 0.0f);
        rig.mirrorLight();
        TmaterialResult r = rig.net.shadeOne(mirrorSample());
        EXPECT_GT(c.expectedAtMirror, 0.0f);
        EXPECT_NEAR(r.color.x, 2 * c.expectedAtMirror, 1e-4f * std::max(1.0f, c.expectedAtMirror));
        EXPECT_NEAR(r.color.y, 2 * c.expectedAtMirror * 0.5f, 1e-4f * std::max(1.0f, c.expectedAtMirror));

        c.settings(rig.net);
        rig.net.setLight(0, distantLight(off, 2, 0, true));
        r = rig.net.shadeOne(mirrorSample());
        EXPECT_GT(c.expectedOff, 0.0f);
        EXPECT_NEAR(r.color.x, 2 * c.expectedOff, 1e-4f * std::max(1.0f, c.expectedOff));
    }
}

TEST(SpecularSurface, HairColourScaleFollowsTheStrand) {
    TspecularRig rig("hairTubeShader", false);
    rig.net.set(TdnReflect::saReflectivity(), 0.0f);
    rig.mirrorLight();
    TmaterialResult unscaled = rig.net.shadeOne(mirrorSample());
    ASSERT_GT(unscaled.color.x, 0.0f);
    // Keys out of order on purpose: (1, 0.2) then (0, 1).
    float key1[2] = {1.0f, 0.2f}, key0[2] = {0.0f, 1.0f};
    ASSERT_TRUE(rig.net.material->setAttributeValue(&TdnHairTubeShader::saColorScale(), key1, 4));
    ASSERT_TRUE(rig.net.material->setAttributeValue(&TdnHairTubeShader::saColorScale(), key0, 9));
    for (float v : {0.0f, 0.25f, 1.0f}) {
        SCOPED_TRACE(v);
        rig.net.set(TdnHairTubeShader::saUvCoord(), T2Float{0.3f, v});
        TmaterialResult r = rig.net.pull({mirrorSample()}).at(0);
        EXPECT_NEAR(r.color.x, unscaled.color.x * (1.0f - 0.8f * v), 1e-5f);
    }
}
