#pragma once
// TdnSurfaceLuminance: how brightly the lights reach a surface, as one
// number: the sum over the lights of the luminance of each record, the
// diffuse ones weighted by the cosine to the normal.
#include "utilities/utility_node.h"

struct TdnVSSurfaceLuminance : TdependNodeVS {
    TvectorAttribute normalCamera{"normalCamera", "n", TiffTag("SLNC")};
    TattributeLightData lightDataArray{"lightDataArray", "ltd", TiffTag("SLLD")};
    TattributeFloat outValue{"outValue", "ov", TiffTag("SLOV")};
    TdnVSSurfaceLuminance() {
        normalCamera.whole.makeImplicitInput();
        lightDataArray.setMulti(true);
        lightDataArray.makeImplicitInput();
        makeOutput(outValue);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&normalCamera.whole, &lightDataArray}, {&outValue});
        return true;
    }
};

class TdnSurfaceLuminance : public TnodeClass<TdnSurfaceLuminance, TrenderNode, TdnVSSurfaceLuminance> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnSurfaceLuminance", 473, "kSurfaceLuminance");
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_ATTRIBUTE(LightDataArray, lightDataArray)
    SN_ATTRIBUTE(OutValue, outValue)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
