#pragma once
// TdnSnow: snow where the surface faces up. The camera normal is turned
// into texture space; how far its up component passes the threshold sets
// how thick the snow lies.
#include "textures/texture_3d.h"

struct TdnVSSnow : TdnVSSolidView {
    TattributeFltMatrix eyeToTextureMatrix{"eyeToTextureMatrix", "e2t", TiffTag("E2TM")};
    TcolorAttribute snowColor{"snowColor", "sn", TiffTag("SNO3")};
    TcolorAttribute surfaceColor{"surfaceColor", "su", TiffTag("SUR3")};
    TattributeFloat threshold{"threshold", "th", TiffTag("THRE")};
    TattributeFloat depthDecay{"depthDecay", "dd", TiffTag("DECA")};
    TattributeFloat thickness{"thickness", "tn", TiffTag("THIC")};
    TdnVSSnow();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnSnow : public TnodeClass<TdnSnow, TdnTx3D, TdnVSSnow> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnSnow", 507, "kSnow");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_ATTRIBUTE(XPixelAngle, xPixelAngle)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_ATTRIBUTE(EyeToTextureMatrix, eyeToTextureMatrix)
    SN_COLOR_ATTRIBUTE(SnowColor, snowColor)
    SN_COLOR_ATTRIBUTE(SurfaceColor, surfaceColor)
    SN_ATTRIBUTE(Threshold, threshold)
    SN_ATTRIBUTE(DepthDecay, depthDecay)
    SN_ATTRIBUTE(Thickness, thickness)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // 1 / sqrt(x) from the bit-level first guess and one Newton step:
    // within 0.2 percent, which a normal's up component does not notice.
    static float sFastInverseSqrt(float x);
    // The snow amount for the camera normal n: 0 on surfaces facing down
    // or sideways past the threshold, up to `thickness` facing up.
    static float sAmount(const TfltMatrix& eyeToTexture, const T3Float& n, float threshold, float depthDecay, float thickness);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
