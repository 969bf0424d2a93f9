#include "textures/mountain.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"
#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnMountain)

TdnVSMountain::TdnVSMountain() {
    snowColor.setDefault(1, 1, 1);
    rockColor.setDefault(0.262f, 0.262f, 0.262f);
    amplitude.setNativeDefaultData(1.0);
    snowRoughness.setNativeDefaultData(0.4);
    rockRoughness.setNativeDefaultData(0.707);
    boundary.setNativeDefaultData(1.0);
    for (TattributeFloat* a : {&snowRoughness, &rockRoughness, &boundary}) {
        a->setSoftMin(0);
        a->setSoftMax(1);
    }
    snowAltitude.setNativeDefaultData(0.5);
    snowDropoff.setNativeDefaultData(2.0);
    snowSlope.setNativeDefaultData(0.8);
    snowSlope.setSoftMax(3);
    depthMax.setNativeDefaultData(20.0);
    depthMax.setSoftMin(0);
    depthMax.setSoftMax(40);
}

bool TdnVSMountain::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&snowColor.whole, &rockColor.whole, &amplitude, &snowRoughness, &rockRoughness, &boundary,
                                  &snowAltitude, &snowDropoff, &snowSlope, &depthMax});
    return true;
}

void TdnMountain::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrSnowColor());
    description->markLazyInput(attrRockColor());
}

float TdnMountain::sLevels(float fw, float depthMax) {
    return std::clamp(octaveLogForWidth(fw) / 0.6931f, 0.0f, std::max(depthMax, 0.0f));
}

void TdnMountain::sHeight(float u, float v, float amplitude, float roughness, float levels, float& height, float& gx,
                          float& gy) {
    int n = int(levels);
    double s = 1.0, ou = 0.0, ov = 0.0;
    float a = amplitude;
    height = gx = gy = 0.0f;
    for (int i = 0; i <= n; ++i) {
        float w = i == n ? a * (levels - float(n)) : a;
        if (w == 0.0f) break;
        float d[3];
        Tnoise::DNoise2(double(u) * s + ou, double(v) * s + ov, d);
        gx += d[0] * w;
        gy += d[1] * w;
        height += d[2] * w;
        s *= 2.0;
        ou += 0.1;
        ov += 0.03;
        a *= roughness;
    }
}

TmountainSample TdnMountain::sSample(const TmountainParams& p, float u, float v, float fw) {
    float levels = sLevels(fw, p.depthMax);
    float h, gx, gy;
    sHeight(u, v, p.amplitude, p.rockRoughness, levels, h, gx, gy);
    float altitude = (h + 1.0f) * 0.5f;
    float slope = (gx * gx + gy * gy) * 0.5f;
    float limit = std::max((altitude - p.snowAltitude) * p.snowDropoff, 0.0f) + p.snowSlope;
    // A boundary of 1 is a hard edge; below it the snow thins out over a
    // band of slopes (1 - boundary) wide on either side of the limit.
    float band = 1.0f - std::clamp(p.boundary, 0.0f, 1.0f);
    float snow;
    if (band < 1e-5f)
        snow = slope <= limit ? 1.0f : 0.0f;
    else
        snow = std::clamp(0.5f + (limit - slope) / (2.0f * band), 0.0f, 1.0f);
    float roughness = p.snowRoughness * snow + p.rockRoughness * (1.0f - snow);
    sHeight(u, v, p.amplitude, roughness, levels, h, gx, gy);
    return {snow, std::clamp((h + 1.0f) * 0.5f, 0.0f, 1.0f)};
}

bool TdnMountain::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle fallback = block.inputValue(attrDefaultColor(), first, count);
    TdataHandle size = block.inputValue(attrUvFilterSize(), first, count);
    TdataHandle filter = block.inputValue(attrFilter(), first, count);
    TdataHandle offset = block.inputValue(attrFilterOffset(), first, count);
    TdataHandle h[] = {block.inputValue(attrAmplitude(), first, count),    block.inputValue(attrSnowRoughness(), first, count),
                       block.inputValue(attrRockRoughness(), first, count), block.inputValue(attrBoundary(), first, count),
                       block.inputValue(attrSnowAltitude(), first, count),  block.inputValue(attrSnowDropoff(), first, count),
                       block.inputValue(attrSnowSlope(), first, count),     block.inputValue(attrDepthMax(), first, count)};
    // Inputs: 0 snow, 1 rock.
    Ttx2dBatch<2> batch(first, count, this);
    for (unsigned i = first; i < first + count; ++i) {
        T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            continue;
        }
        TmountainParams params{h[0].asFloat(i), h[1].asFloat(i), h[2].asFloat(i), h[3].asFloat(i),
                               h[4].asFloat(i), h[5].asFloat(i), h[6].asFloat(i), h[7].asFloat(i)};
        float fw = filteredSize(size.asFloat2(i), filter.asFloat(i), offset.asFloat(i));
        TmountainSample s = sSample(params, p.x, p.y, fw);
        batch.setWeight(0, i, s.snow * s.shade);
        batch.setWeight(1, i, (1.0f - s.snow) * s.shade);
        batch.setOwn(i, T3Float(), s.shade);
    }
    const Tattribute* inputs[] = {&attrSnowColor(), &attrRockColor()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha());
    return true;
}
