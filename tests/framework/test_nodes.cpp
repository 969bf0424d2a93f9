#include "framework/test_nodes.h"

SN_REGISTER_NODE_CLASS(TtestAdder)
SN_REGISTER_NODE_CLASS(TtestOther)
SN_REGISTER_NODE_CLASS(TtestDerived)

bool TtestAdder::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute();
    ++computeCount;
    if (a == &attrSum()) {
        TdataHandle x = block.inputValue(attrA(), first, count);
        TdataHandle y = block.inputValue(attrB(), first, count);
        TdataHandle mode = block.inputValue(attrMode(), first, count);
        TdataHandle out = block.outputValue(attrSum(), first, count);
        for (unsigned i = first; i < first + count; ++i)
            out.asFloat(i) = mode.asShort(i) == 1 ? x.asFloat(i) - y.asFloat(i) : x.asFloat(i) + y.asFloat(i);
        block.setClean(attrSum());
        return true;
    }
    if (a == &attrOutColor() || a->parent() == &attrOutColor()) {
        TdataHandle c = block.inputValue(attrColor(), first, count);
        TdataHandle g = block.inputValue(attrGain(), first, count);
        TdataHandle out = block.outputValue(attrOutColor(), first, count);
        for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = c.asFloat3(i) * g.asFloat(i);
        block.setClean(attrOutColor());
        return true;
    }
    if (a == &attrTotal()) {
        unsigned indices[64];
        unsigned n = block.multiIndices(attrValues(), indices, 64);
        float total = 0;
        for (unsigned i = 0; i < n && i < 64; ++i) total += block.elementValue(attrValues(), indices[i]).asFloat();
        block.outputValue(attrTotal()).asFloat() = total;
        block.setClean(attrTotal());
        return true;
    }
    return TrenderNode::vectorComputePlug(plug, block, first, count);
}
