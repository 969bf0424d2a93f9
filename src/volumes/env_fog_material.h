#pragma once
// TdnEnvFogMaterial: fog over the whole view, from the eye to what a ray
// meets. The simple branch fogs by distance (optionally between near and
// far planes of its own, inside a height band, and thinned by a layer) and
// colours by the light loop of the light fog; the physical branch hands
// each ray segment to the sky-fog model built from the node's attributes.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "volumes/fog_outputs.h"
#include "volumes/sky_fog.h"

struct TdnVSEnvFogMaterial : TdependNodeVS {
    // The sample: the interval's start in camera space, its direction, its
    // thickness in filterSize's Z, its start in world space.
    TattributeMatrix matrixEyeToWorld{"matrixEyeToWorld", "e2w", TiffTag("EFEW")};
    TtripleAttribute pointCamera{"pointCamera", "p", TiffTag("EFP3"), "XYZ", kPointShort};
    TvectorAttribute pointWorld{"pointWorld", "pw", TiffTag("EFW3")};
    TtripleAttribute rayDirection{"rayDirection", "r", TiffTag("EFR3"), "XYZ", kRayShort};
    TvectorAttribute filterSize{"filterSize", "fs", TiffTag("EFFS")};
    TattributeLightData lightDataArray{"lightDataArray", "ltd", TiffTag("EFLD")};

    // The simple fog.
    TcolorAttribute color{"color", "cl", TiffTag("EFC3")};
    TattributeBoolean colorBasedTransparency{"colorBasedTransparency", "cbt", TiffTag("EFCB")};
    TattributeEnum distanceClipPlanes{"distanceClipPlanes", "dcp", TiffTag("EFDC")};
    TattributeBoolean useLayer{"useLayer", "ul", TiffTag("EFUL")};
    TattributeBoolean useHeight{"useHeight", "uh", TiffTag("EFUH")};
    TattributeFloat blendRange{"blendRange", "br", TiffTag("EFBR")};
    TattributeFloat saturationDistance{"saturationDistance", "sdt", TiffTag("EFSD")};
    TattributeFloat fogNearDistance{"fogNearDistance", "fnd", TiffTag("EFND")};
    TattributeFloat fogFarDistance{"fogFarDistance", "ffd", TiffTag("EFFD")};
    TattributeFloat layer{"layer", "layer", TiffTag("EFLY")};
    TattributeFloat minHeight{"minHeight", "mnh", TiffTag("EFMN")};
    TattributeFloat maxHeight{"maxHeight", "mxh", TiffTag("EFMX")};
    TattributeBoolean useDistance{"useDistance", "ud", TiffTag("EFUD")};
    TattributeFloat startDistance{"startDistance", "sd", TiffTag("EFSS")};
    TattributeFloat endDistance{"endDistance", "ed", TiffTag("EFED")};

    // The physical fog.
    TattributeBoolean physicalFog{"physicalFog", "sff", TiffTag("EFPF")};
    TattributeEnum fogType{"fogType", "ftp", TiffTag("EFTP")};
    TattributeFloat fogDensity{"fogDensity", "fdn", TiffTag("EFFN")};
    TcolorAttribute fogColor{"fogColor", "fcl", TiffTag("EFF3")};
    TcolorAttribute fogOpacity{"fogOpacity", "fop", TiffTag("EFO3")};
    TattributeFloat fogMinHeight{"fogMinHeight", "fmh", TiffTag("EFFH")};
    TattributeFloat fogMaxHeight{"fogMaxHeight", "fxh", TiffTag("EFFX")};
    TattributeFloat fogDecay{"fogDecay", "fdc", TiffTag("EFFE")};
    TattributeFloat fogLightScatter{"fogLightScatter", "flc", TiffTag("EFFL")};
    TattributeFloat airDensity{"airDensity", "adn", TiffTag("EFAN")};
    TcolorAttribute airColor{"airColor", "acl", TiffTag("EFA3")};
    TcolorAttribute airOpacity{"airOpacity", "aop", TiffTag("EFQ3")};
    TattributeFloat airMinHeight{"airMinHeight", "amh", TiffTag("EFAH")};
    TattributeFloat airMaxHeight{"airMaxHeight", "axh", TiffTag("EFAX")};
    TattributeFloat airDecay{"airDecay", "adc", TiffTag("EFAE")};
    TattributeFloat airLightScatter{"airLightScatter", "alc", TiffTag("EFAL")};
    TattributeFloat waterDensity{"waterDensity", "wdn", TiffTag("EFWN")};
    TcolorAttribute waterColor{"waterColor", "wcl", TiffTag("EFV3")};
    TcolorAttribute waterOpacity{"waterOpacity", "wop", TiffTag("EFU3")};
    TattributeFloat waterLevel{"waterLevel", "wlv", TiffTag("EFWL")};
    TattributeFloat waterDepth{"waterDepth", "wdp", TiffTag("EFWD")};
    TattributeFloat waterLightDecay{"waterLightDecay", "wdc", TiffTag("EFWE")};
    TattributeFloat waterLightScatter{"waterLightScatter", "wlc", TiffTag("EFWS")};
    TattributeFloat planetRadius{"planetRadius", "prd", TiffTag("EFPR")};
    TattributeEnum fogAxis{"fogAxis", "fax", TiffTag("EFAA")};
    TattributeFloat sunIntensity{"sunIntensity", "sin", TiffTag("EFSI")};
    TattributeFloat sunAzimuth{"sunAzimuth", "saz", TiffTag("EFSA")};
    TattributeFloat sunElevation{"sunElevation", "sel", TiffTag("EFSE")};
    TcolorAttribute sunColor{"sunColor", "snc", TiffTag("EFS3")};

    TfogOutputs io{TiffTag("EFOC"), TiffTag("EFOT"), TiffTag("EFOM"), TiffTag("EFMM"), TiffTag("EFMG")};

    static constexpr const char* kPointShort[3] = {"px", "py", "pz"};
    static constexpr const char* kRayShort[3] = {"rx", "ry", "rz"};
    TdnVSEnvFogMaterial();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnEnvFogMaterial : public TnodeClass<TdnEnvFogMaterial, TrenderNode, TdnVSEnvFogMaterial> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnEnvFogMaterial", 521, "kEnvFog");
    enum DistanceClipPlanes : short { kCameraNearFar = 0, kFogNearFar = 1 };
    // While a swatch renders, its tiny thickness stands for this much more.
    static constexpr float kSwatchThickness = 1000.0f;

    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(SaturationDistance, saturationDistance)
    SN_ATTRIBUTE(PhysicalFog, physicalFog)
    SN_COLOR_ATTRIBUTE(OutColor, io.outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, io.outTransparency)
    SN_COLOR_ATTRIBUTE(OutMatteOpacity, io.outMatteOpacity)

    // The physical model as the attributes describe it, initialised.
    TskyFog skyFog();
    // The physical branch for samples [start, end).
    void skyFogVectorComputePlug(TdataBlock& block, unsigned start, unsigned end);

    void shadingNodeInit(TframeSampleData* data) override;
    void endOfRender(TDNshadingEngine* engine) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    void simpleFog(TdataBlock& block, unsigned first, unsigned count);
    // Read once per render: the eye's placement and the physical model. A
    // compute outside a render reads the attributes each time instead.
    bool fPrepared = false;
    Tmatrix fEyeToWorld;
    TskyFog fSkyFog;
};
