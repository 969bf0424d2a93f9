#pragma once
// TdnTxEnv: the base of the environment textures, read along a ray. It
// declares their shared attributes and turns the ray into a direction in
// the environment's placement space.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "textures/texture_attributes.h"

struct TdnVSTxEnv : TdependNodeVS {
    TattributeChar objectType{"objectType", "ot", TiffTag("OTYP")};
    TattributeFltMatrix placementMatrix{"placementMatrix", "pm", TiffTag("PMAT")};
    TattributeFltMatrix matrixEyeToWorld{"matrixEyeToWorld", "e2w", TiffTag("E2WM")};
    TattributeFloat xPixelAngle{"xPixelAngle", "xpa", TiffTag("XPIX")};
    TvectorAttribute normalCamera{"normalCamera", "n", TiffTag("NOR3")};
    TvectorAttribute rayDirection{"rayDirection", "r", TiffTag("RAY3")};
    TpairAttribute uvCoord{"uvCoord", "uv", TiffTag("UVPT"), "uCoord", "u", TiffTag("UPNT"), "vCoord", "v", TiffTag("VPNT")};
    TpairAttribute uvFilterSize{"uvFilterSize", "uf", TiffTag("FSZ2"), "uvFilterSizeX", "ufx", TiffTag("FSZU"), "uvFilterSizeY",
                                "ufy", TiffTag("FSZV")};
    TvectorAttribute filterSize{"filterSize", "fs", TiffTag("FSZ3")};
    TnamedTripleAttribute outColor{"outColor", "oc", TiffTag("OUT3"), {"outColorR", "ocr", TiffTag("ORED")},
                                   {"outColorG", "ocg", TiffTag("OGRE")}, {"outColorB", "ocb", TiffTag("OBLU")}};
    TattributeFloat outAlpha{"outAlpha", "oa", TiffTag("OALP")};

    TdnVSTxEnv();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnTxEnv : public TnodeClass<TdnTxEnv, TrenderNode, TdnVSTxEnv> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnTxEnv", 486, "kTextureEnv", true);
    // The angle one pixel covers when the renderer gives none.
    static constexpr float kDefaultPixelAngle = 0.00205f;

    SN_ATTRIBUTE(ObjectType, objectType)
    SN_ATTRIBUTE(PlacementMatrix, placementMatrix)
    SN_ATTRIBUTE(MatrixEyeToWorld, matrixEyeToWorld)
    SN_ATTRIBUTE(XPixelAngle, xPixelAngle)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_VECTOR_ATTRIBUTE(RayDirection, rayDirection)
    SN_PAIR_ATTRIBUTE(UvCoord, uvCoord, U, V)
    SN_PAIR_ATTRIBUTE(UvFilterSize, uvFilterSize, X, Y)
    SN_VECTOR_ATTRIBUTE(FilterSize, filterSize)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_ATTRIBUTE(OutAlpha, outAlpha)

    // outColor, one of its children, or outAlpha.
    static bool isColorOutput(const Tplug& plug);
    // The ray's direction in placement space, of unit length: camera to
    // world, then the placement. A zero ray gives (0, 0, 1).
    static T3Float sPlacedDirection(const T3Float& rayCamera, const TfltMatrix& eyeToWorld, const TfltMatrix& placement);
};
