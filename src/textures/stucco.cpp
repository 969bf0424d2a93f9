#include "textures/stucco.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnStucco)

TdnVSStucco::TdnVSStucco() {
    shaker.setNativeDefaultData(20.0);
    channel1.setDefault(1, 1, 1);
    normalMelt.setNativeDefaultData(0.1);
    normalMelt.setSoftMin(0);
    normalMelt.setSoftMax(1);
    normalDepth.setNativeDefaultData(1.0);
    normalDepth.setSoftMin(-5);
    normalDepth.setSoftMax(5);
    outNormal.setFlag(kAttrWritable, false);
}

bool TdnVSStucco::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolid::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&shaker, &channel1.whole, &channel2.whole});
    TdnVSTx3D& base = TdnTx3D::sVsData();
    affects(m,
            {&shaker, &normalMelt, &normalDepth, &refPointObj.whole, &refPointCamera.whole, &base.placementMatrix,
             &base.matrixEyeToWorld, &base.local, &base.wrap},
            {&outNormal.whole});
    return true;
}

void TdnStucco::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrChannel1());
    description->markLazyInput(attrChannel2());
}

float TdnStucco::sNoise(const T3Float& p, float shaker) {
    return sFractalSum(p * (shaker * 0.03125f), kOctaves, 0.5f, T3Float(1, 1, 1), T3Float(), T3Float(0.1f, 0.03f, 0.13f));
}

float TdnStucco::sHeight(const T3Float& p, float shaker, float melt) {
    float m = std::max(melt, 0.001f) * 0.5f;
    float t = std::clamp((sNoise(p, shaker) + m) / (2.0f * m), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

bool TdnStucco::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    TdataHandle shaker = block.inputValue(attrShaker(), first, count);
    if (plug.attribute() && plug.attribute()->rootParent() == &attrOutNormal()) {
        TdataHandle melt = block.inputValue(attrNormalMelt(), first, count),
                    depth = block.inputValue(attrNormalDepth(), first, count);
        TdataHandle out = block.outputValue(attrOutNormal(), first, count);
        Ttx3dBatch<0> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
        for (unsigned i = first; i < first + count; ++i) {
            T3Float p;
            if (!batch.begin(i, p)) {
                out.asFloat3(i) = T3Float();
                continue;
            }
            float s = shaker.asFloat(i), m = melt.asFloat(i);
            // The lattice cell is 1 / shaker and the finest of the four
            // octaves 1 / (8 shaker). The noise is only once differentiable
            // at the cell walls: a step of 1/32 of the finest cell keeps
            // the difference close to the slope there.
            float h = 1.0f / (256.0f * std::max(std::fabs(s), 1e-3f));
            T3Float g = sGradient([&](const T3Float& x) { return sHeight(x, s, m); }, p, h, batch.toPlacement(i));
            out.asFloat3(i) = g * (-depth.asFloat(i) * kBumpScale / std::max(std::fabs(s), 1e-3f));
        }
        block.setClean(attrOutNormal());
        return true;
    }
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    Ttx3dBatch<2> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        float w = sChannel2Weight(sNoise(p, shaker.asFloat(i)));
        batch.setWeight(0, i, 1.0f - w);
        batch.setWeight(1, i, w);
        batch.setOwn(i, T3Float(), 0.0f);
    }
    const Tattribute* inputs[] = {&attrChannel1(), &attrChannel2()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha(), true);
    return true;
}
