#include "lights/light_fog.h"

#include <algorithm>

#include "framework/scratch_array.h"
#include "lights/shadow_map.h"
#include "shading/ray_sampler.h"
#include "shading/sample.h"
#include "shading/shading_types.h"

void analyzeLightFog(TnonExtendedLightShape& light, const Tattribute& fogGeometry, TbitField64& mask) {
    if (!light.hasConnections(&fogGeometry)) {
        mask.clear(kItemFarPointWorld);
        mask.clear(kItemObjectType);
        return;
    }
    bool depthMap = false;
    light.getAttributeValue(&TnonExtendedLightShape::saUseDepthMapShadows(), &depthMap);
    if (depthMap) mask.set(kItemRayInstance);
}

void TnonExtendedLightShape::fogSegmentShadows(TdataBlock& block, unsigned first, unsigned count, const T3Float* near,
                                               const T3Float* far, float* intensity) {
    TdataHandle rayTrace = block.inputValue(TlightShape::saUseRayTraceShadows(), first, count);
    TdataHandle points = block.inputValue(attrVolumeShadowSamples(), first, count);
    TdataHandle strength = block.inputValue(attrFogShadowIntensity(), first, count);
    const bool mapped = fShadowMap && fUseDepthMap;
    if (!mapped && !rayTrace.asBool(first)) return;
    // Each point along a segment costs a shadow ray per sample: a few are enough for a soft beam.
    const unsigned steps = unsigned(std::clamp<int>(points.asShort(first), 1, int(kMaxFogShadowPoints)));
    const float deepen = float(std::max<short>(strength.asShort(first), 1));
    const Tmatrix& toCamera = worldToCamera();
    const T3Float position(fPosition.x, fPosition.y, fPosition.z);
    float lit[kBatchSize] = {};
    bool skip[kBatchSize];
    for (unsigned k = 0; k < count; ++k) skip[k] = intensity[k] <= 0;
    // One point in each of `steps` equal stretches, placed at random within
    // it: fixed places would step the shadow's edge in visible bands.
    TraySampler* tracer = currentRaySampler();
    for (unsigned step = 0; step < steps; ++step) {
        TscratchArray<T3Float, kBatchSize> p, toLight, passed;
        float distance[kBatchSize], fraction[kBatchSize] = {};
        for (unsigned k = 0; k < count; ++k) {
            const float u = (float(step) + (tracer ? tracer->random() : 0.5f)) / float(steps);
            p[k] = toCamera.transformPoint(near[k] + (far[k] - near[k]) * u);
            distance[k] = directionToLight(position, p[k], toLight[k]);
        }
        if (mapped) {
            fShadowMap->sampleShadow(count, p, fDmapBias, fDmapFilterSize, fraction, nullptr);
            for (unsigned k = 0; k < count; ++k) lit[k] += 1 - fraction[k];
        } else {
            computeRtShadow(count, p, toLight, distance, 0, false, 1, skip, passed);
            for (unsigned k = 0; k < count; ++k) lit[k] += lightLuminance(passed[k]);
        }
    }
    for (unsigned k = 0; k < count; ++k) {
        const float shadow = std::min(1.0f, (1 - lit[k] / float(steps)) * deepen);
        intensity[k] *= 1 - shadow;
    }
}
