#include "utilities/color_conversion.h"

#include "framework/render_utilities.h"

SN_REGISTER_NODE_CLASS(TdnHsvToRgb)
SN_REGISTER_NODE_CLASS(TdnRgbToHsv)
SN_REGISTER_NODE_CLASS(TdnLuminance)

namespace {
// out = convert(in) over the run, for a node of one 3-float input and output.
template <class Convert>
bool convertRun(TdataBlock& block, const Tattribute& in, const Tattribute& out, unsigned first, unsigned count, Convert convert) {
    TdataHandle source = block.inputValue(in, first, count);
    TdataHandle result = block.outputValue(out, first, count);
    for (unsigned i = first; i < first + count; ++i) result.asFloat3(i) = convert(source.asFloat3(i));
    block.setClean(out);
    return true;
}
}  // namespace

bool TdnVSHsvToRgb::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&inHsv.whole}, {&outRgb.whole});
    return true;
}

bool TdnHsvToRgb::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute()->rootParent() != &attrOutRgb()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    return convertRun(block, attrInHsv(), attrOutRgb(), first, count, TrenderUtilities::HSVtoRGB);
}

bool TdnVSRgbToHsv::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&inRgb.whole}, {&outHsv.whole});
    return true;
}

bool TdnRgbToHsv::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute()->rootParent() != &attrOutHsv()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    return convertRun(block, attrInRgb(), attrOutHsv(), first, count, TrenderUtilities::RGBtoHSV);
}

bool TdnVSLuminance::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&value.whole}, {&outValue});
    return true;
}

bool TdnLuminance::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute() != &attrOutValue()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle value = block.inputValue(attrValue(), first, count);
    TdataHandle out = block.outputValue(attrOutValue(), first, count);
    for (unsigned i = first; i < first + count; ++i) out.asFloat(i) = TrenderUtilities::luminance(value.asFloat3(i));
    block.setClean(attrOutValue());
    return true;
}
