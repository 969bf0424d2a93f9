#include "utilities/color_correct.h"

#include <algorithm>
#include <cmath>

SN_REGISTER_NODE_CLASS(TdnClampColor)
SN_REGISTER_NODE_CLASS(TdnContrast)
SN_REGISTER_NODE_CLASS(TdnGammaCorrect)
SN_REGISTER_NODE_CLASS(TdnReverse)
SN_REGISTER_NODE_CLASS(TdnSetRange)

namespace {
template <class F>
T3Float perChannel(F f) {
    return {f(0), f(1), f(2)};
}
}  // namespace

bool TdnVSClampColor::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&min.whole, &max.whole, &input.whole}, {&output.whole});
    return true;
}

bool TdnClampColor::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutput())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    // The bounds are usually constants: one loop per kind of each.
    const TtripleOut to(block.outputValue(attrOutput(), first, count));
    withTripleLane(block.inputValue(attrInput(), first, count), [&](auto x) {
        withTripleLane(fMin, block, attrMin(), first, count, [&](auto a) {
            withTripleLane(fMax, block, attrMax(), first, count, [&](auto b) {
                // The upper bound wins when the bounds cross.
                forEachSample(first, count, [&](unsigned i) { to.put(i, minLanes(maxLanes(x[i], a[i]), b[i])); });
            });
        });
    });
    block.setClean(attrOutput());
    return true;
}

bool TdnVSContrast::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&value.whole, &contrast.whole, &bias.whole}, {&outValue.whole});
    return true;
}

float TdnContrast::sContrast(float value, float contrast, float bias) {
    // No guard on bias: at 0, 1 or below, the library functions decide.
    float e = std::log(0.5f) / std::log(bias);
    float x = std::pow(value, e);
    if (x >= 0.5f) return 1.0f - 0.5f * std::pow(2.0f * (1.0f - x), contrast);
    return 0.5f * std::pow(2.0f * x, contrast);
}

bool TdnContrast::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutValue())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle value = block.inputValue(attrValue(), first, count);
    TdataHandle contrast = block.inputValue(attrContrast(), first, count);
    TdataHandle bias = block.inputValue(attrBias(), first, count);
    TdataHandle out = block.outputValue(attrOutValue(), first, count);
    for (unsigned i = first; i < first + count; ++i) {
        const T3Float &v = value.asFloat3(i), &c = contrast.asFloat3(i), &b = bias.asFloat3(i);
        out.asFloat3(i) = perChannel([&](int k) { return sContrast(v[k], c[k], b[k]); });
    }
    block.setClean(attrOutValue());
    return true;
}

bool TdnVSGammaCorrect::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&value.whole, &gamma.whole}, {&outValue.whole});
    return true;
}

float TdnGammaCorrect::sGamma(float value, float gamma) {
    float x = std::max(value, 0.0f);
    return gamma != 0 ? std::pow(x, 1.0f / gamma) : x;
}

bool TdnGammaCorrect::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutValue())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle value = block.inputValue(attrValue(), first, count);
    TdataHandle gamma = block.inputValue(attrGamma(), first, count);
    TdataHandle out = block.outputValue(attrOutValue(), first, count);
    for (unsigned i = first; i < first + count; ++i) {
        const T3Float &v = value.asFloat3(i), &g = gamma.asFloat3(i);
        out.asFloat3(i) = perChannel([&](int k) { return sGamma(v[k], g[k]); });
    }
    block.setClean(attrOutValue());
    return true;
}

bool TdnVSReverse::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&input.whole}, {&output.whole});
    return true;
}

bool TdnReverse::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutput())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle in = block.inputValue(attrInput(), first, count);
    TdataHandle out = block.outputValue(attrOutput(), first, count);
    const TtripleOut to(out);
    const Tf4 one = Tf4{} + 1.0f;
    withTripleLane(in, [&](auto x) {
        forEachSample(first, count, [&](unsigned i) { to.put(i, one - x[i]); });
    });
    block.setClean(attrOutput());
    return true;
}

bool TdnVSSetRange::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&value.whole, &min.whole, &max.whole, &oldMin.whole, &oldMax.whole}, {&outValue.whole});
    return true;
}

float TdnSetRange::sSetRange(float value, float min, float max, float oldMin, float oldMax) {
    float span = oldMax - oldMin;
    if (std::fabs(span) <= 1e-05f) return value;
    float lo = std::min(oldMin, oldMax), hi = std::max(oldMin, oldMax);
    float v = std::min(std::max(value, lo), hi);
    return min + (v - oldMin) * (max - min) / span;
}

bool TdnSetRange::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutValue())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle value = block.inputValue(attrValue(), first, count);
    TdataHandle lo = block.inputValue(attrMin(), first, count);
    TdataHandle hi = block.inputValue(attrMax(), first, count);
    TdataHandle oldLo = block.inputValue(attrOldMin(), first, count);
    TdataHandle oldHi = block.inputValue(attrOldMax(), first, count);
    TdataHandle out = block.outputValue(attrOutValue(), first, count);
    for (unsigned i = first; i < first + count; ++i) {
        const T3Float &v = value.asFloat3(i), &a = lo.asFloat3(i), &b = hi.asFloat3(i);
        const T3Float &oa = oldLo.asFloat3(i), &ob = oldHi.asFloat3(i);
        // Old bounds that meet in any channel pass the whole value through.
        bool degenerate = false;
        for (int k = 0; k < 3; ++k) degenerate = degenerate || std::fabs(ob[k] - oa[k]) <= 1e-05f;
        out.asFloat3(i) = degenerate ? v : perChannel([&](int k) { return sSetRange(v[k], a[k], b[k], oa[k], ob[k]); });
    }
    block.setClean(attrOutValue());
    return true;
}
