#pragma once
// TdnChecker: two colours in a two-by-two checker over the unit square,
// blended towards their mean where the filter is wider than the distance to
// a cell edge.
#include "textures/texture_2d.h"

struct TdnVSChecker : TdependNodeVS {
    TcolorAttribute color1{"color1", "c1", TiffTag("COL1")};
    TcolorAttribute color2{"color2", "c2", TiffTag("COL2")};
    TattributeFloat contrast{"contrast", "ct", TiffTag("CONT")};
    TdnVSChecker();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnChecker : public TnodeClass<TdnChecker, TdnTx2D, TdnVSChecker> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnChecker", 490, "kChecker");
    SN_COLOR_ATTRIBUTE(Color1, color1)
    SN_COLOR_ATTRIBUTE(Color2, color2)
    SN_ATTRIBUTE(Contrast, contrast)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The weight of color1 at (u, v); color2 has 1 minus it.
    static float sColor1Weight(T2Float uv, T2Float filterSize, float filter, float filterOffset, float contrast);

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
