#pragma once
// A surface for renderer tests whose colour is a closed-form function of the
// sample: N.L against a fixed direction, the UVs, the normal, the point, or
// a flat colour.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/render_node.h"

struct TrendererTestSurfaceVS : TdependNodeVS {
    TattributeInt32 mode{"mode", "md", TiffTag("RTMD")};
    TcolorAttribute color{"color", "c", TiffTag("RTCO")};
    TcolorAttribute transparency{"transparency", "it", TiffTag("RTTR")};
    TvectorAttribute lightDirection{"lightDirection", "ld", TiffTag("RTLD")};
    TvectorAttribute normalCamera{"normalCamera", "n", TiffTag("RTNC")};
    TvectorAttribute pointCamera{"pointCamera", "p", TiffTag("RTPC")};
    TpairAttribute uvCoord{"uvCoord", "uv", TiffTag("RTUV"), "uCoord", "u", TiffTag("RTUC"), "vCoord", "v", TiffTag("RTVC")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("RTOC")};
    TcolorAttribute outTransparency{"outTransparency", "ot", TiffTag("RTOT")};
    TrendererTestSurfaceVS() {
        color.setDefault(1, 1, 1);
        lightDirection.setDefault(0, 0, 1);
        outColor.setFlag(kAttrWritable, false);
        outTransparency.setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&mode, &color.whole, &lightDirection.whole, &normalCamera.whole, &pointCamera.whole, &uvCoord.whole},
                {&outColor.whole});
        affects(m, {&transparency.whole}, {&outTransparency.whole});
        return true;
    }
};

class TrendererTestSurface : public TnodeClass<TrendererTestSurface, TrenderNode, TrendererTestSurfaceVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TrendererTestSurface", 9601, "kRendererTestSurface", "rendererTestSurface", "RTSF",
                                          "shader/surface"};
    enum { kLambert = 0, kUv = 1, kNormal = 2, kPoint = 3, kFlat = 4 };
    SN_ATTRIBUTE(Mode, mode)
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_COLOR_ATTRIBUTE(Transparency, transparency)
    SN_VECTOR_ATTRIBUTE(LightDirection, lightDirection)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_VECTOR_ATTRIBUTE(PointCamera, pointCamera)
    SN_PAIR_ATTRIBUTE(UvCoord, uvCoord, U, V)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, outTransparency)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
