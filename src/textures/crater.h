#pragma once
// TdnCrater: a field of craters on a shaken cell grid. Each cell holds one
// crater: a floor of channel3 inside a rim of channel2, on a ground of
// channel1. outNormal bends the surface normal into the same shape (a
// sunken floor, a raised rim), with parameters of its own so that the
// relief need not follow the colours.
#include "textures/texture_3d.h"

struct TdnVSCrater : TdnVSSolidView {
    TattributeFloat shaker{"shaker", "sh", TiffTag("SHAK")};
    TcolorAttribute channel1{"channel1", "c1", TiffTag("CHA1")};
    TcolorAttribute channel2{"channel2", "c2", TiffTag("CHA2")};
    TcolorAttribute channel3{"channel3", "c3", TiffTag("CHA3")};
    TattributeFloat melt{"melt", "m", TiffTag("MELT")};
    TattributeFloat balance{"balance", "ba", TiffTag("BALA")};
    TattributeFloat frequency{"frequency", "fr", TiffTag("FREQ")};
    TattributeFloat normDepth{"normDepth", "nd", TiffTag("NDPT")};
    TattributeFloat normMelt{"normMelt", "nm", TiffTag("NMLT")};
    TattributeFloat normBalance{"normBalance", "nb", TiffTag("NBAL")};
    TattributeFloat normFrequency{"normFrequency", "nf", TiffTag("NFRQ")};
    TvectorAttribute outNormal{"outNormal", "o", TiffTag("ONOR")};
    TdnVSCrater();
    bool setupDependencies(TdependencyMatrix& m) override;
};

// The crater at a point: how much of it is floor and how much rim.
struct TcraterShape {
    float floor, rim;
};

class TdnCrater : public TnodeClass<TdnCrater, TdnTx3D, TdnVSCrater> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnCrater", 502, "kCrater");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_ATTRIBUTE(XPixelAngle, xPixelAngle)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_ATTRIBUTE(Shaker, shaker)
    SN_COLOR_ATTRIBUTE(Channel1, channel1)
    SN_COLOR_ATTRIBUTE(Channel2, channel2)
    SN_COLOR_ATTRIBUTE(Channel3, channel3)
    SN_ATTRIBUTE(Melt, melt)
    SN_ATTRIBUTE(Balance, balance)
    SN_ATTRIBUTE(Frequency, frequency)
    SN_ATTRIBUTE(NormDepth, normDepth)
    SN_ATTRIBUTE(NormMelt, normMelt)
    SN_ATTRIBUTE(NormBalance, normBalance)
    SN_ATTRIBUTE(NormFrequency, normFrequency)
    SN_VECTOR_ATTRIBUTE(OutNormal, outNormal)

    // Height gradient to normal tilt, per unit of normDepth.
    static constexpr float kBumpScale = 0.02f;

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The crater radius, in cells, for a balance: 0.35 at 0, growing with
    // the balance, held to 0.05 to 0.9.
    static float sRadius(float balance) { return std::clamp(0.35f * (1.0f + balance), 0.05f, 0.9f); }
    // The shape at the placed point p. The point is scaled by `frequency`
    // and pushed by a warp `shaker` strong, so that the grid does not show.
    static TcraterShape sShape(const T3Float& p, float shaker, float frequency, float balance, float melt);
    // The relief: the rim up, the floor down.
    static float sHeight(const T3Float& p, float shaker, float frequency, float balance, float melt) {
        TcraterShape s = sShape(p, shaker, frequency, balance, melt);
        return s.rim - s.floor;
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
