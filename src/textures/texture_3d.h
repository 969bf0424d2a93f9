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
#include "textures/texture_2d.h"
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

// The inputs every solid texture adds to the base: the reference points,
// which the renderer sets to the undeformed surface.
struct TdnVSSolid : TdependNodeVS {
    TvectorAttribute refPointObj{"refPointObj", "rpo", TiffTag("RPO3")};
    TvectorAttribute refPointCamera{"refPointCamera", "rpc", TiffTag("RPC3")};
    TdnVSSolid();
    bool setupDependencies(TdependencyMatrix& m) override;
};
// A solid texture that also sees the pixel's angle and the surface normal:
// its footprint follows the camera depth and the slant of the surface.
struct TdnVSSolidView : TdnVSSolid {
    TattributeFloat xPixelAngle{"xPixelAngle", "xpa", TiffTag("XPIX")};
    TvectorAttribute normalCamera{"normalCamera", "n", TiffTag("NCAM")};
    TdnVSSolidView();
    bool setupDependencies(TdependencyMatrix& m) override;
};
// `ripples` and `depth` of the fractal solid textures.
struct TsolidOctaveAttributes {
    TvectorAttribute ripples{"ripples", "r", TiffTag("RPL3")};
    TpairAttribute depth{"depth", "d", TiffTag("DEP2"), "depthMin", "dmn", TiffTag("DMIN"), "depthMax", "dmx", TiffTag("DMAX")};
    TsolidOctaveAttributes();
};

// The colour effects of a solid texture for one sample.
struct Ttx3dEffects {
    bool invert = false;
    T3Float gain{1, 1, 1}, offset{0, 0, 0};
    float alphaGain = 1, alphaOffset = 0;
    T3Float defaultColor{0.5f, 0.5f, 0.5f};
};

class TdnTx3D : public TnodeClass<TdnTx3D, TsettlingNode<TdnTx3D, TrenderNode>, TdnVSTx3D> {
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

    // The footprint of a sample in placement space, from the camera depth
    // z of the point, the pixel angle and the slant d = |n . p| of the
    // surface, times the placement's largest axis scale s and its
    // determinant det; `depthFactor` scales z^2. Floored at 1e-08; 1e10
    // when the surface is seen edge on.
    static float sPixelFootprint(const T3Float& pointCamera, const T3Float& normal, float pixelAngle, float scale, float det,
                                 float filter, float filterOffset, float depthFactor = 1.0f);
    // The largest axis scale of a placement and the absolute determinant.
    static void sPlacementScale(const TfltMatrix& placement, float& scale, float& det);
    // Fractional octave count -log2(w), held to the depth range; a range
    // whose maximum is not above its minimum (the default 0, 0) sets no
    // limit but kMaxLevels.
    static float sLevels(float width, T2Float depth);
    static constexpr float kMaxLevels = 24.0f;
    // A fractal sum of value noise: octave i reads noise3 at q * 2^i *
    // ripples + offset + i * step with amplitude ratio^i; the octave after
    // the whole ones is weighted by the fraction of `levels`.
    static float sFractalSum(const T3Float& q, float levels, float ratio, const T3Float& ripples, const T3Float& offset,
                             const T3Float& step);
    // The gradient of a height field of placement space at p, by central
    // differences of step h, taken back to the space of the sample point:
    // with q = p M, the gradient in p is M times the gradient in q.
    template <class Height>
    static T3Float sGradient(Height&& height, const T3Float& p, float h, const TfltMatrix& toPlacement) {
        T3Float g((height(p + T3Float(h, 0, 0)) - height(p - T3Float(h, 0, 0))) / (2.0f * h),
                  (height(p + T3Float(0, h, 0)) - height(p - T3Float(0, h, 0))) / (2.0f * h),
                  (height(p + T3Float(0, 0, h)) - height(p - T3Float(0, 0, h))) / (2.0f * h));
        const auto& m = toPlacement.m;
        return T3Float(m[0][0] * g.x + m[0][1] * g.y + m[0][2] * g.z, m[1][0] * g.x + m[1][1] * g.y + m[1][2] * g.z,
                       m[2][0] * g.x + m[2][1] * g.y + m[2][2] * g.z);
    }
    // The normal n tilted against the tangential part of a height gradient
    // g scaled by `depth`, normalised; n itself where the result vanishes.
    static T3Float sBumpNormal(const T3Float& n, const T3Float& g, float depth);

    // The placement switches and colour effects, read once per render when
    // nothing drives them: the solid texture batch takes them.
    struct TsettledSolid {
        TsettledInput<bool> local, wrap;
        TsettledInput<float> blend, filter, filterOffset;
        TsettledInput<T3Float> defaultColor;
        TsettledColorEffects effects;
    };
    const TsettledSolid& settledSolid() const { return fSettled; }
    template <class F>
    void forEachSettled(F&& f) {
        f(fSettled.local, attrLocal());
        f(fSettled.wrap, attrWrap());
        f(fSettled.blend, attrBlend());
        f(fSettled.filter, attrFilter());
        f(fSettled.filterOffset, attrFilterOffset());
        f(fSettled.defaultColor, attrDefaultColor());
        fSettled.effects.forEach(*this, f);
    }

private:
    TsettledSolid fSettled;
};

// The handles of a solid texture's colour effects, read by pointer and
// stride; on the texture's settled values where it has them.
struct Ttx3dEffectsHandles {
    TdataHandle invert, alphaIsLuminance, colorGain, colorOffset, alphaGain, alphaOffset, defaultColor;
    Ttx3dEffectsHandles(TdataBlock& block, unsigned first, unsigned count, const TdnTx3D* texture = nullptr);
    Ttx3dEffects at(unsigned i) const;
};

// The three-pass form of a solid texture's vector compute. begin() runs the
// shared first steps of a sample: the placed point, the outside test and
// the edge blend; a sample it turns away shows the default colour. The
// pattern then sets weights and its own colour as in Ttx2dBatch, and
// finish() computes the lazy inputs, mixes, and applies the colour effects
// with the blend.
template <unsigned kInputs>
class Ttx3dBatch : public Ttx2dBatch<kInputs> {
    using Base = Ttx2dBatch<kInputs>;

public:
    Ttx3dBatch(TdataBlock& block, unsigned first, unsigned count, const Tattribute& refPointObj, const Tattribute& refPointCamera,
               const TdnTx3D& texture)
        : Base(first, count), fTexture(texture), fRefObj(block.inputValue(refPointObj, first, count)),
          fRefCamera(block.inputValue(refPointCamera, first, count)),
          fLocal(settledOrRead(texture.settledSolid().local, block, TdnTx3D::saLocal(), first, count)),
          fWrap(settledOrRead(texture.settledSolid().wrap, block, TdnTx3D::saWrap(), first, count)),
          fBlend(settledOrRead(texture.settledSolid().blend, block, TdnTx3D::saBlend(), first, count)),
          fEyeToWorld(block.inputValue(TdnTx3D::saMatrixEyeToWorld(), first, count)),
          fPlacement(block.inputValue(TdnTx3D::saPlacementMatrix(), first, count)),
          fFilter(settledOrRead(texture.settledSolid().filter, block, TdnTx3D::saFilter(), first, count)),
          fFilterOffset(settledOrRead(texture.settledSolid().filterOffset, block, TdnTx3D::saFilterOffset(), first, count)),
          fFilterSize(block.inputValue(TdnTx3D::saFilterSize(), first, count)),
          fDefault(settledOrRead(texture.settledSolid().defaultColor, block, TdnTx3D::saDefaultColor(), first, count)) {
        if (count > kBatchSize) {
            fBlendHeap.reset(new float[count]);
            fBlends = fBlendHeap.get();
        }
    }

    // The placed point of sample i; false when the sample shows only the
    // default colour (outside the box with wrap off, or blended away).
    bool begin(unsigned i, T3Float& p) {
        p = TdnTx3D::sPlacePoint(fRefObj.asFloat3(i), fRefCamera.asFloat3(i), fLocal.asBool(i),
                                 fEyeToWorld.template as<TfltMatrix>(i), fPlacement.template as<TfltMatrix>(i));
        bool wrap = fWrap.asBool(i);
        float b = wrap ? 0.0f : TdnTx3D::sComputeBlend(p, fBlend.asFloat(i));
        fBlends[i - this->first()] = b;
        if (TdnTx3D::sOutside(p, wrap) || b >= TdnTx3D::kFullBlend) {
            this->setOutside(i, fDefault.asFloat3(i));
            return false;
        }
        return true;
    }
    const T3Float& pointCamera(unsigned i) const { return fRefCamera.asFloat3(i); }
    // The footprint of sample i seen through the pixel angle.
    float pixelFootprint(unsigned i, const T3Float& normal, float pixelAngle, float depthFactor = 1.0f) const {
        float scale, det;
        TdnTx3D::sPlacementScale(fPlacement.template as<TfltMatrix>(i), scale, det);
        return TdnTx3D::sPixelFootprint(fRefCamera.asFloat3(i), normal, pixelAngle, scale, det, fFilter.asFloat(i),
                                        fFilterOffset.asFloat(i), depthFactor);
    }
    // The footprint of sample i from the renderer's filter size, for the
    // classes that do not see the pixel angle.
    float filterFootprint(unsigned i) const {
        float scale, det;
        TdnTx3D::sPlacementScale(fPlacement.template as<TfltMatrix>(i), scale, det);
        float w = TdnTx3D::filteredSize(fFilterSize.asFloat3(i), fFilter.asFloat(i), fFilterOffset.asFloat(i)) * scale;
        return w > 1e-08f ? w : 1e-08f;
    }
    // The map from the sample's point to placement space.
    TfltMatrix toPlacement(unsigned i) const {
        const TfltMatrix& placement = fPlacement.template as<TfltMatrix>(i);
        return fLocal.asBool(i) ? placement : fEyeToWorld.template as<TfltMatrix>(i) * placement;
    }

    // Lazy inputs, mix, effects and blend. Alpha: the pattern's, or the
    // colour's luminance (before the effects) when `alphaFromColour` or
    // alphaIsLuminance says so.
    void finish(TdataBlock& block, const Tattribute* const* inputs, const Tattribute& outColor, const Tattribute& outAlpha,
                bool alphaFromColour = false) {
        TdataHandle in[kInputs > 0 ? kInputs : 1];
        for (unsigned k = 0; k < kInputs; ++k) in[k] = this->computeInput(block, k, *inputs[k]);
        Ttx3dEffectsHandles effects(block, this->first(), this->count(), &fTexture);
        TdataHandle color = block.outputValue(outColor, this->first(), this->count());
        TdataHandle alpha = block.outputValue(outAlpha, this->first(), this->count());
        for (unsigned i = this->first(); i < this->first() + this->count(); ++i) {
            const typename Base::Record& r = this->at(i);
            T3Float c = r.own;
            float a = r.alpha, b = 0.0f;
            if (!r.done) {
                for (unsigned k = 0; k < kInputs; ++k)
                    if (r.need[k]) c = c + in[k].asFloat3(i) * r.weight[k];
                if (alphaFromColour || effects.alphaIsLuminance.asBool(i)) a = luminance(c);
                b = fBlends[i - this->first()];
            }
            TdnTx3D::sColorEffects(effects.at(i), b, c, a);
            color.asFloat3(i) = c;
            alpha.asFloat(i) = a;
        }
        block.setClean(outColor);
        block.setClean(outAlpha);
    }

private:
    const TdnTx3D& fTexture;
    TdataHandle fRefObj, fRefCamera, fLocal, fWrap, fBlend, fEyeToWorld, fPlacement, fFilter, fFilterOffset, fFilterSize,
        fDefault;
    float fBlendLocal[kBatchSize] = {};
    float* fBlends = fBlendLocal;
    std::unique_ptr<float[]> fBlendHeap;
};

// The common form of a solid texture with no colour inputs: the value
// `pattern(i, p)` returns in all channels, alpha the same value unless
// alphaIsLuminance.
template <class Node, class Pattern>
void computeSolidValue(Node& node, TdataBlock& block, unsigned first, unsigned count, Pattern&& pattern) {
    Ttx3dBatch<0> batch(block, first, count, node.attrRefPointObj(), node.attrRefPointCamera(), node);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        float value = pattern(i, p, batch);
        batch.setOwn(i, T3Float(value, value, value), value);
    }
    batch.finish(block, nullptr, node.attrOutColor(), node.attrOutAlpha());
}
