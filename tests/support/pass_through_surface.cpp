#include "support/pass_through_surface.h"

SN_REGISTER_NODE_CLASS(TtestPassThroughSurface)

bool TtestPassThroughSurface::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    const Tattribute* in = a == &attrOutColor() ? &attrColor() : a == &attrOutTransparency() ? &attrTransparency() : nullptr;
    if (!in) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle source = block.inputValue(*in, first, count);
    TdataHandle out = block.outputValue(*a, first, count);
    for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = source.asFloat3(i);
    block.setClean(*a);
    return true;
}
