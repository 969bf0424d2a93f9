// The ramp shader against hand-written closed forms: Lambert's diffuse at
// no forward scatter, each colour input, each shadow mode, the focus and
// eccentricity limits, curve ends; and a ramp-shaded sphere rendered from a
// scene file by the command-line program, read back at known pixels.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "materials/material_fixture.h"
#include "materials/ramp_shader.h"
#include "support/scene_render.h"

namespace {
T3Float lerp3(const T3Float& a, const T3Float& b, float t) { return a + (b - a) * t; }

// Keys of a curve by logical index (position, value); linear. A colour
// curve's values are its `_Color`, a float curve's its `_FloatValue`.
template <class V>
void keys(TmaterialNetwork& net, const std::string& curve, std::initializer_list<std::pair<float, V>> keys) {
    const std::string value = curve + (std::is_same_v<V, float> ? "_FloatValue" : "_Color");
    int index = 0;
    for (const auto& [position, v] : keys) {
        net.set((curve + "_Position").c_str(), position, index);
        net.set(value.c_str(), v, index++);
    }
}
void colorKeys(TmaterialNetwork& net, const char* curve, std::initializer_list<std::pair<float, T3Float>> k) { keys(net, curve, k); }
void floatKeys(TmaterialNetwork& net, const char* curve, std::initializer_list<std::pair<float, float>> k) { keys(net, curve, k); }

// A ramp shader with no highlight and no reflection: only what a test sets.
struct TrampRig {
    TmaterialNetwork net{"rampShader"};
    TrampRig() {
        net.set("specularity", 0.0f);
        floatKeys(net, "reflectivity", {{0, 0}});
    }
};
}  // namespace

// With forwardScatter 0 and a constant white colour curve the diffuse sum is
// Lambert's, to the bit: same lights, same samples, one node of each.
TEST(RampShaderLighting, NoForwardScatterIsLambertExactly) {
    const std::vector<TlightData> lights = {pointLightRecord({1, 2, 0.5f}, {1, 0.8f, 0.6f}, 1.5f, 2, {0, 0, -5}),
                                            distantLight({-0.3f, 0.2f, -1}, 0.6f), distantLight({0, 1, 0.2f}, 0.4f)};
    std::vector<TmaterialSample> samples(5);
    const T3Float normals[] = {{0, 0, 1}, {0.6f, 0, 0.8f}, {0, -0.8f, 0.6f}, {-0.28f, 0.96f, 0}, {0, 0, -1}};
    for (unsigned i = 0; i < samples.size(); ++i) samples[i].normal = normals[i];
    struct {
        const char* name;
        float diffuse, translucence, focus, depth;
    } cases[] = {{"translucent, focused, shallow", 1.0f, 0.7f, 0.6f, 0.05f}, {"plain", 0.8f, 0, 0.5f, 0.5f}, {"translucent, unfocused", 0.6f, 0.4f, 0, 0.5f}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        TmaterialNetwork lambert("lambert");
        TrampRig ramp;
        for (TmaterialNetwork* net : {&lambert, &ramp.net}) {
            net->set("diffuse", c.diffuse);
            net->set("translucence", c.translucence);
            net->set("translucenceFocus", c.focus);
            net->set("translucenceDepth", c.depth);
            net->set("ambientColor", T3Float(0.05f, 0.1f, 0.0f));
            for (unsigned k = 0; k < lights.size(); ++k) net->setLight(k, lights[k]);
            net->init();
        }
        lambert.set("color", T3Float(1, 1, 1));
        colorKeys(ramp.net, "color", {{0.5f, {1, 1, 1}}});
        std::vector<TmaterialResult> a = lambert.shade(samples), b = ramp.net.shadeBoth(samples);
        ASSERT_EQ(a.size(), b.size());
        for (unsigned i = 0; i < a.size(); ++i)
            for (int ch = 0; ch < 3; ++ch) EXPECT_EQ(a[i].color[ch], b[i].color[ch]) << "sample " << i << " channel " << ch;
    }
}

// The value each colour input makes, read through a curve from black at 0
// to white at 1, so that outColor = value * brightness.
TEST(RampShaderLighting, EachColorInputReadsItsValue) {
    const T3Float N(0, 0, 1);
    struct Case {
        const char* name;
        short input;
        T3Float view;
        std::vector<TlightData> lights;
        float value;  // by hand
    };
    const float c1 = 0.6f;  // cosine of the first light
    const T3Float L1(0.8f, 0, c1);
    const T3Float L2(0, -0.8f, -0.6f);  // behind: cosine -0.6
    const T3Float slanted = normalize({0.3f, 0, -1});
    const Case cases[] = {
        {"light angle, one light", TdnRampShader::kLightAngle, {0, 0, -1}, {distantLight(L1, 1)}, (c1 + 1) / 2},
        {"light angle, weighted by intensity", TdnRampShader::kLightAngle, {0, 0, -1},
         {distantLight(L1, 1.5f), distantLight(L2, 0.5f)}, (1.5f * (c1 + 1) / 2 + 0.5f * (-0.6f + 1) / 2) / 2.0f},
        // A blocked light still counts: the value follows the angle across a
        // shadow's edge instead of jumping to the other lights' value.
        {"light angle, one light shadowed", TdnRampShader::kLightAngle, {0, 0, -1},
         {distantLight(L1, 1.5f, 1.0f), distantLight({0, 0.6f, 0.8f}, 0.5f)}, (1.5f * (c1 + 1) / 2 + 0.5f * (0.8f + 1) / 2) / 2.0f},
        {"facing angle, head on", TdnRampShader::kFacingAngle, {0, 0, -1}, {distantLight(L1, 1)}, 1.0f},
        {"facing angle, slanted", TdnRampShader::kFacingAngle, slanted, {distantLight(L1, 1)}, -slanted.z},
        {"brightness", TdnRampShader::kBrightness, {0, 0, -1}, {distantLight(L1, 1.2f)}, 1.2f * 0.9f * c1},
        {"normalized brightness", TdnRampShader::kNormalizedBrightness, {0, 0, -1},
         {distantLight(L1, 1.2f), distantLight(L2, 0.8f)}, 1.2f * 0.9f * c1 / 2.0f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrampRig rig;
        rig.net.set("colorInput", c.input);
        rig.net.set("diffuse", 0.9f);
        colorKeys(rig.net, "color", {{0, {0, 0, 0}}, {1, {1, 1, 1}}});
        for (unsigned k = 0; k < c.lights.size(); ++k) rig.net.setLight(k, c.lights[k]);
        rig.net.init();
        TmaterialSample s;
        s.normal = N;
        s.direction = c.view;
        float brightness = 0;
        for (const TlightData& d : c.lights) brightness += d.lightIntensity.x * 0.9f * std::max(dot(d.lightDirection, N), 0.0f);
        float expected = std::clamp(c.value, 0.0f, 1.0f) * brightness;
        expectNear3(rig.net.shadeOne(s).color, {expected, expected, expected}, 1e-5f, "colour");
    }
}

// shadowColor where a light that faces the surface is blocked: none in
// "Normal"; mixed towards the shadow colour times the ramp colour, or
// towards the shadow colour itself, by the shadowed share, which fades out
// below a cosine of 0.15 and is gone at 0.05.
TEST(RampShaderLighting, ShadowModesColourTheShadowedSamples) {
    const T3Float base(0.5f, 0.6f, 0.7f), shadow(0.2f, 0.4f, 0.9f);
    auto fade = [](float cosine) { return cosine <= 0.05f ? 0.0f : cosine <= 0.15f ? (cosine - 0.05f) * 10.0f : 1.0f; };
    struct Case {
        const char* name;
        short mode;
        float cosine, shadowed, threshold;
    };
    const Case cases[] = {
        {"normal, shadowed", TdnRampShader::kSmNormal, 0.8f, 1, 0},
        {"shaded colour, unshadowed", TdnRampShader::kSmShadedColor, 0.8f, 0, 0},
        {"shaded colour, shadowed", TdnRampShader::kSmShadedColor, 0.8f, 1, 0},
        {"shaded colour, half shadowed", TdnRampShader::kSmShadedColor, 0.8f, 0.5f, 0},
        {"constant colour, unshadowed", TdnRampShader::kSmConstantColor, 0.8f, 0, 0},
        {"constant colour, shadowed", TdnRampShader::kSmConstantColor, 0.8f, 1, 0},
        {"constant colour, shadowed near the terminator", TdnRampShader::kSmConstantColor, 0.1f, 1, 0},
        {"constant colour, shadowed at the terminator", TdnRampShader::kSmConstantColor, 0.04f, 1, 0},
        {"constant colour, below the threshold", TdnRampShader::kSmConstantColor, 0.8f, 0.4f, 0.5f},
        {"constant colour, above the threshold", TdnRampShader::kSmConstantColor, 0.8f, 0.75f, 0.5f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrampRig rig;
        rig.net.set("shadowMode", c.mode);
        rig.net.set("shadowColor", shadow);
        rig.net.set("shadowThreshold", c.threshold);
        rig.net.set("diffuse", 1.0f);
        colorKeys(rig.net, "color", {{0, base}});
        const T3Float L(std::sqrt(1 - c.cosine * c.cosine), 0, c.cosine);
        rig.net.setLight(0, distantLight(L, 1.0f, c.shadowed));
        rig.net.init();
        const T3Float lit = base * ((1 - c.shadowed) * c.cosine);
        float w = c.shadowed * fade(c.cosine);
        w = w > c.threshold ? (w - c.threshold) / (1 - c.threshold) : 0;
        T3Float target = c.mode == TdnRampShader::kSmShadedColor ? T3Float(shadow.x * base.x, shadow.y * base.y, shadow.z * base.z) : shadow;
        T3Float expected = c.mode == TdnRampShader::kSmNormal ? lit : lerp3(lit, target, w);
        expectNear3(rig.net.shadeOne().color, expected, 1e-5f, "colour");
    }
}

// Translucence seen through the surface towards a light behind it: focus 1
// is taken as 0.9999, so the lobe stays finite and much wider than the
// exponent 1 / 0.00001 would make it.
TEST(RampShaderLighting, TranslucenceFocusOneUsesTheLimit) {
    const float towardView = 0.9999f;  // dot(L, V): the light almost straight behind
    const T3Float L(0, std::sqrt(1 - towardView * towardView), -towardView);
    struct {
        float focus;
        float usedFocus;
    } cases[] = {{1.0f, 0.9999f}, {0.9999f, 0.9999f}, {0.5f, 0.5f}, {0.0f, 0.0f}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.focus);
        TrampRig rig;
        rig.net.set("diffuse", 0.0f);
        rig.net.set("translucence", 0.7f);
        rig.net.set("translucenceFocus", c.focus);
        colorKeys(rig.net, "color", {{0, {1, 1, 1}}});
        rig.net.setLight(0, distantLight(L, 2.0f));
        rig.net.init();
        double x = (towardView + 1.0) * 0.5;
        float expected = 2.0f * 0.7f * float(std::pow(x, double(c.usedFocus) / (1.00001 - double(c.usedFocus))));
        // At focus 1 about 0.89, where the exponent 1 / 0.00001 would leave almost nothing.
        expectNear3(rig.net.shadeOne().color, {expected, expected, expected}, 1e-4f, "colour");
    }
}

// The highlight: D = (1/c + 1) / ((N.h)^2 + 1/c) with c = e^2 - 1 (1e-05 at
// e = 1), squared, times Blinn's masking over N.E, the roll-off curve at
// ((E.h + 1) / 2)^3, the specular colour curve and specularity.
TEST(RampShaderLighting, HighlightMatchesTheClosedForm) {
    struct Case {
        const char* name;
        float eccentricity;
        T3Float toLight, view;
        float rollOff0, rollOff1;  // the roll-off curve, linear over 0..1
    };
    const Case cases[] = {
        {"eccentricity 0.3", 0.3f, {0.6f, 0, 0.8f}, {0, 0, -1}, 1, 1},
        {"eccentricity 0.3, slanted view, rolling off", 0.3f, {0.2f, 0.1f, 1}, {-0.3f, 0, -1}, 0.2f, 1},
        {"eccentricity exactly 1", 1.0f, {0.6f, 0, 0.8f}, {0, 0, -1}, 1, 1},
        {"eccentricity 0.7, grazing light", 0.7f, {1, 0, 0.15f}, {0.2f, 0, -1}, 0.5f, 0.9f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrampRig rig;
        rig.net.set("diffuse", 0.0f);
        rig.net.set("specularity", 0.8f);
        rig.net.set("eccentricity", c.eccentricity);
        colorKeys(rig.net, "specularColor", {{0, {1, 0.5f, 0.25f}}});
        floatKeys(rig.net, "specularRollOff", {{0, c.rollOff0}, {1, c.rollOff1}});
        rig.net.setLight(0, distantLight(c.toLight, 1.5f, 0, true));
        rig.net.init();
        TmaterialSample s;
        s.direction = normalize(c.view);
        const T3Float N = s.normal, E = s.direction * -1.0f, L = normalize(c.toLight);
        // The half vector normalised as the shader does: the bit-level
        // estimate of 1/sqrt and one Newton step.
        T3Float h = L + E;
        float len2 = dot(h, h), y;
        uint32_t bits;
        std::memcpy(&bits, &len2, 4);
        bits = 0x5F3759DFu - (bits >> 1);
        std::memcpy(&y, &bits, 4);
        h = h * (y * (1.5f - 0.5f * len2 * y * y));
        double nh = dot(N, h), ne = dot(N, E), nl = dot(N, L), eh = dot(E, h);
        double cc = double(c.eccentricity) * c.eccentricity - 1;
        if (std::fabs(cc) < 1e-5) cc = 1e-5;
        double D = (1 / cc + 1) / (nh * nh + 1 / cc);
        double G = std::min({1.0, 2 * nh * ne / eh, 2 * nh * nl / eh}) / ne;
        double a = std::pow((eh + 1) / 2, 3);
        double roll = c.rollOff0 + (c.rollOff1 - c.rollOff0) * a;
        double s0 = 1.5 * D * D * G * roll * 0.8;
        T3Float got = rig.net.shadeOne(s).color;
        expectNear3(got, {float(s0), float(s0 * 0.5), float(s0 * 0.25)}, 2e-4f, "highlight");
    }
}

// A curve is flat beyond its ends: the first key's value below it, the last
// key's above, whatever order the keys were written in.
TEST(RampShaderCurves, LookupsBeyondTheEndKeysHoldTheEndValues) {
    const T3Float red(1, 0, 0), blue(0, 0, 1);
    struct {
        const char* name;
        float facing;
        T3Float expected;
    } cases[] = {{"below the first key", 0.1f, red},   {"at the first key", 0.3f, red}, {"between", 0.5f, lerp3(red, blue, 0.5f)},
                 {"at the last key", 0.7f, blue},       {"above the last key", 0.95f, blue}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        TrampRig rig;
        rig.net.set("colorInput", short(TdnRampShader::kFacingAngle));
        colorKeys(rig.net, "incandescence", {{0.7f, blue}, {0.3f, red}});
        TmaterialSample s;
        s.direction = T3Float(std::sqrt(1 - c.facing * c.facing), 0, -c.facing);
        expectNear3(rig.net.shadeOne(s).color, c.expected, 1e-5f, "incandescence");
    }
}

// Transparency comes from its curve at the same value, and lets the colour
// through by (1 - transparency); matte and hide source as in Lambert.
TEST(RampShaderCurves, TransparencyCurveAtTheValue) {
    TrampRig rig;
    rig.net.set("colorInput", short(TdnRampShader::kFacingAngle));
    colorKeys(rig.net, "transparency", {{0, {1, 1, 1}}, {1, {0, 0.5f, 0}}});
    colorKeys(rig.net, "incandescence", {{0, {0.2f, 0.2f, 0.2f}}});
    TmaterialSample s;
    s.direction = normalize({0.6f, 0, -0.8f});  // facing 0.8
    TmaterialResult r = rig.net.shadeOne(s);
    const T3Float t(0.2f, 0.6f, 0.2f);
    expectNear3(r.transparency, t, 1e-5f, "transparency");
    expectNear3(r.matte, T3Float(0.8f, 0.4f, 0.8f), 1e-5f, "matte: opacity gain");
    expectNear3(r.color, T3Float(0.2f, 0.2f, 0.2f), 1e-5f, "incandescence is not attenuated");
    rig.net.set("hideSource", true);
    r = rig.net.shadeOne(s);
    expectNear3(r.color, T3Float(), 0, "hidden");
    expectNear3(r.transparency, T3Float(1, 1, 1), 0, "hidden");
}

// ---------------------------------------------------------------- through the command line

// A ramp-shaded sphere under a distant light, seen by an orthographic
// camera at one sample per pixel through a box filter one pixel wide, so
// that each pixel is the closed form at its centre's normal. The colour
// curve runs over the light angle; translucence with a shallow depth fades
// in on the far side, which shows whether the render prepared the node's
// threshold from this scene's depth.
TEST(RampShaderRender, SphereFromASceneFileMatchesTheClosedForm) {
    TtestTempDir dir;
    const int size = 40;
    const float width = 3.0f, depth = 0.1f, translucence = 0.5f, kd = 0.8f;
    const T3Float low(0.1f, 0.2f, 0.9f), high(1.0f, 0.6f, 0.1f);
    const std::string scene = R"({"nodes": [
      {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 5]}},
      {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 3}},
      {"type": "transform", "name": "ballXf"}, {"type": "sphere", "name": "ball", "parent": "ballXf"},
      {"type": "rampShader", "name": "mat", "attributes": {"diffuse": 0.8, "specularity": 0, "translucence": 0.5,
        "translucenceFocus": 0, "translucenceDepth": 0.1, "colorInput": "Light Angle",
        "color": {"0": [0, [0.1, 0.2, 0.9], "Linear"], "1": [1, [1.0, 0.6, 0.1], "Linear"]}}},
      {"type": "shadingEngine", "name": "matSG", "members": ["|ballXf|ball"]},
      {"type": "transform", "name": "sunXf", "attributes": {"rotate": [-110, 0, 0]}},
      {"type": "directionalLight", "name": "sun", "parent": "sunXf", "attributes": {"intensity": 1}},
      {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter",
        "pixelFilterWidthX": 1, "pixelFilterWidthY": 1, "enableRaytracing": false}}],
     "connections": [["mat.outColor", "matSG.surfaceShader"]]})";
    TsceneRender r = renderSceneFile(dir, "ramp", scene, {"--resolution", "40", "40", "--spp", "1", "--threads", "2"});
    ASSERT_EQ(r.run.status, 0) << r.run.err;
    const TtestImage& rendered = r.image;
    ASSERT_EQ(rendered.width, size);
    ASSERT_EQ(rendered.height, size);

    // The light's transform turns its -Z shine by -110 degrees about X: it
    // comes from above and behind, so much of the visible side is its far side.
    const float angle = 110.0f * 3.14159265f / 180.0f;
    const T3Float toLight = normalize({0, std::sin(angle), std::cos(angle)});
    const float threshold = depth * -11.5f, range = std::min(0.15f - threshold, 1.0f);
    int checked = 0, farSide = 0;
    for (int py = 0; py < size; ++py)
        for (int px = 0; px < size; ++px) {
            float x = ((px + 0.5f) / size - 0.5f) * width, y = (0.5f - (py + 0.5f) / size) * width;
            float r2 = x * x + y * y;
            if (r2 > 0.9f) continue;  // background or near the silhouette
            T3Float n(x, y, std::sqrt(1 - r2));
            float d = dot(n, toLight);
            float weight = kd * std::max(d, 0.0f);
            if (d > threshold) weight += translucence * (d < threshold + range ? (d - threshold) / range : 1.0f);
            T3Float expected = lerp3(low, high, (d + 1) / 2) * weight;
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(rendered.at(px, py, k), expected[k], 2e-3f) << px << "," << py;
            ++checked;
            farSide += d < -0.3f ? 1 : 0;
        }
    EXPECT_GT(checked, 300);
    EXPECT_GT(farSide, 20) << "the far side, where the depth shows, is in view";
}
