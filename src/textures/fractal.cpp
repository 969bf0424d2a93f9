#include "textures/fractal.h"

#include <algorithm>
#include <cmath>

#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnFractal)

bool TdnFractal::oldFractal = false;

TdnVSFractal::TdnVSFractal() {
    amplitude.setNativeDefaultData(1.0);
    amplitude.setSoftMin(0);
    amplitude.setSoftMax(1);
    ratio.setNativeDefaultData(0.707);
    ratio.setSoftMin(0);
    ratio.setSoftMax(1);
    threshold.setSoftMin(0);
    threshold.setSoftMax(1);
    levelMin.setSoftMin(0);
    levelMin.setSoftMax(25);
    levelMax.setNativeDefaultData(9.0);
    levelMax.setSoftMin(0);
    levelMax.setSoftMax(25);
    for (TattributeFloat* a : {&frequencyRatio, &timeRatio}) {
        a->setNativeDefaultData(2.0);
        a->setSoftMin(1);
        a->setSoftMax(10);
    }
    bias.setSoftMin(-1);
    bias.setSoftMax(1);
    time.setSoftMin(0);
    time.setSoftMax(100);
}

bool TdnVSFractal::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&amplitude, &ratio, &threshold, &levelMin, &levelMax, &frequencyRatio, &bias, &inflection,
                                  &animated, &timeRatio, &time});
    return true;
}

float TdnFractal::sLevels(const TfractalParams& p, float fw) {
    float logWidth = octaveLogForWidth(fw);
    float levels;
    if (p.frequencyRatio == 2.0f)
        levels = logWidth / 0.6931f;
    else if (p.frequencyRatio <= 1.01f)
        levels = logWidth / std::log(1.01f);
    else
        levels = logWidth / std::log(p.frequencyRatio);
    return std::clamp(levels, p.levelMin, std::max(p.levelMin, p.levelMax));
}

float TdnFractal::sBias(float v, float bias) {
    if (bias == 0.0f) return v;
    float s = v < 0.0f ? -1.0f : 1.0f;
    if (bias >= 1.0f) return s;
    if (bias <= -1.0f) return 0.0f;
    float t = (bias + 1.0f) / (1.0f - std::fabs(v) * 2.0f * bias / (bias - 1.0f));
    return s * ((bias + 1.0f) * (bias + 1.0f) - t * t) / (4.0f * bias);
}

float TdnFractal::sValue(const TfractalParams& p, float u, float v, float fw) {
    float levels = sLevels(p, fw);
    int n = int(std::floor(levels));
    float a = u, b = v, time = p.time, amplitude = p.amplitude, sum = 0.0f;
    for (int i = 0; i <= n; ++i) {
        float weight = i == n ? amplitude * (levels - float(n)) : amplitude;
        if (weight == 0.0f) break;
        float x = p.animated ? Tnoise::noise3(a, b, time) : Tnoise::noise2(a, b);
        x = sBias(x, p.bias);
        if (p.inflection) x = x <= 0.0f ? -2.0f * x - 1.0f : 2.0f * x - 1.0f;
        sum += x * weight;
        if (oldFractal) {
            a *= p.frequencyRatio;
            b *= p.frequencyRatio;
        } else {
            // The coordinates change places and shift, so that the octaves
            // do not line up on the lattice.
            float na = b * p.frequencyRatio - 0.1f, nb = a * p.frequencyRatio + 0.043f;
            if (i == 2) nb = 1.0f - nb;
            if (i == 4) na = 1.0f - na;
            a = na;
            b = nb;
        }
        time *= p.timeRatio;
        amplitude *= p.ratio;
    }
    return std::min(p.threshold + (sum + 1.0f) * 0.5f, 1.0f);
}

bool TdnFractal::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    TdataHandle size = block.inputValue(attrUvFilterSize(), first, count);
    TdataHandle filter = block.inputValue(attrFilter(), first, count);
    TdataHandle offset = block.inputValue(attrFilterOffset(), first, count);
    TdataHandle h[] = {block.inputValue(attrAmplitude(), first, count),  block.inputValue(attrRatio(), first, count),
                       block.inputValue(attrThreshold(), first, count),  block.inputValue(attrLevelMin(), first, count),
                       block.inputValue(attrLevelMax(), first, count),   block.inputValue(attrFrequencyRatio(), first, count),
                       block.inputValue(attrBias(), first, count),       block.inputValue(attrInflection(), first, count),
                       block.inputValue(attrAnimated(), first, count),   block.inputValue(attrTimeRatio(), first, count),
                       block.inputValue(attrTime(), first, count)};
    computeValueTexture(*this, block, first, count, [&](unsigned i, T2Float uv) {
        TfractalParams p{h[0].asFloat(i), h[1].asFloat(i),  h[2].asFloat(i), h[3].asFloat(i), h[4].asFloat(i), h[5].asFloat(i),
                         h[6].asFloat(i), h[7].asBool(i),   h[8].asBool(i),  h[9].asFloat(i), h[10].asFloat(i)};
        float fw = filteredSize(size.asFloat2(i), filter.asFloat(i), offset.asFloat(i));
        return sValue(p, uv.x, uv.y, fw);
    });
    return true;
}
