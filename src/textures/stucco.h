#pragma once
// TdnStucco: blotches of two channels from a fractal noise whose frequency
// `shaker` sets, and the plaster's relief as a bump: outNormal is
// the offset that relief gives a normal (add it to the normal, then
// normalise), since the texture does not see the surface's own normal:
// minus normalDepth * kBumpScale / shaker times the relief's gradient.
#include "textures/texture_3d.h"

struct TdnVSStucco : TdnVSSolid {
    TattributeFloat shaker{"shaker", "sh", TiffTag("SHAK")};
    TcolorAttribute channel1{"channel1", "c1", TiffTag("CHA1")};
    TcolorAttribute channel2{"channel2", "c2", TiffTag("CHA2")};
    TattributeFloat normalMelt{"normalMelt", "nm", TiffTag("MELT")};
    TattributeFloat normalDepth{"normalDepth", "nd", TiffTag("DEPT")};
    TvectorAttribute outNormal{"outNormal", "on", TiffTag("ONOR")};
    TdnVSStucco();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnStucco : public TnodeClass<TdnStucco, TdnTx3D, TdnVSStucco> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnStucco", 509, "kStucco");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_ATTRIBUTE(Shaker, shaker)
    SN_COLOR_ATTRIBUTE(Channel1, channel1)
    SN_COLOR_ATTRIBUTE(Channel2, channel2)
    SN_ATTRIBUTE(NormalMelt, normalMelt)
    SN_ATTRIBUTE(NormalDepth, normalDepth)
    SN_VECTOR_ATTRIBUTE(OutNormal, outNormal)

    // Octaves of the noise.
    static constexpr float kOctaves = 4.0f;
    // Height gradient to normal offset, per unit of normalDepth and of the
    // feature size 1 / shaker: the relief stands as high as its blotches are
    // wide, whatever the frequency.
    static constexpr float kBumpScale = 0.05f;

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The noise at the placed point p, about -1 to 1.
    static float sNoise(const T3Float& p, float shaker);
    // The weight of channel2 for a noise value; channel1 has 1 minus it.
    static float sChannel2Weight(float noise) { return noise <= -0.5f ? 0.0f : noise >= 0.5f ? 1.0f : noise + 0.5f; }
    // The relief, 0 to 1: the noise through a smooth step `melt` wide, so
    // that a small melt gives flat plateaus with steep edges.
    static float sHeight(const T3Float& p, float shaker, float melt);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
