#include "textures/crater.h"

#include <algorithm>
#include <cmath>

#include "shading/network_analysis.h"
#include "textures/solid_cells.h"

SN_REGISTER_NODE_CLASS(TdnCrater)

TdnVSCrater::TdnVSCrater() {
    shaker.setNativeDefaultData(1.5);
    shaker.setSoftMax(20);
    channel1.setDefault(1, 1, 1);
    frequency.setNativeDefaultData(2.0);
    frequency.setSoftMax(10);
    normDepth.setNativeDefaultData(5.0);
    normDepth.setSoftMin(0);
    normDepth.setSoftMax(10);
    normBalance.setNativeDefaultData(1.0);
    normFrequency.setNativeDefaultData(1.0);
    normFrequency.setSoftMax(10);
    outNormal.setFlag(kAttrWritable, false);
}

bool TdnVSCrater::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolidView::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&shaker, &channel1.whole, &channel2.whole, &channel3.whole, &melt, &balance, &frequency});
    TdnVSTx3D& base = TdnTx3D::sVsData();
    affects(m,
            {&shaker, &normDepth, &normMelt, &normBalance, &normFrequency, &normalCamera.whole, &refPointObj.whole,
             &refPointCamera.whole, &base.placementMatrix, &base.matrixEyeToWorld, &base.local, &base.wrap},
            {&outNormal.whole});
    return true;
}

void TdnCrater::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrChannel1());
    description->markLazyInput(attrChannel2());
    description->markLazyInput(attrChannel3());
}

TcraterShape TdnCrater::sShape(const T3Float& p, float shaker, float frequency, float balance, float melt) {
    T3Float q = p * frequency;
    q = q + recurrence3(q * 0.25f, 2.0f, 0.5f) * (shaker * 0.05f);
    // Cells of one unit, repeating every 20: far beyond any view.
    TcellSample c = TsolidCells::sNearest(q, float(TsolidCells::kCells), 1.0f);
    float r = sRadius(balance);
    float soft = 0.02f + std::max(melt, 0.0f) * 0.3f;
    float edge = std::clamp((c.nearest - (0.75f * r - soft)) / (2.0f * soft), 0.0f, 1.0f);
    float floor = 1.0f - edge * edge * (3.0f - 2.0f * edge);
    float ring = (c.nearest - r) / (0.2f * r + soft);
    float rim = std::exp(-ring * ring) * (1.0f - floor);
    return {floor, rim};
}

bool TdnCrater::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    TdataHandle shaker = block.inputValue(attrShaker(), first, count);
    if (plug.attribute() && plug.attribute()->rootParent() == &attrOutNormal()) {
        TdataHandle h[] = {block.inputValue(attrNormDepth(), first, count), block.inputValue(attrNormMelt(), first, count),
                           block.inputValue(attrNormBalance(), first, count),
                           block.inputValue(attrNormFrequency(), first, count)};
        TdataHandle normal = block.inputValue(attrNormalCamera(), first, count);
        TdataHandle out = block.outputValue(attrOutNormal(), first, count);
        Ttx3dBatch<0> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
        for (unsigned i = first; i < first + count; ++i) {
            T3Float p;
            const T3Float& n = normal.asFloat3(i);
            if (!batch.begin(i, p)) {
                out.asFloat3(i) = n;
                continue;
            }
            float s = shaker.asFloat(i), m = h[1].asFloat(i), b = h[2].asFloat(i), f = h[3].asFloat(i);
            // A tenth of a crater's radius, in the units of p.
            float step = 0.1f * sRadius(b) / std::max(std::fabs(f), 1e-3f);
            T3Float g = sGradient([&](const T3Float& x) { return sHeight(x, s, f, b, m); }, p, step, batch.toPlacement(i));
            out.asFloat3(i) = sBumpNormal(n, g, h[0].asFloat(i) * kBumpScale);
        }
        block.setClean(attrOutNormal());
        return true;
    }
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle melt = block.inputValue(attrMelt(), first, count), balance = block.inputValue(attrBalance(), first, count),
                frequency = block.inputValue(attrFrequency(), first, count);
    Ttx3dBatch<3> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        TcraterShape s = sShape(p, shaker.asFloat(i), frequency.asFloat(i), balance.asFloat(i), melt.asFloat(i));
        batch.setWeight(0, i, std::max(0.0f, 1.0f - s.floor - s.rim));
        batch.setWeight(1, i, s.rim);
        batch.setWeight(2, i, s.floor);
        batch.setOwn(i, T3Float(), 0.0f);
    }
    const Tattribute* inputs[] = {&attrChannel1(), &attrChannel2(), &attrChannel3()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha(), true);
    return true;
}
