#pragma once
// TdnCloud: a fractal sum of value noise shading between two colours, with
// an opacity that thins out towards the silhouette of the surface so that
// a cloud-textured shape shows no hard edge.
#include "textures/texture_3d.h"

struct TdnVSCloud : TdnVSSolidView {
    TattributeFltMatrix eyeToTextureMatrix{"eyeToTextureMatrix", "e2t", TiffTag("E2TM")};
    TcolorAttribute color1{"color1", "c1", TiffTag("CO13")};
    TcolorAttribute color2{"color2", "c2", TiffTag("CO23")};
    TattributeFloat contrast{"contrast", "c", TiffTag("CONT")};
    TattributeBoolean softEdges{"softEdges", "se", TiffTag("SOFT")};
    TattributeFloat transpRange{"transpRange", "tr", TiffTag("TRNG")};
    TattributeFloat centerThresh{"centerThresh", "ct", TiffTag("CNTT")};
    TattributeFloat edgeThresh{"edgeThresh", "et", TiffTag("EDGT")};
    TsolidOctaveAttributes octave;
    TattributeFloat amplitude{"amplitude", "a", TiffTag("AMPL")};
    TattributeFloat ratio{"ratio", "ra", TiffTag("RATI")};
    TdnVSCloud();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TcloudParams {
    float contrast = 0.5f;
    bool softEdges = true;
    float transpRange = 0.5f, centerThresh = 0.0f, edgeThresh = 1.0f;
    T3Float ripples{1, 1, 1};
    T2Float depth{0, 0};
    float amplitude = 1.0f, ratio = 0.707f;
};

struct TcloudSample {
    float color1Weight;  // color2 takes 1 minus it
    float opacity;
};

class TdnCloud : public TnodeClass<TdnCloud, TdnTx3D, TdnVSCloud> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnCloud", 501, "kCloud");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_ATTRIBUTE(XPixelAngle, xPixelAngle)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_ATTRIBUTE(EyeToTextureMatrix, eyeToTextureMatrix)
    SN_COLOR_ATTRIBUTE(Color1, color1)
    SN_COLOR_ATTRIBUTE(Color2, color2)
    SN_ATTRIBUTE(Contrast, contrast)
    SN_ATTRIBUTE(SoftEdges, softEdges)
    SN_ATTRIBUTE(TranspRange, transpRange)
    SN_ATTRIBUTE(CenterThresh, centerThresh)
    SN_ATTRIBUTE(EdgeThresh, edgeThresh)
    SN_VECTOR_ATTRIBUTE(Ripples, octave.ripples)
    SN_PAIR_ATTRIBUTE(Depth, octave.depth, Min, Max)
    SN_ATTRIBUTE(Amplitude, amplitude)
    SN_ATTRIBUTE(Ratio, ratio)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The cloud at the placed point p for the footprint w, seen along
    // `view` on a surface of normal `normal` (both in camera space).
    static TcloudSample sSample(const TcloudParams& c, const T3Float& p, float w, const T3Float& view, const T3Float& normal);
    // The opacity for a density x against a threshold: 0 well below, 1
    // well above, an exponential between.
    static float sOpacity(float x, float threshold, float transpRange);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
