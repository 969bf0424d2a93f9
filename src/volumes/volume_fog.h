#pragma once
// TdnVolumeFog: fog filling a primitive (sphere, cube, cone). Extinction
// comes from the transparency and density, faded towards the shape's edges
// by a drop-off shape; the fog can be lit by the scene's lights with a
// forward or backward scatter, and coloured along a ramp.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "utilities/remap.h"
#include "volumes/fog_outputs.h"

struct TdnVSVolumeFog : TdependNodeVS {
    // The sample: the interval's ends and the ray.
    TtripleAttribute rayDirection{"rayDirection", "rad", TiffTag("VFR3"), "XYZ", kRayShort};
    TvectorAttribute pointWorld{"pointWorld", "pw", TiffTag("VFW3")};
    TvectorAttribute farPointWorld{"farPointWorld", "fw", TiffTag("VFF3")};
    TvectorAttribute pointObj{"pointObj", "po", TiffTag("VFO3")};
    TvectorAttribute farPointObj{"farPointObj", "fo", TiffTag("VFP3")};
    TattributeMatrix matrixWorldToEye{"matrixWorldToEye", "wte", TiffTag("VFWE")};
    TattributeLightData lightDataArray{"lightDataArray", "ltd", TiffTag("VFLD")};

    TcolorAttribute color{"color", "cl", TiffTag("VFC3")};
    TattributeEnum colorRampInput{"colorRampInput", "cri", TiffTag("VFRI")};
    TcolorCurveAttribute colorRamp{"colorRamp", "crm", TiffTag("VFCR")};
    TcolorAttribute transparency{"transparency", "t", TiffTag("VFT3")};
    TcolorAttribute incandescence{"incandescence", "ic", TiffTag("VFI3")};
    TattributeFloat glowIntensity{"glowIntensity", "gi", TiffTag("VFGI")};
    TtripleAttribute outGlowColor{"outGlowColor", "ogc", TiffTag("VFGC"), "RGB", kGlowShort};
    TattributeFloat density{"density", "dns", TiffTag("VFDN")};
    TattributeEnum densityMode{"densityMode", "dmd", TiffTag("VFDM")};
    TattributeEnum dropoffShape{"dropoffShape", "dos", TiffTag("VFDS")};
    TattributeFloat edgeDropoff{"edgeDropoff", "edr", TiffTag("VFED")};
    TattributeFloat axialDropoff{"axialDropoff", "axd", TiffTag("VFAD")};
    TattributeEnum dropoffMethod{"dropoffMethod", "drm", TiffTag("VFDR")};
    TattributeFloat dropoffSubtract{"dropoffSubtract", "drs", TiffTag("VFSU")};
    TattributeBoolean illuminated{"illuminated", "il", TiffTag("VFIL")};
    TattributeFloat lightScatter{"lightScatter", "lsc", TiffTag("VFLS")};
    TfogOutputs io{TiffTag("VFOC"), TiffTag("VFOT"), TiffTag("VFOM"), TiffTag("VFMM"), TiffTag("VFMG")};

    static constexpr const char* kRayShort[3] = {"rdx", "rdy", "rdz"};
    static constexpr const char* kGlowShort[3] = {"ogr", "ogg", "ogb"};
    TdnVSVolumeFog();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnVolumeFog : public TnodeClass<TdnVolumeFog, TrenderNode, TdnVSVolumeFog> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnVolumeFog", 522, "kVolumeFog");
    enum ColorRampInput : short { kConstant = 0, kTransparency = 1, kConcentric = 2, kRampY = 3 };
    enum Space : short { kWorldSpace = 0, kObjectSpace = 1 };
    enum DropoffShape : short { kOff = 0, kSphereFade = 1, kCubeFade = 2, kConeFade = 3, kLightConeFade = 4 };
    enum DropoffMethod : short { kTranspFade = 0, kSubDensity = 1 };
    // Out transparencies at or above this in all channels carry no glow.
    static constexpr float kNoGlowTransparency = 0.99f;

    SN_COLOR_ATTRIBUTE(Color, color)
    SN_COLOR_ATTRIBUTE(Transparency, transparency)
    SN_ATTRIBUTE(Density, density)
    SN_ATTRIBUTE(GlowIntensity, glowIntensity)
    SN_COLOR_ATTRIBUTE(OutColor, io.outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, io.outTransparency)
    SN_COLOR_ATTRIBUTE(OutMatteOpacity, io.outMatteOpacity)

    // The drop-off factor at `middle`, the interval's middle in the unit
    // shape's coordinates: 1 inside, fading to 0 at the shape's edges.
    static float dropoff(short shape, const T3Float& middle, float edge, float axial);
    // glowIntensity, for the glow pass to know whether the node can glow.
    void getGlowIntensity(float& value);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
