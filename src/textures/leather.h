#pragma once
// TdnLeather: cells of `cellColor` parted by creases of `creaseColor` where
// two cells meet, with darker pores at the cell centres.
#include "textures/texture_3d.h"

struct TdnVSLeather : TdnVSSolid {
    TcolorAttribute cellColor{"cellColor", "ce", TiffTag("CEL3")};
    TcolorAttribute creaseColor{"creaseColor", "cr", TiffTag("CRE3")};
    TattributeFloat cellSize{"cellSize", "cs", TiffTag("SIZE")};
    TattributeFloat density{"density", "d", TiffTag("DENS")};
    TattributeFloat spottyness{"spottyness", "s", TiffTag("SPOT")};
    TattributeFloat randomness{"randomness", "r", TiffTag("RAND")};
    TattributeFloat threshold{"threshold", "th", TiffTag("THRE")};
    TattributeBoolean creases{"creases", "c", TiffTag("CREA")};
    TdnVSLeather();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TleatherParams {
    float cellSize = 0.5f, density = 1.0f, spottyness = 0.1f, randomness = 0.5f, threshold = 0.83f;
    bool creases = true;
};

class TdnLeather : public TnodeClass<TdnLeather, TdnTx3D, TdnVSLeather> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnLeather", 504, "kLeather");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_COLOR_ATTRIBUTE(CellColor, cellColor)
    SN_COLOR_ATTRIBUTE(CreaseColor, creaseColor)
    SN_ATTRIBUTE(CellSize, cellSize)
    SN_ATTRIBUTE(Density, density)
    SN_ATTRIBUTE(Spottyness, spottyness)
    SN_ATTRIBUTE(Randomness, randomness)
    SN_ATTRIBUTE(Threshold, threshold)
    SN_ATTRIBUTE(Creases, creases)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

    // The weight of creaseColor at the placed point p; cellColor has 1 minus it.
    static float sCreaseWeight(const TleatherParams& l, const T3Float& p);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
