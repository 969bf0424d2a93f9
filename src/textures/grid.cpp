#include "textures/grid.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnGrid)

TdnVSGrid::TdnVSGrid() {
    lineColor.setDefault(1, 1, 1);
    contrast.setNativeDefaultData(1.0);
    uWidth.setNativeDefaultData(0.1);
    vWidth.setNativeDefaultData(0.1);
    for (TattributeFloat* a : {&contrast, &uWidth, &vWidth}) {
        a->setSoftMin(0);
        a->setSoftMax(1);
    }
}

bool TdnVSGrid::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&fillerColor.whole, &lineColor.whole, &contrast, &uWidth, &vWidth});
    return true;
}

void TdnGrid::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrFillerColor());
    description->markLazyInput(attrLineColor());
}

// The share of [x - f/2, x + f/2] that the fillers [k + h, k + 1 - h],
// k = -1, 0, 1, cover. In double so that a filter of 1e-8 still measures.
static double sFillerShare(double x, double f, double h) {
    double lo = x - f * 0.5, hi = x + f * 0.5, covered = 0.0;
    for (int k = -1; k <= 1; ++k) covered += std::max(0.0, std::min(hi, k + 1.0 - h) - std::max(lo, k + h));
    return covered / f;
}

float TdnGrid::sLineWeight(T2Float uv, T2Float filterSize, float filter, float filterOffset, float contrast, float uWidth,
                           float vWidth) {
    float f = std::max(filter, 0.0f);
    // Held to one cell; floored so that an unfiltered sample measures a point.
    float fu = std::clamp(2.0f * std::fabs(filterSize.x * f + filterOffset), 1e-8f, 1.0f);
    float fv = std::clamp(2.0f * std::fabs(filterSize.y * f + filterOffset), 1e-8f, 1.0f);
    float u = (uv.x < 0.0f || uv.x > 1.0f) ? uv.x - std::floor(uv.x) : uv.x;
    float v = (uv.y < 0.0f || uv.y > 1.0f) ? uv.y - std::floor(uv.y) : uv.y;
    // The separable box: the overlap area over the box area is the product of the shares.
    double a = sFillerShare(u, fu, uWidth * 0.5) * sFillerShare(v, fv, vWidth * 0.5);
    float value = 0.5f - contrast * (float(a) - 0.5f);
    if (value < 0.001f) value = 0.0f;
    return std::min(value, 1.0f);
}

bool TdnGrid::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle size = block.inputValue(attrUvFilterSize(), first, count);
    TdataHandle filter = block.inputValue(attrFilter(), first, count);
    TdataHandle offset = block.inputValue(attrFilterOffset(), first, count);
    TdataHandle contrast = block.inputValue(attrContrast(), first, count);
    TdataHandle uWidth = block.inputValue(attrUWidth(), first, count);
    TdataHandle vWidth = block.inputValue(attrVWidth(), first, count);
    TdataHandle fallback = block.inputValue(attrDefaultColor(), first, count);
    Ttx2dBatch<2> batch(first, count, this);
    for (unsigned i = first; i < first + count; ++i) {
        T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            continue;
        }
        float w = sLineWeight(p, size.asFloat2(i), filter.asFloat(i), offset.asFloat(i), contrast.asFloat(i), uWidth.asFloat(i),
                              vWidth.asFloat(i));
        batch.setWeight(0, i, w);
        batch.setWeight(1, i, 1.0f - w);
        batch.setOwn(i, T3Float(), w);
    }
    const Tattribute* inputs[] = {&attrLineColor(), &attrFillerColor()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha(), false, true);
    return true;
}
