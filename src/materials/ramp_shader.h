#pragma once
// TdnRampShader: a surface whose colour, transparency, incandescence,
// specular colour, specular roll-off, reflectivity and environment are
// curves read at a value the shading itself makes (the light's angle, the
// facing angle, or the brightness), so that an artist paints the surface's
// response to light. Diffuse with forward scatter, translucence, a Blinn-like
// highlight, shadow colours; transparency, refraction, reflection, matte and
// glow come from the shared surface code (materials/surface_rays.h).
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "materials/light_terms.h"
#include "materials/surface_attributes.h"
#include "materials/surface_rays.h"
#include "utilities/remap.h"

// Each curve is a multi of (position, value, interpolation) keys, read like
// the remap nodes' curves: flat beyond the first and last keys.
struct TdnVSRampShader : TsurfaceDescription {
    TattributeFloat diffuse{"diffuse", "dc", TiffTag("DCEF")};
    TattributeFloat forwardScatter{"forwardScatter", "fsc", TiffTag("FSCT")};
    TcolorCurveAttribute color{"color", "clr", TiffTag("COLR"), TiffTag("CLPS"), TiffTag("CLCL"), TiffTag("CLIN")};
    TattributeEnum colorInput{"colorInput", "cin", TiffTag("CINP")};
    TcolorCurveAttribute transparency{"transparency", "it", TiffTag("ITSP"), TiffTag("ITPS"), TiffTag("ITCL"), TiffTag("ITIN")};
    TcolorCurveAttribute incandescence{"incandescence", "ic", TiffTag("INCA"), TiffTag("INPS"), TiffTag("INCL"), TiffTag("ININ")};
    TcolorCurveAttribute specularColor{"specularColor", "sc", TiffTag("SCOL"), TiffTag("SCPS"), TiffTag("SCCL"), TiffTag("SCIN")};
    TfloatCurveAttribute specularRollOff{"specularRollOff", "sro", TiffTag("SPRO"), TiffTag("SRPS"), TiffTag("SRFV"), TiffTag("SRIN")};
    TattributeFloat eccentricity{"eccentricity", "ec", TiffTag("ECCE")};
    TattributeFloat specularity{"specularity", "spl", TiffTag("SPLR")};
    TattributeFloat specularGlow{"specularGlow", "spg", TiffTag("SPGL")};
    TattributeInt16 reflectionLimit{"reflectionLimit", "fll", TiffTag("FLDE")};
    TfloatCurveAttribute reflectivity{"reflectivity", "rfl", TiffTag("REFL"), TiffTag("RFPS"), TiffTag("RFFV"), TiffTag("RFIN")};
    TcolorCurveAttribute environment{"environment", "env", TiffTag("ENVI"), TiffTag("ENPS"), TiffTag("ENCL"), TiffTag("ENIN")};
    TattributeEnum shadowMode{"shadowMode", "smd", TiffTag("SHMD")};
    TcolorAttribute shadowColor{"shadowColor", "shc", TiffTag("SHAC")};
    TattributeFloat shadowThreshold{"shadowThreshold", "sht", TiffTag("SHTH")};
    TcolorAttribute ambientColor{"ambientColor", "ambc", TiffTag("AMB3")};
    TsurfaceSettings settings;
    TsurfaceIO io;

    TdnVSRampShader();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnRampShader : public TnodeClass<TdnRampShader, TrenderNode, TdnVSRampShader> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRampShader", 0x170, "kRampShader");

    enum ColorInput : short { kLightAngle = 0, kFacingAngle, kBrightness, kNormalizedBrightness };
    enum ShadowMode : short { kSmNormal = 0, kSmShadedColor, kSmConstantColor };

    // What a curve with no keys reads as: the surface of a fresh node is a
    // grey, opaque, matt-ish plastic like a fresh Lambert with a highlight.
    static constexpr float kEmptyColor = 0.5f;
    static constexpr float kEmptySpecularColor = 0.5f;
    static constexpr float kEmptyRollOff = 0.7f;
    static constexpr float kEmptyReflectivity = 0.0f;

    SN_ATTRIBUTE(DiffuseCoeff, diffuse)
    SN_ATTRIBUTE(ForwardScatter, forwardScatter)
    SN_ATTRIBUTE(Color, color.whole)
    SN_ATTRIBUTE(ColorPosition, color.position)
    SN_COLOR_ATTRIBUTE(ColorColor, color.color)
    SN_ATTRIBUTE(ColorInterp, color.interp)
    SN_ATTRIBUTE(ColorInput, colorInput)
    SN_ATTRIBUTE(Transparency, transparency.whole)
    SN_ATTRIBUTE(TransparencyPosition, transparency.position)
    SN_COLOR_ATTRIBUTE(TransparencyColor, transparency.color)
    SN_ATTRIBUTE(TransparencyInterp, transparency.interp)
    SN_ATTRIBUTE(Incandescence, incandescence.whole)
    SN_ATTRIBUTE(IncandescencePosition, incandescence.position)
    SN_COLOR_ATTRIBUTE(IncandescenceColor, incandescence.color)
    SN_ATTRIBUTE(IncandescenceInterp, incandescence.interp)
    SN_ATTRIBUTE(SpecularColor, specularColor.whole)
    SN_ATTRIBUTE(SpecularColorPosition, specularColor.position)
    SN_COLOR_ATTRIBUTE(SpecularColorColor, specularColor.color)
    SN_ATTRIBUTE(SpecularColorInterp, specularColor.interp)
    SN_ATTRIBUTE(SpecularRollOff, specularRollOff.whole)
    SN_ATTRIBUTE(SpecularRollOffPosition, specularRollOff.position)
    SN_ATTRIBUTE(SpecularRollOffFloatValue, specularRollOff.floatValue)
    SN_ATTRIBUTE(SpecularRollOffInterp, specularRollOff.interp)
    SN_ATTRIBUTE(Eccentricity, eccentricity)
    SN_ATTRIBUTE(Specularity, specularity)
    SN_ATTRIBUTE(SpecularGlow, specularGlow)
    SN_ATTRIBUTE(ReflectionLimit, reflectionLimit)
    SN_ATTRIBUTE(Reflectivity, reflectivity.whole)
    SN_ATTRIBUTE(ReflectivityPosition, reflectivity.position)
    SN_ATTRIBUTE(ReflectivityFloatValue, reflectivity.floatValue)
    SN_ATTRIBUTE(ReflectivityInterp, reflectivity.interp)
    SN_ATTRIBUTE(Environment, environment.whole)
    SN_ATTRIBUTE(EnvironmentPosition, environment.position)
    SN_COLOR_ATTRIBUTE(EnvironmentColor, environment.color)
    SN_ATTRIBUTE(EnvironmentInterp, environment.interp)
    SN_ATTRIBUTE(ShadowMode, shadowMode)
    SN_COLOR_ATTRIBUTE(ShadowColor, shadowColor)
    SN_ATTRIBUTE(ShadowThreshold, shadowThreshold)
    SN_COLOR_ATTRIBUTE(AmbientColor, ambientColor)
    SN_ATTRIBUTE(TranslucenceCoeff, settings.translucence)
    SN_ATTRIBUTE(TranslucenceFocus, settings.translucenceFocus)
    SN_ATTRIBUTE(TranslucenceDepth, settings.translucenceDepth)
    SN_ATTRIBUTE(GlowIntensity, settings.glowIntensity)
    SN_ATTRIBUTE(HideSource, settings.hideSource)
    SN_ATTRIBUTE(MatteOpacityMode, settings.matteOpacityMode)
    SN_ATTRIBUTE(MatteOpacityGain, settings.matteOpacity)
    SN_ATTRIBUTE(RtRefractedColor, settings.refractions)
    SN_COLOR_ATTRIBUTE(OutColor, io.outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, io.outTransparency)
    SN_COLOR_ATTRIBUTE(OutGlowColor, io.outGlowColor)
    SN_COLOR_ATTRIBUTE(OutMatteOpacity, io.outMatteOpacity)
    SN_ATTRIBUTE(RaySampler, io.raySampler)
    SN_ATTRIBUTE(RayDepth, io.rayDepth)
    SN_VECTOR_ATTRIBUTE(RayDirection, io.rayDirection)
    SN_VECTOR_ATTRIBUTE(PointCamera, io.pointCamera)
    SN_VECTOR_ATTRIBUTE(NormalCamera, io.normalCamera)
    SN_ATTRIBUTE(LightData, io.lightDataArray)

    // glowIntensity, with a driven attribute whose static value is 0
    // answering as glowing (see TdnLambert::getGlowIntensity).
    void getGlowIntensity(float& value);
    // An averaged material for the viewport: the first key of each curve
    // (the empty-curve value where a curve has none).
    void getHardwareShadingAttributes(float& diffuse, T3Float& color, T3Float& transparency, T3Float& incandescence,
                                      T3Float& specularColor, float& eccentricity, float& specularity, float& reflectivity);

    // The translucence threshold prepared for this render.
    float translucenceThreshold() const { return fTranslucenceThreshold; }

    // Shading side.
    void shadingNodeInit(TframeSampleData*) override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    void groupedAttrs(const Tattribute* attr, TattributeArray& group) override;
    void modifyAffects(const Tattribute* attr, TbitFieldFixedN& affects, TDNshadingEngine* engine, void* context) override;
    void endOfRender(TDNshadingEngine* engine) override;
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* context, TbitField64& mask) override;
    bool setDependentsDirty(TmsgDirty& msg) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) override;

    // All work on at most kSurfaceChunk samples.
    void computeRampShaderOutput(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);
    void computeTransparency(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);
    // The reflected colour of each sample: its mirror ray's radiance where
    // reflectivity(value) is not 0 and a ray is traced, else the environment
    // curve at the mirror direction's height.
    void computeReflection(TdataBlock& block, unsigned start, unsigned count, const float* value, T3Float* reflected);
    void formRefractiveRays(TdataBlock& block, unsigned start, unsigned count, const float* value, short* rayIndex, short& rayCount,
                            TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance);
    void accumulateRefraction(TraySampler* sampler, TdataBlock& block, unsigned start, unsigned count, const float* value,
                              T3Float* accumulator);

private:
    TsurfaceAttributes surface() const { return {fsVs->settings, fsVs->io}; }
    // The ramp value of each sample by colorInput, with what the light loop
    // summed for it.
    struct TlitSample;
    void lightSamples(TdataBlock& block, unsigned start, unsigned count, bool highlights, TlitSample* out);
    void prepareTranslucence();
    void transparencyAt(TdataBlock& block, unsigned start, unsigned count, const float* value, T3Float* out);

    // The lower bound on a light's cosine for translucence; prepared once
    // per render.
    float fTranslucenceThreshold = 0.5f * kTranslucenceDepthScale;
};
