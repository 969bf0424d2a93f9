#include "textures/checker.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnChecker)

TdnVSChecker::TdnVSChecker() {
    color1.setDefault(1, 1, 1);
    contrast.setNativeDefaultData(1.0);
    contrast.setSoftMin(0);
    contrast.setSoftMax(1);
}

bool TdnVSChecker::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&color1.whole, &color2.whole, &contrast});
    return true;
}

void TdnChecker::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrColor1());
    description->markLazyInput(attrColor2());
}

// Distance of x to the nearest edge of a half-unit cell.
static float sEdgeDistance(float x) {
    float d = 2.0f * x - std::floor(2.0f * x);
    return d > 0.5f ? 1.0f - d : d;
}

float TdnChecker::sColor1Weight(T2Float uv, T2Float filterSize, float filter, float filterOffset, float contrast) {
    float u = wrapToUnit(uv.x), v = wrapToUnit(uv.y);
    float c = contrast;
    float f = std::max(filter, 0.0f);
    float fu = std::max(2.0f * std::fabs(filterSize.x * f + filterOffset), 1e-8f);
    float fv = std::max(2.0f * std::fabs(filterSize.y * f + filterOffset), 1e-8f);
    if (fu >= 2.0f || fv >= 2.0f) {
        c = 0.0f;
    } else {
        float du = sEdgeDistance(u), dv = sEdgeDistance(v);
        if (du < fu || dv < fv) c = du * fv <= dv * fu ? c * du / fu : c * dv / fv;
        float m = std::max(fu, fv);
        if (m > 1.0f) c *= 2.0f - m;
    }
    c = std::max(c, 0.0f);
    bool sameSide = (u <= 0.5f) == (v <= 0.5f);
    float near = (c + 1.0f) * 0.5f;
    return sameSide ? near : 1.0f - near;
}

bool TdnChecker::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle size = block.inputValue(attrUvFilterSize(), first, count);
    TdataHandle filter = block.inputValue(attrFilter(), first, count);
    TdataHandle offset = block.inputValue(attrFilterOffset(), first, count);
    TdataHandle contrast = block.inputValue(attrContrast(), first, count);
    TdataHandle fallback = block.inputValue(attrDefaultColor(), first, count);
    Ttx2dBatch<2> batch(first, count, this);
    for (unsigned i = first; i < first + count; ++i) {
        T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            continue;
        }
        float w1 = sColor1Weight(p, size.asFloat2(i), filter.asFloat(i), offset.asFloat(i), contrast.asFloat(i));
        batch.setWeight(0, i, w1);
        batch.setWeight(1, i, 1.0f - w1);
        batch.setOwn(i, T3Float(), w1);
    }
    const Tattribute* inputs[] = {&attrColor1(), &attrColor2()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha());
    return true;
}
