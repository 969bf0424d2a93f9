#pragma once
// TdnRamp: a colour ramp of keys (position, colour) read along a value the
// type makes of the UV (v, u, diagonal, angle, distance, box), or the
// product or mean of two lookups, or the four corners; with wave and noise
// on the UV and noise on hue, saturation and value.
#include "framework/settling_node.h"
#include "textures/texture_2d.h"

struct TdnVSRamp : TdependNodeVS {
    TattributeEnum type{"type", "t", TiffTag("TYPE")};
    TattributeEnum interpolation{"interpolation", "in", TiffTag("INTE")};
    TattributeCompound colorEntryList{"colorEntryList", "cel", TiffTag("LIST")};
    TattributeFloat position{"position", "ep", TiffTag("POSI")};
    TcolorAttribute color{"color", "ec", TiffTag("COL3")};
    TattributeFloat uWave{"uWave", "uw", TiffTag("UWAV")};
    TattributeFloat vWave{"vWave", "vw", TiffTag("VWAV")};
    TattributeFloat noise{"noise", "n", TiffTag("NOIS")};
    TattributeFloat noiseFreq{"noiseFreq", "nf", TiffTag("NFRE")};
    TattributeFloat hueNoise{"hueNoise", "hn", TiffTag("HNOI")};
    TattributeFloat satNoise{"satNoise", "sn", TiffTag("SNOI")};
    TattributeFloat valNoise{"valNoise", "vn", TiffTag("VNOI")};
    TattributeFloat hueNoiseFreq{"hueNoiseFreq", "hnf", TiffTag("HFRE")};
    TattributeFloat satNoiseFreq{"satNoiseFreq", "snf", TiffTag("SFRE")};
    TattributeFloat valNoiseFreq{"valNoiseFreq", "vnf", TiffTag("VFRE")};
    TdnVSRamp();
    bool setupDependencies(TdependencyMatrix& m) override;
};

// The keys of a ramp as one compute reads them, in list order.
struct TrampKeys {
    static constexpr unsigned kMaxKeys = 64;
    unsigned count = 0;
    float position[kMaxKeys];
    T3Float colour[kMaxKeys];
};

// The keys in position order, for a lookup by search: each distinct position
// (held to 1) once, with the colour of the first key in list order at it,
// which is the key a scan of the list in list order settles on.
struct TsortedRampKeys {
    unsigned keyCount = 0;  // the keys of the list, NaN positions included
    T3Float firstColour;    // what a single key shows wherever it stands
    unsigned count = 0;
    float position[TrampKeys::kMaxKeys];
    T3Float colour[TrampKeys::kMaxKeys];
};

class TdnRamp : public TnodeClass<TdnRamp, TsettlingNode<TdnRamp, TdnTx2D>, TdnVSRamp> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRamp", 497, "kRamp");
    enum Type : short {
        kVRamp = 0, kURamp, kDiagRamp, kRadialRamp, kCircularRamp, kBoxRamp, kUVRamp, kFourRamp, kTartanRamp,
    };
    enum Interpolation : short {
        kNoInterp = 0, kLinearInterp, kExpUpInterp, kExpDnInterp, kSmoothInterp, kBumpInterp, kSpikeInterp,
    };
    SN_ATTRIBUTE(Type, type)
    SN_ATTRIBUTE(Interpolation, interpolation)
    SN_ATTRIBUTE(ColorEntryList, colorEntryList)
    SN_ATTRIBUTE(Position, position)
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(UWave, uWave)
    SN_ATTRIBUTE(VWave, vWave)
    SN_ATTRIBUTE(Noise, noise)
    SN_ATTRIBUTE(NoiseFreq, noiseFreq)
    SN_ATTRIBUTE(HueNoise, hueNoise)
    SN_ATTRIBUTE(SatNoise, satNoise)
    SN_ATTRIBUTE(ValNoise, valNoise)
    SN_ATTRIBUTE(HueNoiseFreq, hueNoiseFreq)
    SN_ATTRIBUTE(SatNoiseFreq, satNoiseFreq)
    SN_ATTRIBUTE(ValNoiseFreq, valNoiseFreq)

    // The colour at `value` between the nearest keys below and above it.
    // `sample` picks the keys that sample sees when some key varies per sample.
    static void getRampColourAtValue(short interp, float value, TdataBlock& block, T3Float& out, unsigned sample = 0);
    static void getRampColourAtValue(short interp, float value, const TrampKeys& keys, T3Float& out);
    // Between lower key (low, L) and upper key (high, H) by the kind of
    // interpolation; a missing key has a position below 0 or above 1.
    // The same colour from keys sorted once, found by binary search.
    static void getRampColourAtValue(short interp, float value, const TsortedRampKeys& keys, T3Float& out);
    static void sortKeys(const TrampKeys& keys, TsortedRampKeys& sorted);
    static void computeOutputColor(short interp, float value, float low, float high, const T3Float& L, const T3Float& H, T3Float& out);
    // The keys as sample `sample` of the block sees them; true when a key's
    // position or colour varies per sample, so that other samples must read
    // their own.
    static bool readKeys(TdataBlock& block, TrampKeys& keys, unsigned sample = 0);

    // Gives a ramp with no keys its default keys: red at 0, green at 0.5, blue at 1.
    void addDefaultValuesIfEmpty();
    // The key at logical index `index`; false if there is none.
    bool getColourEntry(int index, float& position, T3Float& colour);
    void setPositionOfKey(int index, float position);
    void setColourEntry(int index, float position, const T3Float& colour);

    // Everything but the lookup, for tests: the value a type makes of a
    // wrapped UV (the UV and Four Corner types make a colour instead).
    static float sRampValue(short type, float u, float v);

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

    // A render whose keys, type, interpolation and noise and wave amounts
    // are the node's own values (nothing drives them) reads them and sorts
    // the keys once, in the on-demand step before the first compute.
    template <class F>
    void forEachSettled(F&& f) {
        f(fFixed, settledRoots(attrColorEntryList(), attrType(), attrInterpolation(), attrUWave(), attrVWave(), attrNoise(),
                               attrHueNoise(), attrSatNoise(), attrValNoise()));
    }
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    // What the on-demand step settles for the render: with fFixed.settled, no
    // noise or wave applies and the lookup uses fFixedValues.sorted (and .keys for the corners).
    struct Tfixed {
        short type = kVRamp, interp = kLinearInterp;
        TrampKeys keys;
        TsortedRampKeys sorted;
    };
    TsettledGroup fFixed;
    Tfixed fFixedValues;
    // The colour of one sample at a wrapped UV, by either form of the keys.
    template <class Keys>
    static T3Float colourAt(short type, short interp, float u, float v, const TrampKeys& keys, const Keys& lookup);
};
