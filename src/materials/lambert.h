#pragma once
// TdnLambert: the diffuse surface, and the base of every surface material.
// It turns the colour inputs, the sample's light records and its ray context
// into outColor, outGlowColor, outTransparency and outMatteOpacity. The
// specular family derives from it and adds one term; transparency,
// refraction, black hole and glow are written here once for all of them.
#include <algorithm>

#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "shading/light_data.h"
#include "shading/ray_sampler.h"

class TlightCallbacks;

// The light data array: one TlightData record per light, read whole. The
// members are declared as children for their names and dependencies; the
// record's layout is TlightData's.
class TlightDataArrayAttribute : public TattributeLightData {
public:
    TlightDataArrayAttribute(const Tstring& longName, const Tstring& shortName, TiffTag tag);
};

struct TdnVSLambert : TdependNodeVS {
    // What the artist sets.
    TcolorAttribute color{"color", "c", TiffTag("COL3")};
    TcolorAttribute transparency{"transparency", "it", TiffTag("TRN3")};
    TcolorAttribute ambientColor{"ambientColor", "ambc", TiffTag("AMB3")};
    TcolorAttribute incandescence{"incandescence", "ic", TiffTag("INC3")};
    TattributeFloat diffuse{"diffuse", "dc", TiffTag("DIFC")};
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

    // Outputs.
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

    // Stored for a vector renderer; nothing here reads them.
    TattributeBoolean vrOverwriteDefaults{"vrOverwriteDefaults", "vrod", TiffTag("VROD")};
    TattributeEnum vrFillObject{"vrFillObject", "vrfo", TiffTag("VRFO")};
    TattributeDouble vrEdgeWeight{"vrEdgeWeight", "vrew", TiffTag("VREW")};
    TcolorAttribute vrEdgeColor{"vrEdgeColor", "vrec", TiffTag("VRE3")};
    TattributeEnum vrEdgeStyle{"vrEdgeStyle", "vres", TiffTag("VRES")};
    TattributeInt32 vrEdgePriority{"vrEdgePriority", "vrep", TiffTag("VREP")};
    TattributeBoolean vrHiddenEdges{"vrHiddenEdges", "vrhe", TiffTag("VRHE")};
    TattributeBoolean vrHiddenEdgesOnTransparent{"vrHiddenEdgesOnTransparent", "vrht", TiffTag("VRHT")};
    TattributeBoolean vrOutlinesAtIntersections{"vrOutlinesAtIntersections", "vroi", TiffTag("VROI")};
    // An input of the hardware path.
    TcolorAttribute hardwareShader{"hardwareShader", "hws", TiffTag("HWS3")};

    // Carried for an external renderer; never read here.
    TattributeFloat miRefractionBlur{"miRefractionBlur", "mirfb", TiffTag("MRFB")};
    TattributeInt16 miRefractionRays{"miRefractionRays", "mirfr", TiffTag("MRFR")};
    TcolorAttribute miIrradiance{"miIrradiance", "mii", TiffTag("MII3")};
    TcolorAttribute miIrradianceColor{"miIrradianceColor", "miic", TiffTag("MIC3")};
    TattributeBoolean miDeriveFromTovi{"miDeriveFromTovi", "mift", TiffTag("MIFT")};
    TattributeFloat miRefractiveIndex{"miRefractiveIndex", "miri", TiffTag("MIRI")};
    TattributeBoolean miRefractions{"miRefractions", "mirc", TiffTag("MIRC")};
    TattributeBoolean miAbsorbs{"miAbsorbs", "miab", TiffTag("MIAB")};
    TattributeFloat miDiffuse{"miDiffuse", "midc", TiffTag("MIDC")};
    TcolorAttribute miColor{"miColor", "mic", TiffTag("MCO3")};
    TcolorAttribute miTransparency{"miTransparency", "mit", TiffTag("MTR3")};
    TattributeFloat miTranslucence{"miTranslucence", "mitc", TiffTag("MITC")};
    TattributeFloat miTranslucenceFocus{"miTranslucenceFocus", "mitf", TiffTag("MITF")};
    TvectorAttribute miNormalCamera{"miNormalCamera", "minc", TiffTag("MNC3")};

    static constexpr const char* kGlowShort[3] = {"ogr", "ogg", "ogb"};
    static constexpr const char* kRayDirectionShort[3] = {"rdx", "rdy", "rdz"};
    static constexpr const char* kPointCameraShort[3] = {"px", "py", "pz"};

    TdnVSLambert();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnLambert : public TnodeClass<TdnLambert, TrenderNode, TdnVSLambert> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnLambert", 0x169, "kLambert");

    enum { kBlackHole = 0, kSolidMatte = 1, kOpacityGain = 2 };
    // The largest batch computed at once; a longer run is shaded in pieces
    // so that every temporary lives on the stack.
    static constexpr unsigned kChunk = 64;
    // Ray slots per sample in a ray-index array: one per channel.
    static constexpr unsigned kSlotsPerSample = 3;

    SN_COLOR_ATTRIBUTE(Color, color)
    SN_COLOR_ATTRIBUTE(Transparency, transparency)
    SN_COLOR_ATTRIBUTE(AmbientColor, ambientColor)
    SN_COLOR_ATTRIBUTE(Incandescence, incandescence)
    SN_ATTRIBUTE(DiffuseCoeff, diffuse)
    SN_ATTRIBUTE(TranslucenceCoeff, translucence)
    SN_ATTRIBUTE(TranslucenceFocus, translucenceFocus)
    SN_ATTRIBUTE(TranslucenceDepth, translucenceDepth)
    SN_ATTRIBUTE(OpacityDepth, opacityDepth)
    SN_ATTRIBUTE(GlowIntensity, glowIntensity)
    SN_ATTRIBUTE(HideSource, hideSource)
    SN_ATTRIBUTE(MatteOpacityMode, matteOpacityMode)
    SN_ATTRIBUTE(MatteOpacityGain, matteOpacity)
    SN_ATTRIBUTE(MaterialAlphaGain, materialAlphaGain)
    SN_ATTRIBUTE(RtRefractedColor, refractions)
    SN_ATTRIBUTE(RefractiveIndex, refractiveIndex)
    SN_ATTRIBUTE(RefractedRayDepthLimit, refractionLimit)
    SN_ATTRIBUTE(SurfaceThickness, surfaceThickness)
    SN_ATTRIBUTE(FakeRefractionCaustics, shadowAttenuation)
    SN_ATTRIBUTE(TransparencyDepth, transparencyDepth)
    SN_ATTRIBUTE(LightAbsorbance, lightAbsorbance)
    SN_ATTRIBUTE(ChromaticAberration, chromaticAberration)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, outTransparency)
    SN_COLOR_ATTRIBUTE(OutGlowColor, outGlowColor)
    SN_COLOR_ATTRIBUTE(OutMatteOpacity, outMatteOpacity)
    SN_ATTRIBUTE(ObjectId, objectId)
    SN_ATTRIBUTE(PrimitiveId, primitiveId)
    SN_ATTRIBUTE(RaySampler, raySampler)
    SN_ATTRIBUTE(RayDepth, rayDepth)
    SN_ATTRIBUTE(RayInstance, rayInstance)
    SN_ATTRIBUTE(MediumRefractiveIndex, mediumRefractiveIndex)
    SN_VECTOR_ATTRIBUTE(RayDirection, rayDirection)
    SN_VECTOR_ATTRIBUTE(PointCamera, pointCamera)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_ATTRIBUTE(LightData, lightDataArray)
    SN_VECTOR_ATTRIBUTE(LightDirection, lightDirection)
    SN_COLOR_ATTRIBUTE(LightIntensity, lightIntensity)
    SN_ATTRIBUTE(LightAmbient, lightAmbient)
    SN_ATTRIBUTE(LightDiffuse, lightDiffuse)
    SN_ATTRIBUTE(LightSpecular, lightSpecular)
    SN_ATTRIBUTE(LightShadowFraction, lightShadowFraction)
    SN_ATTRIBUTE(PreShadowIntensity, preShadowIntensity)
    SN_ATTRIBUTE(LightBlindData, lightBlindData)

    // Current attribute values, read through the graph.
    void getColor(T3Float& value);
    void getTransparency(T3Float& value);
    void getIncandescence(T3Float& value);
    void getDiffuseCoeff(float& value);
    // glowIntensity, but a driven attribute whose static value is 0 answers
    // kDrivenGlow, so that a caller asking whether any glow can occur is told yes.
    void getGlowIntensity(float& value);
    static constexpr float kDrivenGlow = 1234.5677f;

    float translucenceThreshold() const { return fTranslucenceThreshold; }

    // Shading side.
    void shadingNodeInit(TframeSampleData*) override;
    void groupedAttrs(const Tattribute* attr, TattributeArray& group) override;
    void modifyAffects(const Tattribute* attr, TbitFieldFixedN& affects, TDNshadingEngine* engine, void* context) override;
    void endOfRender(TDNshadingEngine* engine) override;
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* context, TbitField64& mask) override;
    bool setDependentsDirty(TmsgDirty& msg) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) override;

    // The pieces the specular family reuses. All work on at most kChunk
    // samples; vectorComputePlug cuts longer runs.
    void computeLambert(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);
    void computeTransparency(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);
    void computeBlackHole(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);
    void accumulateRefraction(TdataBlock& block, unsigned start, unsigned count, T3Float* accumulator);
    // Writes rays from rays[rayCount] up. rayIndex holds kSlotsPerSample
    // entries per sample, of which a sample uses 3 with chromatic
    // aberration and 1 without; a slot without a ray keeps -1.
    void formRefractiveRays(TdataBlock& block, unsigned start, unsigned count, short* rayIndex, short& rayCount,
                            TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance);
    // Hide source and glow intensity after computeLambert, then the black hole.
    void finishColor(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);

    static TraySampler* raySamplerOf(TdataBlock& block, const Tattribute& attr, unsigned start, unsigned count);
    // Calls f(start, count) for each piece of at most kChunk samples.
    template <class F>
    static void forEachChunk(unsigned start, unsigned count, F&& f) {
        for (unsigned s = start; s < start + count; s += kChunk) f(s, std::min(kChunk, start + count - s));
    }

private:
    // The lower bound on a light's cosine for translucence; set per frame.
    float fTranslucenceThreshold = 0.5f * kTranslucenceDepthScale;
    static constexpr float kTranslucenceDepthScale = -11.5f;
};

// How many of the ray slots of a sample are used.
inline unsigned raySlotsOf(bool chromatic) { return chromatic ? 3u : 1u; }
