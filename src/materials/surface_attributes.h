#pragma once
// The attribute groups every surface material declares under its own
// description: the translucence, glow, matte and refraction settings; the
// four outputs; the inputs the sample fills; and the lights of the sample.
// Lambert and the ramp shader each hold one of each group, so both have the
// same names, tags, defaults and flags, and the shared surface code
// (materials/surface_rays.h) reads either through the group.
#include "framework/host/attribute_groups.h"
#include "framework/host/depend_node.h"
#include "shading/light_data.h"

// The light data array: one TlightData record per light, read whole. The
// members are declared as children for their names and dependencies; the
// record's layout is TlightData's.
class TlightDataArrayAttribute : public TattributeLightData {
public:
    TlightDataArrayAttribute(const Tstring& longName, const Tstring& shortName, TiffTag tag);
};

// What the artist sets beyond colour and diffuse, in declaration order.
struct TsurfaceSettings {
    TattributeFloat translucence{"translucence", "tc", TiffTag("TRLC")};
    TattributeFloat translucenceFocus{"translucenceFocus", "tcf", TiffTag("TRLF")};
    TattributeFloat translucenceDepth{"translucenceDepth", "trsd", TiffTag("TRSD")};
    TattributeFloat opacityDepth{"opacityDepth", "opad", TiffTag("OPAD")};
    TattributeFloat glowIntensity{"glowIntensity", "gi", TiffTag("GLOI")};
    TattributeBoolean hideSource{"hideSource", "hs", TiffTag("HSRC")};
    TattributeEnum matteOpacityMode{"matteOpacityMode", "mom", TiffTag("MOMD")};
    TattributeFloat matteOpacity{"matteOpacity", "mog", TiffTag("MOGN")};
    TattributeFloat materialAlphaGain{"materialAlphaGain", "maga", TiffTag("MAGA")};
    TattributeBoolean refractions{"refractions", "rfc", TiffTag("RFRC")};
    TattributeFloat refractiveIndex{"refractiveIndex", "rfi", TiffTag("RFRI")};
    TattributeInt16 refractionLimit{"refractionLimit", "rdl", TiffTag("RFDL")};
    TattributeFloat surfaceThickness{"surfaceThickness", "thik", TiffTag("THIK")};
    TattributeFloat shadowAttenuation{"shadowAttenuation", "fakc", TiffTag("FAKC")};
    TattributeFloat transparencyDepth{"transparencyDepth", "trdp", TiffTag("TRDP")};
    TattributeFloat lightAbsorbance{"lightAbsorbance", "absb", TiffTag("ABSB")};
    TattributeBoolean chromaticAberration{"chromaticAberration", "crab", TiffTag("CRAB")};

    TsurfaceSettings();
};

// Outputs, sample inputs and lights, in declaration order.
struct TsurfaceIO {
    TcolorAttribute outColor{"outColor", "oc", TiffTag("OCOL")};
    TcolorAttribute outTransparency{"outTransparency", "ot", TiffTag("OTSP")};
    TtripleAttribute outGlowColor{"outGlowColor", "ogc", TiffTag("OGCL"), "RGB", kGlowShort};
    TcolorAttribute outMatteOpacity{"outMatteOpacity", "omo", TiffTag("OMOP")};

    // Fed by the renderer and the sample, hidden from the artist.
    TattributeAddr objectId{"objectId", "oi", TiffTag("OBJI")};
    TattributeInt32 primitiveId{"primitiveId", "pi", TiffTag("PRID")};
    TattributeAddr raySampler{"raySampler", "rtr", TiffTag("RTRS")};
    // 32-bit like the sample's ray depth, so that analysis feeds it by name.
    TattributeInt32 rayDepth{"rayDepth", "rd", TiffTag("RDEP")};
    TattributeInt32 rayInstance{"rayInstance", "ryi", TiffTag("RYIN")};
    TattributeFloat mediumRefractiveIndex{"mediumRefractiveIndex", "mrfi", TiffTag("MRFI")};
    TtripleAttribute rayDirection{"rayDirection", "rad", TiffTag("RAD3"), "XYZ", kRayDirectionShort};
    TtripleAttribute pointCamera{"pointCamera", "pc", TiffTag("PCM3"), "XYZ", kPointCameraShort};
    TvectorAttribute normalCamera{"normalCamera", "n", TiffTag("NRM3")};

    // The lights of the sample.
    TlightDataArrayAttribute lightDataArray{"lightDataArray", "ltd", TiffTag("LITD")};
    TvectorAttribute lightDirection{"lightDirection", "ld", TiffTag("LDIR")};
    TcolorAttribute lightIntensity{"lightIntensity", "li", TiffTag("LINN")};
    TattributeBoolean lightAmbient{"lightAmbient", "la", TiffTag("LAMB")};
    TattributeBoolean lightDiffuse{"lightDiffuse", "ldf", TiffTag("LDIF")};
    TattributeBoolean lightSpecular{"lightSpecular", "ls", TiffTag("LSPC")};
    TattributeFloat lightShadowFraction{"lightShadowFraction", "lsf", TiffTag("LSFR")};
    TattributeFloat preShadowIntensity{"preShadowIntensity", "psi", TiffTag("PSIT")};
    TattributeAddr lightBlindData{"lightBlindData", "lbd", TiffTag("LTBD")};

    static constexpr const char* kGlowShort[3] = {"ogr", "ogg", "ogb"};
    static constexpr const char* kRayDirectionShort[3] = {"rdx", "rdy", "rdz"};
    static constexpr const char* kPointCameraShort[3] = {"px", "py", "pz"};

    TsurfaceIO();
};

// The description base of a surface material: the dependencies of the
// shared groups, declared once.
struct TsurfaceDescription : TdependNodeVS {
protected:
    // Every setting, sample input and light affects the colour outputs; the
    // settings and ray context that transparency and refraction read affect
    // transparency and matte.
    void declareSurfaceDependencies(TdependencyMatrix& m, const TsurfaceSettings& s, const TsurfaceIO& io);
};
