#include "textures/stencil.h"

#include <algorithm>
#include <cmath>

#include "framework/render_utilities.h"
#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnStencil)

TdnVSStencil::TdnVSStencil() {
    for (TattributeFloat* a : {&mask, &edgeBlend}) {
        a->setSoftMin(0);
        a->setSoftMax(1);
    }
    for (TattributeFloat* a : {&hueRange, &saturationRange, &valueRange, &threshold}) {
        a->setNativeDefaultData(0.5);
        a->setSoftMin(0);
        a->setSoftMax(1);
    }
}

bool TdnVSStencil::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&image.whole, &mask, &edgeBlend, &keyMasking, &positiveKey, &colorKey.whole, &hueRange,
                                  &saturationRange, &valueRange, &threshold});
    return true;
}

void TdnStencil::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrImage());
}

namespace {
constexpr float kPi = 3.1415927f;

float edgeAxis(float x, float e) {
    float t = std::min((1.0f - std::fabs(2.0f * x - 1.0f)) / e, 1.0f);
    if (t <= 0.0f) return 0.0f;
    return (std::cos((t + 1.0f) * kPi) + 1.0f) * 0.5f;
}

float rangeDistance(float d, float range) { return std::min(d / std::max(range, TdnStencil::kMinRange), 1.0f); }
}  // namespace

float TdnStencil::sEdge(float u, float v, float edgeBlend) {
    if (edgeBlend <= 0.0f) return 1.0f;
    return edgeAxis(wrapToUnit(u), edgeBlend) * edgeAxis(wrapToUnit(v), edgeBlend);
}

float TdnStencil::sKeep(const T3Float& image, const TstencilKey& key) {
    T3Float a = TrenderUtilities::RGBtoHSV(image), b = TrenderUtilities::RGBtoHSV(key.colorKey);
    float dh = std::fabs(a.x - b.x) / 180.0f;
    if (dh > 1.0f) dh = 2.0f - dh;
    dh = rangeDistance(dh, key.hueRange);
    float ds = rangeDistance(std::fabs(a.y - b.y), key.saturationRange);
    float dv = rangeDistance(std::fabs(a.z - b.z), key.valueRange);
    // Likeness to the key: 1 on the key colour, 0 a full range away.
    float like = (1.0f - dh) * (1.0f - ds) * (1.0f - dv);
    // At or above the threshold a colour counts as the key; below it the
    // likeness fades out.
    if (key.threshold < 1e-5f)
        like = like > 0.0f ? 1.0f : 0.0f;
    else
        like = like >= key.threshold ? 1.0f : like / key.threshold;
    return key.positiveKey ? like : 1.0f - like;
}

bool TdnStencil::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle fallback = block.inputValue(attrDefaultColor(), first, count);
    TdataHandle mask = block.inputValue(attrMask(), first, count);
    TdataHandle edge = block.inputValue(attrEdgeBlend(), first, count);
    TdataHandle keyMasking = block.inputValue(attrKeyMasking(), first, count);
    Ttx2dBatch<1> batch(first, count, this);
    bool anyKey = false;
    for (unsigned i = first; i < first + count; ++i) {
        T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            continue;
        }
        float m = std::clamp(1.0f - mask.asFloat(i), 0.0f, 1.0f) * sEdge(p.x, p.y, edge.asFloat(i));
        batch.setWeight(0, i, m);
        anyKey = anyKey || keyMasking.asBool(i);
    }
    if (anyKey) {
        // The key needs the image itself wherever the mask leaves it a chance.
        TdataHandle positive = block.inputValue(attrPositiveKey(), first, count);
        TdataHandle colorKey = block.inputValue(attrColorKey(), first, count);
        TdataHandle hue = block.inputValue(attrHueRange(), first, count);
        TdataHandle sat = block.inputValue(attrSaturationRange(), first, count);
        TdataHandle val = block.inputValue(attrValueRange(), first, count);
        TdataHandle threshold = block.inputValue(attrThreshold(), first, count);
        const TdataHandle& image = batch.computeInput(block, 0, attrImage());
        for (unsigned i = first; i < first + count; ++i) {
            auto& r = batch.at(i);
            if (r.done || !r.need[0] || !keyMasking.asBool(i)) continue;
            TstencilKey key{colorKey.asFloat3(i), hue.asFloat(i), sat.asFloat(i), val.asFloat(i), threshold.asFloat(i),
                            positive.asBool(i)};
            batch.setWeight(0, i, r.weight[0] * sKeep(image.asFloat3(i), key));
        }
    }
    for (unsigned i = first; i < first + count; ++i) {
        auto& r = batch.at(i);
        if (r.done) continue;
        float m = r.weight[0];
        batch.setOwn(i, fallback.asFloat3(i) * (1.0f - m), m);
    }
    const Tattribute* inputs[] = {&attrImage()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha());
    return true;
}
