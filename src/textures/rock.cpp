#include "textures/rock.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"
#include "textures/bulge.h"

SN_REGISTER_NODE_CLASS(TdnRock)

TdnVSRock::TdnVSRock() {
    color1.setDefault(0.235f, 0.235f, 0.235f);
    color2.setDefault(1, 1, 1);
    grainSize.setNativeDefaultData(0.01);
    grainSize.setSoftMax(0.1);
    diffusion.setNativeDefaultData(1.0);
    mixRatio.setNativeDefaultData(0.5);
}

bool TdnVSRock::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolid::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&color1.whole, &color2.whole, &grainSize, &diffusion, &mixRatio});
    return true;
}

void TdnRock::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrColor1());
    description->markLazyInput(attrColor2());
}

float TdnRock::sGrain(const T3Float& p, float grainSize) {
    double size = std::max(double(grainSize), 1e-06);
    float a = 1.0f, b = 1.0f;
    for (int axis = 0; axis < 3; ++axis) {
        // The phases run to tens of millions: in double, so that their
        // fractions still carry the grain.
        double x = std::fabs(double(p[axis]) + 100.0) / size;
        double pa = x * 2371.5 + 0.25, pb = x * 3482.2 + 0.8;
        a *= TdnBulge::sWave(float(pa - std::floor(pa)));
        b *= TdnBulge::sWave(float(pb - std::floor(pb)));
    }
    return (a + b) * 0.25f + 0.5f;
}

float TdnRock::sColor1Weight(float grain, float diffusion, float mixRatio) {
    float d = std::max(diffusion, 0.001f);
    return std::clamp((grain - (1.0f - mixRatio)) / d + 0.5f, 0.0f, 1.0f);
}

bool TdnRock::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle size = block.inputValue(attrGrainSize(), first, count),
                diffusion = block.inputValue(attrDiffusion(), first, count),
                mix = block.inputValue(attrMixRatio(), first, count);
    Ttx3dBatch<2> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        float w = sColor1Weight(sGrain(p, size.asFloat(i)), diffusion.asFloat(i), mix.asFloat(i));
        batch.setWeight(0, i, w);
        batch.setWeight(1, i, 1.0f - w);
        batch.setOwn(i, T3Float(), 0.0f);
    }
    const Tattribute* inputs[] = {&attrColor1(), &attrColor2()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha(), true);
    return true;
}
