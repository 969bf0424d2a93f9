#pragma once
// TdnTx2D: the base of every texture read at a UV point. It declares the
// attributes every 2D texture has and the shared steps of their compute:
// recognising a sample outside the texture, the filter width, the default
// colour and the colour effects. Ttx2dBatch carries the three-pass form of a
// texture's vector compute: a first pass runs the pattern and records, per
// sample, how much of each colour input it needs; the inputs are then
// computed only for the samples that need them; a last pass mixes.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>

#include "framework/host/array.h"
#include "framework/host/attribute_groups.h"
#include "framework/host/double_math.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "framework/scratch_array.h"
#include "framework/settling_node.h"
#include "shading/shading_types.h"
#include "textures/texture_attributes.h"

// The placement writes kOutsideUv to both coordinates of a sample that lies
// outside the texture; a texture tests with kOutsideUvTest.
constexpr float kOutsideUv = -10000000.0f;
constexpr float kOutsideUvTest = -1e7f;
// An input whose weight is below this is neither computed nor read.
constexpr float kWeightEpsilon = 1e-5f;

// Baked colours: red, green, blue and transparency in x, y, z, w.
using T4dDblVectorArray = TtypedArray<T4dDblVector>;

inline float luminance(const T3Float& c) { return 0.3f * c.x + 0.59f * c.y + 0.11f * c.z; }
// A coordinate outside 0 to 1 brought into it by its floor.
inline float wrapToUnit(float x) { return (x < 0.0f || x > 1.0f) ? x - std::floor(x) : x; }
// -log of the filter width seen by a fractal's octaves: x = 32 fw, held
// between 32e-8 and 0.5. Divided by log 2 it is the number of octaves.
inline float octaveLogForWidth(float fw) {
    float x = (fw > 1e-08f ? fw : 1e-08f) * 32.0f;
    return -std::log(x < 0.5f ? x : 0.5f);
}
inline bool isOutsideUv(const T2Float& uv) { return uv.x <= kOutsideUvTest && uv.y <= kOutsideUvTest; }

struct TdnVSTx2D : TdependNodeVS {
    TpairAttribute uvCoord{"uvCoord", "uv", TiffTag("UVPT"), "uCoord", "u", TiffTag("UPNT"), "vCoord", "v", TiffTag("VPNT")};
    TpairAttribute uvFilterSize{"uvFilterSize", "fs", TiffTag("FSZ2"), "uvFilterSizeX", "fsx", TiffTag("FSZX"),
                                "uvFilterSizeY", "fsy", TiffTag("FSZY")};
    TattributeFloat filter{"filter", "f", TiffTag("FLTR")};
    TattributeFloat filterOffset{"filterOffset", "fo", TiffTag("FOFF")};
    TattributeBoolean invert{"invert", "i", TiffTag("INVR")};
    TattributeBoolean alphaIsLuminance{"alphaIsLuminance", "ail", TiffTag("ALUM")};
    TnamedTripleAttribute colorGain{"colorGain", "cg", TiffTag("GAIN"), {"colorGainR", "cgr", TiffTag("GANR")},
                                    {"colorGainG", "cgg", TiffTag("GANG")}, {"colorGainB", "cgb", TiffTag("GANB")}};
    TcolorAttribute colorOffset{"colorOffset", "co", TiffTag("COS3")};
    TattributeFloat alphaGain{"alphaGain", "ag", TiffTag("AGAI")};
    TattributeFloat alphaOffset{"alphaOffset", "ao", TiffTag("AOFS")};
    TcolorAttribute defaultColor{"defaultColor", "dc", TiffTag("DEF3")};
    TnamedTripleAttribute outColor{"outColor", "oc", TiffTag("OUT3"), {"outColorR", "ocr", TiffTag("ORED")},
                                   {"outColorG", "ocg", TiffTag("OGRE")}, {"outColorB", "ocb", TiffTag("OBLU")}};
    TattributeFloat outAlpha{"outAlpha", "oa", TiffTag("OALP")};

    TdnVSTx2D();
    bool setupDependencies(TdependencyMatrix& m) override;
    // For a texture's own description: its inputs affect outColor and outAlpha.
    static void affectsOutputs(TdependencyMatrix& m, std::initializer_list<const Tattribute*> inputs);
};

class TdnTx2D;

// The colour effects every texture has, read once per render when nothing
// drives them (most textures leave them at their defaults). The 2D and the
// solid texture bases list them against their own attributes of these names.
struct TsettledColorEffects {
    TsettledInput<bool> invert, alphaIsLuminance;
    TsettledInput<T3Float> colorGain, colorOffset;
    TsettledInput<float> alphaGain, alphaOffset;
    template <class Texture, class F>
    void forEach(const Texture& texture, F&& f) {
        f(invert, texture.attrInvert());
        f(alphaIsLuminance, texture.attrAlphaIsLuminance());
        f(colorGain, texture.attrColorGain());
        f(colorOffset, texture.attrColorOffset());
        f(alphaGain, texture.attrAlphaGain());
        f(alphaOffset, texture.attrAlphaOffset());
    }
};

// The handles of the colour effects, read by pointer and stride; on the
// texture's settled values where it has them.
struct Ttx2dEffects {
    TdataHandle invert, alphaIsLuminance, colorGain, colorOffset, alphaGain, alphaOffset;
    Ttx2dEffects(TdataBlock& block, unsigned first, unsigned count, const TdnTx2D* texture = nullptr);
    // Invert, then gain and offset; no clamp.
    void apply(unsigned i, T3Float& colour, float& alpha) const;

    // The effects of one sample as values, for a loop that holds them.
    struct Values {
        bool invert, alphaIsLuminance;
        T3Float gain, offset;
        float alphaGain, alphaOffset;
        // The same arithmetic as apply().
        void apply(T3Float& colour, float& alpha) const {
            if (invert) {
                colour = T3Float(1.0f - colour.x, 1.0f - colour.y, 1.0f - colour.z);
                alpha = 1.0f - alpha;
            }
            colour = T3Float(colour.x * gain.x + offset.x, colour.y * gain.y + offset.y, colour.z * gain.z + offset.z);
            alpha = alpha * alphaGain + alphaOffset;
        }
    };
    Values values(unsigned i) const {
        return {invert.asBool(i), alphaIsLuminance.asBool(i), colorGain.asFloat3(i), colorOffset.asFloat3(i), alphaGain.asFloat(i),
                alphaOffset.asFloat(i)};
    }
    // No effect varies per sample.
    bool constant() const {
        return !invert.isVariable() && !alphaIsLuminance.isVariable() && !colorGain.isVariable() && !colorOffset.isVariable() &&
               !alphaGain.isVariable() && !alphaOffset.isVariable();
    }
};

// Per-sample scratch of one vector compute, for a texture with kInputs lazy
// colour inputs. A batch stands on the caller's stack; a larger call (not
// one the engine makes) takes the heap.
template <unsigned kInputs>
class Ttx2dBatch {
public:
    struct Record {
        float weight[kInputs > 0 ? kInputs : 1];
        T3Float own;  // the colour the pattern makes by itself
        float alpha;
        uint8_t need[kInputs > 0 ? kInputs : 1];
        uint8_t done;  // outside: default colour, no input read
    };

    // `texture` lends its settled colour effects; without it they are read.
    Ttx2dBatch(unsigned first, unsigned count, const TdnTx2D* texture = nullptr) : fFirst(first), fCount(count), fTexture(texture) {
        if (count > kBatchSize) {
            fHeap.reset(new Record[count]);
            fRecords = fHeap.get();
        }
        for (unsigned k = 0; k < count; ++k) new (&fRecords[k]) Record{};
    }
    Ttx2dBatch(const Ttx2dBatch&) = delete;
    Ttx2dBatch& operator=(const Ttx2dBatch&) = delete;

    Record& at(unsigned i) { return fRecords[i - fFirst]; }
    unsigned first() const { return fFirst; }
    unsigned count() const { return fCount; }

    // The pattern's result for sample i: its own colour and alpha.
    void setOwn(unsigned i, const T3Float& colour, float alpha) {
        Record& r = at(i);
        r.own = colour;
        r.alpha = alpha;
    }
    // Sample i needs input k with weight w (ignored below the threshold).
    void setWeight(unsigned k, unsigned i, float w) {
        Record& r = at(i);
        r.weight[k] = w;
        r.need[k] = w >= kWeightEpsilon;
    }
    // Sample i lies outside: the default colour with its luminance as alpha.
    void setOutside(unsigned i, const T3Float& defaultColour) {
        Record& r = at(i);
        r.own = defaultColour;
        r.alpha = luminance(defaultColour);
        r.done = 1;
    }

    // The lazy pass and the mix. Each input is computed for the samples
    // that need it, then the colour is the pattern's own colour
    // plus the weighted inputs; alpha is the pattern's, or the colour's
    // luminance when `alphaFromColour` or alphaIsLuminance says so; then the
    // colour effects. `clampAtZero` holds each channel of the mix at 0 from
    // below. Writes outColor and outAlpha.
    // Computes input k now, for the samples that need it so far,
    // for a pattern that must see an input before it can settle its
    // weights. The weights set afterwards may only drop samples: finish
    // does not compute the input again.
    const TdataHandle& computeInput(TdataBlock& block, unsigned k, const Tattribute& input) {
        fReady[k] = true;
        if (block.inputAtHand(input, fIn[k])) return fIn[k];
        // One read per 64 samples, naming the samples that need the input.
        for (unsigned base = fFirst, end = fFirst + fCount; base < end; base += 64) {
            const unsigned n = std::min(64u, end - base);
            uint64_t needed = 0;
            for (unsigned i = 0; i < n; ++i) {
                const Record& r = at(base + i);
                needed |= uint64_t(r.need[k] && !r.done) << i;
            }
            if (!needed) continue;
            fIn[k] = block.inputValue(input, base, n, needed);
            // A constant serves every sample: the first read is the only one.
            if (!fIn[k].isVariable()) break;
        }
        return fIn[k];
    }

    void finish(TdataBlock& block, const Tattribute* const* inputs, const Tattribute& outColor, const Tattribute& outAlpha,
                bool alphaFromColour = false, bool clampAtZero = false) {
        TdataHandle* in = fIn;
        for (unsigned k = 0; k < kInputs; ++k)
            if (!fReady[k]) computeInput(block, k, *inputs[k]);
        Ttx2dEffects effects(block, fFirst, fCount, fTexture);
        TdataHandle color = block.outputValue(outColor, fFirst, fCount);
        TdataHandle alpha = block.outputValue(outAlpha, fFirst, fCount);
        // effectsAt(i): the colour effects of sample i.
        auto mix = [&](auto&& effectsAt) {
            for (unsigned i = fFirst; i < fFirst + fCount; ++i) {
                const Record& r = at(i);
                const Ttx2dEffects::Values& e = effectsAt(i);
                T3Float c = r.own;
                float a = r.alpha;
                if (!r.done) {
                    if constexpr (kInputs > 0)
                        for (unsigned k = 0; k < kInputs; ++k)
                            if (r.need[k]) c = c + in[k].asFloat3(i) * r.weight[k];
                    if (clampAtZero) c = T3Float(c.x > 0.0f ? c.x : 0.0f, c.y > 0.0f ? c.y : 0.0f, c.z > 0.0f ? c.z : 0.0f);
                    if (alphaFromColour || e.alphaIsLuminance) a = luminance(c);
                }
                e.apply(c, a);
                color.asFloat3(i) = c;
                alpha.asFloat(i) = a;
            }
        };
        if (effects.constant()) {
            // The effects of the whole batch, read once.
            const Ttx2dEffects::Values batchEffects = effects.values(fFirst);
            mix([&](unsigned) -> const Ttx2dEffects::Values& { return batchEffects; });
        } else {
            Ttx2dEffects::Values sampleEffects;
            mix([&](unsigned i) -> const Ttx2dEffects::Values& { return sampleEffects = effects.values(i); });
        }
        block.setClean(outColor);
        block.setClean(outAlpha);
    }

private:
    unsigned fFirst, fCount;
    const TdnTx2D* fTexture;
    TdataHandle fIn[kInputs > 0 ? kInputs : 1];
    bool fReady[kInputs > 0 ? kInputs : 1] = {};
    TscratchArray<Record, kBatchSize> fLocal;  // only the call's samples' records are made
    Record* fRecords = fLocal;
    std::unique_ptr<Record[]> fHeap;
};

class TdnTx2D : public TnodeClass<TdnTx2D, TsettlingNode<TdnTx2D, TrenderNode>, TdnVSTx2D> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnTx2D", 487, "kTexture2d", true);
    SN_PAIR_ATTRIBUTE(UvCoord, uvCoord, U, V)
    SN_PAIR_ATTRIBUTE(UvFilterSize, uvFilterSize, X, Y)
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

    // Maps the generic names "color", "alpha" and "uv" to this node's.
    Tattribute* alternateAttr(const Tattribute* a) override;

    // outColor, one of its children, or outAlpha.
    static bool isColorOutput(const Tplug& plug);

    // Scalar helpers on the block's current element.
    // True, with the default colour written, when both coordinates are at or
    // below -1e7.
    static bool checkOutside(TdataBlock& block, const T2Float& uv);
    // outColor = defaultColor, outAlpha = its luminance.
    static void setToDefaultColor(TdataBlock& block);
    // |max(filter size X, Y) * max(0, filter) + filterOffset|.
    static float filteredSize(TdataBlock& block);
    static float filteredSize(const T2Float& size, float filter, float filterOffset);
    // Invert, gains and offsets (alphaIsLuminance is each texture's own step).
    static void colorEffects(TdataBlock& block, T3Float& colour, float& alpha);

    // Baking: the colour and alpha at each (u[i], v[i]) of the lists, for
    // the plugs asked for. The base knows no pattern: black, alpha 0 and a
    // transparency (w) of 1. The procedural textures answer with their own
    // arithmetic through mapUVtoColor. False when the lists differ in length.
    virtual bool mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                            const TdoubleArray& v);
    // outColor and outAlpha at one texture UV, by the node's own compute.
    // False when uvCoord is driven by a connection (the UV cannot be set).
    bool mapUVtoColor(float u, float v, T3Float& colour, float& alpha);
    // The value of a colour input: read through its connection if it has one.
    static bool getColorAttrValue(TdependNode* node, const Tattribute& attribute, T3Float& colour);
    // The 2D texture whose output drives `plug`, or null.
    static TdnTx2D* getInputTxNode(const Tplug& plug);

    // Ttx2dEffects takes the settled colour effects.
    const TsettledColorEffects& settledEffects() const { return fEffects; }
    template <class F>
    void forEachSettled(F&& f) {
        fEffects.forEach(*this, f);
    }

protected:
    // mapUVtoClr of a texture that computes from its UV alone.
    bool mapUVtoClrByCompute(const TdoubleArray& u, const TdoubleArray& v, T4dDblVectorArray* colours, TdoubleArray* alphas);

private:
    TsettledColorEffects fEffects;
};

// The common form of a texture with no colour inputs: for each sample,
// outside samples take the default colour and the others the value
// `pattern(i, uv)` returns in all channels (alpha: the same value unless
// alphaIsLuminance). Then the colour effects. Nothing is computed lazily.
template <class Pattern>
void computeValueTexture(TdnTx2D& node, TdataBlock& block, unsigned first, unsigned count, Pattern&& pattern) {
    TdataHandle uv = block.inputValue(node.attrUvCoord(), first, count);
    TdataHandle fallback = block.inputValue(node.attrDefaultColor(), first, count);
    Ttx2dBatch<0> batch(first, count, &node);
    for (unsigned i = first; i < first + count; ++i) {
        T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            continue;
        }
        float value = pattern(i, p);
        batch.setOwn(i, T3Float(value, value, value), value);
    }
    batch.finish(block, nullptr, node.attrOutColor(), node.attrOutAlpha());
}
