#pragma once
// TdnBulge: a grid of raised squares, each a product of two parabolic humps,
// falling to 0 in the lines between them.
#include "textures/texture_2d.h"

struct TdnVSBulge : TdependNodeVS {
    TattributeFloat uWidth{"uWidth", "uw", TiffTag("UWAV")};
    TattributeFloat vWidth{"vWidth", "vw", TiffTag("VWAV")};
    TdnVSBulge();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnBulge : public TnodeClass<TdnBulge, TdnTx2D, TdnVSBulge> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnBulge", 489, "kBulge");
    SN_ATTRIBUTE(UWidth, uWidth)
    SN_ATTRIBUTE(VWidth, vWidth)

    // The parabolic wave of period 1: a hump from 0 up to 1 and back over
    // the first half, a trough down to -1 over the second.
    static float sWave(float x);
    // The bulge value at (u, v), 0 to 1.
    static float sValue(float u, float v, float uWidth, float vWidth);

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
