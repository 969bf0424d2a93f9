#pragma once
// TdnStencil: shows its `image` over the default colour, cut by a mask made
// of the `mask` input, a soft edge towards the border of the unit square,
// and optionally a colour key (the parts of the image near `colorKey` in
// hue, saturation and value are cut, or with `positiveKey` kept).
#include "textures/texture_2d.h"

struct TdnVSStencil : TdependNodeVS {
    TcolorAttribute image{"image", "im", TiffTag("IMA3")};
    TattributeFloat mask{"mask", "m", TiffTag("MASK")};
    TattributeFloat edgeBlend{"edgeBlend", "eb", TiffTag("EDGE")};
    TattributeBoolean keyMasking{"keyMasking", "km", TiffTag("KEYM")};
    TattributeBoolean positiveKey{"positiveKey", "pk", TiffTag("POSK")};
    TcolorAttribute colorKey{"colorKey", "ck", TiffTag("KEY3")};
    TattributeFloat hueRange{"hueRange", "hr", TiffTag("HUER")};
    TattributeFloat saturationRange{"saturationRange", "sr", TiffTag("SATR")};
    TattributeFloat valueRange{"valueRange", "vr", TiffTag("VALR")};
    TattributeFloat threshold{"threshold", "th", TiffTag("THRE")};
    TdnVSStencil();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TstencilKey {
    T3Float colorKey;
    float hueRange = 0.5f, saturationRange = 0.5f, valueRange = 0.5f, threshold = 0.5f;
    bool positiveKey = false;
};

class TdnStencil : public TnodeClass<TdnStencil, TdnTx2D, TdnVSStencil> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnStencil", 498, "kStencil");
    // A range at or below this divides by it instead.
    static constexpr float kMinRange = 0.004f;

    SN_COLOR_ATTRIBUTE(Image, image)
    SN_ATTRIBUTE(Mask, mask)
    SN_ATTRIBUTE(EdgeBlend, edgeBlend)
    SN_ATTRIBUTE(KeyMasking, keyMasking)
    SN_ATTRIBUTE(PositiveKey, positiveKey)
    SN_COLOR_ATTRIBUTE(ColorKey, colorKey)
    SN_ATTRIBUTE(HueRange, hueRange)
    SN_ATTRIBUTE(SaturationRange, saturationRange)
    SN_ATTRIBUTE(ValueRange, valueRange)
    SN_ATTRIBUTE(Threshold, threshold)

    // The soft edge: 0 on the border of the unit square, rising to 1 at a
    // distance of edgeBlend / 2 from it; 1 everywhere when edgeBlend is 0.
    static float sEdge(float u, float v, float edgeBlend);
    // How much of the image the colour key keeps, 0 to 1.
    static float sKeep(const T3Float& image, const TstencilKey& key);

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;
    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
