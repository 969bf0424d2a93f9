#pragma once
// TdnLayeredTexture: a stack of colours with alphas, the first element of
// `inputs` on top, each put onto the ones below by its blend mode. Hidden
// layers (isVisible off) are left out.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "textures/layer_blend.h"
#include "textures/texture_attributes.h"

struct TdnVSLayeredTexture : TdependNodeVS {
    TattributeCompound inputs{"inputs", "cs", TiffTag("LINP")};
    TcolorAttribute color{"color", "c", TiffTag("LCOL")};
    TattributeFloat alpha{"alpha", "a", TiffTag("LALP")};
    TattributeEnum blendMode{"blendMode", "bm", TiffTag("LBLM")};
    TattributeBoolean isVisible{"isVisible", "iv", TiffTag("LVIS")};
    TnamedTripleAttribute outColor{"outColor", "oc", TiffTag("OUT3"), {"outColorR", "ocr", TiffTag("ORED")},
                                   {"outColorG", "ocg", TiffTag("OGRE")}, {"outColorB", "ocb", TiffTag("OBLU")}};
    TattributeFloat outAlpha{"outAlpha", "oa", TiffTag("OALP")};
    TdnVSLayeredTexture();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnLayeredTexture : public TnodeClass<TdnLayeredTexture, TrenderNode, TdnVSLayeredTexture> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnLayeredTexture", 1049, "kLayeredTexture");
    SN_ATTRIBUTE(Inputs, inputs)
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(Alpha, alpha)
    SN_ATTRIBUTE(BlendMode, blendMode)
    SN_ATTRIBUTE(IsVisible, isVisible)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_ATTRIBUTE(OutAlpha, outAlpha)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
