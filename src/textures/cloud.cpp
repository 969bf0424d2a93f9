#include "textures/cloud.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnCloud)

TdnVSCloud::TdnVSCloud() {
    const TfltMatrix identity;
    eyeToTextureMatrix.setDefaultBytes(&identity, sizeof identity);
    color2.setDefault(1, 1, 1);
    contrast.setNativeDefaultData(0.5);
    softEdges.setNativeDefaultData(1.0);
    transpRange.setNativeDefaultData(0.5);
    transpRange.setSoftMin(0);
    transpRange.setSoftMax(1);
    edgeThresh.setNativeDefaultData(1.0);
    edgeThresh.setSoftMin(0);
    edgeThresh.setSoftMax(2);
    amplitude.setNativeDefaultData(1.0);
    amplitude.setSoftMin(0);
    amplitude.setSoftMax(5);
    ratio.setNativeDefaultData(0.707);
}

bool TdnVSCloud::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolidView::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&eyeToTextureMatrix, &color1.whole, &color2.whole, &contrast, &softEdges, &transpRange,
                                  &centerThresh, &edgeThresh, &octave.ripples.whole, &octave.depth.whole, &amplitude, &ratio});
    return true;
}

void TdnCloud::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrColor1());
    description->markLazyInput(attrColor2());
}

float TdnCloud::sOpacity(float x, float threshold, float transpRange) {
    float y = (threshold - x) / std::max(transpRange, 0.0001f);
    float transparency;
    if (y > 1.0f)
        transparency = 1.0f;
    else if (y < -10.0f)
        transparency = 0.0f;
    else
        transparency = std::clamp(std::exp(y) * 0.367879f, 0.0f, 1.0f);  // e^(y - 1): 1 where y reaches 1
    return 1.0f - transparency;
}

TcloudSample TdnCloud::sSample(const TcloudParams& c, const T3Float& p, float w, const T3Float& view, const T3Float& normal) {
    float levels = sLevels(w, c.depth);
    // Each octave also slides along a fixed direction, so that the octaves
    // do not stack their lattice points.
    float sum = c.amplitude * sFractalSum(p * 0.03125f, levels, c.ratio, c.ripples, T3Float(), T3Float(0.1f, 0.03f, 0.13f));
    float x = std::clamp((sum + 1.0f) * 0.5f, 0.0f, 1.0f);
    float edge = 0.0f;
    if (c.softEdges) {
        float d = dot(view, normal), l = dot(view, view) * dot(normal, normal);
        edge = l > 0.0f ? std::clamp(1.0f - d * d / l, 0.0f, 1.0f) : 0.0f;
    }
    float threshold = c.centerThresh + edge * (c.edgeThresh - c.centerThresh);
    return {(1.0f - x) * c.contrast, sOpacity(x, threshold, c.transpRange)};
}

bool TdnCloud::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle h[] = {block.inputValue(attrContrast(), first, count),     block.inputValue(attrSoftEdges(), first, count),
                       block.inputValue(attrTranspRange(), first, count),  block.inputValue(attrCenterThresh(), first, count),
                       block.inputValue(attrEdgeThresh(), first, count),   block.inputValue(attrRipples(), first, count),
                       block.inputValue(attrDepth(), first, count),        block.inputValue(attrAmplitude(), first, count),
                       block.inputValue(attrRatio(), first, count)};
    TdataHandle normal = block.inputValue(attrNormalCamera(), first, count);
    TdataHandle pixelAngle = block.inputValue(attrXPixelAngle(), first, count);
    Ttx3dBatch<2> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        TcloudParams c{h[0].asFloat(i),  h[1].asBool(i),  h[2].asFloat(i), h[3].asFloat(i), h[4].asFloat(i),
                       h[5].asFloat3(i), h[6].asFloat2(i), h[7].asFloat(i), h[8].asFloat(i)};
        const T3Float& n = normal.asFloat3(i);
        // Less depth in the footprint: a cloud keeps its wisps further off.
        TcloudSample s = sSample(c, p, batch.pixelFootprint(i, n, pixelAngle.asFloat(i), 0.5f), batch.pointCamera(i), n);
        batch.setWeight(0, i, s.color1Weight);
        batch.setWeight(1, i, 1.0f - s.color1Weight);
        batch.setOwn(i, T3Float(), s.opacity);
    }
    const Tattribute* inputs[] = {&attrColor1(), &attrColor2()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha());
    return true;
}
