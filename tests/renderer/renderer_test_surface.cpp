#include "renderer/renderer_test_surface.h"

#include <algorithm>

SN_REGISTER_NODE_CLASS(TrendererTestSurface)

bool TrendererTestSurface::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    if (a == &attrOutTransparency()) {
        TdataHandle in = block.inputValue(attrTransparency(), first, count);
        TdataHandle out = block.outputValue(*a, first, count);
        for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = in.asFloat3(i);
        block.setClean(*a);
        return true;
    }
    if (a != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle mode = block.inputValue(attrMode(), first, count);
    TdataHandle color = block.inputValue(attrColor(), first, count);
    TdataHandle light = block.inputValue(attrLightDirection(), first, count);
    TdataHandle normal = block.inputValue(attrNormalCamera(), first, count);
    TdataHandle point = block.inputValue(attrPointCamera(), first, count);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle out = block.outputValue(*a, first, count);
    for (unsigned i = first; i < first + count; ++i) {
        const T3Float& c = color.asFloat3(i);
        T3Float r;
        switch (mode.asInt(i)) {
            case kLambert: r = c * std::max(0.0f, dot(normalize(normal.asFloat3(i)), normalize(light.asFloat3(i)))); break;
            case kUv: r = {uv.asFloat2(i).x, uv.asFloat2(i).y, 0}; break;
            case kNormal: r = normal.asFloat3(i); break;
            case kPoint: r = point.asFloat3(i); break;
            default: r = c; break;
        }
        out.asFloat3(i) = r;
    }
    block.setClean(*a);
    return true;
}
