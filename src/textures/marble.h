#pragma once
// TdnMarble: veins along the height of the placed point, bent by a fractal
// sum whose octave count follows the footprint, falling off into the filler
// by an exponential diffusion.
#include "textures/texture_3d.h"

struct TdnVSMarble : TdnVSSolidView {
    TcolorAttribute fillerColor{"fillerColor", "fc", TiffTag("FIL3")};
    TcolorAttribute veinColor{"veinColor", "vc", TiffTag("VEI3")};
    TattributeFloat veinWidth{"veinWidth", "vw", TiffTag("VWID")};
    TattributeFloat diffusion{"diffusion", "di", TiffTag("DIFF")};
    TattributeFloat contrast{"contrast", "c", TiffTag("CONT")};
    TsolidOctaveAttributes octave;
    TattributeFloat amplitude{"amplitude", "a", TiffTag("AMPL")};
    TattributeFloat ratio{"ratio", "ra", TiffTag("RATI")};
    TdnVSMarble();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TmarbleParams {
    float veinWidth = 0.1f, diffusion = 0.5f, contrast = 0.5f;
    T3Float ripples{1, 1, 1};
    T2Float depth{0, 0};
    float amplitude = 1.5f, ratio = 0.707f;
};

class TdnMarble : public TnodeClass<TdnMarble, TdnTx3D, TdnVSMarble> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnMarble", 505, "kMarble");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_ATTRIBUTE(XPixelAngle, xPixelAngle)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_COLOR_ATTRIBUTE(FillerColor, fillerColor)
    SN_COLOR_ATTRIBUTE(VeinColor, veinColor)
    SN_ATTRIBUTE(VeinWidth, veinWidth)
    SN_ATTRIBUTE(Diffusion, diffusion)
    SN_ATTRIBUTE(Contrast, contrast)
    SN_VECTOR_ATTRIBUTE(Ripples, octave.ripples)
    SN_PAIR_ATTRIBUTE(Depth, octave.depth, Min, Max)
    SN_ATTRIBUTE(Amplitude, amplitude)
    SN_ATTRIBUTE(Ratio, ratio)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The weight of veinColor at the placed point p for the footprint w:
    // 1 in a vein, falling off outside it; fillerColor has 1 minus it.
    static float sVeinWeight(const TmarbleParams& m, const T3Float& p, float w);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
