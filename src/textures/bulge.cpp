#include "textures/bulge.h"

#include <cmath>

SN_REGISTER_NODE_CLASS(TdnBulge)

TdnVSBulge::TdnVSBulge() {
    for (TattributeFloat* a : {&uWidth, &vWidth}) {
        a->setNativeDefaultData(0.1);
        a->setSoftMin(0);
        a->setSoftMax(1);
    }
}

bool TdnVSBulge::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&uWidth, &vWidth});
    return true;
}

float TdnBulge::sWave(float x) {
    if (x < 0.0f) x += 1.0f;
    x -= std::floor(x);
    if (x >= 0.5f) {
        float d = std::fabs(x - 0.75f);
        return 16.0f * d * d - 1.0f;
    }
    float d = std::fabs(x - 0.25f);
    return 1.0f - 16.0f * d * d;
}

float TdnBulge::sValue(float u, float v, float uWidth, float vWidth) {
    float u2 = 2.0f * wrapToUnit(u), v2 = 2.0f * wrapToUnit(v);
    if (!(uWidth < u2 && u2 < 2.0f - uWidth && vWidth < v2 && v2 < 2.0f - vWidth)) return 0.0f;
    // Inside the square both widths are below 1, so the divisions are safe.
    float wu = sWave((u2 - uWidth) / (1.0f - uWidth) * 0.25f);
    float wv = sWave((v2 - vWidth) / (1.0f - vWidth) * 0.25f);
    return wu * wv;
}

bool TdnBulge::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    TdataHandle uWidth = block.inputValue(attrUWidth(), first, count);
    TdataHandle vWidth = block.inputValue(attrVWidth(), first, count);
    computeValueTexture(*this, block, first, count,
                        [&](unsigned i, T2Float p) { return sValue(p.x, p.y, uWidth.asFloat(i), vWidth.asFloat(i)); });
    return true;
}
