#include "textures/marble.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnMarble)

TdnVSMarble::TdnVSMarble() {
    fillerColor.setDefault(1, 1, 1);
    veinColor.setDefault(0.298f, 0.298f, 0.298f);
    veinWidth.setNativeDefaultData(0.1);
    diffusion.setNativeDefaultData(0.5);
    contrast.setNativeDefaultData(0.5);
    amplitude.setNativeDefaultData(1.5);
    amplitude.setSoftMax(1.5);
    ratio.setNativeDefaultData(0.707);
    ratio.setSoftMin(0);
    ratio.setSoftMax(1);
}

bool TdnVSMarble::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolidView::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&fillerColor.whole, &veinColor.whole, &veinWidth, &diffusion, &contrast, &octave.ripples.whole,
                                  &octave.depth.whole, &amplitude, &ratio});
    return true;
}

void TdnMarble::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrFillerColor());
    description->markLazyInput(attrVeinColor());
}

float TdnMarble::sVeinWeight(const TmarbleParams& m, const T3Float& p, float w) {
    float levels = sLevels(w, m.depth);
    float sum = sFractalSum(p * 0.03125f, levels, m.ratio, m.ripples, T3Float(0.5f, 0.5f, 0.5f), T3Float());
    float f = m.amplitude * sum * (1.0f - m.ratio * m.ratio) + p.y;
    // Distance to the nearest band centre, 0 to 1.
    float t = f - std::floor(f);
    if (t >= 0.5f) t = 1.0f - t;
    t *= 2.0f;
    if (t < m.veinWidth) return 1.0f;
    float d = std::max(m.diffusion, 0.01f);
    return std::exp(-(t - m.veinWidth) / d) * (1.0f - m.contrast);
}

bool TdnMarble::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle h[] = {block.inputValue(attrVeinWidth(), first, count), block.inputValue(attrDiffusion(), first, count),
                       block.inputValue(attrContrast(), first, count),  block.inputValue(attrRipples(), first, count),
                       block.inputValue(attrDepth(), first, count),     block.inputValue(attrAmplitude(), first, count),
                       block.inputValue(attrRatio(), first, count)};
    TdataHandle normal = block.inputValue(attrNormalCamera(), first, count);
    TdataHandle pixelAngle = block.inputValue(attrXPixelAngle(), first, count);
    Ttx3dBatch<2> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        TmarbleParams m{h[0].asFloat(i), h[1].asFloat(i), h[2].asFloat(i),
                        h[3].asFloat3(i), h[4].asFloat2(i), h[5].asFloat(i), h[6].asFloat(i)};
        float w = batch.pixelFootprint(i, normal.asFloat3(i), pixelAngle.asFloat(i));
        float vein = sVeinWeight(m, p, w);
        batch.setWeight(0, i, 1.0f - vein);
        batch.setWeight(1, i, vein);
        batch.setOwn(i, T3Float(), 0.0f);
    }
    const Tattribute* inputs[] = {&attrFillerColor(), &attrVeinColor()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha(), true);
    return true;
}
