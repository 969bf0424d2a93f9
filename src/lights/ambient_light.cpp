#include <algorithm>

#include "lights/render_light.h"
#include "framework/scratch_array.h"
#include "shading/shading_types.h"

SN_REGISTER_NODE_CLASS(TambientLightShape)

TambientLightShapeVS::TambientLightShapeVS() {
    ambientShade.setNativeDefaultData(0.45);
    ambientShade.setSoftMin(0);
    ambientShade.setSoftMax(1);
    objectType.makeImplicitInput();
    shadowRadius.setSoftMin(0);
    normalCamera.whole.makeImplicitInput();
    receiveShadows.setNativeDefaultData(1.0);
    shadowRays.setNativeDefaultData(1);
}

bool TambientLightShapeVS::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&ambientShade, &objectType, &shadowRadius, &normalCamera.whole, &receiveShadows, &shadowRays},
            {&TlightShape::saLightData()});
    return true;
}

float TambientLightShape::shadeWeight(float ambientShade, const T3Float& toLight, const T3Float& normal) {
    return std::max(1.0f + ambientShade * (dot(toLight, normal) - 1.0f), 0.0f);
}

bool TambientLightShape::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    if (a != &TlightShape::saLightData()) return TrenderLightShape::vectorComputePlug(plug, block, first, count);
    TdataHandle color = block.inputValue(TlightShape::saColor(), first, count);
    TdataHandle intensity = block.inputValue(TlightShape::saIntensity(), first, count);
    TdataHandle shadowColor = block.inputValue(TlightShape::saShadowColor(), first, count);
    TdataHandle rayTrace = block.inputValue(TlightShape::saUseRayTraceShadows(), first, count);
    TdataHandle shade = block.inputValue(attrAmbientShade(), first, count);
    TdataHandle points = block.inputValue(attrPointCamera(), first, count);
    TdataHandle normals = block.inputValue(attrNormalCamera(), first, count);
    TdataHandle objectType = block.inputValue(attrObjectType(), first, count);
    TdataHandle infoBits = block.inputValue(TlightShape::saInfoBits(), first, count);
    TdataHandle receive = block.inputValue(attrReceiveShadows(), first, count);
    TdataHandle radius = block.inputValue(attrShadowRadius(), first, count);
    TdataHandle out = block.outputValue(TlightShape::saLightData(), first, count);

    bool doShadow = batchCastsShadows(objectType.as<char>(first), infoBits.asInt(first), receive.asBool(first)) &&
                    rayTrace.asBool(first);
    T3Float position(fPosition.x, fPosition.y, fPosition.z);
    for (unsigned start = first; start < first + count; start += kBatchSize) {
        unsigned n = std::min(first + count - start, kBatchSize);
        TscratchArray<T3Float, kBatchSize> toLight, p, passed;
        float distance[kBatchSize];
        for (unsigned k = 0; k < n; ++k) {
            unsigned i = start + k;
            p[k] = points.asFloat3(i);
            T3Float d = position - p[k];
            distance[k] = length(d);
            toLight[k] = fastNormalize(d);
            passed[k] = {1, 1, 1};
        }
        if (doShadow)
            computeRtShadow(n, p, toLight, distance, radius.asFloat(first), false, unsigned(std::max<short>(fShadowRays, 1)), nullptr,
                            passed);
        for (unsigned k = 0; k < n; ++k) {
            unsigned i = start + k;
            float weight = shadeWeight(shade.asFloat(i), toLight[k], normals.asFloat3(i));
            TlightData& r = out.as<TlightData>(i);
            T3Float c = color.asFloat3(i) * (intensity.asFloat(i) * weight);
            const T3Float& t = passed[k];
            const T3Float& sc = shadowColor.asFloat3(i);
            r.lightDirection = toLight[k];
            r.lightIntensity = {c.x * t.x + (1 - t.x) * sc.x, c.y * t.y + (1 - t.y) * sc.y, c.z * t.z + (1 - t.z) * sc.z};
            r.lightAmbient = true;
            r.lightDiffuse = false;
            r.lightSpecular = false;
            r.fSpare = 0;
            r.lightShadowFraction = 0;
            r.preShadowIntensity = lightLuminance(color.asFloat3(i)) * weight * intensity.asFloat(i);
            r.lightBlindData = nullptr;
        }
    }
    block.setClean(TlightShape::saLightData());
    return true;
}

void TambientLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TrenderLightShape::shadingNodeOnDemand(plug, block);
    // Read once here: a read through the graph writes to the node, so the
    // render threads must not do it while shading.
    fShadowRays = 1;
    getAttributeValue(&attrShadowRays(), &fShadowRays);
}
