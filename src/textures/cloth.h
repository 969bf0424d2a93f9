#pragma once
// TdnCloth: a plain weave of u threads and v threads over a gap colour. Each
// thread is a rounded bar whose shade falls off towards its sides; where no
// thread covers the sample the gap shows. Waves bend the threads, noise
// wobbles them, and the spreads vary widths and brightness thread by thread.
#include "textures/texture_2d.h"

struct TdnVSCloth : TdependNodeVS {
    TcolorAttribute gapColor{"gapColor", "gc", TiffTag("GAP3")};
    TcolorAttribute uColor{"uColor", "uc", TiffTag("UCO3")};
    TcolorAttribute vColor{"vColor", "vc", TiffTag("VCO3")};
    TattributeFloat uWidth{"uWidth", "uwi", TiffTag("UWID")};
    TattributeFloat vWidth{"vWidth", "vwi", TiffTag("VWID")};
    TattributeFloat uWave{"uWave", "uwa", TiffTag("UWAW")};
    TattributeFloat vWave{"vWave", "vwa", TiffTag("VWAW")};
    TattributeFloat randomness{"randomness", "r", TiffTag("RAND")};
    TattributeFloat widthSpread{"widthSpread", "ws", TiffTag("WSPR")};
    TattributeFloat brightSpread{"brightSpread", "bs", TiffTag("BSPR")};
    TdnVSCloth();
    bool setupDependencies(TdependencyMatrix& m) override;
};

// What the weave gives at one sample: which thread is on top and its shade
// t (0 in the gap).
struct TclothSample {
    bool uThread;
    float shade;
};

struct TclothParams {
    float uWidth = 0.75f, vWidth = 0.75f, uWave = 0, vWave = 0, randomness = 0, widthSpread = 0, brightSpread = 0;
};

class TdnCloth : public TnodeClass<TdnCloth, TdnTx2D, TdnVSCloth> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnCloth", 491, "kCloth");
    SN_COLOR_ATTRIBUTE(GapColor, gapColor)
    SN_COLOR_ATTRIBUTE(UColor, uColor)
    SN_COLOR_ATTRIBUTE(VColor, vColor)
    SN_ATTRIBUTE(UWidth, uWidth)
    SN_ATTRIBUTE(VWidth, vWidth)
    SN_ATTRIBUTE(UWave, uWave)
    SN_ATTRIBUTE(VWave, vWave)
    SN_ATTRIBUTE(Randomness, randomness)
    SN_ATTRIBUTE(WidthSpread, widthSpread)
    SN_ATTRIBUTE(BrightSpread, brightSpread)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    static TclothSample sWeave(const TclothParams& p, float u, float v);

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
