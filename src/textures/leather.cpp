#include "textures/leather.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"
#include "textures/solid_cells.h"

SN_REGISTER_NODE_CLASS(TdnLeather)

TdnVSLeather::TdnVSLeather() {
    cellColor.setDefault(0.373f, 0.373f, 0.373f);
    creaseColor.setDefault(0.235f, 0.235f, 0.235f);
    cellSize.setNativeDefaultData(0.5);
    density.setNativeDefaultData(1.0);
    spottyness.setNativeDefaultData(0.1);
    randomness.setNativeDefaultData(0.5);
    threshold.setNativeDefaultData(0.83);
    creases.setNativeDefaultData(1.0);
}

bool TdnVSLeather::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolid::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&cellColor.whole, &creaseColor.whole, &cellSize, &density, &spottyness, &randomness,
                                  &threshold, &creases});
    return true;
}

void TdnLeather::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrCellColor());
    description->markLazyInput(attrCreaseColor());
}

float TdnLeather::sCreaseWeight(const TleatherParams& l, const T3Float& p) {
    TcellSample c = TsolidCells::sNearest(p, l.cellSize * 4.0f, l.randomness);
    // A pore at each centre, sized by spottyness, its depth varied per cell
    // about density / 2.
    float spot = std::max(l.spottyness, 1e-05f);
    float pore = TsolidCells::sFalloff(c.nearest * c.nearest * 2.0f / spot) * l.density * 0.5f *
                 (TsolidCells::sEntry(c.key, 4) * 2.0f);
    float crease = 0.0f;
    if (l.creases) {
        // Where the two nearest centres are almost equally far the point
        // lies on the wall between two cells; the band narrows as the
        // threshold rises.
        float band = std::max(1.0f - l.threshold, 0.0001f);
        crease = 1.0f - std::clamp((c.second - c.nearest) / band, 0.0f, 1.0f);
    }
    return std::clamp(std::max(pore, crease), 0.0f, 1.0f);
}

bool TdnLeather::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle h[] = {block.inputValue(attrCellSize(), first, count),   block.inputValue(attrDensity(), first, count),
                       block.inputValue(attrSpottyness(), first, count), block.inputValue(attrRandomness(), first, count),
                       block.inputValue(attrThreshold(), first, count),  block.inputValue(attrCreases(), first, count)};
    Ttx3dBatch<2> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        TleatherParams l{h[0].asFloat(i), h[1].asFloat(i), h[2].asFloat(i), h[3].asFloat(i), h[4].asFloat(i), h[5].asBool(i)};
        float crease = sCreaseWeight(l, p);
        batch.setWeight(0, i, 1.0f - crease);
        batch.setWeight(1, i, crease);
        batch.setOwn(i, T3Float(), 0.0f);
    }
    const Tattribute* inputs[] = {&attrCellColor(), &attrCreaseColor()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha(), true);
    return true;
}
