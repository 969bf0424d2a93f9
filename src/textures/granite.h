#pragma once
// TdnGranite: grains of three colours scattered over a filler, one grain to
// a cell of the solid cell field; mixRatio shares the grains out among the
// colours.
#include "textures/texture_3d.h"

struct TdnVSGranite : TdnVSSolid {
    TcolorAttribute color1{"color1", "c1", TiffTag("CO13")};
    TcolorAttribute color2{"color2", "c2", TiffTag("CO23")};
    TcolorAttribute color3{"color3", "c3", TiffTag("CO33")};
    TcolorAttribute fillerColor{"fillerColor", "fc", TiffTag("FIL3")};
    TattributeFloat cellSize{"cellSize", "cs", TiffTag("SIZE")};
    TattributeFloat density{"density", "dy", TiffTag("DENS")};
    TattributeFloat mixRatio{"mixRatio", "mr", TiffTag("MIXR")};
    TattributeFloat spottyness{"spottyness", "s", TiffTag("SPOT")};
    TattributeFloat randomness{"randomness", "ra", TiffTag("RAND")};
    TattributeFloat threshold{"threshold", "th", TiffTag("THRE")};
    TattributeBoolean creases{"creases", "c", TiffTag("CREA")};
    TdnVSGranite();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TgraniteParams {
    float cellSize = 0.15f, density = 1.0f, mixRatio = 0.5f, spottyness = 0.3f, randomness = 1.0f, threshold = 0.5f;
    bool creases = true;
};

// A grain: which of the three colours, and how much of it over the filler.
struct TgraniteGrain {
    int colour;
    float weight;
};

class TdnGranite : public TnodeClass<TdnGranite, TdnTx3D, TdnVSGranite> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnGranite", 503, "kGranite");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_COLOR_ATTRIBUTE(Color1, color1)
    SN_COLOR_ATTRIBUTE(Color2, color2)
    SN_COLOR_ATTRIBUTE(Color3, color3)
    SN_COLOR_ATTRIBUTE(FillerColor, fillerColor)
    SN_ATTRIBUTE(CellSize, cellSize)
    SN_ATTRIBUTE(Density, density)
    SN_ATTRIBUTE(MixRatio, mixRatio)
    SN_ATTRIBUTE(Spottyness, spottyness)
    SN_ATTRIBUTE(Randomness, randomness)
    SN_ATTRIBUTE(Threshold, threshold)
    SN_ATTRIBUTE(Creases, creases)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The colour a grain of tone t (0 to 1) takes: color1 below mixRatio / 2,
    // color2 below mixRatio, color3 above.
    static int sColourOfTone(float tone, float mixRatio);
    static TgraniteGrain sGrain(const TgraniteParams& g, const T3Float& p);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
