#include "utilities/blend_colors.h"

#include <algorithm>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnBlendColors)

bool TdnVSBlendColors::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&blender, &color1.whole, &color2.whole}, {&output.whole});
    return true;
}

void TdnBlendColors::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    // A blender nothing drives, strictly between 0 and 1, reads both colours
    // for every sample: computing them on demand would only add the
    // segments' bookkeeping. Otherwise a sample reads what its weight needs.
    float blender = 0;
    getAttributeValue(&attrBlender(), &blender);
    if (!anyInputDriven(*this, {&attrBlender()}) && blender > 0.0f && blender < 1.0f) return;
    description->markLazyInput(attrColor1());
    description->markLazyInput(attrColor2());
}

bool TdnBlendColors::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutput())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle out = block.outputValue(attrOutput(), first, count);
    TdataHandle b;
    if (!fBlender.settled) b = block.inputValue(attrBlender(), first, count);
    if (fBlender.settled || !b.isVariable()) {
        // One blender for the batch: one loop, with the colours it needs.
        const float w = fBlender.settled ? fBlender.value : b.asFloat(0), rest = 1.0f - w;
        const bool one = w != 0.0f, two = w != 1.0f;
        const TtripleOut to(out);
        if (one && two)
            withTripleLane(fColor1, block, attrColor1(), first, count, [&](auto x) {
                withTripleLane(fColor2, block, attrColor2(), first, count, [&](auto y) {
                    forEachSample(first, count, [&](unsigned i) { to.put(i, x[i] * w + y[i] * rest); });
                });
            });
        else if (one)
            withTripleLane(fColor1, block, attrColor1(), first, count, [&](auto x) {
                forEachSample(first, count, [&](unsigned i) { to.put(i, x[i] * w); });
            });
        else
            withTripleLane(fColor2, block, attrColor2(), first, count, [&](auto y) {
                forEachSample(first, count, [&](unsigned i) { to.put(i, Tf4{} + y[i] * rest); });
            });
        block.setClean(attrOutput());
        return true;
    }
    for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = T3Float();
    // Adding to 0 is exact, so the sum is color1 * b + color2 * (1 - b)
    // whichever terms are present. Each colour is read once a batch, for the
    // samples that weigh it.
    for (unsigned base = first; base < first + count; base += 64) {
        const unsigned n = std::min(64u, first + count - base);
        uint64_t weighOne = 0, weighTwo = 0;
        for (unsigned k = 0; k < n; ++k) {
            const float w = b.asFloat(base + k);
            weighOne |= uint64_t(w != 0.0f) << k;
            weighTwo |= uint64_t(w != 1.0f) << k;
        }
        if (weighOne) {
            TdataHandle c = block.inputValue(attrColor1(), base, n, weighOne);
            TdataBlock::forEachBitRun(weighOne, [&](unsigned start, unsigned length) {
                for (unsigned i = base + start; i < base + start + length; ++i) out.asFloat3(i) = c.asFloat3(i) * b.asFloat(i);
            });
        }
        if (weighTwo) {
            TdataHandle c = block.inputValue(attrColor2(), base, n, weighTwo);
            TdataBlock::forEachBitRun(weighTwo, [&](unsigned start, unsigned length) {
                for (unsigned i = base + start; i < base + start + length; ++i)
                    out.asFloat3(i) = out.asFloat3(i) + c.asFloat3(i) * (1.0f - b.asFloat(i));
            });
        }
    }
    block.setClean(attrOutput());
    return true;
}
