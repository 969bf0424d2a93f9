#pragma once
// TdnGrid: lines of lineColor along the edges of the unit cell over
// fillerColor, box-filtered exactly: the value is the share of the sample's
// filter box that the lines cover.
#include "textures/texture_2d.h"

struct TdnVSGrid : TdependNodeVS {
    TcolorAttribute fillerColor{"fillerColor", "fc", TiffTag("FIL3")};
    TcolorAttribute lineColor{"lineColor", "lc", TiffTag("LIN3")};
    TattributeFloat contrast{"contrast", "c", TiffTag("CONT")};
    TattributeFloat uWidth{"uWidth", "uw", TiffTag("UWAV")};
    TattributeFloat vWidth{"vWidth", "vw", TiffTag("VWAV")};
    TdnVSGrid();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnGrid : public TnodeClass<TdnGrid, TdnTx2D, TdnVSGrid> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnGrid", 493, "kGrid");
    SN_COLOR_ATTRIBUTE(FillerColor, fillerColor)
    SN_COLOR_ATTRIBUTE(LineColor, lineColor)
    SN_ATTRIBUTE(Contrast, contrast)
    SN_ATTRIBUTE(UWidth, uWidth)
    SN_ATTRIBUTE(VWidth, vWidth)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The weight of lineColor at (u, v); fillerColor has 1 minus it.
    static float sLineWeight(T2Float uv, T2Float filterSize, float filter, float filterOffset, float contrast, float uWidth,
                             float vWidth);

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
