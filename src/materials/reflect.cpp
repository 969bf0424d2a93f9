#include "materials/reflect.h"

#include "framework/scratch_array.h"
#include "materials/material_support.h"
#include "materials/shading_math.h"

SN_REGISTER_NODE_CLASS(TdnReflect)

TdnVSReflect::TdnVSReflect() {
    reflectionLimit.setNativeDefaultData(1);
    reflectionLimit.setSoftMin(0);
    reflectionLimit.setSoftMax(10);
    specularColor.setDefault(0.5f, 0.5f, 0.5f);
    reflectivity.setNativeDefaultData(0.5);
    reflectivity.setSoftMin(0);
    reflectivity.setSoftMax(1);
    reflectionSpecularity.setNativeDefaultData(1);
    reflectionSpecularity.setSoftMin(0);
    reflectionSpecularity.setSoftMax(1);
    declareSampleInput(triangleNormalCamera);
    miShinyness.setNativeDefaultData(10);
    miShinyness.setSoftMin(5);
    miShinyness.setSoftMax(20);
    miReflectionBlur.setSoftMax(10);
    miReflectivity.setNativeDefaultData(0.5);
    miReflectionRays.setNativeDefaultData(1);
    for (Tattribute* a : ownAttributes()) a->setDisconnectOption(1);
}

bool TdnVSReflect::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&reflectionLimit, &specularColor.whole, &reflectivity, &reflectedColor.whole, &triangleNormalCamera.whole,
                &reflectionSpecularity},
            {&TdnLambert::saOutColor(), &TdnLambert::saOutGlowColor()});
    return true;
}

void TdnReflect::getSpecularColor(T3Float& value) { getAttributeValue(&attrSpecularColor(), &value); }

void TdnReflect::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnodeClass::shadingNodeOnDemand(plug, block);
    float reflectivity = 0;
    getAttributeValue(&attrReflectivity(), &reflectivity);
    bool driven = sourceOf(Tplug(this, &attrReflectivity())) != nullptr;
    TdataHandle sampler = block.inputValue(attrRaySampler());
    // On a render thread with no sampler on the input, the thread's tracer serves.
    bool tracer = (!sampler.isNull() && sampler.as<void*>() != nullptr) || currentRaySampler() != nullptr;
    fNeedsReflectionRays = (driven || reflectivity != 0) && tracer;
}

void TdnReflect::computeReflection(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    TdataHandle reflectedColor = settledOrRead(fReflectedColor, block, attrReflectedColor(), start, count);
    TdataHandle reflectivity = settledOrRead(fReflectivity, block, attrReflectivity(), start, count);
    TscratchArray<T3Float, kChunk> reflected;
    float weight[kChunk];
    for (unsigned i = start; i < start + count; ++i) {
        reflected[i - start] = reflectedColor.asFloat3(i);
        weight[i - start] = reflectivity.asFloat(i);
    }
    TraySampler* sampler = raySamplerOf(block, start, count);
    if (sampler && !(onDemandState().load() == kOnDemandDone && !fNeedsReflectionRays))
        traceMirrorRays(this, surface(), attrReflectionLimit(), sampler, block, start, count, weight, reflected);
    TdataHandle outColor = block.outputValue(attrOutColor(), start, count);
    for (unsigned i = start; i < start + count; ++i) outColor.asFloat3(i) = reflected[i - start];
}
