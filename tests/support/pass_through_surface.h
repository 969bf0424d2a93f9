#pragma once
// A pass-through material for engine tests: outColor = color and
// outTransparency = transparency, so whatever a network feeds it lands in
// the sample unchanged. Every test program has it.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/render_node.h"

struct TtestPassThroughSurfaceVS : TdependNodeVS {
    TcolorAttribute color{"color", "c", TiffTag("PTCO")};
    TcolorAttribute transparency{"transparency", "it", TiffTag("PTTR")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("PTOC")};
    TcolorAttribute outTransparency{"outTransparency", "ot", TiffTag("PTOT")};
    TtestPassThroughSurfaceVS() {
        outColor.setFlag(kAttrWritable, false);
        outTransparency.setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&color.whole}, {&outColor.whole});
        affects(m, {&transparency.whole}, {&outTransparency.whole});
        return true;
    }
};

class TtestPassThroughSurface : public TnodeClass<TtestPassThroughSurface, TrenderNode, TtestPassThroughSurfaceVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TtestPassThroughSurface", 9901, "kTestPassThroughSurface",
                                          "testPassThroughSurface", "TPTS", "shader/surface"};
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_COLOR_ATTRIBUTE(Transparency, transparency)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, outTransparency)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
