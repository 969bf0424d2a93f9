#include "materials/lambert.h"

#include <alloca.h>

#include <cfloat>
#include <cmath>
#include <new>

#include "framework/host/depend_graph.h"
#include "materials/light_reader.h"
#include "materials/material_support.h"
#include "materials/shading_math.h"
#include "settings/render_quality.h"
#include "shading/light_callbacks.h"
#include "shading/render_pass_control.h"
#include "utilities/utility_node.h"

SN_REGISTER_NODE_CLASS(TdnLambert)

namespace {
// Named once: constants that are part of the surface's behaviour.
constexpr float kFocusLimit = 1.00001f;          // keeps focus 1 a finite, very narrow lobe
constexpr float kTranslucenceFade = 0.15f;       // cosine range over which translucence fades in
constexpr float kShadowSumFloor = 0.00001f;      // below it the shadow pass does not divide
constexpr float kTransparentFloor = 0.00001f;    // a channel at or below it lets nothing through
constexpr float kNoRefractionMarker = 1234.567f;  // a medium index of minus this marks "no refraction"
constexpr float kMarkerTolerance = 0.001f;
constexpr float kMinIndex = 0.01f, kMaxThickIndex = 3.0f;
constexpr float kChromaticStep = 0.06f;          // index step between the three channels' rays
constexpr float kAttenuationFloor = 0.000001f;
constexpr float kBlackHoleMatte = -1000000.0f;   // marker for later stages

void notKeyable(std::initializer_list<Tattribute*> list) {
    for (Tattribute* a : list) a->setFlag(kAttrKeyable, false);
}
void setRange(Tattribute& a, double hardMin, double softMax) {
    a.setSoftMin(hardMin);
    a.setSoftMax(softMax);
}
}  // namespace

TdnVSLambert::TdnVSLambert() {
    color.setDefault(0.5f, 0.5f, 0.5f);
    diffuse.setNativeDefaultData(0.8);
    setRange(diffuse, 0, 1);

    vrFillObject.addField("kDefaultFill", "Default Fill", 0);
    vrFillObject.addField("kSingleColor", "Single Color", 1);
    vrFillObject.addField("kTwoColor", "Two Color", 2);
    vrFillObject.addField("kFourColor", "Four Color", 3);
    vrFillObject.addField("kFullColor", "Full Color", 4);
    vrFillObject.addField("kAverageColor", "Average Color", 5);
    vrFillObject.addField("kAreaGradient", "Area Gradient", 6);
    vrFillObject.addField("kMeshGradient", "Mesh Gradient", 7);
    vrFillObject.addField("kNoFill", "No Fill", 8);
    vrEdgeColor.setDefault(0.5f, 0.5f, 0.5f);
    vrEdgeStyle.addField("kDefault", "Default", 0);
    vrEdgeStyle.addField("kOutlines", "Outlines", 1);
    vrEdgeStyle.addField("kEntireMesh", "Entire Mesh", 2);
    vrEdgeStyle.addField("kNoEdges", "No Edges", 3);
    vrEdgePriority.setSoftMin(0);
    vrOutlinesAtIntersections.setNativeDefaultData(1);

    miRefractionBlur.setSoftMin(0);
    miRefractionBlur.setSoftMax(10);
    miRefractionRays.setNativeDefaultData(1);
    setRange(miRefractionRays, 1, 8);
    miIrradianceColor.setDefault(1, 1, 1);
    miDeriveFromTovi.setNativeDefaultData(1);
    miRefractiveIndex.setNativeDefaultData(1);
    setRange(miRefractiveIndex, 1, 2);
    miRefractions.setNativeDefaultData(1);
    miAbsorbs.setNativeDefaultData(1);
    miDiffuse.setNativeDefaultData(0.8);
    setRange(miDiffuse, 0, 1);
    miColor.setDefault(0.5f, 0.5f, 0.5f);
    miTranslucenceFocus.setNativeDefaultData(0.5);
    setRange(miTranslucenceFocus, 0, 1);

    notKeyable({&vrOverwriteDefaults, &vrFillObject, &vrEdgeStyle, &vrHiddenEdges, &vrHiddenEdgesOnTransparent,
                &vrOutlinesAtIntersections, &miDeriveFromTovi, &miRefractions, &miAbsorbs});
    for (Tattribute* a : ownAttributes()) a->setDisconnectOption(1);
}

bool TdnVSLambert::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&color.whole, &transparency.whole, &ambientColor.whole, &incandescence.whole, &diffuse},
            {&io.outColor.whole, &io.outGlowColor.whole});
    affects(m, {&transparency.whole}, {&io.outTransparency.whole, &io.outMatteOpacity.whole});
    declareSurfaceDependencies(m, settings, io);
    return true;
}

// ---------------------------------------------------------------- values

void TdnLambert::getColor(T3Float& value) { getAttributeValue(&attrColor(), &value); }
void TdnLambert::getTransparency(T3Float& value) { getAttributeValue(&attrTransparency(), &value); }
void TdnLambert::getIncandescence(T3Float& value) { getAttributeValue(&attrIncandescence(), &value); }
void TdnLambert::getDiffuseCoeff(float& value) { getAttributeValue(&attrDiffuseCoeff(), &value); }

void TdnLambert::getGlowIntensity(float& value) {
    value = 0;
    getAttributeValue(&attrGlowIntensity(), &value);
    if (value == 0 && sourceOf(Tplug(this, &attrGlowIntensity()))) value = kDrivenGlow;
}

// ---------------------------------------------------------------- shading side

void TdnLambert::shadingNodeInit(TframeSampleData*) {
    float depth = 0;
    getAttributeValue(&attrTranslucenceDepth(), &depth);
    fTranslucenceThreshold = depth * kTranslucenceDepthScale;
}

void TdnLambert::groupedAttrs(const Tattribute* attr, TattributeArray& group) {
    const Tattribute* a = attr->rootParent();
    bool shadowPass = currentRenderPassControl == kPassShadow;
    auto add = [&](const Tattribute& whole) {
        group.append(&whole);
        for (unsigned c = 0; c < whole.childCount(); ++c) group.append(whole.child(c));
    };
    if (a == &attrOutColor()) {
        add(attrOutGlowColor());
        if (shadowPass) add(attrOutMatteOpacity());
    } else if (a == &attrOutGlowColor()) {
        add(attrOutColor());
        if (shadowPass) add(attrOutMatteOpacity());
    } else if (a == &attrOutTransparency()) {
        add(attrOutMatteOpacity());
    } else if (a == &attrOutMatteOpacity()) {
        add(attrOutTransparency());
        if (shadowPass) {
            add(attrOutColor());
            add(attrOutGlowColor());
        }
    }
}

void TdnLambert::modifyAffects(const Tattribute* attr, TbitFieldFixedN& affects, TDNshadingEngine* engine, void*) {
    if (attr != &attrOutTransparency()) return;
    const Tattribute* transparencyTree[] = {&attrTransparency(), &attrTransparencyR(), &attrTransparencyG(), &attrTransparencyB()};
    bool driven = false;
    for (const Tattribute* t : transparencyTree)
        if (const Tplug* source = sourceOf(Tplug(this, t)); source && connectionIsSampleDependent(engine, *source)) driven = true;
    if (!driven) {
        const auto* stored = static_cast<const T3Float*>(storage(&attrTransparency()));
        if (stored && *stored == T3Float()) {
            affects.clearAll();  // opaque: nothing to compute
            return;
        }
    }
    if (const Tplug* source = sourceOf(Tplug(this, &attrRtRefractedColor())); source && connectionIsSampleDependent(engine, *source))
        return;
    if (const auto* refracts = static_cast<const bool*>(storage(&attrRtRefractedColor())); refracts && *refracts) return;
    // Without refraction the ray context is not needed. The X children are
    // cleared twice and the Z children stay set: deliberate, settled behaviour.
    const Tattribute* pruned[] = {&attrObjectId(),     &attrPrimitiveId(),  &attrRaySampler(),     &attrRayDepth(),
                                  &attrRayInstance(),  &attrRefractedRayDepthLimit(), &attrMediumRefractiveIndex(),
                                  &attrRefractiveIndex(), &attrRtRefractedColor(), &attrRayDirection(), &attrRayDirectionX(),
                                  &attrRayDirectionY(), &attrRayDirectionZ(), &attrPointCamera(), &attrPointCameraX(),
                                  &attrPointCameraY(), &attrPointCameraX(), &attrNormalCamera(), &attrNormalCameraX(),
                                  &attrNormalCameraY(), &attrNormalCameraX()};
    for (const Tattribute* a : pruned) affects.clear(a->index());
}

void TdnLambert::endOfRender(TDNshadingEngine* engine) {
    void* none = nullptr;
    TmsgSetPlugValue(Tplug(this, &attrRaySampler()), &none).send();
    TrenderNode::endOfRender(engine);
}

void TdnLambert::analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* context, TbitField64& mask) {
    TrenderNode::analyse(engine, description, context, mask);
    if (!rayTracingEnabled(graph())) clearRayRequirements(mask);
}

bool TdnLambert::setDependentsDirty(TmsgDirty& msg) {
    forwardDirtyThroughMessage(*this, msg);
    return TrenderNode::setDependentsDirty(msg);
}

// ---------------------------------------------------------------- compute

TraySampler* TdnLambert::raySamplerOf(TdataBlock& block, const Tattribute& attr, unsigned start, unsigned count) {
    TdataHandle h = block.inputValue(attr, start, count);
    TraySampler* sampler = h.isNull() ? nullptr : static_cast<TraySampler*>(h.as<void*>(start));
    // Nothing feeds the input in a plain render: the thread's tracer serves.
    return sampler ? sampler : currentRaySampler();
}

bool TdnLambert::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    int pass = currentRenderPassControl;
    if (a == &attrOutColor() || a == &attrOutGlowColor() || (a == &attrOutMatteOpacity() && pass == kPassShadow)) {
        forEachChunk(start, count, [&](unsigned s, unsigned n) {
            computeLambert(plug, block, s, n);
            finishColor(plug, block, s, n);
        });
        block.setClean(attrOutColor());
        block.setClean(attrOutGlowColor());
        if (pass == kPassShadow) block.setClean(attrOutMatteOpacity());
        return true;
    }
    if (a == &attrOutTransparency() || a == &attrOutMatteOpacity()) {
        forEachChunk(start, count, [&](unsigned s, unsigned n) { computeTransparency(plug, block, s, n); });
        block.setClean(attrOutTransparency());
        if (pass != kPassShadow) block.setClean(attrOutMatteOpacity());
        return true;
    }
    return TrenderNode::vectorComputePlug(plug, block, start, count);
}

void TdnLambert::finishColor(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) {
    TdataHandle hide = block.inputValue(attrHideSource(), start, count);
    TdataHandle glow = block.inputValue(attrGlowIntensity(), start, count);
    TdataHandle outColor = block.outputValue(attrOutColor(), start, count);
    TdataHandle outGlow = block.outputValue(attrOutGlowColor(), start, count);
    for (unsigned i = start; i < start + count; ++i) {
        if (hide.asBool(i)) outColor.asFloat3(i) = T3Float();
        outGlow.asFloat3(i) = outGlow.asFloat3(i) * glow.asFloat(i);
    }
    computeBlackHole(plug, block, start, count);
}

void TdnLambert::computeLambert(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    TlightReader lights(block, attrLightData());
    TdataHandle normal = block.inputValue(attrNormalCamera(), start, count);
    TdataHandle translucence = block.inputValue(attrTranslucenceCoeff(), start, count);
    TdataHandle color = block.inputValue(attrColor(), start, count);
    TdataHandle incandescence = block.inputValue(attrIncandescence(), start, count);
    TdataHandle diffuse = block.inputValue(attrDiffuseCoeff(), start, count);
    TdataHandle ambient = block.inputValue(attrAmbientColor(), start, count);
    TdataHandle transparency = block.inputValue(attrTransparency(), start, count);
    TdataHandle point = block.inputValue(attrPointCamera(), start, count);
    TdataHandle view = block.inputValue(attrRayDirection(), start, count);
    TdataHandle focus = block.inputValue(attrTranslucenceFocus(), start, count);
    TdataHandle outColor = block.outputValue(attrOutColor(), start, count);
    TdataHandle outGlow = block.outputValue(attrOutGlowColor(), start, count);
    TdataHandle outMatte = block.outputValue(attrOutMatteOpacity(), start, count);

    const int pass = currentRenderPassControl;
    const bool lightsAdd = pass == kPassFull || pass == kPassNoShadows || pass == kPassNoSpecular || pass == kPassShadow;
    const float threshold = fTranslucenceThreshold;
    const float range = std::min(kTranslucenceFade - threshold, 1.0f);
    T3Float accumulator[kChunk];

    for (unsigned i = start; i < start + count; ++i) {
        T3Float sum;
        float intensitySum = 0, shadowedSum = 0;
        const T3Float& n = normal.asFloat3(i);
        const T3Float& p = point.asFloat3(i);
        const T3Float& v = view.asFloat3(i);
        const T3Float& c = color.asFloat3(i);
        for (unsigned k = 0; k < lights.count(); ++k) {
            const TlightData& d = lights.record(k, i);
            float w = d.lightAmbient ? 1.0f : 0.0f;
            if (d.lightDiffuse) {
                auto* callback = static_cast<TlightCallbacks*>(d.lightBlindData);
                float cosine = callback ? callback->integrateLambertianReflectance(asVector4(d.lightDirection), asPoint4(p), asVector4(n), true)
                                        : dot(d.lightDirection, n);
                if (cosine >= 0) w += cosine * diffuse.asFloat(i);
                float t = translucence.asFloat(i);
                if (t != 0 && cosine > threshold) {
                    float f = focus.asFloat(i);
                    if (f != 0) {
                        float toward = callback ? callback->hemisphereCoverage(asVector4(d.lightDirection), asPoint4(p), asVector4(v), true)
                                                : dot(d.lightDirection, v);
                        float x = std::clamp((toward + 1.0f) * 0.5f, 0.0f, 1.0f);
                        t *= float(std::pow(double(x), double(f / (kFocusLimit - f))));
                    }
                    if (cosine < threshold + range) t *= (cosine - threshold) / range;
                    w += t;  // after the sign test: translucence lights the far side
                }
                if (pass == kPassShadow) {
                    intensitySum += d.preShadowIntensity;
                    if (cosine > 0) shadowedSum += d.preShadowIntensity * d.lightShadowFraction;
                }
            }
            if (lightsAdd) sum = sum + mul(c, d.lightIntensity) * w;
        }
        accumulator[i - start] = sum;
        if (pass == kPassShadow) {
            float shadow = intensitySum > kShadowSumFloor ? shadowedSum / intensitySum : shadowedSum;
            outColor.asFloat3(i) = T3Float();
            outGlow.asFloat3(i) = T3Float();
            outMatte.asFloat3(i) = splat(shadow);
        }
    }
    if (pass == kPassShadow) return;

    const bool ambientAdds = pass == kPassFull || pass == kPassNoShadows || pass == kPassAmbientOnly || pass == kPassNoSpecular;
    const bool incandescenceAdds = pass == kPassFull || pass == kPassNoShadows || pass == kPassNoSpecular;
    for (unsigned i = start; i < start + count; ++i) {
        T3Float& acc = accumulator[i - start];
        if (ambientAdds) acc = acc + mul(color.asFloat3(i), ambient.asFloat3(i));
        acc = mul(acc, oneMinus(transparency.asFloat3(i)));
        if (incandescenceAdds) acc = acc + incandescence.asFloat3(i);
        outGlow.asFloat3(i) = acc;  // the glow holds no refraction
    }
    accumulateRefraction(block, start, count, accumulator);
    for (unsigned i = start; i < start + count; ++i) outColor.asFloat3(i) = accumulator[i - start];
}

void TdnLambert::computeBlackHole(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    TdataHandle mode = block.inputValue(attrMatteOpacityMode(), start, count);
    TdataHandle outColor = block.outputValue(attrOutColor(), start, count);
    TdataHandle outGlow = block.outputValue(attrOutGlowColor(), start, count);
    for (unsigned i = start; i < start + count; ++i)
        if (mode.asShort(i) == kBlackHole) {
            outColor.asFloat3(i) = T3Float();
            outGlow.asFloat3(i) = T3Float();
        }
}

// ---------------------------------------------------------------- transparency and refraction

namespace {
// Ray records of the renderer's size with their spectra, on the caller's
// stack (the memory comes from alloca in the caller's frame).
struct TrayBatch {
    TgenericRay* rays[TdnLambert::kChunk * TdnLambert::kSlotsPerSample];
    Tspectrum radiance[TdnLambert::kChunk * TdnLambert::kSlotsPerSample];
    Tspectrum transmittance[TdnLambert::kChunk * TdnLambert::kSlotsPerSample];
    short rayIndex[TdnLambert::kChunk * TdnLambert::kSlotsPerSample];
    short rayCount = 0;

    void setUp(void* memory, unsigned raySize, unsigned slots) {
        auto* bytes = static_cast<unsigned char*>(memory);
        for (unsigned r = 0; r < slots; ++r) rays[r] = new (bytes + size_t(r) * raySize) TgenericRay();
        for (short& s : rayIndex) s = -1;
    }
};

unsigned recordSize(TraySampler* sampler) { return std::max<unsigned>(sampler->raySize(), sizeof(TgenericRay)); }
}  // namespace

// alloca must run in the frame that uses the memory, so the two callers
// size and place the records themselves.
#define SN_ALLOCATE_RAYS(batch, sampler, slots)                                                                     \
    do {                                                                                                             \
        unsigned rayBytes = recordSize(sampler);                                                                     \
        void* rayMemory = alloca(size_t(rayBytes) * ((slots) ? (slots) : 1) + alignof(std::max_align_t));            \
        auto aligned = (reinterpret_cast<uintptr_t>(rayMemory) + alignof(std::max_align_t) - 1) & ~(uintptr_t(alignof(std::max_align_t)) - 1); \
        (batch).setUp(reinterpret_cast<void*>(aligned), rayBytes, (slots));                                           \
    } while (0)

void TdnLambert::computeTransparency(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    TdataHandle hide = block.inputValue(attrHideSource(), start, count);
    TdataHandle transparency = block.inputValue(attrTransparency(), start, count);
    T3Float result[kChunk];
    for (unsigned i = start; i < start + count; ++i) result[i - start] = hide.asBool(i) ? splat(1) : transparency.asFloat3(i);

    if (TraySampler* sampler = raySamplerOf(block, attrRaySampler(), start, count)) {
        TdataHandle chromatic = block.inputValue(attrChromaticAberration(), start, count);
        unsigned slots = 0;
        for (unsigned i = start; i < start + count; ++i) slots += raySlotsOf(chromatic.asBool(i));
        TrayBatch batch;
        SN_ALLOCATE_RAYS(batch, sampler, slots);
        formRefractiveRays(block, start, count, batch.rayIndex, batch.rayCount, batch.rays, batch.radiance, batch.transmittance);
        if (batch.rayCount > 0) sampler->traceRays(this, batch.rayCount, batch.rays, batch.radiance, batch.transmittance);
        for (unsigned i = start; i < start + count; ++i) {
            bool chroma = chromatic.asBool(i);
            for (unsigned k = 0; k < raySlotsOf(chroma); ++k) {
                short r = batch.rayIndex[(i - start) * kSlotsPerSample + k];
                if (r < 0) continue;
                const Tspectrum& t = batch.transmittance[r];
                if (chroma)
                    result[i - start][int(k)] *= t[k];
                else
                    result[i - start] = mul(result[i - start], t);
            }
        }
    }

    TdataHandle outTransparency = block.outputValue(attrOutTransparency(), start, count);
    for (unsigned i = start; i < start + count; ++i) outTransparency.asFloat3(i) = result[i - start];
    if (currentRenderPassControl == kPassShadow) return;
    TdataHandle mode = block.inputValue(attrMatteOpacityMode(), start, count);
    TdataHandle gain = block.inputValue(attrMatteOpacityGain(), start, count);
    TdataHandle outMatte = block.outputValue(attrOutMatteOpacity(), start, count);
    for (unsigned i = start; i < start + count; ++i) {
        short m = mode.asShort(i);
        float g = gain.asFloat(i);
        outMatte.asFloat3(i) = m == kBlackHole    ? splat(kBlackHoleMatte)
                               : m == kSolidMatte ? splat(g)
                                                  : oneMinus(result[i - start]) * g;
    }
}

void TdnLambert::formRefractiveRays(TdataBlock& block, unsigned start, unsigned count, short* rayIndex, short& rayCount,
                                    TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance) {
    TdataHandle refractions = block.inputValue(attrRtRefractedColor(), start, count);
    TdataHandle hide = block.inputValue(attrHideSource(), start, count);
    TdataHandle medium = block.inputValue(attrMediumRefractiveIndex(), start, count);
    TdataHandle depth = block.inputValue(attrRayDepth(), start, count);
    TdataHandle limit = block.inputValue(attrRefractedRayDepthLimit(), start, count);
    TdataHandle transparency = block.inputValue(attrTransparency(), start, count);
    TdataHandle index = block.inputValue(attrRefractiveIndex(), start, count);
    TdataHandle thickness = block.inputValue(attrSurfaceThickness(), start, count);
    TdataHandle direction = block.inputValue(attrRayDirection(), start, count);
    TdataHandle normal = block.inputValue(attrNormalCamera(), start, count);
    TdataHandle chromatic = block.inputValue(attrChromaticAberration(), start, count);
    TdataHandle point = block.inputValue(attrPointCamera(), start, count);
    TdataHandle primitive = block.inputValue(attrPrimitiveId(), start, count);
    TdataHandle object = block.inputValue(attrObjectId(), start, count);
    TdataHandle instance = block.inputValue(attrRayInstance(), start, count);

    for (unsigned i = start; i < start + count; ++i) {
        const T3Float& t = transparency.asFloat3(i);
        float mediumIndex = medium.asFloat(i);
        if (!refractions.asBool(i) || hide.asBool(i) || std::fabs(mediumIndex + kNoRefractionMarker) <= kMarkerTolerance ||
            depth.asInt(i) >= limit.asShort(i) || (t.x <= kTransparentFloor && t.y <= kTransparentFloor && t.z <= kTransparentFloor))
            continue;
        const T3Float& I = direction.asFloat3(i);
        const T3Float& N = normal.asFloat3(i);
        float n = index.asFloat(i);
        if (float h = thickness.asFloat(i); h != 0) {
            float u = 1.0f - std::fabs(dot(I, N));
            float factor = h + 2.0f * h * u * u;
            n = std::clamp(1.0f + (n - 1.0f) * factor, kMinIndex, kMaxThickIndex);
        }
        if (mediumIndex == n) n = 1.0f;  // leaving the surface
        const float c = -dot(I, N);
        for (unsigned k = 0; k < raySlotsOf(chromatic.asBool(i)); ++k) {
            float nk = n + float(k) * kChromaticStep;
            float eta = mediumIndex / nk;
            float q = 1.0f - eta * eta * (1.0f - c * c);
            TgenericRay& ray = *rays[rayCount];
            if (q < 0) {  // total internal reflection
                ray.direction = I + N * (2.0f * c);
                ray.mediumRefractiveIndex = index.asFloat(i);
            } else {
                ray.direction = I * eta + N * (eta * std::fabs(c) - std::sqrt(q));
                ray.mediumRefractiveIndex = nk;
            }
            ray.origin = point.asFloat3(i);
            ray.distance = FLT_MAX;
            ray.rayDepth = depth.asInt(i) + 1;
            ray.primitiveId = primitive.asInt(i);
            // The ray keeps 32 bits of the object's id.
            ray.objectId = int32_t(reinterpret_cast<intptr_t>(object.as<void*>(i)));
            ray.rayInstance = instance.asInt(i);
            radiance[rayCount] = kBlackSpectrum;
            transmittance[rayCount] = kWhiteSpectrum;
            rayIndex[(i - start) * kSlotsPerSample + k] = rayCount;
            ++rayCount;
        }
    }
}

void TdnLambert::accumulateRefraction(TdataBlock& block, unsigned start, unsigned count, T3Float* accumulator) {
    TraySampler* sampler = raySamplerOf(block, attrRaySampler(), start, count);
    if (!sampler) return;
    TdataHandle refractions = block.inputValue(attrRtRefractedColor(), start, count);
    TdataHandle hide = block.inputValue(attrHideSource(), start, count);
    TdataHandle chromatic = block.inputValue(attrChromaticAberration(), start, count);
    auto refracting = [&](unsigned i) { return refractions.asBool(i) && !hide.asBool(i); };
    unsigned slots = 0;
    for (unsigned i = start; i < start + count; ++i)
        if (refracting(i)) slots += raySlotsOf(chromatic.asBool(i));
    if (slots == 0) return;

    TrayBatch batch;
    SN_ALLOCATE_RAYS(batch, sampler, slots);
    formRefractiveRays(block, start, count, batch.rayIndex, batch.rayCount, batch.rays, batch.radiance, batch.transmittance);
    if (batch.rayCount > 0) sampler->traceRays(this, batch.rayCount, batch.rays, batch.radiance, batch.transmittance);

    TdataHandle transparency = block.inputValue(attrTransparency(), start, count);
    TdataHandle thickness = block.inputValue(attrSurfaceThickness(), start, count);
    TdataHandle absorbance = block.inputValue(attrLightAbsorbance(), start, count);
    TdataHandle depthLimit = block.inputValue(attrTransparencyDepth(), start, count);
    static const Tspectrum* const kChannelMask[3] = {&kRedSpectrum, &kGreenSpectrum, &kBlueSpectrum};
    for (unsigned i = start; i < start + count; ++i) {
        float T = thickness.asFloat(i), A = absorbance.asFloat(i), D = depthLimit.asFloat(i);
        bool chroma = chromatic.asBool(i);
        T3Float sum;
        for (unsigned k = 0; k < raySlotsOf(chroma); ++k) {
            short r = batch.rayIndex[(i - start) * kSlotsPerSample + k];
            if (r < 0) continue;
            float dist = batch.rays[r]->distance;
            if (T != 0) dist = std::min(dist, T);  // the thickness limits the distance in the medium
            float att = A == 0 ? 1.0f : float(1.0 / std::exp(double(dist) / 100.0 * double(A)));
            if (D != 0) {
                float left = (D - dist) / D;
                att = dist > D ? 0.0f : att * left * left;
            }
            if (att <= kAttenuationFloor) att = 0;
            T3Float radiance = batch.radiance[r].asFloat3();
            if (chroma) radiance = mul(radiance, *kChannelMask[k]);
            sum = sum + radiance * att;
        }
        accumulator[i - start] = accumulator[i - start] + mul(sum, transparency.asFloat3(i));
    }

    Tspectrum background;
    sampler->background(background);
    bool black = background.r() == kBlackSpectrum.r() && background.g() == kBlackSpectrum.g() && background.b() == kBlackSpectrum.b();
    if (unsigned(batch.rayCount) >= count || black) return;
    // A chromatic sample without rays gets the background three times and
    // unmasked; deliberate, kept as it is.
    for (unsigned i = start; i < start + count; ++i) {
        if (!refracting(i)) continue;
        for (unsigned k = 0; k < raySlotsOf(chromatic.asBool(i)); ++k)
            if (batch.rayIndex[(i - start) * kSlotsPerSample + k] < 0)
                accumulator[i - start] = accumulator[i - start] + mul(background.asFloat3(), transparency.asFloat3(i));
    }
}
