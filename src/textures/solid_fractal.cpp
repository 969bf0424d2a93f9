#include "textures/solid_fractal.h"

#include <algorithm>
#include <cmath>

#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnSolidFractal)

TdnVSSolidFractal::TdnVSSolidFractal() {
    amplitude.setNativeDefaultData(1.0);
    ratio.setNativeDefaultData(0.707);
    frequencyRatio.setNativeDefaultData(2.0);
    frequencyRatio.setSoftMin(1);
    frequencyRatio.setSoftMax(10);
    bias.setSoftMin(-1);
    bias.setSoftMax(1);
    timeRatio.setNativeDefaultData(2.0);
    time.setSoftMin(0);
    time.setSoftMax(1);
}

bool TdnVSSolidFractal::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolid::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&amplitude, &ratio, &threshold, &octave.ripples.whole, &octave.depth.whole, &frequencyRatio,
                                  &bias, &inflection, &animated, &timeRatio, &time});
    return true;
}

void TdnSolidFractal::sDepthToLevels(T2Float depth, TfractalParams& f) {
    bool limited = depth.y > depth.x;
    f.levelMin = limited ? std::max(depth.x, 0.0f) : 0.0f;
    f.levelMax = limited ? std::min(depth.y, kMaxLevels) : kMaxLevels;
}

float TdnSolidFractal::sValue(const TsolidFractalParams& s, const T3Float& p, float w) {
    const TfractalParams& f = s.fractal;
    // The lattice reads p / 32: the flat fractal's level count for a width
    // in those units.
    float levels = std::min(TdnFractal::sLevels(f, w * 0.03125f), kMaxLevels);
    int n = int(std::floor(levels));
    T3Float q(p.x * 0.03125f * s.ripples.x, p.y * 0.03125f * s.ripples.y, p.z * 0.03125f * s.ripples.z);
    float time = f.time, amplitude = f.amplitude, sum = 0.0f;
    for (int i = 0; i <= n; ++i) {
        float weight = i == n ? amplitude * (levels - float(n)) : amplitude;
        // A ratio large enough to overflow the amplitude ends the sum there,
        // where infinite octaves of either sign added up to NaN.
        if (weight == 0.0f || !std::isfinite(weight)) break;
        float v = f.animated ? Tnoise::noise4(q.x, q.y, q.z, time, kTimePeriod) : Tnoise::noise3(q.x, q.y, q.z);
        v = TdnFractal::sBias(v, f.bias);
        if (f.inflection) v = v <= 0.0f ? -2.0f * v - 1.0f : 2.0f * v - 1.0f;
        sum += v * weight;
        // Each octave shifts off the last one's lattice points.
        q = q * f.frequencyRatio + T3Float(0.1f, 0.03f, 0.13f);
        time *= f.timeRatio;
        amplitude *= f.ratio;
    }
    return std::min(f.threshold + (sum + 1.0f) * 0.5f, 1.0f);
}

bool TdnSolidFractal::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle h[] = {block.inputValue(attrAmplitude(), first, count),      block.inputValue(attrRatio(), first, count),
                       block.inputValue(attrThreshold(), first, count),      block.inputValue(attrRipples(), first, count),
                       block.inputValue(attrDepth(), first, count),          block.inputValue(attrFrequencyRatio(), first, count),
                       block.inputValue(attrBias(), first, count),           block.inputValue(attrInflection(), first, count),
                       block.inputValue(attrAnimated(), first, count),       block.inputValue(attrTimeRatio(), first, count),
                       block.inputValue(attrTime(), first, count)};
    computeSolidValue(*this, block, first, count, [&](unsigned i, const T3Float& p, const Ttx3dBatch<0>& batch) {
        TsolidFractalParams s;
        TfractalParams& f = s.fractal;
        f.amplitude = h[0].asFloat(i);
        f.ratio = h[1].asFloat(i);
        f.threshold = h[2].asFloat(i);
        s.ripples = h[3].asFloat3(i);
        sDepthToLevels(h[4].asFloat2(i), f);
        f.frequencyRatio = h[5].asFloat(i);
        f.bias = h[6].asFloat(i);
        f.inflection = h[7].asBool(i);
        f.animated = h[8].asBool(i);
        f.timeRatio = h[9].asFloat(i);
        f.time = h[10].asFloat(i);
        return sValue(s, p, batch.filterFootprint(i));
    });
    return true;
}
