#include "materials/ramp_shader.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include "framework/host/depend_graph.h"
#include "materials/light_reader.h"
#include "materials/material_support.h"
#include "materials/shading_math.h"
#include "shading/light_callbacks.h"
#include "shading/render_pass_control.h"
#include "utilities/utility_node.h"

SN_REGISTER_NODE_CLASS(TdnRampShader)

namespace {
// Named once: constants that are part of the surface's behaviour.
constexpr float kMaxFocus = 0.9999f;           // the float 0x3F7FF972: focus 1 stays a finite lobe
constexpr float kScatterFloor = 0.0001f;       // at or below it forward scatter is off: plain Lambert
constexpr float kMaxScatter = 0.9999f;
constexpr float kMinEccentricityTerm = 1e-05f;  // e^2 - 1 is kept this far from 0
constexpr float kHalfVectorFloor = 1e-20f;
constexpr float kShadowFadeEnd = 0.15f;        // below this brightness a shadow colour fades ...
constexpr float kShadowFadeStart = 0.05f;      // ... to nothing here, over 1 / kShadowFadeScale
constexpr float kShadowFadeScale = 10.0f;

void setRange(Tattribute& a, double low, double high) {
    a.setSoftMin(low);
    a.setSoftMax(high);
}

float third(const T3Float& c) { return (c.x + c.y + c.z) * (1.0f / 3.0f); }

// 1 / sqrt(x) from the float's bits, refined by one Newton step.
float fastReciprocalSqrt(float x) {
    float y = std::bit_cast<float>(0x5F3759DFu - (std::bit_cast<uint32_t>(x) >> 1));
    return y * (1.5f - 0.5f * x * y * y);
}

// How much of a light's shadow colours a sample that the light would light
// with cosine s: none on the far side and up to kShadowFadeStart, rising to
// all at kShadowFadeEnd, so that the terminator shows no rim of shadow colour.
float shadowFade(float s) {
    if (!(s > kShadowFadeStart)) return 0;
    return s <= kShadowFadeEnd ? (s - kShadowFadeStart) * kShadowFadeScale : 1.0f;
}

// A curve of the batch: read once, and again for each sample when one of
// its keys is driven per sample. With no keys it reads as `empty`.
template <class Attribute>
struct TrampCurve {
    TrampCurve(TdataBlock& block, const Attribute& attribute, unsigned start, float empty)
        : block(block), attribute(attribute), start(start), empty(empty) {
        varies = attribute.read(block, keys, start);
    }
    // Makes the keys those of sample i.
    void bind(unsigned i) {
        if (varies && i != bound) attribute.read(block, keys, i);
        bound = i;
    }
    T3Float at(float x) const { return keys.count ? keys.evaluate3(x) : splat(empty); }
    float at1(float x) const { return keys.count ? keys.evaluate(x, 0) : empty; }
    // Whether the curve can be non-zero anywhere in the batch.
    bool anyNonZero() const {
        if (varies) return true;
        if (keys.count == 0) return empty != 0;
        for (unsigned k = 0; k < keys.count; ++k)
            if (keys.keys[k].value.x != 0 || keys.keys[k].value.y != 0 || keys.keys[k].value.z != 0) return true;
        return false;
    }

    TdataBlock& block;
    const Attribute& attribute;
    unsigned start, bound = ~0u;
    float empty;
    bool varies = false;
    TcurveKeys keys;
};
}  // namespace

// ---------------------------------------------------------------- attributes

TdnVSRampShader::TdnVSRampShader() {
    diffuse.setNativeDefaultData(0.8);
    setRange(diffuse, 0, 1);
    setRange(forwardScatter, 0, 1);
    addFields(colorInput, {{"kLightAngle", "Light Angle"},
                           {"kFacingAngle", "Facing Angle"},
                           {"kBrightness", "Brightness"},
                           {"kNormalizedBrightness", "Normalized Brightness"}});
    eccentricity.setNativeDefaultData(0.3);
    setRange(eccentricity, 0, 1);
    specularity.setNativeDefaultData(0.3);
    setRange(specularity, 0, 1);
    setRange(specularGlow, 0, 1);
    reflectionLimit.setNativeDefaultData(1);
    reflectionLimit.setSoftMax(10);
    addFields(shadowMode, {{"kSmNormal", "Normal"}, {"kSmShadedColor", "Shaded Color"}, {"kSmConstantColor", "Constant Color"}});
    for (Tattribute* a : std::initializer_list<Tattribute*>{&colorInput, &shadowMode}) a->setFlag(kAttrKeyable, false);
    for (Tattribute* a : ownAttributes()) a->setDisconnectOption(1);
}

bool TdnVSRampShader::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    // The ramp value comes from the lights, so everything that shapes it
    // reaches transparency too.
    const std::initializer_list<const Tattribute*> value = {&diffuse, &forwardScatter, &colorInput, &ambientColor.whole,
                                                           &settings.translucence, &settings.translucenceFocus,
                                                           &settings.translucenceDepth, &io.lightDataArray};
    affects(m, value, {&io.outColor.whole, &io.outGlowColor.whole, &io.outTransparency.whole, &io.outMatteOpacity.whole});
    affects(m,
            {&color.whole, &incandescence.whole, &specularColor.whole, &specularRollOff.whole, &eccentricity, &specularity,
             &specularGlow, &reflectionLimit, &reflectivity.whole, &environment.whole, &shadowMode, &shadowColor.whole,
             &shadowThreshold, &transparency.whole},
            {&io.outColor.whole, &io.outGlowColor.whole});
    affects(m, {&transparency.whole}, {&io.outTransparency.whole, &io.outMatteOpacity.whole});
    declareSurfaceDependencies(m, settings, io);
    return true;
}

// ---------------------------------------------------------------- values

void TdnRampShader::getGlowIntensity(float& value) { value = surfaceGlowIntensity(*this, attrGlowIntensity()); }

void TdnRampShader::getHardwareShadingAttributes(float& diffuse, T3Float& color, T3Float& transparency, T3Float& incandescence,
                                                 T3Float& specularColor, float& eccentricity, float& specularity,
                                                 float& reflectivity) {
    // The key with the lowest logical index stands for the whole curve.
    auto first = [this](const auto& curve, const Tattribute& value, float empty) {
        T3Float v = splat(empty);
        TuInt32Array indices;
        getExistingMultiAttributeIndices(Tplug(this, &curve.whole, true), indices);
        if (indices.length() == 0) return v;
        if (value.childCount() == 3) {
            getAttributeValue(&value, &v, indices[0]);
            return v;
        }
        getAttributeValue(&value, &v.x, indices[0]);
        return splat(v.x);
    };
    getAttributeValue(&attrDiffuseCoeff(), &diffuse);
    getAttributeValue(&attrEccentricity(), &eccentricity);
    getAttributeValue(&attrSpecularity(), &specularity);
    color = first(fsVs->color, fsVs->color.color.whole, kEmptyColor);
    transparency = first(fsVs->transparency, fsVs->transparency.color.whole, 0);
    incandescence = first(fsVs->incandescence, fsVs->incandescence.color.whole, 0);
    specularColor = first(fsVs->specularColor, fsVs->specularColor.color.whole, kEmptySpecularColor);
    reflectivity = first(fsVs->reflectivity, fsVs->reflectivity.floatValue, kEmptyReflectivity).x;
}

// ---------------------------------------------------------------- life cycle

void TdnRampShader::shadingNodeInit(TframeSampleData*) { prepareTranslucence(); }

void TdnRampShader::shadingNodeOnDemand(Tplug&, TdataBlock&) {
    // Again here, once per render: a render that reaches the node without its
    // per-frame set-up still shades with this scene's depth. The node's own
    // value, not the block's: the block's translucenceDepth is the sample
    // item of that name.
    prepareTranslucence();
}

void TdnRampShader::prepareTranslucence() {
    float depth = 0;
    getAttributeValue(&attrTranslucenceDepth(), &depth);
    fTranslucenceThreshold = depth * kTranslucenceDepthScale;
}

void TdnRampShader::groupedAttrs(const Tattribute* attr, TattributeArray& group) {
    groupSurfaceOutputs(fsVs->io, attr, group);
}

void TdnRampShader::modifyAffects(const Tattribute* attr, TbitFieldFixedN& affects, TDNshadingEngine* engine, void*) {
    if (attr != &attrOutTransparency()) return;
    // A transparency curve that nothing drives and whose keys are all black
    // (or that has none) is an opaque surface: nothing to compute.
    bool driven = false;
    TuInt32Array indices;
    getExistingMultiAttributeIndices(Tplug(this, &attrTransparency(), true), indices);
    for (unsigned k = 0; k < indices.length() && !driven; ++k) {
        for (const Tattribute* a : std::initializer_list<const Tattribute*>{&attrTransparencyColor(), &attrTransparencyColorR(),
                                                                           &attrTransparencyColorG(), &attrTransparencyColorB(),
                                                                           &attrTransparencyPosition()}) {
            const Tplug* source = sourceOf(Tplug(this, a, int(indices[k])));
            if (source && connectionIsSampleDependent(engine, *source)) driven = true;
        }
    }
    if (driven) return;
    for (unsigned k = 0; k < indices.length(); ++k) {
        T3Float v;
        getAttributeValue(&attrTransparencyColor(), &v, indices[k]);
        if (!(v == T3Float())) return;
    }
    affects.clearAll();
}

void TdnRampShader::endOfRender(TDNshadingEngine* engine) {
    clearSurfaceRaySampler(*this, fsVs->io);
    TrenderNode::endOfRender(engine);
}

void TdnRampShader::analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* context, TbitField64& mask) {
    TrenderNode::analyse(engine, description, context, mask);
    if (!rayTracingEnabled(graph())) clearRayRequirements(mask);
}

bool TdnRampShader::setDependentsDirty(TmsgDirty& msg) {
    forwardDirtyThroughMessage(*this, msg);
    return TrenderNode::setDependentsDirty(msg);
}

// ---------------------------------------------------------------- compute

bool TdnRampShader::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    const int pass = currentRenderPassControl;
    if (a == &attrOutColor() || a == &attrOutGlowColor() || (a == &attrOutMatteOpacity() && pass == kPassShadow)) {
        forEachSurfaceChunk(start, count, [&](unsigned s, unsigned n) { computeRampShaderOutput(plug, block, s, n); });
        block.setClean(attrOutColor());
        block.setClean(attrOutGlowColor());
        if (pass == kPassShadow) block.setClean(attrOutMatteOpacity());
        return true;
    }
    if (a == &attrOutTransparency() || a == &attrOutMatteOpacity()) {
        forEachSurfaceChunk(start, count, [&](unsigned s, unsigned n) { computeTransparency(plug, block, s, n); });
        block.setClean(attrOutTransparency());
        if (pass != kPassShadow) block.setClean(attrOutMatteOpacity());
        return true;
    }
    return TrenderNode::vectorComputePlug(plug, block, start, count);
}

struct TdnRampShader::TlitSample {
    float value = 0;      // where the curves are read
    T3Float brightness;   // the light the sample receives: ambient, diffuse, translucence
    T3Float highlight;    // the specular sum, before reflection
    float shadow = 0;     // the lights' shadowed share, faded at the terminator
    float shadowPass = 0;  // the shadow pass's matte
};

void TdnRampShader::lightSamples(TdataBlock& block, unsigned start, unsigned count, bool highlights, TlitSample* out) {
    TlightReader lights(block, attrLightData());
    TdataHandle normal = block.inputValue(attrNormalCamera(), start, count);
    TdataHandle point = block.inputValue(attrPointCamera(), start, count);
    TdataHandle view = block.inputValue(attrRayDirection(), start, count);
    TdataHandle diffuse = block.inputValue(attrDiffuseCoeff(), start, count);
    TdataHandle scatter = block.inputValue(attrForwardScatter(), start, count);
    TdataHandle translucence = block.inputValue(attrTranslucenceCoeff(), start, count);
    TdataHandle focus = block.inputValue(attrTranslucenceFocus(), start, count);
    TdataHandle input = block.inputValue(attrColorInput(), start, count);
    TdataHandle eccentricity = block.inputValue(attrEccentricity(), start, count);
    TdataHandle specularity = block.inputValue(attrSpecularity(), start, count);
    TrampCurve rollOff(block, fsVs->specularRollOff, start, kEmptyRollOff);
    TrampCurve specularColor(block, fsVs->specularColor, start, kEmptySpecularColor);

    const float threshold = fTranslucenceThreshold;
    const float range = translucenceRange(threshold);
    for (unsigned i = start; i < start + count; ++i) {
        TlitSample& lit = out[i - start];
        lit = TlitSample();
        const T3Float& N = normal.asFloat3(i);
        const T3Float& P = point.asFloat3(i);
        const T3Float& V = view.asFloat3(i);
        const T3Float E = V * -1.0f;  // towards the eye
        const T3Float R = unitOrSelf(mirror(V, N));
        const float kd = diffuse.asFloat(i), fs = scatter.asFloat(i);
        const float f = std::min(focus.asFloat(i), kMaxFocus);
        float c = eccentricity.asFloat(i) * eccentricity.asFloat(i) - 1.0f;
        if (std::fabs(c) < kMinEccentricityTerm) c = kMinEccentricityTerm;
        const float inverseC = 1.0f / c;
        const float nE = dot(N, E);
        const bool specular = highlights && specularity.asFloat(i) != 0 && nE > 0;
        if (specular) {
            rollOff.bind(i);
            specularColor.bind(i);
        }

        TshadowSums shadowPass, faded;
        float angleSum = 0, angleWeight = 0, incident = 0;
        for (unsigned k = 0; k < lights.count(); ++k) {
            const TlightData& d = lights.record(k, i);
            const float strength = third(d.lightIntensity);
            incident += strength;
            float w = d.lightAmbient ? 1.0f : 0.0f;
            if (d.lightDiffuse) {
                float cosine = lightCosine(d, P, N);
                if (fs <= kScatterFloor) {
                    if (cosine >= 0) w += cosine * kd;  // exactly Lambert's term
                } else {
                    // Wrapped: a share k of the light reaches past the
                    // terminator, falling to 0 where the light is straight behind.
                    float k = std::min(fs, kMaxScatter);
                    float wrap = std::clamp((cosine + 1.0f) * 0.5f, 0.0f, 1.0f);
                    w += kd * ((1.0f - k) * std::max(cosine, 0.0f) + k * wrap);
                }
                w += translucenceTerm(d, P, V, translucence.asFloat(i), f, cosine, threshold, range);
                shadowPass.add(d, cosine);
                faded.add(d, cosine, shadowFade(cosine));
                // Weighted by the light before its shadow, so that the value
                // follows the surface's angle across a shadow's edge rather than
                // jumping where one light is blocked; the shadow darkens through
                // the brightness instead.
                angleSum += d.preShadowIntensity * std::clamp((cosine + 1.0f) * 0.5f, 0.0f, 1.0f);
                angleWeight += d.preShadowIntensity;
            }
            lit.brightness = lit.brightness + d.lightIntensity * w;

            if (!specular || !d.lightSpecular) continue;
            T3Float L = d.lightDirection;
            float attenuation = 1.0f;
            if (TlightCallbacks* callback = callbacksOf(d)) {
                T4dFltVector v4 = asVector4(V);
                L = asFloat3(callback->maxPhongSpecularDirection(asVector4(L), asPoint4(P), asVector4(R), asVector4(N), &v4));
                attenuation = callback->lightAttenuation(asPoint4(P), asVector4(N), false);
            }
            const float nL = dot(N, L);
            if (!(nL > 0)) continue;
            T3Float h = L + E;
            if (float len2 = dot(h, h); len2 > kHalfVectorFloor) h = h * fastReciprocalSqrt(len2);
            const float nH = dot(N, h), eH = dot(E, h);
            if (!(nH > 0) || !(eH > 0)) continue;
            const float D = (inverseC + 1.0f) / (nH * nH + inverseC);
            // Blinn's masking: whichever of the view and the light grazes more.
            const float G = std::min({1.0f, 2.0f * nH * nE / eH, 2.0f * nH * nL / eH}) / nE;
            const float lobe = D * D * G;
            if (!(lobe > 0)) continue;
            const float a = (eH + 1.0f) * 0.5f;
            const float roll = rollOff.at1(a * a * a);
            // The highlight's own brightness picks its colour: core and rim may differ.
            const T3Float tint = specularColor.at(std::min(lobe * roll, 1.0f));
            lit.highlight = lit.highlight + mul(d.lightIntensity, tint) * (lobe * roll * specularity.asFloat(i) * attenuation);
        }
        lit.shadow = faded.fraction();
        lit.shadowPass = shadowPass.fraction();
        switch (input.asShort(i)) {
            case kFacingAngle: lit.value = std::clamp(nE, 0.0f, 1.0f); break;
            case kBrightness: lit.value = third(lit.brightness); break;
            case kNormalizedBrightness: lit.value = incident > 0 ? third(lit.brightness) / incident : 0.0f; break;
            default: lit.value = angleWeight > 0 ? angleSum / angleWeight : 0.0f; break;
        }
    }
}

void TdnRampShader::transparencyAt(TdataBlock& block, unsigned start, unsigned count, const float* value, T3Float* out) {
    TrampCurve curve(block, fsVs->transparency, start, 0.0f);
    for (unsigned i = start; i < start + count; ++i) {
        curve.bind(i);
        out[i - start] = curve.at(value[i - start]);
    }
}

void TdnRampShader::computeRampShaderOutput(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    const int pass = currentRenderPassControl;
    TdataHandle outColor = block.outputValue(attrOutColor(), start, count);
    TdataHandle outGlow = block.outputValue(attrOutGlowColor(), start, count);
    const bool highlights = pass != kPassShadow && pass != kPassAmbientOnly && pass != kPassNoSpecular;
    TlitSample lit[kSurfaceChunk];
    lightSamples(block, start, count, highlights, lit);
    if (pass == kPassShadow) {
        // The shadow pass: only the matte, which carries the shadow.
        TdataHandle outMatte = block.outputValue(attrOutMatteOpacity(), start, count);
        for (unsigned i = start; i < start + count; ++i) {
            outColor.asFloat3(i) = T3Float();
            outGlow.asFloat3(i) = T3Float();
            outMatte.asFloat3(i) = splat(lit[i - start].shadowPass);
        }
        return;
    }
    float value[kSurfaceChunk];
    for (unsigned i = 0; i < count; ++i) value[i] = lit[i].value;

    // The reflection first, where the reflectivity curve can be non-zero.
    TrampCurve reflectivity(block, fsVs->reflectivity, start, kEmptyReflectivity);
    TchunkTriples reflected;
    const bool reflects = pass != kPassAmbientOnly && reflectivity.anyNonZero();
    if (reflects) computeReflection(block, start, count, value, reflected);

    TchunkTriples transparency;
    transparencyAt(block, start, count, value, transparency);
    TrampCurve color(block, fsVs->color, start, kEmptyColor);
    TrampCurve incandescence(block, fsVs->incandescence, start, 0.0f);
    TdataHandle ambient = block.inputValue(attrAmbientColor(), start, count);
    TdataHandle mode = block.inputValue(attrShadowMode(), start, count);
    TdataHandle shadowColor = block.inputValue(attrShadowColor(), start, count);
    TdataHandle shadowThreshold = block.inputValue(attrShadowThreshold(), start, count);
    TdataHandle glow = block.inputValue(attrGlowIntensity(), start, count);
    TdataHandle specularGlow = block.inputValue(attrSpecularGlow(), start, count);
    TdataHandle hide = block.inputValue(attrHideSource(), start, count);

    const bool lightsAdd = pass == kPassFull || pass == kPassNoShadows || pass == kPassNoSpecular;
    const bool ambientAdds = lightsAdd || pass == kPassAmbientOnly;
    const bool incandescenceAdds = lightsAdd;
    TchunkTriples accumulator, specular;
    for (unsigned i = start; i < start + count; ++i) {
        const TlitSample& s = lit[i - start];
        color.bind(i);
        incandescence.bind(i);
        reflectivity.bind(i);
        const T3Float base = color.at(s.value);
        // Shadow colour: the shadowed share above the threshold, rescaled to 0..1.
        float shade = 0;
        if (short m = mode.asShort(i); m != kSmNormal) {
            float t = shadowThreshold.asFloat(i);
            shade = t < 1 && s.shadow > t ? std::min((s.shadow - t) / (1.0f - t), 1.0f) : 0.0f;
        }
        T3Float shaded;
        if (shade < 1) {  // a fully shadowed sample shows only the shadow colour
            if (lightsAdd) shaded = mul(base, s.brightness);
            if (ambientAdds) shaded = shaded + mul(base, ambient.asFloat3(i));
        }
        if (shade > 0) {
            T3Float target = mode.asShort(i) == kSmShadedColor ? mul(shadowColor.asFloat3(i), base) : shadowColor.asFloat3(i);
            shaded = shaded * (1.0f - shade) + target * shade;
        }
        T3Float& acc = accumulator[i - start];
        acc = mul(shaded, oneMinus(transparency[i - start]));
        if (incandescenceAdds) acc = acc + incandescence.at(s.value);
        T3Float S = pass == kPassNoSpecular ? T3Float() : s.highlight;
        if (reflects) S = S + reflected[i - start] * reflectivity.at1(s.value);
        specular[i - start] = S;
        // The glow holds no refraction; the highlight glows by its own amount.
        outGlow.asFloat3(i) = acc * glow.asFloat(i) + S * specularGlow.asFloat(i);
    }
    if (TraySampler* sampler = surfaceRefractionSampler(surface(), block, start, count))
        accumulateRefraction(sampler, block, start, count, value, accumulator);
    for (unsigned i = start; i < start + count; ++i) {
        const T3Float& S = specular[i - start];
        T3Float c = pass == kPassSpecularOnly ? S : accumulator[i - start] + S;
        outColor.asFloat3(i) = hide.asBool(i) ? T3Float() : c;
    }
    computeSurfaceBlackHole(surface(), block, start, count);
}

void TdnRampShader::computeTransparency(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    TlitSample lit[kSurfaceChunk];
    lightSamples(block, start, count, false, lit);
    float value[kSurfaceChunk];
    for (unsigned i = 0; i < count; ++i) value[i] = lit[i].value;
    TchunkTriples transparency;
    transparencyAt(block, start, count, value, transparency);
    computeSurfaceTransparency(this, surface(), block, start, count, transparency);
}

void TdnRampShader::computeReflection(TdataBlock& block, unsigned start, unsigned count, const float* value, T3Float* reflected) {
    TrampCurve environment(block, fsVs->environment, start, 0.0f);
    TrampCurve reflectivity(block, fsVs->reflectivity, start, kEmptyReflectivity);
    TdataHandle normal = block.inputValue(attrNormalCamera(), start, count);
    TdataHandle view = block.inputValue(attrRayDirection(), start, count);
    float weight[kSurfaceChunk];
    for (unsigned i = start; i < start + count; ++i) {
        environment.bind(i);
        reflectivity.bind(i);
        // Without a ray the environment curve stands in: a gradient from
        // below (0) to above (1) the surface in camera space.
        T3Float R = unitOrSelf(mirror(view.asFloat3(i), unitOrSelf(normal.asFloat3(i))));
        reflected[i - start] = environment.at(std::clamp((R.y + 1.0f) * 0.5f, 0.0f, 1.0f));
        weight[i - start] = reflectivity.at1(value[i - start]);
    }
    traceMirrorRays(this, surface(), attrReflectionLimit(), surfaceRaySampler(block, fsVs->io, start, count), block, start, count,
                    weight, reflected);
}

void TdnRampShader::formRefractiveRays(TdataBlock& block, unsigned start, unsigned count, const float* value, short* rayIndex,
                                       short& rayCount, TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance) {
    TchunkTriples transparency;
    transparencyAt(block, start, count, value, transparency);
    formSurfaceRefractiveRays(surface(), block, start, count, transparency, rayIndex, rayCount, rays, radiance, transmittance);
}

void TdnRampShader::accumulateRefraction(TraySampler* sampler, TdataBlock& block, unsigned start, unsigned count,
                                         const float* value, T3Float* accumulator) {
    TchunkTriples transparency;
    transparencyAt(block, start, count, value, transparency);
    accumulateSurfaceRefraction(this, surface(), sampler, block, start, count, transparency, accumulator);
}
