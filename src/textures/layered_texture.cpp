#include "textures/layered_texture.h"

SN_REGISTER_NODE_CLASS(TdnLayeredTexture)

TdnVSLayeredTexture::TdnVSLayeredTexture() {
    inputs.setMulti(true);
    color.whole.setParent(&inputs);
    alpha.setParent(&inputs);
    blendMode.setParent(&inputs);
    isVisible.setParent(&inputs);
    alpha.setNativeDefaultData(1);
    alpha.setSoftMin(0);
    alpha.setSoftMax(1);
    isVisible.setNativeDefaultData(1);
    const char* modes[kLayerBlendModeCount] = {"kNone",     "kOver",    "kIn",       "kOut",       "kAdd",       "kSubtract", "kMultiply",
                                               "kDifference", "kLighten", "kDarken", "kSaturate", "kDesaturate", "kIlluminate"};
    for (short m = 0; m < kLayerBlendModeCount; ++m) blendMode.addField(modes[m], modes[m] + 1, m);
    blendMode.setNativeDefaultData(short(TlayerBlendMode::kOver));
    outColor.setFlag(kAttrWritable, false);
    outAlpha.setFlag(kAttrWritable, false);
}

bool TdnVSLayeredTexture::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&inputs}, {&outColor.whole, &outAlpha});
    return true;
}

bool TdnLayeredTexture::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* root = plug.attribute()->rootParent();
    if (root != &attrOutColor() && root != &attrOutAlpha()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle outColor = block.outputValue(attrOutColor(), first, count);
    TdataHandle outAlpha = block.outputValue(attrOutAlpha(), first, count);
    for (unsigned i = first; i < first + count; ++i) outColor.asFloat3(i) = T3Float(), outAlpha.asFloat(i) = 0;
    // The bottom layer (the last element) first.
    constexpr unsigned kMaxLayers = 64;
    unsigned indices[kMaxLayers];
    const unsigned layers = block.multiIndices(attrInputs(), indices, kMaxLayers);
    auto child = [](TdataHandle element, const Tattribute& a) {
        element.value = static_cast<char*>(element.value) + a.offsetInParent();
        return element;
    };
    for (unsigned k = layers; k-- > 0;) {
        TdataHandle element = block.elementValue(attrInputs(), indices[k]);
        if (element.isNull()) continue;
        TdataHandle colour = child(element, attrColor()), alpha = child(element, attrAlpha());
        TdataHandle mode = child(element, attrBlendMode()), visible = child(element, attrIsVisible());
        for (unsigned i = first; i < first + count; ++i) {
            if (!visible.asBool(i)) continue;
            T3Float c = outColor.asFloat3(i);
            float a = outAlpha.asFloat(i);
            blendLayer(mode.asShort(i), colour.asFloat3(i), alpha.asFloat(i), c, a);
            outColor.asFloat3(i) = c, outAlpha.asFloat(i) = a;
        }
    }
    block.setClean(attrOutColor());
    block.setClean(attrOutAlpha());
    return true;
}
