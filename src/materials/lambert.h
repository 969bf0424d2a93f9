#pragma once
// TdnLambert: the diffuse surface, and the base of every surface material.
// It turns the colour inputs, the sample's light records and its ray context
// into outColor, outGlowColor, outTransparency and outMatteOpacity. The
// specular family derives from it and adds one term; transparency,
// refraction, black hole and glow are written here once for all of them.
#include <algorithm>

#include "framework/driven_inputs.h"
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "framework/settling_node.h"
#include "materials/light_terms.h"
#include "materials/surface_attributes.h"
#include "materials/surface_rays.h"
#include "shading/light_data.h"
#include "shading/ray_sampler.h"

class TlightCallbacks;
class TlightReader;

struct TdnVSLambert : TsurfaceDescription {
    // What the artist sets.
    TcolorAttribute color{"color", "c", TiffTag("COL3")};
    TcolorAttribute transparency{"transparency", "it", TiffTag("TRN3")};
    TcolorAttribute ambientColor{"ambientColor", "ambc", TiffTag("AMB3")};
    TcolorAttribute incandescence{"incandescence", "ic", TiffTag("INC3")};
    TattributeFloat diffuse{"diffuse", "dc", TiffTag("DIFC")};
    TsurfaceSettings settings;
    // Outputs, the sample's inputs and its lights.
    TsurfaceIO io;

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

    TdnVSLambert();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnLambert : public TnodeClass<TdnLambert, TsettlingNode<TdnLambert, TrenderNode>, TdnVSLambert> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnLambert", 0x169, "kLambert");

    enum { kBlackHole = kMatteBlackHole, kSolidMatte = kMatteSolid, kOpacityGain = kMatteOpacityGain };
    // The largest batch computed at once; a longer run is shaded in pieces
    // so that every temporary lives on the stack.
    static constexpr unsigned kChunk = kSurfaceChunk;
    // Ray slots per sample in a ray-index array: one per channel.
    static constexpr unsigned kSlotsPerSample = kSurfaceSlotsPerSample;

    SN_COLOR_ATTRIBUTE(Color, color)
    SN_COLOR_ATTRIBUTE(Transparency, transparency)
    SN_COLOR_ATTRIBUTE(AmbientColor, ambientColor)
    SN_COLOR_ATTRIBUTE(Incandescence, incandescence)
    SN_ATTRIBUTE(DiffuseCoeff, diffuse)
    SN_ATTRIBUTE(TranslucenceCoeff, settings.translucence)
    SN_ATTRIBUTE(TranslucenceFocus, settings.translucenceFocus)
    SN_ATTRIBUTE(TranslucenceDepth, settings.translucenceDepth)
    SN_ATTRIBUTE(OpacityDepth, settings.opacityDepth)
    SN_ATTRIBUTE(GlowIntensity, settings.glowIntensity)
    SN_ATTRIBUTE(HideSource, settings.hideSource)
    SN_ATTRIBUTE(MatteOpacityMode, settings.matteOpacityMode)
    SN_ATTRIBUTE(MatteOpacityGain, settings.matteOpacity)
    SN_ATTRIBUTE(MaterialAlphaGain, settings.materialAlphaGain)
    SN_ATTRIBUTE(RtRefractedColor, settings.refractions)
    SN_ATTRIBUTE(RefractiveIndex, settings.refractiveIndex)
    SN_ATTRIBUTE(RefractedRayDepthLimit, settings.refractionLimit)
    SN_ATTRIBUTE(SurfaceThickness, settings.surfaceThickness)
    SN_ATTRIBUTE(FakeRefractionCaustics, settings.shadowAttenuation)
    SN_ATTRIBUTE(TransparencyDepth, settings.transparencyDepth)
    SN_ATTRIBUTE(LightAbsorbance, settings.lightAbsorbance)
    SN_ATTRIBUTE(ChromaticAberration, settings.chromaticAberration)
    SN_COLOR_ATTRIBUTE(OutColor, io.outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, io.outTransparency)
    SN_COLOR_ATTRIBUTE(OutGlowColor, io.outGlowColor)
    SN_COLOR_ATTRIBUTE(OutMatteOpacity, io.outMatteOpacity)
    SN_ATTRIBUTE(ObjectId, io.objectId)
    SN_ATTRIBUTE(PrimitiveId, io.primitiveId)
    SN_ATTRIBUTE(RaySampler, io.raySampler)
    SN_ATTRIBUTE(RayDepth, io.rayDepth)
    SN_ATTRIBUTE(RayInstance, io.rayInstance)
    SN_ATTRIBUTE(MediumRefractiveIndex, io.mediumRefractiveIndex)
    SN_VECTOR_ATTRIBUTE(RayDirection, io.rayDirection)
    SN_VECTOR_ATTRIBUTE(PointCamera, io.pointCamera)
    SN_VECTOR_ATTRIBUTE(NormalCamera, io.normalCamera)
    SN_ATTRIBUTE(LightData, io.lightDataArray)
    SN_VECTOR_ATTRIBUTE(LightDirection, io.lightDirection)
    SN_COLOR_ATTRIBUTE(LightIntensity, io.lightIntensity)
    SN_ATTRIBUTE(LightAmbient, io.lightAmbient)
    SN_ATTRIBUTE(LightDiffuse, io.lightDiffuse)
    SN_ATTRIBUTE(LightSpecular, io.lightSpecular)
    SN_ATTRIBUTE(LightShadowFraction, io.lightShadowFraction)
    SN_ATTRIBUTE(PreShadowIntensity, io.preShadowIntensity)
    SN_ATTRIBUTE(LightBlindData, io.lightBlindData)

    // Current attribute values, read through the graph.
    void getColor(T3Float& value);
    void getTransparency(T3Float& value);
    void getIncandescence(T3Float& value);
    void getDiffuseCoeff(float& value);
    // glowIntensity, but a driven attribute whose static value is 0 answers
    // kDrivenGlow, so that a caller asking whether any glow can occur is told yes.
    void getGlowIntensity(float& value);
    static constexpr float kDrivenGlow = ::kDrivenGlow;

    float translucenceThreshold() const { return fTranslucenceThreshold; }

    // Shading side.
    void shadingNodeInit(TframeSampleData* data) override;
    // The inputs of computeLambert and the surface settings, settled per
    // render when nothing drives them.
    template <class F>
    void forEachSettled(F&& f) {
        f(fTranslucence, attrTranslucenceCoeff());
        f(fDiffuse, attrDiffuseCoeff());
        f(fFocus, attrTranslucenceFocus());
        f(fColor, attrColor());
        f(fIncandescence, attrIncandescence());
        f(fAmbient, attrAmbientColor());
        f(fTransparency, attrTransparency());
        fSurfaceSettled.forEachSettled(fsVs->settings, f);
    }
    void groupedAttrs(const Tattribute* attr, TattributeArray& group) override;
    void modifyAffects(const Tattribute* attr, TbitFieldFixedN& affects, TDNshadingEngine* engine, void* context) override;
    void endOfRender(TDNshadingEngine* engine) override;
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* context, TbitField64& mask) override;
    bool setDependentsDirty(TmsgDirty& msg) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) override;

    // The pieces the specular family reuses. All work on at most kChunk
    // samples; vectorComputePlug cuts longer runs.
    // `lights` are the batch's, found by the caller (a specular surface reads them too).
    void computeLambert(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count, const TlightReader& lights);
    void computeTransparency(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);
    void computeBlackHole(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);
    void accumulateRefraction(TraySampler* sampler, TdataBlock& block, unsigned start, unsigned count, T3Float* accumulator);
    // Writes rays from rays[rayCount] up. rayIndex holds kSlotsPerSample
    // entries per sample, of which a sample uses 3 with chromatic
    // aberration and 1 without; a slot without a ray keeps -1.
    void formRefractiveRays(TdataBlock& block, unsigned start, unsigned count, short* rayIndex, short& rayCount,
                            TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance);
    // Hide source and glow intensity after computeLambert, then the black hole.
    void finishColor(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);

    // The shared attribute groups of this class, for the shared surface code.
    TsurfaceAttributes surface() const { return {fsVs->settings, fsVs->io, &fSurfaceSettled}; }
    void readTransparency(TdataBlock& block, unsigned start, unsigned count, T3Float* out);
    static TraySampler* raySamplerOf(TdataBlock& block, unsigned start, unsigned count) {
        return surfaceRaySampler(block, sVsData().io, start, count);
    }
    template <class F>
    static void forEachChunk(unsigned start, unsigned count, F&& f) {
        forEachSurfaceChunk(start, count, f);
    }

private:
    // The lower bound on a light's cosine for translucence; set per frame.
    float fTranslucenceThreshold = 0.5f * kTranslucenceDepthScale;
    TsettledInput<float> fTranslucence, fDiffuse, fFocus;
    TsettledInput<T3Float> fColor, fIncandescence, fAmbient, fTransparency;
    TsettledSurface fSurfaceSettled;
};
