#include "shading/engine_test_nodes.h"

#include <utility>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TengineTestUv)
SN_REGISTER_NODE_CLASS(TengineTestScale)
SN_REGISTER_NODE_CLASS(TengineTestSurface)
SN_REGISTER_NODE_CLASS(TengineTestMix)
SN_REGISTER_NODE_CLASS(TengineTestOffset)

bool TengineTestUv::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    if (a == &attrOutColor()) {
        TdataHandle tint = block.inputValue(attrTint(), first, count);
        TdataHandle out = block.outputValue(attrOutColor(), first, count);
        for (unsigned i = first; i < first + count; ++i) {
            T2Float p = uv.asFloat2(i);
            T3Float t = tint.asFloat3(i);
            out.asFloat3(i) = T3Float(p.x * t.x, p.y * t.y, p.x * p.y * t.z);
        }
    } else if (a == &attrOutAlpha()) {
        TdataHandle out = block.outputValue(attrOutAlpha(), first, count);
        for (unsigned i = first; i < first + count; ++i) out.asFloat(i) = uv.asFloat2(i).x + uv.asFloat2(i).y;
    } else {
        return TrenderNode::vectorComputePlug(plug, block, first, count);
    }
    counters.count(count);
    block.setClean(*a);
    return true;
}

bool TengineTestScale::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute() != &attrOutValue()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    if (reenter) std::exchange(reenter, nullptr)();
    TdataHandle v = block.inputValue(attrValue(), first, count);
    TdataHandle f = block.inputValue(attrFactor(), first, count);
    TdataHandle o = block.inputValue(attrOffset(), first, count);
    TdataHandle out = block.outputValue(attrOutValue(), first, count);
    for (unsigned i = first; i < first + count; ++i) out.asFloat(i) = v.asFloat(i) * f.asFloat(i) + o.asFloat(i);
    counters.count(count);
    block.setClean(attrOutValue());
    return true;
}

bool TengineTestSurface::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    const Tattribute* in = a == &attrOutColor() ? &attrColor() : a == &attrOutTransparency() ? &attrTransparency() : nullptr;
    if (!in) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle source = block.inputValue(*in, first, count);
    TdataHandle out = block.outputValue(*a, first, count);
    for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = source.asFloat3(i);
    counters.count(count);
    block.setClean(*a);
    return true;
}

void TengineTestMix::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    if (!lazy) return;
    description->markLazyInput(attrColor1());
    description->markLazyInput(attrColor2());
}

bool TengineTestMix::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute()->rootParent() != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle w = block.inputValue(attrWeight(), first, count);
    TdataHandle out = block.outputValue(attrOutColor(), first, count);
    // Runs of samples that choose the same input.
    unsigned i = first, end = first + count;
    while (i < end) {
        bool pickFirst = w.asFloat(i) >= 0.5f;
        unsigned j = i + 1;
        while (j < end && (w.asFloat(j) >= 0.5f) == pickFirst) ++j;
        TdataHandle c = block.inputValue(pickFirst ? attrColor1() : attrColor2(), i, j - i);
        for (unsigned k = i; k < j; ++k) out.asFloat3(k) = c.asFloat3(k);
        i = j;
    }
    counters.count(count);
    block.setClean(attrOutColor());
    return true;
}

void TengineTestOffset::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrColor());
}

bool TengineTestOffset::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute()->rootParent() != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle uv = block.outputValue(attrOutUv(), first, count);
    TdataHandle shift = block.inputValue(attrShift(), first, count);
    TdataHandle out = block.outputValue(attrOutColor(), first, count);
    T2Float base[64];
    T3Float here[64];
    for (unsigned i = first; i < first + count; ++i) base[i] = uv.asFloat2(i);
    TdataHandle c = block.inputValue(attrColor(), first, count);
    for (unsigned i = first; i < first + count; ++i) here[i] = c.asFloat3(i);
    for (unsigned i = first; i < first + count; ++i) uv.asFloat2(i) = T2Float{base[i].x + shift.asFloat(i), base[i].y};
    c = block.inputValue(attrColor(), first, count);
    for (unsigned i = first; i < first + count; ++i) {
        const T3Float& there = c.asFloat3(i);
        out.asFloat3(i) = T3Float(there.x - here[i].x, there.y - here[i].y, there.z - here[i].z);
        uv.asFloat2(i) = base[i];
    }
    counters.count(count);
    block.setClean(attrOutColor());
    return true;
}
