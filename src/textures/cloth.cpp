#include "textures/cloth.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "shading/network_analysis.h"
#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnCloth)

TdnVSCloth::TdnVSCloth() {
    uColor.setDefault(1, 1, 1);
    vColor.setDefault(0.5f, 0.5f, 0.5f);
    uWidth.setNativeDefaultData(0.75);
    vWidth.setNativeDefaultData(0.75);
    for (TattributeFloat* a : {&uWidth, &vWidth, &randomness, &widthSpread, &brightSpread}) {
        a->setSoftMin(0);
        a->setSoftMax(1);
    }
    for (TattributeFloat* a : {&uWave, &vWave}) {
        a->setSoftMin(0);
        a->setSoftMax(0.5);
    }
}

bool TdnVSCloth::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&gapColor.whole, &uColor.whole, &vColor.whole, &uWidth, &vWidth, &uWave, &vWave, &randomness,
                                  &widthSpread, &brightSpread});
    return true;
}

void TdnCloth::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrGapColor());
    description->markLazyInput(attrUColor());
    description->markLazyInput(attrVColor());
}

namespace {
constexpr float kTwoPi = 6.2831855f;

// A thread's index, folded into the noise table's range.
int threadIndex(float x) {
    long long k = std::llabs((long long)x);
    if (k > 65534) k %= 65535;
    return int(k);
}

// One value per thread: noise1 repeats every unit, so each thread index
// takes its own lattice cell.
float threadNoise(int k) { return Tnoise::noise1(float(k) / float(Tnoise::kCellsPerUnit)); }
}  // namespace

TclothSample TdnCloth::sWeave(const TclothParams& p, float u, float v) {
    if (p.randomness >= 1e-5f) {
        float nv = Tnoise::noise2(u / 23.0f, v / 23.0f) * p.randomness + v;
        float nu = Tnoise::noise2(u / 22.0f, v / 24.0f) * p.randomness + u;
        u = nu;
        v = nv;
    }
    float wu = u, wv = v;
    if (p.uWave != 0.0f) wv = std::sin(u * kTwoPi) * p.uWave + v;
    if (p.vWave != 0.0f) wu = u - std::sin(v * kTwoPi) * p.vWave;
    float a = wu - std::floor(wu), b = wv - std::floor(wv);
    float uWidth = p.uWidth, vWidth = p.vWidth;
    if (p.widthSpread != 0.0f) {
        uWidth += (threadNoise(threadIndex(2.0f * wu)) - 0.5f) * p.widthSpread;
        vWidth += (threadNoise(threadIndex(2.0f * wv + 100.0f)) - 0.5f) * p.widthSpread;
    }
    // The u thread lies on top where a and b share a half; elsewhere the v
    // thread does, with the roles of the two directions swapped.
    bool uThread = (a < 0.5f) == (b < 0.5f);
    float w1 = uWidth, w2 = vWidth;
    if (!uThread) {
        std::swap(w1, w2);
        std::swap(a, b);
    }
    float q = 2.0f * b - std::floor(2.0f * b);
    float pp = 2.0f * a - std::floor(2.0f * a);
    float d;
    if (q > w2) {
        d = 1.0f;
        if (pp <= w1) {
            float x = (pp - w1 / 2) / (w1 / 2), y = (q - 1.0f) - w2 / 2;
            d = (x * x + y * y) * 0.75f;
        }
    } else {
        float y = (q - w2 / 2) / (w2 / 2), x = pp - w1 / 2;
        d = (y * y + x * x) * 0.75f;
    }
    if (d >= 1.0f) return {uThread, 0.0f};
    float t = 1.0f - d;
    if (p.brightSpread != 0.0f) {
        int k = uThread ? threadIndex(std::fabs(float(int(2.0f * wv) + 1000))) : threadIndex(2.0f * wu);
        t *= (1.0f - p.brightSpread / 2) + threadNoise(k) * p.brightSpread;
    }
    return {uThread, std::min(t, 1.0f)};
}

bool TdnCloth::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle fallback = block.inputValue(attrDefaultColor(), first, count);
    TdataHandle uWidth = block.inputValue(attrUWidth(), first, count);
    TdataHandle vWidth = block.inputValue(attrVWidth(), first, count);
    TdataHandle uWave = block.inputValue(attrUWave(), first, count);
    TdataHandle vWave = block.inputValue(attrVWave(), first, count);
    TdataHandle randomness = block.inputValue(attrRandomness(), first, count);
    TdataHandle widthSpread = block.inputValue(attrWidthSpread(), first, count);
    TdataHandle brightSpread = block.inputValue(attrBrightSpread(), first, count);
    // Inputs: 0 gap, 1 u thread, 2 v thread.
    Ttx2dBatch<3> batch(first, count, this);
    for (unsigned i = first; i < first + count; ++i) {
        T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            continue;
        }
        TclothParams params{uWidth.asFloat(i),     vWidth.asFloat(i),      uWave.asFloat(i),       vWave.asFloat(i),
                            randomness.asFloat(i), widthSpread.asFloat(i), brightSpread.asFloat(i)};
        TclothSample s = sWeave(params, p.x, p.y);
        batch.setWeight(s.uThread ? 1 : 2, i, s.shade);
        batch.setWeight(0, i, 1.0f - s.shade);
        batch.setOwn(i, T3Float(), s.shade);
    }
    const Tattribute* inputs[] = {&attrGapColor(), &attrUColor(), &attrVColor()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha());
    return true;
}
