#pragma once
// TdnRock: a grain finer than a pixel, made of two products of parabolic
// waves at incommensurate frequencies over the three axes; mixRatio sets how
// much of the grain shows color1 through color2, diffusion how softly.
#include "textures/texture_3d.h"

struct TdnVSRock : TdnVSSolid {
    TcolorAttribute color1{"color1", "c1", TiffTag("CO13")};
    TcolorAttribute color2{"color2", "c2", TiffTag("CO23")};
    TattributeFloat grainSize{"grainSize", "gs", TiffTag("GSIZ")};
    TattributeFloat diffusion{"diffusion", "di", TiffTag("DIFF")};
    TattributeFloat mixRatio{"mixRatio", "mr", TiffTag("MIXR")};
    TdnVSRock();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnRock : public TnodeClass<TdnRock, TdnTx3D, TdnVSRock> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRock", 506, "kRock");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_COLOR_ATTRIBUTE(Color1, color1)
    SN_COLOR_ATTRIBUTE(Color2, color2)
    SN_ATTRIBUTE(GrainSize, grainSize)
    SN_ATTRIBUTE(Diffusion, diffusion)
    SN_ATTRIBUTE(MixRatio, mixRatio)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The grain at p, 0 to 1: the mean of the two wave products, rescaled.
    static float sGrain(const T3Float& p, float grainSize);
    // The weight of color1 for a grain value: 0 below 1 - mixRatio, rising
    // over a band `diffusion` wide.
    static float sColor1Weight(float grain, float diffusion, float mixRatio);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
