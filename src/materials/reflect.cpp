#include "materials/reflect.h"

#include <alloca.h>

#include <cfloat>
#include <cstdint>
#include <new>

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

void TdnReflect::shadingNodeOnDemand(Tplug&, TdataBlock& block) {
    float reflectivity = 0;
    getAttributeValue(&attrReflectivity(), &reflectivity);
    bool driven = sourceOf(Tplug(this, &attrReflectivity())) != nullptr;
    TdataHandle sampler = block.inputValue(attrRaySampler());
    // On a render thread with no sampler on the input, the thread's tracer serves.
    bool tracer = (!sampler.isNull() && sampler.as<void*>() != nullptr) || currentRaySampler() != nullptr;
    fNeedsReflectionRays = (driven || reflectivity != 0) && tracer;
}

void TdnReflect::computeReflection(const Tplug&, TdataBlock& block, unsigned start, unsigned count) {
    TdataHandle reflected = block.inputValue(attrReflectedColor(), start, count);
    TdataHandle outColor = block.outputValue(attrOutColor(), start, count);
    for (unsigned i = start; i < start + count; ++i) outColor.asFloat3(i) = reflected.asFloat3(i);
    TraySampler* sampler = raySamplerOf(block, attrRaySampler(), start, count);
    if (!sampler || (onDemandState().load() == kOnDemandDone && !fNeedsReflectionRays)) return;

    TdataHandle reflectivity = block.inputValue(attrReflectivity(), start, count);
    TdataHandle depth = block.inputValue(attrRayDepth(), start, count);
    TdataHandle limit = block.inputValue(attrReflectionLimit(), start, count);
    TdataHandle hide = block.inputValue(attrHideSource(), start, count);
    auto reflecting = [&](unsigned i) {
        return reflectivity.asFloat(i) != 0 && depth.asInt(i) < limit.asShort(i) && !hide.asBool(i);
    };
    unsigned wanted = 0;
    for (unsigned i = start; i < start + count; ++i) wanted += reflecting(i) ? 1 : 0;
    if (wanted == 0) return;

    TdataHandle normal = block.inputValue(attrNormalCamera(), start, count);
    TdataHandle point = block.inputValue(attrPointCamera(), start, count);
    TdataHandle direction = block.inputValue(attrRayDirection(), start, count);
    TdataHandle object = block.inputValue(attrObjectId(), start, count);
    TdataHandle instance = block.inputValue(attrRayInstance(), start, count);
    TdataHandle primitive = block.inputValue(attrPrimitiveId(), start, count);
    TdataHandle medium = block.inputValue(attrMediumRefractiveIndex(), start, count);

    unsigned rayBytes = std::max<unsigned>(sampler->raySize(), sizeof(TgenericRay));
    void* memory = alloca(size_t(rayBytes) * wanted + alignof(std::max_align_t));
    auto* base = reinterpret_cast<unsigned char*>((reinterpret_cast<uintptr_t>(memory) + alignof(std::max_align_t) - 1) &
                                                  ~(uintptr_t(alignof(std::max_align_t)) - 1));
    TgenericRay* rays[kChunk];
    Tspectrum radiance[kChunk], transmittance[kChunk];
    short rayIndex[kChunk];
    short rayCount = 0;
    for (unsigned i = start; i < start + count; ++i) {
        rayIndex[i - start] = -1;
        if (!reflecting(i)) continue;
        TgenericRay& ray = *(rays[rayCount] = new (base + size_t(rayCount) * rayBytes) TgenericRay());
        ray.origin = point.asFloat3(i);
        ray.direction = unitOrSelf(mirror(direction.asFloat3(i), unitOrSelf(normal.asFloat3(i))));
        ray.distance = FLT_MAX;
        ray.rayDepth = depth.asInt(i) + 1;
        ray.mediumRefractiveIndex = medium.asFloat(i);
        ray.primitiveId = primitive.asInt(i);
        ray.objectId = int32_t(reinterpret_cast<intptr_t>(object.as<void*>(i)));
        ray.rayInstance = instance.asInt(i);
        radiance[rayCount] = kBlackSpectrum;
        transmittance[rayCount] = kWhiteSpectrum;
        rayIndex[i - start] = rayCount++;
    }
    sampler->traceRays(this, rayCount, rays, radiance, transmittance);
    for (unsigned i = start; i < start + count; ++i)
        if (short r = rayIndex[i - start]; r >= 0) outColor.asFloat3(i) = radiance[r].asFloat3();
}
