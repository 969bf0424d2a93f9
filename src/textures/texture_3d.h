#pragma once
// TdnTx3D: the base of every solid texture, read at a point in space. It
// declares the attributes every solid texture has and the shared steps of
// their compute: placing the point, recognising a point outside the unit
// box, the soft blend towards the default colour near the box's faces, the
// colour effects, and the recursive warps of the solid fractals.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "shading/shading_types.h"
#include "textures/texture_attributes.h"

struct TdnVSTx3D : TdependNodeVS {
    TvectorAttribute pointObj{"pointObj", "po", TiffTag("PTO3")};
    TvectorAttribute pointCamera{"pointCamera", "p", TiffTag("PNT3")};
    TvectorAttribute filterSize{"filterSize", "fs", TiffTag("FSZ3")};
    TattributeFltMatrix placementMatrix{"placementMatrix", "pm", TiffTag("PMAT")};
    TattributeFltMatrix matrixEyeToWorld{"matrixEyeToWorld", "e2w", TiffTag("E2WM")};
    TattributeFloat blend{"blend", "b", TiffTag("BLEN")};
    TattributeBoolean local{"local", "lo", TiffTag("LOCA")};
    TattributeBoolean wrap{"wrap", "w", TiffTag("WRAP")};
    TattributeFloat filter{"filter", "f", TiffTag("FLTR")};
    TattributeFloat filterOffset{"filterOffset", "fo", TiffTag("FOFF")};
    TattributeBoolean invert{"invert", "i", TiffTag("INVR")};
    TattributeBoolean alphaIsLuminance{"alphaIsLuminance", "ail", TiffTag("ALUM")};
    TnamedTripleAttribute colorGain{"colorGain", "cg", TiffTag("GAI3"), {"colorGainR", "cgr", TiffTag("GANR")},
                                    {"colorGainG", "cgg", TiffTag("GANG")}, {"colorGainB", "cgb", TiffTag("GANB")}};
    TcolorAttribute colorOffset{"colorOffset", "co", TiffTag("COS3")};
    TattributeFloat alphaGain{"alphaGain", "ag", TiffTag("AGAI")};
    TattributeFloat alphaOffset{"alphaOffset", "ao", TiffTag("AOFS")};
    TcolorAttribute defaultColor{"defaultColor", "dc", TiffTag("DEF3")};
    TnamedTripleAttribute outColor{"outColor", "oc", TiffTag("OUT3"), {"outColorR", "ocr", TiffTag("ORED")},
                                   {"outColorG", "ocg", TiffTag("OGRE")}, {"outColorB", "ocb", TiffTag("OBLU")}};
    TattributeFloat outAlpha{"outAlpha", "oa", TiffTag("OALP")};

    TdnVSTx3D();
    bool setupDependencies(TdependencyMatrix& m) override;
    // For a solid texture's own description: its inputs affect outColor and outAlpha.
    static void affectsOutputs(TdependencyMatrix& m, std::initializer_list<const Tattribute*> inputs);
};

// The colour effects of a solid texture for one sample.
struct Ttx3dEffects {
    bool invert = false;
    T3Float gain{1, 1, 1}, offset{0, 0, 0};
    float alphaGain = 1, alphaOffset = 0;
    T3Float defaultColor{0.5f, 0.5f, 0.5f};
};

class TdnTx3D : public TnodeClass<TdnTx3D, TrenderNode, TdnVSTx3D> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnTx3D", 488, "kTexture3d", true);
    // A blend value at or above this leaves only the default colour.
    static constexpr float kFullBlend = 1.00001f;

    SN_VECTOR_ATTRIBUTE(PointObj, pointObj)
    SN_VECTOR_ATTRIBUTE(PointCamera, pointCamera)
    SN_VECTOR_ATTRIBUTE(FilterSize, filterSize)
    SN_ATTRIBUTE(PlacementMatrix, placementMatrix)
    SN_ATTRIBUTE(MatrixEyeToWorld, matrixEyeToWorld)
    SN_ATTRIBUTE(Blend, blend)
    SN_ATTRIBUTE(Local, local)
    SN_ATTRIBUTE(Wrap, wrap)
    SN_ATTRIBUTE(Filter, filter)
    SN_ATTRIBUTE(FilterOffset, filterOffset)
    SN_ATTRIBUTE(Invert, invert)
    SN_ATTRIBUTE(AlphaIsLuminance, alphaIsLuminance)
    SN_COLOR_ATTRIBUTE(ColorGain, colorGain)
    SN_COLOR_ATTRIBUTE(ColorOffset, colorOffset)
    SN_ATTRIBUTE(AlphaGain, alphaGain)
    SN_ATTRIBUTE(AlphaOffset, alphaOffset)
    SN_COLOR_ATTRIBUTE(DefaultColor, defaultColor)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_ATTRIBUTE(OutAlpha, outAlpha)

    // Maps the generic names "color", "alpha" and "point" to this node's.
    Tattribute* alternateAttr(const Tattribute* a) override;
    // outColor, one of its children, or outAlpha.
    static bool isColorOutput(const Tplug& plug);

    // The point in placement space: the object point with `local` on, else
    // the camera point taken to world space; then the placement matrix.
    static T3Float sPlacePoint(const T3Float& pointObj, const T3Float& pointCamera, bool local, const TfltMatrix& eyeToWorld,
                               const TfltMatrix& placement);
    // 0 deep inside the unit box, rising smoothly to 1 at its faces over a
    // band `blend` wide; 0 for a blend below 1e-05.
    static float sComputeBlend(const T3Float& p, float blend);
    static float computeBlend(TdataBlock& block, const T3Float& p);
    // With wrap off, a point outside the box -1 to 1 lies outside.
    static bool sOutside(const T3Float& p, bool wrap) {
        return !wrap && (p.x < -1.0f || p.x > 1.0f || p.y < -1.0f || p.y > 1.0f || p.z < -1.0f || p.z > 1.0f);
    }
    // True, with the default colour written, for a point outside.
    static bool checkOutside(TdataBlock& block, const T3Float& p, bool wrap);
    // outColor = defaultColor, outAlpha = its luminance.
    static void setToDefaultColor(TdataBlock& block);
    // |max(filter size) * max(0, filter) + filterOffset|.
    static float filteredSize(const T3Float& size, float filter, float filterOffset);
    // Invert, gains and offsets, then the blend b towards the default colour.
    static void sColorEffects(const Ttx3dEffects& e, float b, T3Float& colour, float& alpha);
    static void colorEffects(TdataBlock& block, float b, T3Float& colour, float& alpha);

    // The recursive warps of the solid fractals. recurrence sums `levels`
    // octaves (the last fractional) of value noise, each octave read at a
    // point displaced by the sum so far and scaled by `ratio` in amplitude;
    // the result lies within the sum of the amplitudes. recurrenceN is the
    // whole-octave form with the ratio 0.5. recurrence3 gives three
    // independent recurrences, a warp vector.
    static float recurrence(const T3Float& p, float levels, float ratio);
    static float recurrenceN(const T3Float& p, int octaves);
    static T3Float recurrence3(const T3Float& p, float levels, float ratio);
};
