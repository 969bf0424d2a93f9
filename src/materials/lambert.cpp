#include "materials/lambert.h"

#include <cfloat>
#include <cmath>
#include <new>

#include "framework/host/depend_graph.h"
#include "materials/light_reader.h"
#include "materials/light_terms.h"
#include "materials/material_support.h"
#include "materials/shading_math.h"
#include "materials/surface_rays.h"
#include "settings/render_quality.h"
#include "shading/light_callbacks.h"
#include "shading/render_pass_control.h"
#include "utilities/utility_node.h"

SN_REGISTER_NODE_CLASS(TdnLambert)

namespace {
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

void TdnLambert::getGlowIntensity(float& value) { value = surfaceGlowIntensity(*this, attrGlowIntensity()); }

// ---------------------------------------------------------------- shading side

void TdnLambert::shadingNodeInit(TframeSampleData* data) {
    TnodeClass::shadingNodeInit(data);
    float depth = 0;
    getAttributeValue(&attrTranslucenceDepth(), &depth);
    fTranslucenceThreshold = depth * kTranslucenceDepthScale;
}

void TdnLambert::groupedAttrs(const Tattribute* attr, TattributeArray& group) {
    groupSurfaceOutputs(fsVs->io, attr, group);
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
    clearSurfaceRaySampler(*this, fsVs->io);
    TnodeClass::endOfRender(engine);
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

bool TdnLambert::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    int pass = currentRenderPassControl;
    if (a == &attrOutColor() || a == &attrOutGlowColor() || (a == &attrOutMatteOpacity() && pass == kPassShadow)) {
        forEachChunk(start, count, [&](unsigned s, unsigned n) {
            computeLambert(plug, block, s, n, TlightReader(block, attrLightData()));
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

void TdnLambert::finishColor(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    finishSurfaceColor(surface(), block, start, count);
}

void TdnLambert::readTransparency(TdataBlock& block, unsigned start, unsigned count, T3Float* out) {
    TdataHandle transparency = settledOrRead(fTransparency, block, attrTransparency(), start, count);
    withLane<T3Float>(transparency, [&](auto t) {
        for (unsigned i = start; i < start + count; ++i) out[i - start] = t[i];
    });
}

void TdnLambert::computeLambert(const Tplug&, TdataBlock& block, unsigned start, unsigned count, const TlightReader& lights) {
    TdataHandle normal = block.inputValue(attrNormalCamera(), start, count);
    TdataHandle translucence = settledOrRead(fTranslucence, block, attrTranslucenceCoeff(), start, count);
    TdataHandle color = settledOrRead(fColor, block, attrColor(), start, count);
    TdataHandle incandescence = settledOrRead(fIncandescence, block, attrIncandescence(), start, count);
    TdataHandle diffuse = settledOrRead(fDiffuse, block, attrDiffuseCoeff(), start, count);
    TdataHandle ambient = settledOrRead(fAmbient, block, attrAmbientColor(), start, count);
    TdataHandle transparency = settledOrRead(fTransparency, block, attrTransparency(), start, count);
    TdataHandle point = block.inputValue(attrPointCamera(), start, count);
    TdataHandle view = block.inputValue(attrRayDirection(), start, count);
    TdataHandle focus = settledOrRead(fFocus, block, attrTranslucenceFocus(), start, count);
    TdataHandle outColor = block.outputValue(attrOutColor(), start, count);
    TdataHandle outGlow = block.outputValue(attrOutGlowColor(), start, count);
    TdataHandle outMatte = block.outputValue(attrOutMatteOpacity(), start, count);

    const int pass = currentRenderPassControl;
    const bool lightsAdd = pass == kPassFull || pass == kPassNoShadows || pass == kPassNoSpecular || pass == kPassShadow;
    const float threshold = fTranslucenceThreshold;
    const float range = translucenceRange(threshold);
    TchunkTriples accumulator;

    if (pass == kPassShadow) {
        for (unsigned i = start; i < start + count; ++i) {
            TshadowSums shadow;
            const T3Float& n = normal.asFloat3(i);
            const T3Float& p = point.asFloat3(i);
            for (unsigned k = 0; k < lights.count(); ++k) {
                const TlightData& d = lights.record(k, i);
                if (d.lightDiffuse) shadow.add(d, lightCosine(d, p, n));
            }
            outColor.asFloat3(i) = T3Float();
            outGlow.asFloat3(i) = T3Float();
            outMatte.asFloat3(i) = splat(shadow.fraction());
        }
        return;
    }

    // Light by light, each sample's sum adding the lights in the same order
    // as a loop over lights per sample would. A light whose one record
    // serves the whole batch, with no callbacks and no translucence to add
    // (a constant zero), runs a loop of a dot product and a multiply-add.
    for (unsigned i = 0; i < count; ++i) accumulator[i] = T3Float();
    const bool noTranslucence = !translucence.isVariable() && translucence.asFloat(0) == 0;
    for (unsigned k = 0; k < lights.count() && lightsAdd; ++k) {
        const TlightData& shared = lights.record(k, start);
        if (lights.sharedByBatch(k) && noTranslucence && !callbacksOf(shared)) {
            const T3Float L = shared.lightDirection, intensity = shared.lightIntensity;
            const float base = shared.lightAmbient ? 1.0f : 0.0f;
            const bool diffuses = shared.lightDiffuse;
            withLane<float>(diffuse, [&](auto kd) {
                for (unsigned i = start; i < start + count; ++i) {
                    float w = base;
                    if (diffuses) {
                        const float cosine = dot(L, normal.asFloat3(i));
                        if (cosine >= 0) w += cosine * kd[i];
                    }
                    accumulator[i - start] = accumulator[i - start] + mul(color.asFloat3(i), intensity) * w;
                }
            });
            continue;
        }
        for (unsigned i = start; i < start + count; ++i) {
            const TlightData& d = lights.record(k, i);
            const T3Float& n = normal.asFloat3(i);
            const T3Float& p = point.asFloat3(i);
            float w = d.lightAmbient ? 1.0f : 0.0f;
            if (d.lightDiffuse) {
                float cosine = lightCosine(d, p, n);
                if (cosine >= 0) w += cosine * diffuse.asFloat(i);
                // After the sign test: translucence lights the far side.
                w += translucenceTerm(d, p, view.asFloat3(i), translucence.asFloat(i), focus.asFloat(i), cosine, threshold, range);
            }
            accumulator[i - start] = accumulator[i - start] + mul(color.asFloat3(i), d.lightIntensity) * w;
        }
    }

    const bool ambientAdds = pass == kPassFull || pass == kPassNoShadows || pass == kPassAmbientOnly || pass == kPassNoSpecular;
    const bool incandescenceAdds = pass == kPassFull || pass == kPassNoShadows || pass == kPassNoSpecular;
    if (!ambient.isVariable() && !transparency.isVariable() && !incandescence.isVariable()) {
        // The usual material: these three are constants, read once.
        const T3Float amb = ambient.asFloat3(start), keep = oneMinus(transparency.asFloat3(start)), inc = incandescence.asFloat3(start);
        for (unsigned i = start; i < start + count; ++i) {
            T3Float& acc = accumulator[i - start];
            if (ambientAdds) acc = acc + mul(color.asFloat3(i), amb);
            acc = mul(acc, keep);
            if (incandescenceAdds) acc = acc + inc;
            outGlow.asFloat3(i) = acc;
        }
    } else {
        for (unsigned i = start; i < start + count; ++i) {
            T3Float& acc = accumulator[i - start];
            if (ambientAdds) acc = acc + mul(color.asFloat3(i), ambient.asFloat3(i));
            acc = mul(acc, oneMinus(transparency.asFloat3(i)));
            if (incandescenceAdds) acc = acc + incandescence.asFloat3(i);
            outGlow.asFloat3(i) = acc;  // the glow holds no refraction
        }
    }
    if (TraySampler* sampler = surfaceRefractionSampler(surface(), block, start, count))
        accumulateRefraction(sampler, block, start, count, accumulator);
    for (unsigned i = start; i < start + count; ++i) outColor.asFloat3(i) = accumulator[i - start];
}

void TdnLambert::computeBlackHole(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    computeSurfaceBlackHole(surface(), block, start, count);
}

// ---------------------------------------------------------------- transparency and refraction

void TdnLambert::computeTransparency(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    // The usual material: its transparency and surface settings are its own for the render.
    if (fTransparency.settled && writeSettledSurfaceTransparency(surface(), block, start, count, fTransparency.value)) return;
    TdataHandle t = settledOrRead(fTransparency, block, attrTransparency(), start, count);
    if (!t.isVariable()) {
        const T3Float one = t.asFloat3(start);
        computeSurfaceTransparency(this, surface(), block, start, count, &one, true);
        return;
    }
    TchunkTriples transparency;
    readTransparency(block, start, count, transparency);
    computeSurfaceTransparency(this, surface(), block, start, count, transparency);
}

void TdnLambert::formRefractiveRays(TdataBlock& block, unsigned start, unsigned count, short* rayIndex, short& rayCount,
                                    TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance) {
    TchunkTriples transparency;
    readTransparency(block, start, count, transparency);
    formSurfaceRefractiveRays(surface(), block, start, count, transparency, rayIndex, rayCount, rays, radiance, transmittance);
}

void TdnLambert::accumulateRefraction(TraySampler* sampler, TdataBlock& block, unsigned start, unsigned count, T3Float* accumulator) {
    TchunkTriples transparency;
    readTransparency(block, start, count, transparency);
    accumulateSurfaceRefraction(this, surface(), sampler, block, start, count, transparency, accumulator);
}
