#include "volumes/env_fog_material.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

#include "lights/render_light.h"
#include "materials/material_support.h"
#include "shading/shading_types.h"
#include "shading/swatch_mode.h"
#include "volumes/height_band.h"
#include "volumes/light_fog_material.h"

SN_REGISTER_NODE_CLASS(TdnEnvFogMaterial)

namespace {
// A ray whose vertical slope is below this counts as level in the band.
constexpr double kLevelSlope = 0.00001;

void setRange(Tattribute& a, double low, double high) {
    a.setSoftMin(low);
    a.setSoftMax(high);
}
T3Double toDouble(const T3Float& v) { return {v.x, v.y, v.z}; }
T3Float directionOf(const Tmatrix& m, const T3Float& v) { return normalize(m.transformVector(v)); }
}  // namespace

TdnVSEnvFogMaterial::TdnVSEnvFogMaterial() {
    declareSampleInput(pointCamera);
    declareSampleInput(pointWorld);
    declareSampleInput(rayDirection);
    declareSampleInput(filterSize);
    rayDirection.setDefault(0, 0, -1);
    lightDataArray.setMulti(true);
    lightDataArray.makeImplicitInput();
    matrixEyeToWorld.setFlag(kAttrHidden, true);

    color.setDefault(0.5f, 0.5f, 0.5f);
    distanceClipPlanes.addField("kCameraNearFar", "Camera Near/Far", short(0));
    distanceClipPlanes.addField("kFogNearFar", "Fog Near/Far", short(1));
    blendRange.setNativeDefaultData(1.0);
    setRange(blendRange, 0, 10);
    saturationDistance.setNativeDefaultData(100.0);
    setRange(saturationDistance, 0, 1000);
    fogNearDistance.setNativeDefaultData(1.0);
    fogFarDistance.setNativeDefaultData(200.0);
    layer.setNativeDefaultData(1.0);
    setRange(layer, 0, 1);
    maxHeight.setNativeDefaultData(1.0);
    endDistance.setNativeDefaultData(100.0);

    // The physical fog starts where the model's own defaults stand, with a sun.
    fogType.addField("kConstantFog", "Uniform Fog", kConstantFog);
    fogType.addField("kAtmosFog", "Atmospheric", kAtmosFog);
    fogType.addField("kSkyFog", "Sky", kSkyFog);
    fogType.addField("kWater", "Water", kWater);
    fogType.addField("kWaterFog", "Water/Fog", kWaterFog);
    fogType.addField("kWaterAtmos", "Water/Atmos", kWaterAtmos);
    fogType.addField("kWaterSky", "Water/Sky", kWaterSky);
    fogDensity.setNativeDefaultData(0.1);
    fogColor.setDefault(1, 1, 1);
    fogOpacity.setDefault(0.5f, 0.5f, 0.5f);
    fogMaxHeight.setNativeDefaultData(10.0);
    fogLightScatter.setNativeDefaultData(1.0);
    airColor.setDefault(1, 1, 1);
    airOpacity.setDefault(0.5f, 0.5f, 0.5f);
    airMaxHeight.setNativeDefaultData(100.0);
    airLightScatter.setNativeDefaultData(1.0);
    waterColor.setDefault(1, 1, 1);
    waterOpacity.setDefault(0.5f, 0.5f, 0.5f);
    waterDepth.setNativeDefaultData(100.0);
    waterLightDecay.setNativeDefaultData(1.0);
    waterLightScatter.setNativeDefaultData(1.0);
    planetRadius.setNativeDefaultData(1000.0);
    for (auto [key, label, value] : {std::tuple{"kXax", "X", kAxisX}, {"knXax", "-X", kAxisNegX}, {"kYax", "Y", kAxisY},
                                      {"knYax", "-Y", kAxisNegY}, {"kZax", "Z", kAxisZ}, {"knZax", "-Z", kAxisNegZ}})
        fogAxis.addField(key, label, short(value));
    fogAxis.setNativeDefaultData(kAxisY);
    sunIntensity.setNativeDefaultData(1.0);
    sunElevation.setNativeDefaultData(45.0);
    setRange(sunElevation, 0, 90);
    setRange(sunAzimuth, 0, 360);
    sunColor.setDefault(1, 1, 1);
}

bool TdnVSEnvFogMaterial::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    std::vector<Tattribute*> inputs;
    for (Tattribute* a : ownAttributes())
        if (!a->parent() && a != io.outputs[0] && a != io.outputs[1] && a != io.outputs[2]) inputs.push_back(a);
    for (Tattribute* in : inputs) affects(m, {in}, {io.outputs[0], io.outputs[1], io.outputs[2]});
    return true;
}

TskyFog TdnEnvFogMaterial::skyFog() {
    const TdnVSEnvFogMaterial& vs = *fsVs;
    auto number = [&](const Tattribute& a, float fallback) {
        float v = fallback;
        getAttributeValue(&a, &v);
        return double(v);
    };
    auto colour = [&](const TtripleAttribute& a) {
        T3Float v;
        getAttributeValue(&a.whole, &v);
        return toDouble(v);
    };
    short type = kConstantFog, axis = kAxisY;
    getAttributeValue(&vs.fogType, &type);
    getAttributeValue(&vs.fogAxis, &axis);
    TskyFog fog;
    fog.setFogType(type);
    fog.setFogDensity(number(vs.fogDensity, 0.1f));
    fog.setFogColor(colour(vs.fogColor));
    fog.setFogOpacity(colour(vs.fogOpacity));
    fog.setFogMinHeight(number(vs.fogMinHeight, 0));
    fog.setFogMaxHeight(number(vs.fogMaxHeight, 10));
    fog.setFogDecay(number(vs.fogDecay, 0));
    fog.setFogLightScatter(number(vs.fogLightScatter, 1));
    fog.setAirDensity(number(vs.airDensity, 0));
    fog.setAirColor(colour(vs.airColor));
    fog.setAirOpacity(colour(vs.airOpacity));
    fog.setAirMinHeight(number(vs.airMinHeight, 0));
    fog.setAirMaxHeight(number(vs.airMaxHeight, 100));
    fog.setAirDecay(number(vs.airDecay, 0));
    fog.setAirLightScatter(number(vs.airLightScatter, 1));
    fog.setWaterDensity(number(vs.waterDensity, 0));
    fog.setWaterColor(colour(vs.waterColor));
    fog.setWaterOpacity(colour(vs.waterOpacity));
    // The water's surface lies at waterLevel and its bottom waterDepth below
    // it; the model measures both as depths below height 0.
    const double level = number(vs.waterLevel, 0), depth = std::max(number(vs.waterDepth, 100), 0.0);
    fog.setWaterMinDepth(-level);
    fog.setWaterMaxDepth(depth - level);
    fog.setWaterLightDecay(number(vs.waterLightDecay, 1));
    fog.setWaterLightScatter(number(vs.waterLightScatter, 1));
    fog.setPlanetRadius(number(vs.planetRadius, 1000));
    fog.setAxis(axis);
    fog.setSunIntensity(number(vs.sunIntensity, 1));
    fog.setSunAzimuth(number(vs.sunAzimuth, 0));
    fog.setSunElevation(number(vs.sunElevation, 45));
    fog.setSunColor(colour(vs.sunColor));
    fog.init();
    return fog;
}

void TdnEnvFogMaterial::shadingNodeInit(TframeSampleData*) {
    // The eye is the render's camera; lights already hold its placement.
    fEyeToWorld = TrenderLightShape::worldToCamera().inverse();
    fSkyFog = skyFog();
    fPrepared = true;
}

void TdnEnvFogMaterial::endOfRender(TDNshadingEngine* engine) {
    fPrepared = false;
    TrenderNode::endOfRender(engine);
}

bool TdnEnvFogMaterial::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    const TdnVSEnvFogMaterial& vs = *fsVs;
    if (a != vs.io.outputs[0] && a != vs.io.outputs[1] && a != vs.io.outputs[2])
        return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle physical = block.inputValue(vs.physicalFog, first, count);
    if (physical.asBool(first))
        skyFogVectorComputePlug(block, first, first + count);
    else
        simpleFog(block, first, count);
    writeFogMatte(block, vs.io, first, count);
    for (const Tattribute* out : vs.io.outputs) block.setClean(*out);
    return true;
}

void TdnEnvFogMaterial::simpleFog(TdataBlock& block, unsigned first, unsigned count) {
    const TdnVSEnvFogMaterial& vs = *fsVs;
    TdataHandle point = block.inputValue(vs.pointCamera.whole, first, count);
    TdataHandle ray = block.inputValue(vs.rayDirection.whole, first, count);
    TdataHandle filter = block.inputValue(vs.filterSize.whole, first, count);
    TdataHandle color = block.inputValue(vs.color.whole, first, count);
    TdataHandle byColor = block.inputValue(vs.colorBasedTransparency, first, count);
    TdataHandle clipPlanes = block.inputValue(vs.distanceClipPlanes, first, count);
    TdataHandle nearDistance = block.inputValue(vs.fogNearDistance, first, count);
    TdataHandle farDistance = block.inputValue(vs.fogFarDistance, first, count);
    TdataHandle useHeight = block.inputValue(vs.useHeight, first, count);
    TdataHandle minHeight = block.inputValue(vs.minHeight, first, count);
    TdataHandle maxHeight = block.inputValue(vs.maxHeight, first, count);
    TdataHandle blendRange = block.inputValue(vs.blendRange, first, count);
    TdataHandle saturation = block.inputValue(vs.saturationDistance, first, count);
    TdataHandle useLayer = block.inputValue(vs.useLayer, first, count);
    TdataHandle layer = block.inputValue(vs.layer, first, count);
    TdataHandle outColor = block.outputValue(vs.io.outColor.whole, first, count);
    TdataHandle outTransparency = block.outputValue(vs.io.outTransparency.whole, first, count);
    const float thicknessScale = inSampleSwatchMode ? kSwatchThickness : 1.0f;

    for (unsigned start = first; start < first + count; start += kBatchSize) {
        const unsigned n = std::min(first + count - start, kBatchSize);
        float opacity[kBatchSize];
        bool fogged[kBatchSize];
        T3Float colors[kBatchSize], out[kBatchSize];
        for (unsigned k = 0; k < n; ++k) {
            const unsigned i = start + k;
            colors[k] = color.asFloat3(i);
            opacity[k] = 0;
            fogged[k] = false;
            float d = filter.asFloat3(i).z * thicknessScale;
            const T3Float p = point.asFloat3(i), dir = normalize(ray.asFloat3(i));
            if (clipPlanes.asShort(i) == kFogNearFar) {
                const float fogNear = nearDistance.asFloat(i), fogFar = farDistance.asFloat(i);
                float nearD = length(p), farD = length(p + dir * d);
                const bool farLimit = fogNear <= fogFar;
                if (farD < fogNear || (farLimit && fogFar < nearD)) continue;
                nearD = std::max(nearD, fogNear);
                if (farLimit) farD = std::min(farD, fogFar);
                d = farD - nearD;
            }
            double blend = 0;
            if (useHeight.asBool(i)) {
                const T3Float pw = fEyeToWorld.transformPoint(p), dw = directionOf(fEyeToWorld, dir);
                const double low = minHeight.asFloat(i);
                const double high = maxHeight.asFloat(i) < low ? kOpenBandTop : double(maxHeight.asFloat(i));
                const double cut = heightBandLength(pw.y, dw.y, d, low, high, kLevelSlope);
                if (!(cut > 0)) continue;
                d = std::min(d, float(cut));
                blend = heightBandFactor(pw.y, low, high, blendRange.asFloat(i));
            }
            const float s = saturation.asFloat(i);
            if (s <= 0) {
                opacity[k] = 1;
            } else {
                float x = d / s;
                if (useLayer.asBool(i)) x *= layer.asFloat(i);
                if (blend > 0) x *= float(blend);
                opacity[k] = fogOpacity(x);
            }
            fogged[k] = true;
        }
        TdnLightFogMaterial::computeOutColor(block, vs.lightDataArray, start, n, colors, opacity, out);
        for (unsigned k = 0; k < n; ++k) {
            const unsigned i = start + k;
            if (!fogged[k]) {
                outColor.asFloat3(i) = {0, 0, 0};
                outTransparency.asFloat3(i) = {1, 1, 1};
                continue;
            }
            const float o = opacity[k];
            outColor.asFloat3(i) = out[k];
            outTransparency.asFloat3(i) = byColor.asBool(i) ? T3Float(1 - out[k].x, 1 - out[k].y, 1 - out[k].z) : T3Float(1 - o, 1 - o, 1 - o);
        }
    }
}

void TdnEnvFogMaterial::skyFogVectorComputePlug(TdataBlock& block, unsigned start, unsigned end) {
    const TdnVSEnvFogMaterial& vs = *fsVs;
    const unsigned count = end - start;
    TdataHandle point = block.inputValue(vs.pointWorld.whole, start, count);
    TdataHandle ray = block.inputValue(vs.rayDirection.whole, start, count);
    TdataHandle filter = block.inputValue(vs.filterSize.whole, start, count);
    TdataHandle outColor = block.outputValue(vs.io.outColor.whole, start, count);
    TdataHandle outTransparency = block.outputValue(vs.io.outTransparency.whole, start, count);
    const double thicknessScale = inSampleSwatchMode ? kSwatchThickness : 1.0;
    const TskyFog outside = fPrepared ? TskyFog() : skyFog();
    const TskyFog& model = fPrepared ? fSkyFog : outside;
    for (unsigned i = start; i < end; ++i) {
        const T3Float p = point.asFloat3(i), dir = directionOf(fEyeToWorld, ray.asFloat3(i));
        T3Double color(0, 0, 0), transparency(1, 1, 1);
        if (!model.getFog(T4dDblPoint(p.x, p.y, p.z), T4dDblVector(dir.x, dir.y, dir.z), filter.asFloat3(i).z * thicknessScale,
                            color, transparency)) {
            color = T3Double(0, 0, 0);
            transparency = T3Double(1, 1, 1);
        }
        outColor.asFloat3(i) = {float(color.x), float(color.y), float(color.z)};
        outTransparency.asFloat3(i) = {float(transparency.x), float(transparency.y), float(transparency.z)};
    }
}
