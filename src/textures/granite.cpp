#include "textures/granite.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"
#include "textures/solid_cells.h"

SN_REGISTER_NODE_CLASS(TdnGranite)

namespace {
// Half the width of the edge that creases give a grain, in weight.
constexpr float kCreaseEdge = 0.05f;
}  // namespace

TdnVSGranite::TdnVSGranite() {
    color2.setDefault(0.549f, 0.549f, 0.549f);
    color3.setDefault(0.627f, 0.627f, 0.627f);
    fillerColor.setDefault(0.588f, 0.588f, 0.588f);
    cellSize.setNativeDefaultData(0.15);
    density.setNativeDefaultData(1.0);
    mixRatio.setNativeDefaultData(0.5);
    mixRatio.setSoftMin(0);
    mixRatio.setSoftMax(1);
    spottyness.setNativeDefaultData(0.3);
    randomness.setNativeDefaultData(1.0);
    threshold.setNativeDefaultData(0.5);
    creases.setNativeDefaultData(1.0);
}

bool TdnVSGranite::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolid::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&color1.whole, &color2.whole, &color3.whole, &fillerColor.whole, &cellSize, &density, &mixRatio,
                                  &spottyness, &randomness, &threshold, &creases});
    return true;
}

void TdnGranite::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    for (const Tattribute* a : {&attrColor1(), &attrColor2(), &attrColor3(), &attrFillerColor()}) description->markLazyInput(*a);
}

int TdnGranite::sColourOfTone(float tone, float mixRatio) {
    if (tone < mixRatio * 0.5f) return 0;
    return tone < mixRatio ? 1 : 2;
}

TgraniteGrain TdnGranite::sGrain(const TgraniteParams& g, const T3Float& p) {
    TcellSample c = TsolidCells::sNearest(p, g.cellSize * 4.0f, g.randomness);
    float spot = std::max(g.spottyness, 1e-05f);
    // Each grain's size varies with its cell's size entry.
    float size = 0.5f + TsolidCells::sEntry(c.key, 3);
    float w = std::min(TsolidCells::sFalloff(c.nearest * c.nearest * 2.0f / (spot * size)) * g.density, 1.0f);
    // Creases give the grains a crisp edge at the threshold instead of the
    // soft fall-off.
    if (g.creases) w = std::clamp((w - g.threshold) / (2.0f * kCreaseEdge) + 0.5f, 0.0f, 1.0f);
    return {sColourOfTone(TsolidCells::sEntry(c.key, 4), g.mixRatio), w};
}

bool TdnGranite::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle h[] = {block.inputValue(attrCellSize(), first, count),   block.inputValue(attrDensity(), first, count),
                       block.inputValue(attrMixRatio(), first, count),   block.inputValue(attrSpottyness(), first, count),
                       block.inputValue(attrRandomness(), first, count), block.inputValue(attrThreshold(), first, count),
                       block.inputValue(attrCreases(), first, count)};
    Ttx3dBatch<4> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        TgraniteParams g{h[0].asFloat(i), h[1].asFloat(i), h[2].asFloat(i), h[3].asFloat(i),
                         h[4].asFloat(i), h[5].asFloat(i), h[6].asBool(i)};
        TgraniteGrain grain = sGrain(g, p);
        for (unsigned k = 0; k < 3; ++k) batch.setWeight(k, i, int(k) == grain.colour ? grain.weight : 0.0f);
        batch.setWeight(3, i, 1.0f - grain.weight);
        batch.setOwn(i, T3Float(), 0.0f);
    }
    const Tattribute* inputs[] = {&attrColor1(), &attrColor2(), &attrColor3(), &attrFillerColor()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha(), true);
    return true;
}
