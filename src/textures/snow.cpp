#include "textures/snow.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnSnow)

TdnVSSnow::TdnVSSnow() {
    const TfltMatrix identity;
    eyeToTextureMatrix.setDefaultBytes(&identity, sizeof identity);
    snowColor.setDefault(1, 1, 1);
    surfaceColor.setDefault(0.5f, 0.5f, 0.5f);
    threshold.setNativeDefaultData(0.5);
    threshold.setSoftMin(0);
    threshold.setSoftMax(1);
    depthDecay.setNativeDefaultData(5.0);
    depthDecay.setSoftMax(10);
    thickness.setNativeDefaultData(1.0);
    thickness.setSoftMin(0);
    thickness.setSoftMax(1);
}

bool TdnVSSnow::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolidView::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&eyeToTextureMatrix, &snowColor.whole, &surfaceColor.whole, &threshold, &depthDecay, &thickness});
    return true;
}

void TdnSnow::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrSnowColor());
    description->markLazyInput(attrSurfaceColor());
}

float TdnSnow::sFastInverseSqrt(float x) {
    float y = std::bit_cast<float>(0x5f3759dfu - (std::bit_cast<uint32_t>(x) >> 1));
    return y * (1.5f - 0.5f * x * y * y);
}

float TdnSnow::sAmount(const TfltMatrix& eyeToTexture, const T3Float& n, float threshold, float depthDecay, float thickness) {
    T3Float t = eyeToTexture.transformVector(n);
    float l2 = dot(t, t);
    if (!(l2 > 0.0f)) return 0.0f;
    float s = t.y * sFastInverseSqrt(l2) - threshold;
    return s > 0.0f ? thickness * (1.0f - std::exp(-s * depthDecay)) : 0.0f;
}

bool TdnSnow::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle matrix = block.inputValue(attrEyeToTextureMatrix(), first, count),
                normal = block.inputValue(attrNormalCamera(), first, count),
                threshold = block.inputValue(attrThreshold(), first, count),
                decay = block.inputValue(attrDepthDecay(), first, count),
                thickness = block.inputValue(attrThickness(), first, count);
    Ttx3dBatch<2> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        float v = sAmount(matrix.as<TfltMatrix>(i), normal.asFloat3(i), threshold.asFloat(i), decay.asFloat(i),
                          thickness.asFloat(i));
        batch.setWeight(0, i, v);
        batch.setWeight(1, i, 1.0f - v);
        batch.setOwn(i, T3Float(), v);
    }
    const Tattribute* inputs[] = {&attrSnowColor(), &attrSurfaceColor()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha());
    return true;
}
