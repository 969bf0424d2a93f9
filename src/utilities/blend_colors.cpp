#include "utilities/blend_colors.h"

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnBlendColors)

bool TdnVSBlendColors::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&blender, &color1.whole, &color2.whole}, {&output.whole});
    return true;
}

void TdnBlendColors::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrColor1());
    description->markLazyInput(attrColor2());
}

bool TdnBlendColors::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutput())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle b = block.inputValue(attrBlender(), first, count);
    TdataHandle out = block.outputValue(attrOutput(), first, count);
    if (!b.isVariable()) {
        // One blender for the batch: one loop, with the colours it needs.
        const float w = b.asFloat(0), rest = 1.0f - w;
        const bool one = w != 0.0f, two = w != 1.0f;
        TdataHandle c1 = one ? block.inputValue(attrColor1(), first, count) : TdataHandle{};
        TdataHandle c2 = two ? block.inputValue(attrColor2(), first, count) : TdataHandle{};
        const TtripleOut to(out);
        if (one && two)
            withTripleLane(c1, [&](auto x) {
                withTripleLane(c2, [&](auto y) {
                    for (unsigned i = first; i < first + count; ++i) to.put(i, x[i] * w + y[i] * rest);
                });
            });
        else if (one)
            withTripleLane(c1, [&](auto x) {
                for (unsigned i = first; i < first + count; ++i) to.put(i, x[i] * w);
            });
        else
            withTripleLane(c2, [&](auto y) {
                for (unsigned i = first; i < first + count; ++i) to.put(i, Tf4{} + y[i] * rest);
            });
        block.setClean(attrOutput());
        return true;
    }
    for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = T3Float();
    // Adding to 0 is exact, so the sum is color1 * b + color2 * (1 - b)
    // whichever terms are present.
    forEachRun(first, count, [&](unsigned i) { return b.asFloat(i) != 0.0f; }, [&](unsigned begin, unsigned end, bool needed) {
        if (!needed) return;
        TdataHandle c = block.inputValue(attrColor1(), begin, end - begin);
        for (unsigned i = begin; i < end; ++i) out.asFloat3(i) = c.asFloat3(i) * b.asFloat(i);
    });
    forEachRun(first, count, [&](unsigned i) { return b.asFloat(i) != 1.0f; }, [&](unsigned begin, unsigned end, bool needed) {
        if (!needed) return;
        TdataHandle c = block.inputValue(attrColor2(), begin, end - begin);
        for (unsigned i = begin; i < end; ++i) out.asFloat3(i) = out.asFloat3(i) + c.asFloat3(i) * (1.0f - b.asFloat(i));
    });
    block.setClean(attrOutput());
    return true;
}
